#include "board_state.h"

#include <algorithm>

#include "acquisition.h"

#include "parameterInfo.h"
#include "pelagon_errors.h"

using vboard::Access;
using vboard::DesignModel;
using vboard::Path;
using vboard::RegisterModel;

namespace {

// What a board with no camera attached reads at power-up.
struct ResetDouble {
    const char* name;
    double value;
};
constexpr ResetDouble kBoardStatus[] = {
    {"Device1_Process0_BoardStatus_FpgaTemperature", 48.3},
    {"Device1_Process0_BoardStatus_FpgaVccInt", 0.951},
    {"Device1_Process0_BoardStatus_FpgaVccAux", 1.802},
    {"Device1_Process0_BoardStatus_BoardPower", 11.2},
    {"Device1_Process0_BoardStatus_CxpChipTemperature", 41.5},
    {"Device1_Process0_BoardStatus_RamChipTemperature", 38.9},
    {"Device1_Process0_BoardStatus_CxpPowerRegulatorTemperature", 44.2},
    {"Device1_Process0_BoardStatus_PowerRegulatorTemperature", 46.8},
};
constexpr const char* kFpgaDnaName = "Device1_Process0_BoardStatus_FpgaDNA";
constexpr uint64_t kFpgaDna = 0x1B4E2F09A7C3D15;  // 57 bits, as the FPGA reports it

}  // namespace

void ZUdevice::bind(std::shared_ptr<const DesignModel> model) {
    design = std::move(model);
    cells.assign(design->registers.size(), Cells{});
    for (std::size_t i = 0; i < cells.size(); ++i)
        if (design->registers[i].kind != 'S')
            cells[i].raw.assign(design->registers[i].count, 0);

    // Reset values the design does not have (another image) or that do not
    // fit its registers are left at zero.
    auto resetText = [this](const char* name, const std::string& text) {
        int n = 0;
        const RegisterModel* r = reg(name, &n);
        if (r && r->kind == 'S')
            cells[static_cast<std::size_t>(n - 1)].text = text.substr(0, r->maxStringLength());
    };
    resetText("Device1_Process0_AppletProperties_AppletUid", design->appletUid);
    resetText("Device1_Process0_AppletProperties_BuildTime", design->buildTime);
    for (const ResetDouble& d : kBoardStatus) {
        int n = 0;
        const RegisterModel* r = reg(d.name, &n);
        uint64_t raw = 0;
        if (r && r->kind == 'D' && r->encodeDouble(d.value, raw))
            cells[static_cast<std::size_t>(n - 1)].raw[0] = raw;
    }
    int n = 0;
    const RegisterModel* dna = reg(kFpgaDnaName, &n);
    if (dna && dna->kind == 'U' && kFpgaDna <= dna->maxRaw())
        cells[static_cast<std::size_t>(n - 1)].raw[0] = kFpgaDna;
    emulation = std::make_unique<vboard::DesignEmulation>(*this);
    sync();
}

void ZUdevice::sync() {
    if (emulation)
        emulation->sync(vboard::Clock::now());
}

void ZUdevice::written(int n) {
    if (emulation)
        emulation->written(n, vboard::Clock::now());
}

const RegisterModel* ZUdevice::reg(long long n) const {
    if (!design || n < 1 || n > static_cast<long long>(design->registers.size()))
        return nullptr;
    return &design->registers[static_cast<std::size_t>(n - 1)];
}

const RegisterModel* ZUdevice::reg(const std::string& name, int* number) const {
    int n = design ? design->findRegister(name) : -1;
    if (number)
        *number = n;
    return reg(n);
}

int ZUdevice::takeFault(const RegisterModel& r, Access access) {
    int code = 0;
    for (auto it = faults.begin(); it != faults.end();) {
        if (it->access == access && it->name == r.name && --it->remaining == 0) {
            if (code == 0)
                code = it->code;
            it = faults.erase(it);
        } else {
            ++it;
        }
    }
    return code;
}

uint32_t ZUdevice::journalDesign() {
    if (journalDesigns.empty() || journalDesigns.back() != design) journalDesigns.push_back(design);
    return static_cast<uint32_t>(journalDesigns.size() - 1);
}

std::vector<vboard::JournalEntry> ZUdevice::journalEntries() const {
    std::vector<vboard::JournalEntry> out;
    out.reserve(journal.size());
    for (const JournalRecord& j : journal) {
        const RegisterModel& r = journalDesigns[j.design]->registers[static_cast<std::size_t>(j.reg - 1)];
        if (r.kind == 'S') {
            out.push_back(vboard::JournalEntry{j.reg, r.name, 0, r.kind, 0, 0.0, journalTexts[j.text], j.path});
        } else {
            const double d = r.kind == 'D' ? r.decodeDouble(j.raw) : 0.0;
            out.push_back(vboard::JournalEntry{j.reg, r.name, j.element, r.kind, j.raw, d, {}, j.path});
        }
    }
    return out;
}

void ZUdevice::clearJournal() {
    journal.clear();
    journalTexts.clear();
    journalDesigns.clear();
}

int ZUdevice::commit(int n, unsigned first, const std::vector<uint64_t>& raws, Path path) {
    const RegisterModel& r = *reg(n);
    if (int code = takeFault(r, Access::Write))
        return code;
    sync();
    std::vector<uint64_t>& stored = cells[static_cast<std::size_t>(n - 1)].raw;
    const uint32_t model = journalDesign();
    for (std::size_t i = 0; i < raws.size(); ++i) {
        unsigned element = first + static_cast<unsigned>(i);
        stored[element] = raws[i];
        journal.push_back(JournalRecord{n, element, raws[i], path, model, 0});
    }
    written(n);
    return PGN_OK;
}

int ZUdevice::commitText(int n, const std::string& text, Path path) {
    const RegisterModel& r = *reg(n);
    if (int code = takeFault(r, Access::Write))
        return code;
    cells[static_cast<std::size_t>(n - 1)].text = text;
    journalTexts.push_back(text);
    journal.push_back(JournalRecord{n, 0, 0, path, journalDesign(), static_cast<uint32_t>(journalTexts.size() - 1)});
    return PGN_OK;
}

int ZUdevice::fetch(int n, unsigned first, unsigned count, uint64_t* out) {
    if (int code = takeFault(*reg(n), Access::Read))
        return code;
    sync();
    const std::vector<uint64_t>& stored = cells[static_cast<std::size_t>(n - 1)].raw;
    std::copy_n(stored.begin() + first, count, out);
    return PGN_OK;
}

int ZUdevice::fetchText(int n, std::string& out) {
    if (int code = takeFault(*reg(n), Access::Read))
        return code;
    out = cells[static_cast<std::size_t>(n - 1)].text;
    return PGN_OK;
}

RuntimeHandle::RuntimeHandle() = default;
// Handles are destroyed outside the state lock (Fg_FreeGrabber), so a running
// acquisition can be stopped here.
RuntimeHandle::~RuntimeHandle() {
    if (acquisition)
        acquisition->stop();
}

void RuntimeHandle::detach() {
    board = nullptr;
    design.reset();
    info.reset();
    acquiring = false;
}

namespace vboard::detail {

ZUdevice* State::board(ZUdevice* b) { return boards.count(b) ? b : nullptr; }

fpga_design* State::design(fpga_design* d) { return designs.count(d) ? d : nullptr; }

dma_mem* State::memory(dma_mem* m) { return memories.count(m) ? m : nullptr; }

RuntimeHandle* State::handle(Fg_Struct* fg, bool evenDetached) {
    auto it = handles.find(fg);
    if (it == handles.end() || (!evenDetached && !it->second->board))
        return nullptr;
    return it->second.get();
}

State& state() {
    static State* s = new State;
    return *s;
}

fpga_design* loadDesign(const void* image, std::size_t size, int boardType) try {
    std::shared_ptr<const DesignModel> model = parseImage(image, size);
    if (!model || (boardType != 0 && model->boardType != boardType))
        return nullptr;
    auto design = std::make_unique<fpga_design>();
    design->model = model;
    for (std::size_t i = 0; i < model->events.size(); ++i)
        design->events.push_back(hap_event_data{model->events[i].name.c_str(), static_cast<unsigned>(i),
                                                model->events[i].firmware ? 1 : 0});
    return state().keep(&State::designs, std::move(design));
} catch (const std::exception&) {
    return nullptr;  // out of memory: the design is simply not loaded
}

Fg_Struct* initHandle(ZUdevice* board, fpga_design* design) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (s.pendingInitFailure != 0) {
        s.initError = s.pendingInitFailure;
        s.pendingInitFailure = 0;
        return nullptr;
    }
    if (!s.board(board) || !s.design(design)) {
        s.initError = PGN_ERR_INVALID_ARGUMENT;
        return nullptr;
    }
    board->bind(design->model);
    auto handle = std::make_unique<RuntimeHandle>();
    handle->board = board;
    handle->design = design->model;
    Fg_Struct* fg = &handle->fg;
    s.handles.emplace(fg, std::move(handle));
    s.initError = PGN_OK;
    return fg;
}

}  // namespace vboard::detail

// The runtime's own description of the design's register parameters, in the
// registry format that applications and the applet already read: one group
// per process, nested groups for the rest of the block name, one leaf per
// register.
#include <algorithm>
#include <limits>
#include <map>

#include "board_state.h"
#include "parameterInfo.h"

namespace vboard::detail {

namespace {

constexpr int kPort = 0;
constexpr int kRangeFlags = 1;
constexpr int kVisible = 1;

std::vector<std::string> splitBlock(const std::string& block) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (;;) {
        std::size_t end = block.find('_', start);
        parts.push_back(block.substr(start, end - start));
        if (end == std::string::npos)
            return parts;
        start = end + 1;
    }
}

void addRegister(Fg_ParameterInfo& info, RegisterInfo* group, const RegisterModel& r, int n) {
    const char* display = r.entry.c_str();
    const char* name = r.name.c_str();
    const int id = kRegisterIdBase + n;
    const int access = r.readOnly ? REG_ACCESS_READ : REG_ACCESS_READ | REG_ACCESS_WRITE;
    const bool field = r.count > 1;
    const int size = static_cast<int>(r.count);

    if (!r.enums.empty()) {
        RegisterInfo* e = info.addInfoEnum(group, display, name, static_cast<int>(r.enums.size()), access,
                                           kRangeFlags, kVisible, nullptr, id, kPort);
        for (std::size_t i = 0; i < r.enums.size(); ++i)
            info.addEnumNameValue(e, static_cast<int>(i), r.enums[i].first.c_str(), r.enums[i].second,
                                  r.enums[i].first.c_str());
        return;
    }
    switch (r.kind) {
    case 'U':
        if (field) {
            // Fields are published with 32-bit limits; a wider field shows the
            // largest 32-bit value as its upper limit.
            auto to = static_cast<unsigned>(std::min<uint64_t>(r.maxRaw(), std::numeric_limits<unsigned>::max()));
            info.addInfoUIntField(group, display, name, size, 0, to, 1, access, kRangeFlags, kVisible, nullptr, id,
                                  kPort);
        } else if (r.width <= 32) {
            info.addInfoUInt(group, display, name, 0, static_cast<unsigned>(r.maxRaw()), 1, access, kRangeFlags,
                             kVisible, nullptr, id, kPort);
        } else {
            info.addInfoUInt64(group, display, name, 0, r.maxRaw(), 1, access, kRangeFlags, kVisible, nullptr, id,
                               kPort);
        }
        break;
    case 'D': {
        double from = r.ieee() ? -1e308 : 0.0;
        double to = r.ieee() ? 1e308 : r.maxFixed();
        double step = r.ieee() ? 0.0 : r.step();
        if (field)
            info.addInfoDoubleField(group, display, name, size, from, to, step, access, kRangeFlags, kVisible,
                                    nullptr, id, kPort);
        else
            info.addInfoDouble(group, display, name, from, to, step, access, kRangeFlags, kVisible, nullptr, id,
                               kPort);
        break;
    }
    default:
        info.addInfoString(group, display, name, nullptr, access, kRangeFlags, kVisible, nullptr, id, kPort);
        break;
    }
}

void buildTree(Fg_ParameterInfo& info, const DesignModel& design) {
    // Top-level groups are listed newest first, so they are created in reverse
    // order of first appearance to read in design order from the head.
    std::vector<std::string> processes;
    for (const RegisterModel& r : design.registers) {
        std::string process = splitBlock(r.block).front();
        if (std::find(processes.begin(), processes.end(), process) == processes.end())
            processes.push_back(process);
    }
    std::map<std::string, RegisterInfo*> groups;  // by block prefix
    for (auto it = processes.rbegin(); it != processes.rend(); ++it)
        groups[*it] = info.addGroupInfo(kPort, nullptr, it->c_str());

    for (std::size_t i = 0; i < design.registers.size(); ++i) {
        const RegisterModel& r = design.registers[i];
        std::vector<std::string> parts = splitBlock(r.block);
        std::string path = parts.front();
        RegisterInfo* group = groups[path];
        for (std::size_t p = 1; p < parts.size(); ++p) {
            path += "_" + parts[p];
            auto [it, added] = groups.try_emplace(path, nullptr);
            if (added)
                it->second = info.addGroupInfo(kPort, group, parts[p].c_str());
            group = it->second;
        }
        addRegister(info, group, r, static_cast<int>(i + 1));
    }
    info.finalize(kPort);
}

}  // namespace

RegisterInfo* parameterTree(RuntimeHandle& handle) {
    if (!handle.info) {
        if (!handle.design)
            return nullptr;
        auto info = std::make_unique<Fg_ParameterInfo>();
        buildTree(*info, *handle.design);
        handle.info = std::move(info);
    }
    return handle.info->getRegisterInfo(kPort);
}

}  // namespace vboard::detail

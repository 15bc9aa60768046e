#include "FgZuWrapperImpl.h"

#include <algorithm>
#include <iterator>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "AppletConstants.h"
#include "Catalogue.h"
#include "hap_runtime.h"
#include "pelagon_errors.h"

namespace {

constexpr const char* kOverflowEvent = "Device1_Process0_Overflow_Overflow";
constexpr const char* kOverflowSdkEvent = "FG_OVERFLOW_CAM0";

// An environment switch: set, and one of the words that mean "on".
bool envEnabled(const char* variable, std::initializer_list<const char*> words) {
    const char* raw = std::getenv(variable);
    if (!raw) return false;
    std::string value(raw);
    std::transform(value.begin(), value.end(), value.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(words.begin(), words.end(), [&](const char* w) { return value == w; });
}

}  // namespace

FgZuWrapperImpl::FgZuWrapperImpl() {
    draEnabled = envEnabled("QUOR_ENABLE_DRA", {"yes", "true", "on", "1"});
}

FgZuWrapperImpl::~FgZuWrapperImpl() noexcept(false) {
    map_event_id_event_name.clear();
    map_event_name_event_id.clear();
    map_parameter_name_parameter_description.clear();
    map_parameter_index_parameter_name.clear();
    map_inspect_parameter_name_parameter_id.clear();
    map_parameter_name_parameter_id.clear();
    map_dma_process.clear();
}

void FgZuWrapperImpl::initInternalMaps() {
    dzuaEnabled = envEnabled("QUOR_ENABLE_DZUA", {"yes", "true", "on"});
    map_dma_process[0] = 0;

    for (const pelagon::Param* p : pelagon::kCatalogue) {
        map_parameter_name_parameter_id.emplace(p->name, p->id);
        map_parameter_index_parameter_name.emplace(p->index, p->name);
        if (p->kind != pelagon::Kind::Runtime) map_parameter_name_parameter_description.emplace(p->name, p->description);
    }

    // Events: bit i of a mask is the design's event i; only events delivered
    // to applications are named.
    fpga_design* design = designHandle();
    int events = 0;
    while (events < 65 && HapGetEvent(design, events)) ++events;
    uint64_t mask = 1;
    for (int i = 0; i < events; ++i, mask <<= 1) {
        const hap_event_data* event = HapGetEvent(design, i);
        if (!event || !event->name || event->is_firmware_event != 1) continue;
        map_event_name_event_id[event->name] = mask;
        map_event_id_event_name[mask] = event->name;
    }
    for (int i = 0; i < events && i < 64; ++i) {
        const hap_event_data* event = HapGetEvent(design, i);
        if (!event || !event->name || std::strcmp(event->name, kOverflowEvent) != 0) continue;
        // Each map keeps an entry it already has: the mask of a delivered
        // overflow event keeps naming the design's own event.
        const uint64_t overflowMask = uint64_t{1} << i;
        map_event_name_event_id.emplace(kOverflowSdkEvent, overflowMask);
        map_event_id_event_name.emplace(overflowMask, kOverflowSdkEvent);
        break;
    }
}

namespace {

// The registry record of one catalogue row, under `parent`.
RegisterInfo* addRecord(Fg_ParameterInfo* info, RegisterInfo* parent, const pelagon::Param& p) {
    const char* n = p.display;
    using pelagon::Kind;
    switch (p.kind) {
        case Kind::Uint:
            return info->addInfoUInt(parent, n, p.name, static_cast<uint32_t>(p.minimum), static_cast<uint32_t>(p.maximum),
                                     static_cast<uint32_t>(p.step), p.access, p.range, 1, p.unit, p.id, 0);
        case Kind::Uint64:
            return info->addInfoUInt64(parent, n, p.name, static_cast<uint64_t>(p.minimum),
                                       static_cast<uint64_t>(p.maximum), static_cast<uint64_t>(p.step), p.access,
                                       p.range, 1, p.unit, p.id, 0);
        case Kind::Double:
            return info->addInfoDouble(parent, n, p.name, static_cast<double>(p.minimum), static_cast<double>(p.maximum),
                                       static_cast<double>(p.step), p.access, p.range, 1, p.unit, p.id, 0);
        case Kind::Enum: {
            const int rows = static_cast<int>(p.entries.size());
            RegisterInfo* reg = info->addInfoEnum(parent, n, p.name, rows, p.access, p.range, 1, "", p.id, 0);
            for (int i = 0; i < rows; ++i)
                info->addEnumNameValue(reg, i, p.entries[i].name, p.entries[i].value, p.entries[i].symbol);
            return reg;
        }
        case Kind::String:
            return info->addInfoString(parent, n, p.name, p.extension, p.access, p.range, 1, "", p.id, 0);
        case Kind::UintField:
            return info->addInfoUIntField(parent, n, p.name, p.elements, static_cast<uint32_t>(p.minimum),
                                          static_cast<uint32_t>(p.maximum), static_cast<uint32_t>(p.step), p.access,
                                          p.range, 1, p.unit, p.id, 0);
        case Kind::DoubleField:
            return info->addInfoDoubleField(parent, n, p.name, p.elements, static_cast<double>(p.minimum),
                                            static_cast<double>(p.maximum), static_cast<double>(p.step), p.access,
                                            p.range, 1, p.unit, p.id, 0);
        case Kind::Runtime: break;
    }
    return nullptr;
}

}  // namespace

void FgZuWrapperImpl::createUserParameters() {
    Fg_ParameterInfo* info = parameterInfo();
    auto& records = register_info_map[0];
    // Open groups, innermost last. A group that could not be made drops its
    // whole subtree: its children are added under null and come back null.
    std::vector<RegisterInfo*> open;
    bool failed = false;
    std::vector<bool> failedStack;
    auto parent = [&]() -> RegisterInfo* { return open.empty() ? nullptr : open.back(); };

#define PELAGON_GROUP_BEGIN(title)                                                   \
    failedStack.push_back(failed);                                                   \
    open.push_back(failed ? nullptr : info->addGroupInfo(0, parent(), title));       \
    failed = open.back() == nullptr;
#define PELAGON_GROUP_END() \
    open.pop_back();        \
    failed = failedStack.back(); \
    failedStack.pop_back();
#define PELAGON_PARAM(NAME, ...) records[pelagon::catalogue::NAME.id] = addRecord(info, parent(), pelagon::catalogue::NAME);
#include "catalogue.def"

    if (draEnabled) addDirectRegisterAccess();
    if (dzuaEnabled) addDirectZuAccess();
}

// One unsigned entry per design register, reaching the register by number.
void FgZuWrapperImpl::addDirectRegisterAccess() {
    Fg_ParameterInfo* info = parameterInfo();
    RegisterInfo* group = info->addGroupInfo(0, nullptr, "Direct Register Access");
    fpga_design* design = designHandle();
    const int count = HapGetNrOfRegister(design);
    for (int reg = 1; reg <= count; ++reg) {
        const char* regName = HapGetRegisterName(design, reg);
        const std::string name = std::string("DRA_") + (regName ? regName : "");
        const int width = HapGetRegisterBitRange(design, reg);
        const int id = pelagon::kDirectRegisterIdBase + reg;
        RegisterInfo* record;
        if (width > 32) {
            const uint64_t largest = width >= 64 ? ~uint64_t{0} : (uint64_t{1} << width) - 1;
            record = info->addInfoUInt64(group, name.c_str(), name.c_str(), 0, largest, 1, 3, 1, 1, nullptr, id, 0);
        } else {
            const uint32_t largest = width <= 0 ? 0 : width >= 32 ? ~uint32_t{0} : (uint32_t{1} << width) - 1;
            record = info->addInfoUInt(group, name.c_str(), name.c_str(), 0, largest, 1, 3, 1, 1, nullptr, id, 0);
        }
        register_info_map[0][id] = record;
    }
}

// A mirror of the runtime's own description of the design registers, with
// names prefixed and ids moved into the range the dispatch passes through.
void FgZuWrapperImpl::addDirectZuAccess() {
    Fg_ParameterInfo* info = parameterInfo();
    RegisterInfo* top = info->addGroupInfo(0, nullptr, "Direct ZU Access");
    auto prefixed = [](const char* text) { return std::string("DZUA_") + (text ? text : ""); };

    auto mirrorLeaf = [&](RegisterInfo* parent, const RegisterInfo* r) {
        const std::string name = prefixed(r->name);
        const std::string param = prefixed(r->parameterName);
        const int id = r->id + pelagon::kRuntimeIdBase;
        const char* n = name.c_str();
        const char* p = param.c_str();
        const int a = r->accessFlags, rf = r->rangeFlags, v = r->visibilityFlags;
        RegisterInfo* copy = nullptr;
        switch (r->format) {
            case REG_FORMAT_UINT:
                copy = info->addInfoUInt(parent, n, p, r->u.uiReg.from, r->u.uiReg.to, r->u.uiReg.steps, a, rf, v,
                                         r->unit, id, 0);
                break;
            case REG_FORMAT_INT:
                copy = info->addInfoInt(parent, n, p, r->u.iReg.from, r->u.iReg.to, r->u.iReg.steps, a, rf, v,
                                        r->unit, id, 0);
                break;
            case REG_FORMAT_UINT64:
                copy = info->addInfoUInt64(parent, n, p, static_cast<uint64_t>(r->u.iReg64.from),
                                           static_cast<uint64_t>(r->u.iReg64.to),
                                           static_cast<uint64_t>(r->u.iReg64.steps), a, rf, v, r->unit, id, 0);
                break;
            case REG_FORMAT_INT64:
                copy = info->addInfoInt64(parent, n, p, r->u.iReg64.from, r->u.iReg64.to, r->u.iReg64.steps, a, rf,
                                          v, r->unit, id, 0);
                break;
            case REG_FORMAT_DOUBLE:
                copy = info->addInfoDouble(parent, n, p, r->u.dReg.from, r->u.dReg.to, r->u.dReg.steps, a, rf, v,
                                           r->unit, id, 0);
                break;
            case REG_FORMAT_UINTFIELD:
                copy = info->addInfoUIntField(parent, n, p, r->u.uifReg.nrOfElements, r->u.uifReg.from,
                                              r->u.uifReg.to, 1, a, rf, v, r->unit, id, 0);
                break;
            case REG_FORMAT_INTFIELD:
                copy = info->addInfoIntField(parent, n, p, r->u.ifReg.nrOfElements, r->u.ifReg.from, r->u.ifReg.to,
                                             1, a, rf, v, r->unit, id, 0);
                break;
            case REG_FORMAT_DOUBLEFIELD:
                copy = info->addInfoDoubleField(parent, n, p, r->u.dfReg.nrOfElements, r->u.dfReg.from,
                                                r->u.dfReg.to, 0, a, rf, v, r->unit, id, 0);
                break;
            case REG_FORMAT_STRING:
                copy = info->addInfoString(parent, n, p, r->u.sReg.FileExtension, a, rf, v, r->unit, id, 0);
                break;
            case REG_FORMAT_ENUM: {
                const EnumReg_S& e = r->u.eReg;
                copy = info->addInfoEnum(parent, n, p, e.nrOfElements, a, rf, v, r->unit, id, 0);
                for (int i = 0; copy && i < e.nrOfElements; ++i)
                    info->addEnumNameValue(copy, i, e.enumNames[i] ? e.enumNames[i] : "", e.enumValues[i],
                                           e.enumDefName[i]);
                break;
            }
            default:
                return;  // kinds this applet does not publish
        }
        register_info_map[0][id] = copy;
        map_inspect_parameter_name_parameter_id[param] = id;
    };

    // Depth-first, children in the runtime's order; groups keep their nesting.
    auto mirror = [&](auto&& self, RegisterInfo* parent, const RegisterInfo* r, int depth) -> void {
        if (!r || depth > 32) return;
        if (r->format != REG_FORMAT_GROUP) return mirrorLeaf(parent, r);
        RegisterInfo* group = info->addGroupInfo(0, parent, prefixed(r->name).c_str());
        for (int i = 0; i < r->u.gReg.nrOfElements; ++i) self(self, group, r->u.gReg.elements[i], depth + 1);
    };
    for (const RegisterInfo* r = getUnwrappedParameterInfo(); r; r = r->next) mirror(mirror, top, r, 0);
}

// Looks `key` up and records the outcome as the last error: 0 when found,
// -2070 when not.
template <typename Map>
const typename Map::mapped_type* FgZuWrapperImpl::lookupRecorded(const Map& map, const typename Map::key_type& key) {
    const auto it = map.find(key);
    setError(it == map.end() ? PGN_ERR_INVALID_ARGUMENT : 0);
    return it == map.end() ? nullptr : &it->second;
}

int FgZuWrapperImpl::Fg_getParameterIdByName(const char* name) {
    if (!name || !*name) return PGN_ERR_INVALID_ARGUMENT;
    const int32_t* id = lookupRecorded(map_parameter_name_parameter_id, name);
    return id ? *id : PGN_ERR_INVALID_ARGUMENT;
}

const char* FgZuWrapperImpl::Fg_getParameterName(int index) {
    const std::string* name = lookupRecorded(map_parameter_index_parameter_name, index);
    return name ? name->c_str() : nullptr;
}

int FgZuWrapperImpl::Fg_getParameterId(int index) {
    const std::string* name = lookupRecorded(map_parameter_index_parameter_name, index);
    const int32_t* id = name ? lookupRecorded(map_parameter_name_parameter_id, *name) : nullptr;
    return id ? *id : PGN_ERR_INVALID_ARGUMENT;
}

int FgZuWrapperImpl::Fg_getParameterInfoXML(Fg_Struct* fg, int port, char* infoBuffer, size_t* infoBufferSize) {
    quor::templates::platform::CriticalSectionGuard guard(&mParameterLock);
    return FgZuWrapper::Fg_getParameterInfoXML(fg, port, infoBuffer, infoBufferSize);
}

int FgZuWrapperImpl::Fg_getParameterCount() { return static_cast<int>(map_parameter_index_parameter_name.size()); }

uint64_t FgZuWrapperImpl::Fg_getEventMask(const char* name) {
    if (!name) {
        setError(PGN_ERR_INVALID_ARGUMENT);
        return 0;
    }
    const uint64_t* mask = lookupRecorded(map_event_name_event_id, name);
    return mask ? *mask : 0;
}

const char* FgZuWrapperImpl::Fg_getEventName(uint64_t mask) {
    const std::string* name = lookupRecorded(map_event_id_event_name, mask);
    return name ? name->c_str() : nullptr;
}

const char* FgZuWrapperImpl::getManufacturer() { return "Quorvant GmbH"; }
const char* FgZuWrapperImpl::getCameraType() { return "Pelagon"; }
const char* FgZuWrapperImpl::getCameraVersion() { return "2.3"; }
int FgZuWrapperImpl::getAppletID() { return 0; }

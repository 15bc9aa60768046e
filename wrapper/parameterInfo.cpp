#include "parameterInfo.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "pelagon_errors.h"

// Records and everything hanging off them are plain C allocations (malloc and
// free), because the runtime and the XML description read them as C records.

namespace {

bool isPort(int port) {
    return port >= 0 && port < Fg_ParameterInfo::kPorts;
}

// Owned copy of a C string; null stays null. Returns null also when the copy
// cannot be allocated, so callers that need a string check `source`.
char* copyText(const char* source) {
    if (source == nullptr) return nullptr;
    const size_t size = std::strlen(source) + 1;
    char* copy = static_cast<char*>(std::malloc(size));
    if (copy != nullptr) std::memcpy(copy, source, size);
    return copy;
}

// Names are required; a missing one is stored as an empty text so that readers
// of the record never meet a null name.
char* copyName(const char* source) {
    return copyText(source != nullptr ? source : "");
}

void freeTextArray(char** texts, int32_t count) {
    if (texts == nullptr) return;
    for (int32_t i = 0; i < count; ++i) std::free(texts[i]);
    std::free(texts);
}

void releaseRecord(RegisterInfo* record) {
    std::free(record->name);
    std::free(record->parentName);
    std::free(record->parameterName);
    std::free(record->unit);
    switch (record->format) {
    case REG_FORMAT_ENUM:
        freeTextArray(record->u.eReg.enumNames, record->u.eReg.nrOfElements);
        freeTextArray(record->u.eReg.enumDefName, record->u.eReg.nrOfElements);
        std::free(record->u.eReg.enumValues);
        break;
    case REG_FORMAT_GROUP:
        std::free(record->u.gReg.elements);
        break;
    case REG_FORMAT_STRING:
        std::free(record->u.sReg.FileExtension);
        break;
    default:
        break;
    }
    std::free(record);
}

// A zeroed record with its name; null when the allocation fails.
RegisterInfo* newRecord(REG_FORMAT format, const char* name, int port) {
    auto* record = static_cast<RegisterInfo*>(std::calloc(1, sizeof(RegisterInfo)));
    if (record == nullptr) return nullptr;
    record->format = format;
    record->port = port;
    record->name = copyName(name);
    if (record->name == nullptr) {
        std::free(record);
        return nullptr;
    }
    return record;
}

// Makes room for one more owned record, so that the final append cannot fail
// after the parent has already been changed.
bool reserveOne(std::vector<RegisterInfo*>& owned) {
    if (owned.size() < owned.capacity()) return true;
    try {
        owned.reserve(owned.empty() ? 64 : owned.size() * 2);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

// Appends `child` to the group's children; the child's index is the group's
// running counter. Leaves the group untouched when the array cannot grow.
bool appendChild(RegisterInfo* group, RegisterInfo* child) {
    GroupReg_S& g = group->u.gReg;
    const int32_t count = g.nrOfElements > 0 ? g.nrOfElements : 0;
    auto** grown = static_cast<RegisterInfo**>(std::malloc(sizeof(RegisterInfo*) * (static_cast<size_t>(count) + 1)));
    if (grown == nullptr) return false;
    if (count > 0) std::memcpy(grown, g.elements, sizeof(RegisterInfo*) * static_cast<size_t>(count));
    // The counter and the child count move together, so the new child's index
    // is also its slot.
    grown[count] = child;
    std::free(g.elements);
    g.elements = grown;
    g.nrOfElements = count + 1;
    child->index = g.autoIndex++;
    return true;
}

// What every leaf add receives besides its kind-specific limits.
struct LeafArgs {
    RegisterInfo* parent;
    REG_FORMAT format;
    const char* name;
    const char* paramName;
    int accessFlags;
    int rangeFlags;
    int visibilityFlags;
    const char* unit;
    int id;
    int port;
};

// Common part of every leaf add: checks that the port accepts adds and that
// the parent is a group, builds the record, lets `fill` set the kind-specific
// part (false when it could not allocate), and hands the record to the port
// (ownership) and to its parent. Children of a non-group would overwrite that
// record's own kind-specific data, so such adds are refused before anything
// is created.
template <typename Fill>
RegisterInfo* addLeaf(Fg_ParameterInfo& registry, const LeafArgs& a, Fill fill) {
    if (!isPort(a.port) || registry.allRegFinalized[a.port]) return nullptr;
    if (a.parent == nullptr || a.parent->format != REG_FORMAT_GROUP) return nullptr;
    RegisterInfo* record = newRecord(a.format, a.name, a.port);
    if (record == nullptr) return nullptr;
    record->parameterName = copyName(a.paramName);
    record->unit = copyText(a.unit);
    record->accessFlags = a.accessFlags;
    record->rangeFlags = a.rangeFlags;
    record->visibilityFlags = a.visibilityFlags;
    record->id = a.id;
    std::vector<RegisterInfo*>& owned = registry.allRegInfo[a.port];
    if (record->parameterName == nullptr || (a.unit != nullptr && record->unit == nullptr) || !fill(*record) ||
        !reserveOne(owned) || !appendChild(a.parent, record)) {
        releaseRecord(record);
        return nullptr;
    }
    owned.push_back(record);
    return record;
}

}  // namespace

Fg_ParameterInfo::Fg_ParameterInfo() {
    for (int port = 0; port < kPorts; ++port) {
        allRegInfo[port].clear();
        init(port);
    }
}

Fg_ParameterInfo::~Fg_ParameterInfo() {
    for (int port = 0; port < kPorts; ++port) destroy(port);
}

void Fg_ParameterInfo::init(int port) {
    if (!isPort(port)) return;
    destroy(port);
    mGlobRegInfo[port] = nullptr;
    allRegFinalized[port] = false;
}

void Fg_ParameterInfo::destroy(int port) {
    if (!isPort(port)) return;
    for (RegisterInfo* record : allRegInfo[port]) releaseRecord(record);
    allRegInfo[port].clear();
}

void Fg_ParameterInfo::finalize(int port) {
    if (isPort(port)) allRegFinalized[port] = true;
}

RegisterInfo* Fg_ParameterInfo::getRegisterInfo(int Port) {
    return isPort(Port) ? mGlobRegInfo[Port] : nullptr;
}

RegisterInfo* Fg_ParameterInfo::getNextRegisterInfo(RegisterInfo* reg, int Port) {
    return reg == nullptr ? getRegisterInfo(Port) : reg->next;
}

RegisterInfo* Fg_ParameterInfo::addGroupInfo(int port, RegisterInfo* parent, const char* name) {
    if (!isPort(port) || allRegFinalized[port]) return nullptr;
    std::vector<RegisterInfo*>& owned = allRegInfo[port];
    if (!reserveOne(owned)) return nullptr;
    RegisterInfo* group = newRecord(REG_FORMAT_GROUP, name, port);
    if (group == nullptr) return nullptr;

    if (parent == nullptr) {
        // Top-level groups go to the head: the list runs newest first.
        group->next = mGlobRegInfo[port];
        if (group->next != nullptr) group->next->previous = group;
        mGlobRegInfo[port] = group;
        owned.push_back(group);
        return group;
    }
    if (parent->format != REG_FORMAT_GROUP) {
        // The port still owns the refused group and frees it with the rest.
        // The parent is left alone: its counter would be some other field.
        owned.push_back(group);
        return nullptr;
    }
    group->parentName = copyName(parent->name);
    if (group->parentName == nullptr || !appendChild(parent, group)) {
        releaseRecord(group);
        return nullptr;
    }
    group->depth = parent->depth + 1;
    owned.push_back(group);
    return group;
}

RegisterInfo* Fg_ParameterInfo::addInfoEnum(RegisterInfo* parent, const char* name, const char* paramName,
                                            int nrOfElements, int accessFlags, int rangeFlags, int visibilityFlags,
                                            const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_ENUM, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& record) {
        if (nrOfElements <= 0) return true;  // an empty table owns no arrays
        EnumReg_S& e = record.u.eReg;
        const size_t count = static_cast<size_t>(nrOfElements);
        e.enumNames = static_cast<char**>(std::calloc(count, sizeof(char*)));
        e.enumDefName = static_cast<char**>(std::calloc(count, sizeof(char*)));
        e.enumValues = static_cast<int32_t*>(std::calloc(count, sizeof(int32_t)));
        // Set even on failure: releasing the record frees whichever arrays exist.
        e.nrOfElements = nrOfElements;
        return e.enumNames != nullptr && e.enumDefName != nullptr && e.enumValues != nullptr;
    });
}

int Fg_ParameterInfo::addEnumNameValue(RegisterInfo* reg, int element, const char* name, int value,
                                       const char* defname) {
    if (reg == nullptr || reg->format != REG_FORMAT_ENUM) return PGN_ERR_INVALID_ARGUMENT;
    EnumReg_S& e = reg->u.eReg;
    if (element < 0 || element >= e.nrOfElements || e.enumNames == nullptr || e.enumDefName == nullptr ||
        e.enumValues == nullptr)
        return PGN_ERR_INVALID_ARGUMENT;

    // Both copies are made first, so that a failed allocation leaves the old
    // entry whole instead of half freed.
    char* nameCopy = copyName(name);
    char* defCopy = copyText(defname);
    if (nameCopy == nullptr || (defname != nullptr && defCopy == nullptr)) {
        std::free(nameCopy);
        std::free(defCopy);
        return PGN_ERR_OUT_OF_MEMORY;
    }
    std::free(e.enumNames[element]);
    std::free(e.enumDefName[element]);
    e.enumNames[element] = nameCopy;
    e.enumDefName[element] = defCopy;
    e.enumValues[element] = value;
    return PGN_OK;
}

RegisterInfo* Fg_ParameterInfo::addInfoInt(RegisterInfo* parent, const char* name, const char* paramName, int from,
                                           int to, int steps, int accessFlags, int rangeFlags, int visibilityFlags,
                                           const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_INT, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) { r.u.iReg = IntReg_S{from, to, steps, 0}; return true; });
}

RegisterInfo* Fg_ParameterInfo::addInfoUInt(RegisterInfo* parent, const char* name, const char* paramName,
                                            unsigned int from, unsigned int to, unsigned int steps, int accessFlags,
                                            int rangeFlags, int visibilityFlags, const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_UINT, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) { r.u.uiReg = UIntReg_S{from, to, steps, 0}; return true; });
}

RegisterInfo* Fg_ParameterInfo::addInfoInt64(RegisterInfo* parent, const char* name, const char* paramName,
                                             int64_t from, int64_t to, int64_t steps, int accessFlags, int rangeFlags,
                                             int visibilityFlags, const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_INT64, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) { r.u.iReg64 = IntReg64_S{from, to, steps, 0}; return true; });
}

// Unsigned and signed 64-bit records share one layout; the format tells
// readers how to interpret the bits.
RegisterInfo* Fg_ParameterInfo::addInfoUInt64(RegisterInfo* parent, const char* name, const char* paramName,
                                              uint64_t from, uint64_t to, uint64_t steps, int accessFlags,
                                              int rangeFlags, int visibilityFlags, const char* unit, int id,
                                              int port) {
    const LeafArgs args{parent, REG_FORMAT_UINT64, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) {
        r.u.iReg64 = IntReg64_S{static_cast<int64_t>(from), static_cast<int64_t>(to), static_cast<int64_t>(steps), 0};
        return true;
    });
}

RegisterInfo* Fg_ParameterInfo::addInfoDouble(RegisterInfo* parent, const char* name, const char* paramName,
                                              double from, double to, double steps, int accessFlags, int rangeFlags,
                                              int visibilityFlags, const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_DOUBLE, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) { r.u.dReg = DoubleReg_S{from, to, steps, 0.0}; return true; });
}

// Field records have no step of their own: the step argument exists only so
// that all numeric adds share one calling shape. The element cursor starts at
// 0 and the shown value at the lower limit.
RegisterInfo* Fg_ParameterInfo::addInfoIntField(RegisterInfo* parent, const char* name, const char* paramName,
                                                int size, int from, int to, int /*steps*/, int accessFlags,
                                                int rangeFlags, int visibilityFlags, const char* unit, int id,
                                                int port) {
    const LeafArgs args{parent, REG_FORMAT_INTFIELD, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args,
                   [&](RegisterInfo& r) { r.u.ifReg = IntFieldReg_S{from, to, size, 0, from}; return true; });
}

RegisterInfo* Fg_ParameterInfo::addInfoUIntField(RegisterInfo* parent, const char* name, const char* paramName,
                                                 int size, unsigned int from, unsigned int to,
                                                 unsigned int /*steps*/, int accessFlags, int rangeFlags,
                                                 int visibilityFlags, const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_UINTFIELD, name, paramName, accessFlags, rangeFlags, visibilityFlags,
                        unit, id, port};
    return addLeaf(*this, args,
                   [&](RegisterInfo& r) { r.u.uifReg = UIntFieldReg_S{from, to, size, 0, from}; return true; });
}

RegisterInfo* Fg_ParameterInfo::addInfoDoubleField(RegisterInfo* parent, const char* name, const char* paramName,
                                                   int size, double from, double to, double /*steps*/,
                                                   int accessFlags, int rangeFlags, int visibilityFlags,
                                                   const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_DOUBLEFIELD, name, paramName, accessFlags, rangeFlags, visibilityFlags,
                        unit, id, port};
    return addLeaf(*this, args,
                   [&](RegisterInfo& r) { r.u.dfReg = DoubleFieldReg_S{from, to, size, 0, from}; return true; });
}

// The text itself belongs to whoever reads the parameter; the record only
// describes it, so `string` stays null.
RegisterInfo* Fg_ParameterInfo::addInfoString(RegisterInfo* parent, const char* name, const char* paramName,
                                              const char* fileExt, int accessFlags, int rangeFlags,
                                              int visibilityFlags, const char* unit, int id, int port) {
    const LeafArgs args{parent, REG_FORMAT_STRING, name, paramName, accessFlags, rangeFlags, visibilityFlags, unit,
                        id, port};
    return addLeaf(*this, args, [&](RegisterInfo& r) {
        r.u.sReg.FileExtension = copyText(fileExt);
        return fileExt == nullptr || r.u.sReg.FileExtension != nullptr;
    });
}

// Lookup tables are published as unsigned field parameters, which the runtime
// and the XML description already understand; a separate table record would
// have no reader, so none is ever created.
RegisterInfo* Fg_ParameterInfo::addInfoLut(RegisterInfo* /*parent*/, const char* /*name*/,
                                           const char* /*paramName*/, int /*nrOfElements*/, int /*nrOfBits*/,
                                           int /*accessFlags*/, int /*rangeFlags*/, int /*visibilityFlags*/,
                                           int /*id*/, int /*port*/) {
    return nullptr;
}

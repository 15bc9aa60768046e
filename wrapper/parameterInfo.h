// The per-port registry of parameter-info records: a forest of groups and
// leaves that the catalogue fills at start-up and the runtime, the XML
// description and the setters (for live limits) read.
#pragma once

#include <cstdint>
#include <vector>

#include "register_info.h"

class Fg_ParameterInfo {
public:
    static constexpr int kPorts = 4;

    Fg_ParameterInfo();
    ~Fg_ParameterInfo();
    Fg_ParameterInfo(const Fg_ParameterInfo&) = delete;
    Fg_ParameterInfo& operator=(const Fg_ParameterInfo&) = delete;

    // Frees the port's records, then empties its list and unfinalizes it.
    void init(int port);
    // Frees the port's records; the list head is left as it is (use init to reuse).
    void destroy(int port);
    // From now on every add for the port returns null.
    void finalize(int port);

    RegisterInfo* getRegisterInfo(int Port);
    RegisterInfo* getNextRegisterInfo(RegisterInfo* reg, int Port);

    RegisterInfo* addGroupInfo(int port, RegisterInfo* parent, const char* name);
    RegisterInfo* addInfoEnum(RegisterInfo* parent, const char* name, const char* paramName, int nrOfElements,
                              int accessFlags, int rangeFlags, int visibilityFlags, const char* unit, int id,
                              int port);
    int addEnumNameValue(RegisterInfo* reg, int element, const char* name, int value, const char* defname);
    RegisterInfo* addInfoInt(RegisterInfo* parent, const char* name, const char* paramName, int from, int to,
                             int steps, int accessFlags, int rangeFlags, int visibilityFlags, const char* unit,
                             int id, int port);
    RegisterInfo* addInfoUInt(RegisterInfo* parent, const char* name, const char* paramName, unsigned int from,
                              unsigned int to, unsigned int steps, int accessFlags, int rangeFlags,
                              int visibilityFlags, const char* unit, int id, int port);
    RegisterInfo* addInfoInt64(RegisterInfo* parent, const char* name, const char* paramName, int64_t from,
                               int64_t to, int64_t steps, int accessFlags, int rangeFlags, int visibilityFlags,
                               const char* unit, int id, int port);
    RegisterInfo* addInfoUInt64(RegisterInfo* parent, const char* name, const char* paramName, uint64_t from,
                                uint64_t to, uint64_t steps, int accessFlags, int rangeFlags, int visibilityFlags,
                                const char* unit, int id, int port);
    RegisterInfo* addInfoDouble(RegisterInfo* parent, const char* name, const char* paramName, double from,
                                double to, double steps, int accessFlags, int rangeFlags, int visibilityFlags,
                                const char* unit, int id, int port);
    RegisterInfo* addInfoIntField(RegisterInfo* parent, const char* name, const char* paramName, int size, int from,
                                  int to, int steps, int accessFlags, int rangeFlags, int visibilityFlags,
                                  const char* unit, int id, int port);
    RegisterInfo* addInfoUIntField(RegisterInfo* parent, const char* name, const char* paramName, int size,
                                   unsigned int from, unsigned int to, unsigned int steps, int accessFlags,
                                   int rangeFlags, int visibilityFlags, const char* unit, int id, int port);
    RegisterInfo* addInfoDoubleField(RegisterInfo* parent, const char* name, const char* paramName, int size,
                                     double from, double to, double steps, int accessFlags, int rangeFlags,
                                     int visibilityFlags, const char* unit, int id, int port);
    RegisterInfo* addInfoString(RegisterInfo* parent, const char* name, const char* paramName, const char* fileExt,
                                int accessFlags, int rangeFlags, int visibilityFlags, const char* unit, int id,
                                int port);
    // Declared for the runtime's common vocabulary; lookup tables are published
    // as unsigned fields, so no record of this kind is ever created.
    RegisterInfo* addInfoLut(RegisterInfo* parent, const char* name, const char* paramName, int nrOfElements,
                             int nrOfBits, int accessFlags, int rangeFlags, int visibilityFlags, int id, int port);

    RegisterInfo* mGlobRegInfo[kPorts];
    int32_t groupAutoIndex = 0;
    std::vector<RegisterInfo*> allRegInfo[kPorts];  // owns every record of the port
    bool allRegFinalized[kPorts];
};

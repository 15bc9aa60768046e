// Read-outs of the board's sensors, the applet's identity and the input
// monitors: each read goes to the design afresh; nothing is cached.
#include <cstring>

#include "AppletConstants.h"
#include "Fail.h"
#include "FgZuWrapperImpl.h"
#include "pelagon_errors.h"

namespace {

constexpr uint32_t kAppletVersion = 3;
constexpr uint32_t kChannels = 4;

void requireValue(const void* value) {
    if (!value) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
}

}  // namespace

void FgZuWrapperImpl::get_sdk_param_FG_APPLET_VERSION_P0(uint32_t* value) {
    requireValue(value);
    *value = kAppletVersion;
}

void FgZuWrapperImpl::get_sdk_param_FG_APPLET_ID_P0(char* value) {
    get_zu_param_Device1_Process0_AppletProperties_AppletUid(value, 0, FG_PARAM_TYPE_CHAR_PTR, true);
}

void FgZuWrapperImpl::get_sdk_param_FG_APPLET_BUILD_TIME_P0(char* value) {
    get_zu_param_Device1_Process0_AppletProperties_BuildTime(value, 0, FG_PARAM_TYPE_CHAR_PTR, true);
}

void FgZuWrapperImpl::get_sdk_param_FG_HAP_FILE_P0(char* value) {
    requireValue(value);
    std::memcpy(value, pelagon::kDesignFileName, std::strlen(pelagon::kDesignFileName) + 1);
}

// The DMA engine's status belongs to the runtime; it is always asked about
// DMA 0 as a 32-bit value, whatever the caller passed.
void FgZuWrapperImpl::get_sdk_param_FG_DMASTATUS_P0(uint32_t* value) {
    requireValue(value);
    const int rc = getUnwrappedParameterWithType(FG_RT_DMASTATUS, value, 0, FG_PARAM_TYPE_UINT32_T);
    if (rc != 0) pelagon::fail(rc);
}

void FgZuWrapperImpl::get_sdk_param_FG_DIGIO_INPUT_P0(uint32_t* value) {
    get_zu_param_Device1_Process1_Trigger_TriggerInput_InputStatus_Status(value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERCAMERA_INPUT_MONITOR_P0(uint32_t* value) {
    get_zu_param_Device1_Process0_Camera_StatusTriggerICam_Status(value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

void FgZuWrapperImpl::get_sdk_param_FG_TRIGGERCAMERA_GPI_MONITOR_P0(uint32_t* value) {
    get_zu_param_Device1_Process0_Camera_StatusGPICam_Status(value, 0, FG_PARAM_TYPE_UINT32_T, true);
}

#define PELAGON_DOUBLE_READOUT(NAME, REGISTER)                                                  \
    void FgZuWrapperImpl::get_sdk_param_##NAME##_P0(double* value) {                           \
        get_zu_param_Device1_Process0_BoardStatus_##REGISTER(value, 0, FG_PARAM_TYPE_DOUBLE, true); \
    }
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_FPGA_TEMPERATURE, FpgaTemperature)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_FPGA_VCC_INT, FpgaVccInt)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_FPGA_VCC_AUX, FpgaVccAux)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_BOARD_POWER, BoardPower)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_CXP_CHIP_TEMPERATURE, CxpChipTemperature)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_RAM_CHIP_TEMPERATURE, RamChipTemperature)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_CXP_POWER_REGULATOR_TEMPERATURE, CxpPowerRegulatorTemperature)
PELAGON_DOUBLE_READOUT(FG_SYSTEMMONITOR_POWER_REGULATOR_TEMPERATURE, PowerRegulatorTemperature)
#undef PELAGON_DOUBLE_READOUT

void FgZuWrapperImpl::get_sdk_param_FG_SYSTEMMONITOR_FPGA_DNA_P0(uint64_t* value) {
    get_zu_param_Device1_Process0_BoardStatus_FpgaDNA(value, 0, FG_PARAM_TYPE_UINT64_T, true);
}

namespace {

// The channel fields are read as a range (FieldParameterAccess) of doubles
// or as one element (FieldParameterDouble_s), always within the four
// channels. A range of any other element type is refused: its elements would
// not have the size of the channel values.
template <typename Read>
void readChannels(void* value, int type, Read read) {
    requireValue(value);
    if (type == FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS) {
        const auto* access = static_cast<const FieldParameterAccess*>(value);
        if (access->index > kChannels - 1 || access->count > kChannels || access->index > kChannels - access->count)
            pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        if (FgZuWrapper::elementType(*access) != FG_PARAM_TYPE_DOUBLE) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        read(value, FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS);
    } else {
        if (!FgZuWrapper::singleRecordFits<FieldParameterDouble_s>(type) ||
            static_cast<const FieldParameterDouble_s*>(value)->index > kChannels - 1)
            pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        read(value, FG_PARAM_TYPE_STRUCT_FIELDPARAMDOUBLE);
    }
}

}  // namespace

void FgZuWrapperImpl::get_sdk_param_FG_SYSTEMMONITOR_CHANNEL_CURRENT_P0(void* value, int type) {
    readChannels(value, type, [this](void* v, int t) {
        get_zu_param_Device1_Process0_BoardStatus_ChannelCurrent(v, 0, t, true);
    });
}

void FgZuWrapperImpl::get_sdk_param_FG_SYSTEMMONITOR_CHANNEL_VOLTAGE_P0(void* value, int type) {
    readChannels(value, type, [this](void* v, int t) {
        get_zu_param_Device1_Process0_BoardStatus_ChannelVoltage(v, 0, t, true);
    });
}

// The Pelagon applet instance: the design's register ids and accessors, the
// parameter caches and their setters and getters.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Catalogue.h"
#include "Locks.h"
#include "FgZuWrapper.h"

using StringToIntMap = std::map<std::string, int32_t>;
using IntToStringMap = std::map<int32_t, std::string>;
using StringToStringMap = std::map<std::string, std::string>;
using EventNameToEventIdMap = std::map<std::string, uint64_t>;
using EventIdToEventNameMap = std::map<uint64_t, std::string>;

// Free-form inspection properties of the instance, with their own lock.
struct InspectProperties {
    quor::templates::platform::RecursiveMutex mutex;
    std::map<std::string, std::string> values;
};

class FgZuWrapperImpl : public FgZuWrapper {
public:
    FgZuWrapperImpl();
    ~FgZuWrapperImpl() noexcept(false) override;

    // Serialises every parameter set and get that comes through the dispatch.
    quor::templates::platform::CriticalSection mParameterLock;
    InspectProperties inspectProperties;
    std::string dllBaseName = "none";
    bool dzuaEnabled = false;

    // ---- Name, id, index, description and event maps ------------------------
    std::map<int, int> map_dma_process;
    StringToIntMap map_parameter_name_parameter_id;
    StringToIntMap map_inspect_parameter_name_parameter_id;
    IntToStringMap map_parameter_index_parameter_name;
    StringToStringMap map_parameter_name_parameter_description;
    EventNameToEventIdMap map_event_name_event_id;
    EventIdToEventNameMap map_event_id_event_name;

    void initInternalMaps();

    // ---- Parameter caches, one per catalogue parameter, at power-on values --
    // (they do not touch the hardware; the start-up settings do)
#define PELAGON_PARAM(NAME, KIND, ...)                                                              \
    pelagon::Cache<pelagon::Kind::KIND, pelagon::catalogue::NAME.elements> cache_##NAME##_P0{       \
        pelagon::powerOn<pelagon::catalogue::NAME>()};
#include "catalogue.def"

    // Geometry and timing the camera simulator is actually programmed with.
    uint32_t used_width_P0 = 0;
    uint32_t used_line_gap_P0 = 0;
    uint32_t used_height_P0 = 0;
    uint32_t used_frame_gap_P0 = 0;
    double max_pixelFrequency_P0 = 0.0;
    double used_framerate_P0 = 0.0;
    uint32_t previousBayer_P0 = 0;

    // ---- Getters with a source other than the cache -------------------------
    // (every other readable parameter reads its cache)
    void get_sdk_param_FG_APPLET_VERSION_P0(uint32_t* value);
    void get_sdk_param_FG_APPLET_ID_P0(char* value);
    void get_sdk_param_FG_APPLET_BUILD_TIME_P0(char* value);
    void get_sdk_param_FG_HAP_FILE_P0(char* value);
    void get_sdk_param_FG_DMASTATUS_P0(uint32_t* value);
    void get_sdk_param_FG_DIGIO_INPUT_P0(uint32_t* value);
    void get_sdk_param_FG_TRIGGERCAMERA_INPUT_MONITOR_P0(uint32_t* value);
    void get_sdk_param_FG_TRIGGERCAMERA_GPI_MONITOR_P0(uint32_t* value);
    void get_sdk_param_FG_SYSTEMMONITOR_FPGA_TEMPERATURE_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_FPGA_VCC_INT_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_FPGA_VCC_AUX_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_BOARD_POWER_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_CXP_CHIP_TEMPERATURE_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_RAM_CHIP_TEMPERATURE_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_CXP_POWER_REGULATOR_TEMPERATURE_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_POWER_REGULATOR_TEMPERATURE_P0(double* value);
    void get_sdk_param_FG_SYSTEMMONITOR_FPGA_DNA_P0(uint64_t* value);
    void get_sdk_param_FG_SYSTEMMONITOR_CHANNEL_CURRENT_P0(void* value, int type);
    void get_sdk_param_FG_SYSTEMMONITOR_CHANNEL_VOLTAGE_P0(void* value, int type);

    // ---- Region of interest, formats, time-out, image selector, buffer -------
    // (AcquisitionPath.cpp) Setters validate, cache, write the registers, update
    // the dependants; an int error restores the cache and is rethrown only
    // when throwOnError is set.
    void set_sdk_param_FG_WIDTH_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_HEIGHT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_XOFFSET_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_YOFFSET_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_PIXELFORMAT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_FORMAT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_BITALIGNMENT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CXP_TRIGGER_PACKET_MODE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TIMEOUT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_IMG_SELECT_PERIOD_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_IMG_SELECT_P0(uint32_t value, bool throwOnError);
    void get_sdk_param_FG_FILLLEVEL_P0(uint32_t* value);
    void get_sdk_param_FG_OVERFLOW_P0(uint32_t* value);
    void get_sdk_param_FG_CAMSTATUS_EXTENDED_P0(uint32_t* value);

    // ---- Camera simulator (CameraSimulator.cpp) -----------------------------
    void set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_HEIGHT_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_PATTERN_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_PATTERN_OFFSET_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_ROLL_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_SELECT_MODE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double value, bool throwOnError);
    void set_sdk_param_FG_CAMERASIMULATOR_TRIGGER_MODE_P0(uint32_t value, bool throwOnError);
    void get_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t* value);
    void get_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t* value);
    void get_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t* value);
    void get_sdk_param_FG_CAMERASIMULATOR_ACTIVE_P0(uint32_t* value);
    void get_sdk_param_FG_CAMERASIMULATOR_PASSIVE_P0(uint32_t* value);
    void get_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double* value);
    void get_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double* value);
    void get_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double* value);
    // Programs width and line gap (each rounded up to 12 pixels) into the generator.
    void setWidth_P0(uint32_t width, uint32_t gap);
    void update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0();
    void update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0();

    // ---- Trigger system (Trigger*.cpp) --------------------------------------
    // Setters validate, cache, write the registers and re-publish dependants;
    // an int error restores the cache and is rethrown only with throwOnError.

    // Mode and state (TriggerModeState.cpp). Every change of either runs the
    // transition from the old pair to the new one.
    void set_sdk_param_FG_AREATRIGGERMODE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERSTATE_P0(uint32_t value, bool throwOnError);
    void switchTriggerModeAndState_P0(uint32_t oldMode, uint32_t oldState, uint32_t newMode, uint32_t newState);
    void triggerGeneratorEnable_P0(bool enable);
    void triggerOutputsEnable_P0(bool enable);
    void triggerExternalEnable_P0(bool enable);
    void triggerResetQueue_P0();
    void triggerClearDownscale_P0();
    void triggerResetSequencer_P0();
    void triggerClearPulseFormDownscales_P0();
    void setAllTriggerAccessModesToRWC_P0();

    // Rate, queue and software trigger (TriggerRate.cpp).
    void set_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(double value, bool throwOnError);
    void get_sdk_param_FG_TRIGGER_FRAMESPERSECOND_P0(double* value);
    void set_sdk_param_FG_TRIGGER_MULTIPLY_PULSES_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERQUEUE_MODE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_SENDSOFTWARETRIGGER_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_CLEAR_P0(uint32_t value, bool throwOnError);
    void get_sdk_param_FG_TRIGGERQUEUE_FILLLEVEL_P0(uint32_t* value);
    void get_sdk_param_FG_SOFTWARETRIGGER_QUEUE_FILLLEVEL_P0(uint32_t* value);
    void get_sdk_param_FG_SOFTWARETRIGGER_IS_BUSY_P0(uint32_t* value);
    void get_sdk_param_FG_TRIGGER_EXCEEDED_PERIOD_LIMITS_P0(uint32_t* value);
    // Re-programs the generator period from the cached rate.
    void reapplyTriggerRate_P0();
    // True while the generator stage still works on a pulse or has pulses queued.
    bool softwareTriggerBusy_P0();

    // Trigger input (TriggerInput.cpp).
    void set_sdk_param_FG_TRIGGERIN_DEBOUNCE_P0(double value, bool throwOnError);
    void get_sdk_param_FG_TRIGGERIN_DEBOUNCE_P0(double* value);
    void set_sdk_param_FG_TRIGGERIN_SRC_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_POLARITY_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_BYPASS_SRC_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_DOWNSCALE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_DOWNSCALE_PHASE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_STATS_PULSECOUNT_CLEAR_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGERIN_STATS_MINMAXFREQUENCY_CLEAR_P0(uint32_t value, bool throwOnError);
    void get_sdk_param_FG_TRIGGERIN_STATS_PULSECOUNT_P0(uint32_t* value);
    void get_sdk_param_FG_TRIGGERIN_STATS_FREQUENCY_P0(double* value);
    void get_sdk_param_FG_TRIGGERIN_STATS_MINFREQUENCY_P0(double* value);
    void get_sdk_param_FG_TRIGGERIN_STATS_MAXFREQUENCY_P0(double* value);

    // Pulse form generators and outputs (TriggerOutputs.cpp). The four
    // generators and the seventeen outputs each share one implementation;
    // the named members only say which generator or output they mean.
    void setPulseFormDownscale_P0(unsigned generator, uint32_t value, bool throwOnError);
    void setPulseFormPhase_P0(unsigned generator, uint32_t value, bool throwOnError);
    void setPulseFormDelay_P0(unsigned generator, double value, bool throwOnError);
    void setPulseFormWidth_P0(unsigned generator, double value, bool throwOnError);
    void getPulseFormDelay_P0(unsigned generator, double* value);
    void getPulseFormWidth_P0(unsigned generator, double* value);
    // The shortest trigger period, in microseconds, that the four generators
    // need with their programmed delays and widths and cached downscales.
    double pulseFormPeriodNeeded_P0();
#define PELAGON_PULSE_FORM_GENERATOR(g)                                                                       \
    void set_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE_P0(uint32_t value, bool throwOnError) {         \
        setPulseFormDownscale_P0(g, value, throwOnError);                                                      \
    }                                                                                                          \
    void set_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_DOWNSCALE_PHASE_P0(uint32_t value, bool throwOnError) {   \
        setPulseFormPhase_P0(g, value, throwOnError);                                                          \
    }                                                                                                          \
    void set_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_DELAY_P0(double value, bool throwOnError) {               \
        setPulseFormDelay_P0(g, value, throwOnError);                                                          \
    }                                                                                                          \
    void set_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_WIDTH_P0(double value, bool throwOnError) {               \
        setPulseFormWidth_P0(g, value, throwOnError);                                                          \
    }                                                                                                          \
    void get_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_DELAY_P0(double* value) { getPulseFormDelay_P0(g, value); }   \
    void get_sdk_param_FG_TRIGGER_PULSEFORMGEN##g##_WIDTH_P0(double* value) { getPulseFormWidth_P0(g, value); }
#include "TriggerOutputs.def"

    // The outputs by their position in TriggerOutputs.def.
    enum TriggerOutput : unsigned {
#define PELAGON_TRIGGER_OUTPUT(NAME, block, n) kOutput_##NAME,
#include "TriggerOutputs.def"
        kTriggerOutputCount,
        kCameraTrigger = kOutput_FG_TRIGGERCAMERA_OUT_SELECT,
        kCameraGpo0 = kOutput_FG_TRIGGERCAMERA_GPO0,
        kBoardOutput0 = kOutput_FG_TRIGGEROUT_SELECT0
    };
    void setTriggerOutput_P0(unsigned output, uint32_t value, bool throwOnError);
#define PELAGON_TRIGGER_OUTPUT(NAME, block, n)                        \
    void set_sdk_param_##NAME##_P0(uint32_t value, bool throwOnError) { \
        setTriggerOutput_P0(kOutput_##NAME, value, throwOnError);       \
    }
#include "TriggerOutputs.def"
    void set_sdk_param_FG_TRIGGEROUT_STATS_SOURCE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_TRIGGEROUT_STATS_PULSECOUNT_CLEAR_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_MISSING_CAMERA_FRAME_RESPONSE_CLEAR_P0(uint32_t value, bool throwOnError);
    void get_sdk_param_FG_TRIGGEROUT_STATS_PULSECOUNT_P0(uint32_t* value);
    void get_sdk_param_FG_MISSING_CAMERA_FRAME_RESPONSE_P0(uint32_t* value);

    // Register access of the trigger block: 32-bit values, errors thrown.
    void writeTriggerRegister_P0(int zuId, uint32_t value);
    uint32_t readTriggerRegister_P0(int zuId);
    // The common setter of a parameter that is checked, cached and answered
    // by one register write of `written`.
    void setWithOneWrite_P0(uint32_t& cache, uint32_t value, bool valid, int zuId, uint32_t written,
                            bool throwOnError);
    // Re-publishes the lower limit of an unsigned parameter.
    void publishMinimum(int id, uint32_t minimum);

    // ---- end of the trigger system ------------------------------------------

    // ---- Image processing: lookup tables and white balance -------------------
    // (ImageProcessing.cpp)
    // The table in force follows FG_LUT_TYPE: "Processor" computes it from
    // offset, gain, gamma and invert; "User file" loads FG_LUT_CUSTOM_FILE.
    // The LUT caches always hold what the LUTcontent registers were last
    // given: a channel's cache changes only once its register took the table.
    void set_sdk_param_FG_LUT_TYPE_P0(uint32_t value, bool throwOnError);
    void set_sdk_param_FG_PROCESSING_OFFSET_P0(double value, bool throwOnError);
    void set_sdk_param_FG_PROCESSING_GAIN_P0(double value, bool throwOnError);
    void set_sdk_param_FG_PROCESSING_GAMMA_P0(double value, bool throwOnError);
    void set_sdk_param_FG_PROCESSING_INVERT_P0(uint32_t value, bool throwOnError);
    // A FieldParameterAccess range (type FG_PARAM_TYPE_STRUCT_FIELDPARAMACCESS)
    // or, with any other type, one FieldParameterInt_s element.
    void set_sdk_param_FG_LUT_VALUE_RED_P0(const void* value, int type, bool throwOnError);
    void set_sdk_param_FG_LUT_VALUE_GREEN_P0(const void* value, int type, bool throwOnError);
    void set_sdk_param_FG_LUT_VALUE_BLUE_P0(const void* value, int type, bool throwOnError);
    void set_sdk_param_FG_LUT_CUSTOM_FILE_P0(const char* value, bool throwOnError);
    void set_sdk_param_FG_LUT_SAVE_FILE_P0(const char* value, bool throwOnError);
    void get_sdk_param_FG_LUT_IN_BITS_P0(uint32_t* value);
    void get_sdk_param_FG_LUT_OUT_BITS_P0(uint32_t* value);
    void set_sdk_param_FG_SCALINGFACTOR_RED_P0(double value, bool throwOnError);
    void set_sdk_param_FG_SCALINGFACTOR_GREEN_P0(double value, bool throwOnError);
    void set_sdk_param_FG_SCALINGFACTOR_BLUE_P0(double value, bool throwOnError);
    void get_sdk_param_FG_SCALINGFACTOR_RED_P0(double* value);
    void get_sdk_param_FG_SCALINGFACTOR_GREEN_P0(double* value);
    void get_sdk_param_FG_SCALINGFACTOR_BLUE_P0(double* value);
    // Recomputes the three tables and writes red, green, blue in this order;
    // does nothing unless the LUT type is "Processor".
    void updateLutProcessing_P0();
    // The table a recompute writes to every channel, without writing it.
    static void computeLutTable_P0(double offset, double gain, double gamma, bool invert, uint32_t (&table)[4096]);
    // Loads the three tables of `name` and writes them; does nothing unless
    // the LUT type is "User file" and the name is not empty. -2076 when the
    // file is missing, -5001 when it is not a complete LUT file.
    void loadLutFile_P0(const std::string& name);
    // Element types a range record may name for a LUT: signed or unsigned
    // 32-bit, and the single-element record code (which moves no cache
    // element and is left to the runtime to judge).
    static bool lutElementTypeAccepted(int32_t vtype);

    // ---- end of image processing --------------------------------------------

    // ---- Configuration: save, load, defaults (Configuration.cpp) ------------
    // Brings every parameter to its start-up value through its setter, which
    // programs the design; refused values are skipped silently.
    void setDefaultValues();

    // ---- end of configuration -----------------------------------------------

    // The published record of parameter `id` on port 0; null when there is
    // none (the map keeps an empty entry for it then).
    RegisterInfo* publishedRecord(int id) { return register_info_map[0][id]; }

    // ---- Dispatch -----------------------------------------------------------
    // Report failure by throwing an int error number.
    void setParameterWithType(int id, const void* value, int dma, int type);
    void getParameterWithType(int id, void* value, int dma, int type);

    // ---- Design registers -------------------------------------------------
    // One id member and one writer/reader pair per register of the design,
    // all generated from the design description. A writer or reader with a
    // null value throws -2070 when asked to throw; a refusal of the runtime
    // is thrown as its own number when asked to throw and dropped otherwise.
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access)                                  \
    int zu_id_Device1_##block##_##entry = 0;                                                             \
    void set_zu_param_Device1_##block##_##entry(const void* value, int index, int type, bool throwOnError) { \
        writeRegister(zu_id_Device1_##block##_##entry, value, index, type, throwOnError);                \
    }                                                                                                    \
    void get_zu_param_Device1_##block##_##entry(void* value, int index, int type, bool throwOnError) {     \
        readRegister(zu_id_Device1_##block##_##entry, value, index, type, throwOnError);                 \
    }
#include "pelagon_design.def"

    // Looks every register id up by name through the runtime. Unknown names
    // keep whatever the runtime answered; the failure shows at first access.
    void retrieveIds();

    // Sources for writing the constants 0 and 1 to a register.
    const uint32_t constZero = 0;
    const uint32_t constOne = 1;

    // ---- Operations this single-DMA design does not offer -----------------
    int processChannelToDma(int process, int channel) override;
    int mapDmaToFormat(int dma) override;
    int setDmaAlignment(int dma, int alignment) override;
    int getDmaAlignment(int dma) override;

    // ---- Runtime-facing operations -----------------------------------------
    bool loadConfig(Fg_ConfigFileParser& parser) override;
    bool saveConfig(Fg_ConfigFileParser& parser) override;
    void createUserParameters() override;
    int Fg_setParameterWithType(int id, const void* value, int dma, int type) override;
    int Fg_getParameterWithType(int id, void* value, int dma, int type) override;
    int Fg_getParameterIdByName(const char* name) override;
    const char* Fg_getParameterName(int index) override;
    int Fg_getParameterId(int index) override;
    int Fg_getParameterCount() override;
    // The description reads the published limits that setters change, so it
    // is built under the parameter lock.
    int Fg_getParameterInfoXML(Fg_Struct* fg, int port, char* infoBuffer, size_t* infoBufferSize) override;
    uint64_t Fg_getEventMask(const char* name) override;
    const char* Fg_getEventName(uint64_t mask) override;
    const char* getManufacturer() override;
    const char* getCameraType() override;
    const char* getCameraVersion() override;
    int getAppletID() override;

private:
    // Writes the Bayer phase of the current pixel format and offsets to both stages.
    void writeBayerPhase();
    // Re-publishes the upper limit of an unsigned parameter.
    void publishMaximum(int id, uint32_t maximum);
    uint32_t readFillLevel();
    template <typename Map>
    const typename Map::mapped_type* lookupRecorded(const Map& map, const typename Map::key_type& key);
    void addDirectRegisterAccess();
    void addDirectZuAccess();
    void writeRegister(int id, const void* value, int index, int type, bool throwOnError);
    void readRegister(int id, void* value, int index, int type, bool throwOnError);
};

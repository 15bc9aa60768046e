// The camera simulator: the internal image generator that can replace the
// camera, with its size, gaps, pattern and speed modes.
#include "FgZuWrapperImpl.h"
#include "pelagon_errors.h"

// Not built yet.
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_ENABLE_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_HEIGHT_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PATTERN_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PATTERN_OFFSET_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_ROLL_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_SELECT_MODE_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::set_sdk_param_FG_CAMERASIMULATOR_TRIGGER_MODE_P0(uint32_t, bool) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_WIDTH_P0(uint32_t*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_LINE_GAP_P0(uint32_t*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_FRAME_GAP_P0(uint32_t*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_ACTIVE_P0(uint32_t*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_PASSIVE_P0(uint32_t*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_PIXEL_FREQUENCY_P0(double*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_LINERATE_P0(double*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::get_sdk_param_FG_CAMERASIMULATOR_FRAMERATE_P0(double*) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::setWidth_P0(uint32_t, uint32_t) { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::update_dynamic_range_FG_CAMERASIMULATOR_WIDTH_P0() { throw int{PGN_ERR_INVALID_ARGUMENT}; }
void FgZuWrapperImpl::update_dynamic_range_FG_CAMERASIMULATOR_HEIGHT_P0() { throw int{PGN_ERR_INVALID_ARGUMENT}; }

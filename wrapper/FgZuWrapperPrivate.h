// Private data of FgZuWrapper: the bound runtime, the handles, the registry
// and the last error.
#pragma once

#include "fg_api.h"
#include "parameterInfo.h"
#include "Fg_Error.h"

struct FgZuWrapperPrivate {
    Fg_Struct* mWrapperFg = nullptr;  // owned, zeroed: the bound runtime functions
    Fg_Struct* mFglibFg = nullptr;    // the runtime's inner handle (not owned)
    ZUdevice* mBoardHandle = nullptr;
    fpga_design* mDesignHandle = nullptr;
    void* dll = nullptr;
    Fg_InitHandleSlaveAware_t Fg_Init_Func_Slave_Aware = nullptr;
    Fg_InitHandle_t Fg_Init_Func = nullptr;
    Fg_getParameterIdByName_t DLL_Fg_getParameterIdByName = nullptr;
    Fg_getLastErrorNumber_t DLL_Fg_getLastErrorNumber = nullptr;
    Fg_ParameterInfo* mParameterInfo = nullptr;  // owned
    Fg_Error mError;
};

// Access to the design's register parameters by their runtime ids.
#include "FgZuWrapperImpl.h"

#include <stdexcept>

#include "Fail.h"
#include "pelagon_errors.h"

void FgZuWrapperImpl::retrieveIds() {
#define PELAGON_REGISTER(block, entry, kind, width, frac, count, access) \
    zu_id_Device1_##block##_##entry = getParameterIdByName("Device1_" #block "_" #entry);
#include "pelagon_design.def"
}

void FgZuWrapperImpl::writeRegister(int id, const void* value, int index, int type, bool throwOnError) {
    if (!value) {
        if (throwOnError) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        return;
    }
    const int result =
        setUnwrappedParameterWithType(id, value, static_cast<unsigned int>(index), type);
    if (result != 0 && throwOnError) pelagon::fail(result);
}

void FgZuWrapperImpl::readRegister(int id, void* value, int index, int type, bool throwOnError) {
    if (!value) {
        if (throwOnError) pelagon::fail(PGN_ERR_INVALID_ARGUMENT);
        return;
    }
    const int result =
        getUnwrappedParameterWithType(id, value, static_cast<unsigned int>(index), type);
    if (result != 0 && throwOnError) pelagon::fail(result);
}

// A single DMA channel serves the one camera, so there is nothing to map or
// align; asking is a programming error of the caller.
int FgZuWrapperImpl::processChannelToDma(int, int) {
    throw std::runtime_error("processChannelToDma() is not implemented.");
}
int FgZuWrapperImpl::mapDmaToFormat(int) { throw std::runtime_error("mapDmaToFormat() is not implemented."); }
int FgZuWrapperImpl::setDmaAlignment(int, int) {
    throw std::runtime_error("setDmaAlignment() is not implemented.");
}
int FgZuWrapperImpl::getDmaAlignment(int) { throw std::runtime_error("getDmaAlignment() is not implemented."); }

#include "Fg_Error.h"

#include "pelagon_errors.h"

int Fg_Error::setErr(int code)
{
    error_number_buffer.store(code, std::memory_order_relaxed);
    return code;
}

int Fg_Error::setErrLevel2(int /*code*/, const char* /*text*/)
{
    return PGN_ERR_NOT_SUPPORTED;
}

int Fg_Error::getErrorNumberBuffer() const
{
    return error_number_buffer.load(std::memory_order_relaxed);
}

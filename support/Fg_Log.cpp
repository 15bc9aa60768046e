#include "Fg_Log.h"

#include <cstdarg>
#include <ctime>

namespace {

// printf's handling of a null "%s" argument is undefined; a log line must
// never be the reason the process goes down.
const char* text(const char* s)
{
    return s != nullptr ? s : "(null)";
}

constexpr const char* kRule =
    "-------------------------------------------------------------------------\n";
static_assert(std::char_traits<char>::length(kRule) == 73 + 1, "rule line is 73 dashes");

} // namespace

Fg_Log::Fg_Log(const char* fileName)
{
    if (fileName != nullptr) {
        OpenLogFile(fileName);
    }
}

Fg_Log::~Fg_Log()
{
    CloseLogFile();
}

void Fg_Log::OpenLogFile(const char* /*fileName*/)
{
}

void Fg_Log::CloseLogFile()
{
    if (mHandleToFile != nullptr) {
        std::fflush(mHandleToFile);
        std::fclose(mHandleToFile);
        mHandleToFile = nullptr;
    }
}

void Fg_Log::attachStream(FILE* stream)
{
    if (stream == mHandleToFile) {
        return;
    }
    CloseLogFile();
    mHandleToFile = stream;
}

std::string Fg_Log::GetTimestamp()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    // asctime_r needs at least 26 bytes; years beyond four digits need more.
    char buffer[64] = {};
    if (localtime_r(&now, &local) == nullptr || local.tm_year > 9999 - 1900) {
        return "\n";
    }
    if (asctime_r(&local, buffer) == nullptr) {
        return "\n";
    }
    return buffer;
}

void Fg_Log::WriteWelcome()
{
    if (mHandleToFile == nullptr) {
        return;
    }
    std::fputs(kRule, mHandleToFile);
    std::fputs("Owner: Pelagon acquisition applet\n", mHandleToFile);
    std::fputs("Contents: Log details for varionix Dll\n", mHandleToFile);
    std::fputs(GetTimestamp().c_str(), mHandleToFile);
    std::fputs(kRule, mHandleToFile);
    std::fflush(mHandleToFile);
}

void Fg_Log::Func(const char* /*name*/)
{
}

void Fg_Log::Info(const char* /*text*/)
{
}

void Fg_Log::Error(const char* message)
{
    writeLine("varionixIV::Error >> %s;\n", text(message));
}

void Fg_Log::Info(const char* message, int value)
{
    writeLine("varionixIV::Info >> %s >> %d;\n", text(message), value);
}

void Fg_Log::ErrorInt(const char* where, const char* message, int value)
{
    writeLine("varionixIV::Error >> %s >> %s >> %d;\n", text(where), text(message), value);
}

void Fg_Log::ErrorDouble(const char* where, const char* message, double value)
{
    if (mHandleToFile == nullptr) {
        return;
    }
    // Twelve significant digits always fit: sign, point, 12 digits and an
    // exponent such as "e-308" stay well under 32 characters.
    char number[32];
    std::snprintf(number, sizeof number, "%.*g", 12, value);
    writeLine("varionixIV::Error >> %s >> %s >> %s;\n", text(where), text(message), number);
}

void Fg_Log::UsrDbg(const char* format, ...)
{
    if (mHandleToFile == nullptr || format == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    std::vfprintf(mHandleToFile, format, args);
    va_end(args);
}

void Fg_Log::writeLine(const char* format, ...)
{
    if (mHandleToFile == nullptr) {
        return;
    }
    va_list args;
    va_start(args, format);
    std::vfprintf(mHandleToFile, format, args);
    va_end(args);
    std::fflush(mHandleToFile);
}

/* Line-oriented diagnostic log. The applet never opens a log file, so in
 * production every writer is a no-op; the formats still matter for anyone
 * who attaches a stream. */
#ifndef PELAGON_SUPPORT_FG_LOG_H
#define PELAGON_SUPPORT_FG_LOG_H

#include <cstdio>
#include <string>

class Fg_Log {
public:
    // Starts closed; a non-null fileName is handed to OpenLogFile.
    explicit Fg_Log(const char* fileName);
    ~Fg_Log();

    Fg_Log(const Fg_Log&) = delete;
    Fg_Log& operator=(const Fg_Log&) = delete;

    // Deliberately opens nothing: the applet must not leave log files behind.
    void OpenLogFile(const char* fileName);
    // Flushes and closes the stream if one is open.
    void CloseLogFile();

    // Hands an already-open stream to the log, which then owns it and closes
    // it in CloseLogFile or the destructor. A stream attached earlier is
    // closed first; null just closes. Meant for diagnostics and tests, since
    // OpenLogFile never opens anything.
    void attachStream(FILE* stream);
    bool isOpen() const { return mHandleToFile != nullptr; }

    // Current local time in asctime form, including the trailing newline.
    static std::string GetTimestamp();

    void WriteWelcome();
    // Entry tracing and plain information are compiled out.
    void Func(const char* name);
    void Info(const char* text);

    void Error(const char* text);
    void Info(const char* text, int value);
    void ErrorInt(const char* where, const char* text, int value);
    void ErrorDouble(const char* where, const char* text, double value);
    // The caller's format and arguments, verbatim: no prefix, no flush.
    void UsrDbg(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    void writeLine(const char* format, ...) __attribute__((format(printf, 2, 3)));

    FILE* mHandleToFile = nullptr;
    [[maybe_unused]] int mLogLevel = 0;  // kept for the interface; no writer consults it
};

#endif

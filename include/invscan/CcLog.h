// The hardware trace channel. Off by default; INVSCAN_TRACE=stderr or
// INVSCAN_TRACE=/path/file (or setOutput) turns it on. Every trace call tests the
// switch before it formats anything, so a silent channel costs one branch.
#ifndef INVSCAN_CCLOG_H
#define INVSCAN_CCLOG_H

#include "invscan_export.h"

#include <cstdarg>
#include <cstdio>

#if defined(__GNUC__)
#define INVSCAN_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define INVSCAN_PRINTF(fmt, args)
#endif

class INVSCAN_API CcLogWrapper {
public:
    enum Level { LEVEL_MIN = 1, LEVEL_MID = 2, LEVEL_MAX = 3 };

    bool isOn() const { return m_out != nullptr; }

    // "stderr", "-" (standard error), a file path (appended to), or null / "" to
    // switch the channel off. Returns false when the file cannot be opened.
    bool setOutput(const char* destination);
    std::FILE* output() const { return m_out; }

    void traceMidEntry(int line, const char* file, const char* op, const char* fmt, ...)
        INVSCAN_PRINTF(5, 6);
    void traceMidExit(int line, const char* file, const char* op, const char* fmt, ...)
        INVSCAN_PRINTF(5, 6);
    void traceMAX(int line, const char* file, const char* op, const char* fmt, ...)
        INVSCAN_PRINTF(5, 6);
    void traceMIN(int line, const char* file, const char* op, const char* fmt, ...)
        INVSCAN_PRINTF(5, 6);

    // Raw line for the stream-style tracer.
    void writeLine(const char* tag, const char* where, const char* text);

private:
    friend INVSCAN_API CcLogWrapper* getCcLogHw();
    CcLogWrapper();
    void emit(const char* kind, int line, const char* file, const char* op, const char* fmt,
              std::va_list args);

    std::FILE* m_out = nullptr;
    bool m_ownsFile = false;
};

// The one hardware trace channel of the process.
INVSCAN_API CcLogWrapper* getCcLogHw();

#endif

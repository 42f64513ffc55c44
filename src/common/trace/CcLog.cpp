#include "invscan/CcLog.h"
#include "invscan/SafeFile.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

CcLogWrapper::CcLogWrapper() {
    const char* env = std::getenv("INVSCAN_TRACE");
    if (env && *env) setOutput(env);
}

CcLogWrapper* getCcLogHw() {
    static CcLogWrapper instance;
    return &instance;
}

bool CcLogWrapper::setOutput(const char* destination) {
    if (m_ownsFile && m_out) std::fclose(m_out);
    m_out = nullptr;
    m_ownsFile = false;
    if (!destination || !*destination) return true;
    if (std::strcmp(destination, "stderr") == 0 || std::strcmp(destination, "-") == 0) {
        m_out = stderr;
        return true;
    }
    // Appended to, never through another user's link, never a FIFO that blocks.
    m_out = safefile::streamOf(safefile::openAppend(destination, 0600, nullptr), "a");
    m_ownsFile = m_out != nullptr;
    return m_out != nullptr;
}

void CcLogWrapper::emit(const char* kind, int line, const char* file, const char* op,
                        const char* fmt, std::va_list args) {
    std::fprintf(m_out, "%s %s:%d %s: ", kind, file ? file : "?", line, op ? op : "?");
    std::vfprintf(m_out, fmt, args);
    std::fputc('\n', m_out);
    std::fflush(m_out);
}

#define INVSCAN_TRACE_BODY(kind)                                                                   \
    if (!m_out) return;                                                                            \
    std::va_list args;                                                                             \
    va_start(args, fmt);                                                                           \
    emit(kind, line, file, op, fmt, args);                                                         \
    va_end(args);

void CcLogWrapper::traceMidEntry(int line, const char* file, const char* op, const char* fmt, ...) {
    INVSCAN_TRACE_BODY("ENTRY")
}
void CcLogWrapper::traceMidExit(int line, const char* file, const char* op, const char* fmt, ...) {
    INVSCAN_TRACE_BODY("EXIT ")
}
void CcLogWrapper::traceMAX(int line, const char* file, const char* op, const char* fmt, ...) {
    INVSCAN_TRACE_BODY("MAX  ")
}
void CcLogWrapper::traceMIN(int line, const char* file, const char* op, const char* fmt, ...) {
    INVSCAN_TRACE_BODY("MIN  ")
}

void CcLogWrapper::writeLine(const char* tag, const char* where, const char* text) {
    if (!m_out) return;
    std::fprintf(m_out, "%s %s: %s\n", tag, where ? where : "?", text ? text : "");
    std::fflush(m_out);
}

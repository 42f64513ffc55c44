// Running helper programs: a child process with three pipes, and the response
// protocol by which a helper hands back a result code and a variant tree:
//
//   ; optional comment lines
//   1.0 <result>[ <message>]
//   <variant-tree dump>
#ifndef INVSCAN_VTPROCESS_H
#define INVSCAN_VTPROCESS_H

#include "invscan_export.h"

#include <string>
#include "VtStream.h"
#include "vtree.h"

class INVSCAN_API VtProcess {
public:
    VtProcess();          // opens the three pipes; nothing runs yet
    virtual ~VtProcess(); // deletes the stream objects and closes the child's ends

    // Starts `path` with the blank-separated words of `args` (may be null) as its
    // arguments; at most MAX_ARGS words are passed. Null when the pipes or the fork
    // failed. A program that cannot be executed yields a child that exits with 255.
    static VtProcess* create(const char* path, const char* args);

    // Kills the child (SIGKILL) and reaps it. Returns the result of kill, or the
    // pid when there is no child.
    virtual int destroy();
    // The exit code once known, else -1.
    virtual int exitValue();
    // Blocks until the child has ended; returns exitValue().
    virtual int waitFor();

    void closeUnusedHandles();
    // Closes the parent's ends of the three pipes.
    void closeStreams();

    VtOStream_Unix* getStdin() { return m_stdin; }
    VtIStream_Unix* getStdout() { return m_stdout; }
    VtIStream_Unix* getStderr() { return m_stderr; }
    int pid() const { return m_pid; }

    static const int MAX_ARGS = 62;

private:
    VtOStream_Unix* m_stdin;
    VtIStream_Unix* m_stdout;
    VtIStream_Unix* m_stderr;
    int m_pid = -1;
    int m_exitCode = -1;
    int m_stdinPipe[2];
    int m_stdoutPipe[2];
    int m_stderrPipe[2];
};

// Reads a response (header and dump) from `in`. Never null; `result` is -1 when no
// valid header was read, `tree` is null when the dump could not be parsed.
INVSCAN_API VtExecInfo* vtParseProgramOutput(VtIStream* in);
// Runs `path` without arguments and reads its response; null only when it could not
// be started. What the child writes to its standard error is read and discarded, so
// that it cannot block on a full pipe; the child is reaped and its pipes closed before
// returning.
INVSCAN_API VtExecInfo* vtExecProgram(const char* path);
// The most a helper may print: past it the read stops and the run counts as failed.
const unsigned long long VT_MAX_OUTPUT = 64ull << 20;
// Runs the helper `command`: $KOR_HOMEDIR/bin/<command> when KOR_HOMEDIR is set,
// else `command` as given (no PATH search).
INVSCAN_API VtExecInfo* vtExecCommand(const char* command);
// The folder whose bin holds the helpers: KOR_HOMEDIR when it is an absolute path,
// else this library's own installation (<prefix>/libexec/invscan, or the build folder
// the library was built in). Empty, with the reason in `why`, when there is none: a
// relative or empty KOR_HOMEDIR is refused, and the current folder is never taken.
INVSCAN_API std::string vtHelperHome(std::string* why = nullptr);
// Diagnostic: runs `command` and prints its response. 0 on success, 1 otherwise.
INVSCAN_API int vtExecTest(const char* command);

#endif

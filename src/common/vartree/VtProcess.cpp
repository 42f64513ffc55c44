// Helper-program execution and the response protocol.
#include "invscan/VtProcess.h"

#include "invscan/CcLog.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const VT_PROCESS_SOURCE = "./../../../src/common/vartree/VtProcess";

// Pipe whose ends are not inherited by other children of this process; the helper
// gets its ends through dup2, which clears the flag.
void openPipe(int fds[2]) {
    if (::pipe(fds) != 0) {
        fds[0] = fds[1] = -1;
        return;
    }
    ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
}

void closeFd(int& fd) {
    if (fd != -1) ::close(fd);
    fd = -1;
}

} // namespace

VtProcess::VtProcess() {
    openPipe(m_stdinPipe);
    openPipe(m_stdoutPipe);
    openPipe(m_stderrPipe);
    m_stdin = new VtOStream_Unix(m_stdinPipe[1]);
    m_stdout = new VtIStream_Unix(m_stdoutPipe[0]);
    m_stderr = new VtIStream_Unix(m_stderrPipe[0]);
}

VtProcess::~VtProcess() {
    delete m_stdin;
    delete m_stdout;
    delete m_stderr;
    closeUnusedHandles();
}

void VtProcess::closeUnusedHandles() {
    closeFd(m_stdinPipe[0]);
    closeFd(m_stdoutPipe[1]);
    closeFd(m_stderrPipe[1]);
}

void VtProcess::closeStreams() {
    m_stdin->close();
    m_stdout->close();
    m_stderr->close();
    m_stdinPipe[1] = m_stdoutPipe[0] = m_stderrPipe[0] = -1;
}

VtProcess* VtProcess::create(const char* path, const char* args) {
    if (!path) return nullptr;
    VtProcess* proc = new VtProcess;
    if (proc->m_stdinPipe[0] == -1 || proc->m_stdoutPipe[0] == -1 || proc->m_stderrPipe[0] == -1) {
        proc->closeStreams();
        delete proc;
        return nullptr;
    }

    // The argument vector is built before the fork, so that the child only calls
    // async-signal-safe functions.
    std::string pathCopy(path);
    std::string argCopy(args ? args : "");
    std::vector<char*> argv;
    argv.push_back(&pathCopy[0]);
    char* save = nullptr;
    for (char* word = strtok_r(&argCopy[0], " ", &save);
         word && argv.size() <= static_cast<size_t>(MAX_ARGS); word = strtok_r(nullptr, " ", &save))
        argv.push_back(word);
    argv.push_back(nullptr);

    pid_t pid = ::fork();
    if (pid < 0) {
        proc->closeStreams();
        delete proc;
        return nullptr;
    }
    if (pid == 0) {
        ::dup2(proc->m_stdinPipe[0], 0);
        ::dup2(proc->m_stdoutPipe[1], 1);
        ::dup2(proc->m_stderrPipe[1], 2);
        // When this process ran with descriptor 0 closed, the stdin pipe's read end
        // already is 0: dup2 onto itself keeps close-on-exec, and the helper would
        // start without a standard input.
        for (int fd = 0; fd <= 2; ++fd)
            ::fcntl(fd, F_SETFD, 0);
        ::execv(argv[0], argv.data());
        // _exit, not exit: the parent's unflushed stdio buffers must not be written
        // a second time by the child.
        ::_exit(-1);
    }
    proc->m_pid = static_cast<int>(pid);
    proc->closeUnusedHandles();
    return proc;
}

int VtProcess::exitValue() {
    return m_exitCode;
}

int VtProcess::waitFor() {
    if (m_pid <= 0 || m_exitCode != -1) return exitValue();
    int status = 0;
    for (;;) {
        pid_t r = ::waitpid(m_pid, &status, 0);
        if (r == m_pid) {
            if (WIFEXITED(status)) m_exitCode = WEXITSTATUS(status);
            // Reaped: the pid may now belong to another process.
            m_pid = -1;
            break;
        }
        if (r < 0 && errno == EINTR) continue;
        break;
    }
    return exitValue();
}

int VtProcess::destroy() {
    if (m_pid <= 0) return m_pid;
    int rc = ::kill(m_pid, SIGKILL);
    if (rc == 0) {
        int status = 0;
        while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    m_pid = -1;
    m_exitCode = -1;
    return rc;
}

// ---------------------------------------------------------------------------------
// Response protocol

namespace {

inline bool isDigitChar(char c) {
    return c >= '0' && c <= '9';
}
inline bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// atoi that saturates instead of overflowing.
int headerInt(const char* p) {
    long long v = 0;
    bool neg = false;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r'))
        ++p;
    if (*p == '+' || *p == '-') neg = *p++ == '-';
    while (isDigitChar(*p)) {
        v = v * 10 + (*p++ - '0');
        if (v > 2147483648LL) v = 2147483648LL;
    }
    if (neg) v = -v;
    if (v > 2147483647LL) v = 2147483647LL;
    return static_cast<int>(v);
}

} // namespace

VtExecInfo* vtParseProgramOutput(VtIStream* in) {
    VtExecInfo* info = new VtExecInfo;
    if (!in) return info;
    VtILineStream lines(in);
    char header[256];
    do {
        if (!lines.getline(header, sizeof header, -1)) return info;
    } while (header[0] == ';');

    const char* p = header;
    int major = headerInt(p);
    while (isDigitChar(*p))
        ++p;
    int minor = -1;
    if (*p == '.' && isDigitChar(p[1])) {
        ++p;
        minor = headerInt(p);
        while (isDigitChar(*p))
            ++p;
        while (isBlank(*p))
            ++p;
    }
    int result = -1;
    const char* message = "";
    if (isDigitChar(*p)) {
        result = headerInt(p);
        while (isDigitChar(*p))
            ++p;
        while (isBlank(*p))
            ++p;
        message = p;
    }
    if (result < 0 || minor < 0 || major <= 0) return info;

    info->result = result;
    info->major = major;
    info->minor = minor;
    info->message = vtStrDup(message);
    info->tree = vtParseNodeDump(&lines);
    return info;
}

namespace {

// The child's standard output, with its standard error drained on the side: a helper
// that fills the error pipe would otherwise block, and so would we, waiting for the
// rest of its output. What it writes there is discarded.
class DrainedOutput : public VtIStream {
public:
    DrainedOutput(VtIStream_Unix* out, VtIStream_Unix* err) : m_out(out), m_err(err) {}

    long read(char* buf, unsigned long len) override {
        if (m_total >= VT_MAX_OUTPUT) {
            m_over = true;
            return 0;
        }
        if (len > VT_MAX_OUTPUT - m_total)
            len = static_cast<unsigned long>(VT_MAX_OUTPUT - m_total);
        while (m_err->fd() != -1 && m_out->fd() != -1) {
            struct pollfd p[2] = {{m_out->fd(), POLLIN, 0}, {m_err->fd(), POLLIN, 0}};
            if (::poll(p, 2, -1) < 0) {
                if (errno == EINTR) continue;
                break;
            }
            if (p[1].revents) {
                char sink[4096];
                if (m_err->read(sink, sizeof sink) <= 0) m_err->close(); // its end
            }
            if (p[0].revents) break;
        }
        long n = m_out->read(buf, len);
        if (n > 0) m_total += static_cast<unsigned long long>(n);
        return n;
    }
    void close() override { m_out->close(); }
    // Whether the output went on past the cap (the read stopped there).
    bool over() const { return m_over; }

private:
    VtIStream_Unix* m_out;
    VtIStream_Unix* m_err;
    unsigned long long m_total = 0;
    bool m_over = false;
};

} // namespace

VtExecInfo* vtExecProgram(const char* path) {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, VT_PROCESS_SOURCE, "vtExecProgram()", "hardware %s",
                       path ? path : "(null)");
    VtProcess* proc = VtProcess::create(path, nullptr);
    if (!proc) {
        log->traceMIN(__LINE__, VT_PROCESS_SOURCE, "vtExecProgram()",
                      "hardware ERROR! Failed to start %s", path ? path : "(null)");
        return nullptr;
    }
    DrainedOutput out(proc->getStdout(), proc->getStderr());
    VtExecInfo* info = vtParseProgramOutput(&out);
    if (out.over()) {
        // A cut dump is no snapshot: the groups must not read half a machine.
        log->traceMIN(__LINE__, VT_PROCESS_SOURCE, "vtExecProgram()",
                      "hardware ERROR! %s wrote more than %d MiB: output refused", path,
                      static_cast<int>(VT_MAX_OUTPUT >> 20));
        delete info->tree;
        info->tree = nullptr;
        if (info->result == 0) info->result = 1;
    }
    // Closing our ends first lets a helper that still writes (after a bad header or
    // dump) fail on the pipe instead of blocking, so the wait cannot hang on it.
    proc->closeStreams();
    int code = proc->waitFor();
    delete proc;
    log->traceMidExit(__LINE__, VT_PROCESS_SOURCE, "vtExecProgram()",
                      "hardware %s exit=%d result=%d tree=%s", path ? path : "(null)", code,
                      info->result, info->tree ? "yes" : "no");
    return info;
}

namespace {

// Strips `n` trailing components from a folder path.
std::string parentOf(std::string dir, int n) {
    for (int i = 0; i < n; ++i) {
        std::size_t slash = dir.find_last_of('/');
        if (slash == std::string::npos || slash == 0) return "/";
        dir.erase(slash);
    }
    return dir;
}

int components(const char* relative) {
    int n = 1;
    for (const char* p = relative; *p; ++p)
        if (*p == '/' && p[1]) ++n;
    return n;
}

bool isFolder(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Where this library file lies, as an absolute path; empty when the loader gave a
// relative name (it would be read against a current folder that may have changed).
std::string ownFolder() {
    Dl_info info;
    if (!::dladdr(reinterpret_cast<void*>(&vtHelperHome), &info) || !info.dli_fname ||
        info.dli_fname[0] != '/')
        return std::string();
    char real[PATH_MAX];
    if (!::realpath(info.dli_fname, real)) return std::string();
    return parentOf(real, 1);
}

} // namespace

std::string vtHelperHome(std::string* why) {
    std::string dummy;
    if (!why) why = &dummy;
    if (const char* home = std::getenv("KOR_HOMEDIR")) {
        if (home[0] == '/') return home;
        *why = *home ? "KOR_HOMEDIR is not an absolute path" : "KOR_HOMEDIR is empty";
        return std::string();
    }
    std::string lib = ownFolder();
    if (lib.empty()) {
        *why = "KOR_HOMEDIR is not set and the library's own folder is not known";
        return std::string();
    }
    // Installed: <prefix>/<libdir>/libinvscan.so beside <prefix>/<libexec>/invscan/bin.
    std::string installed =
        parentOf(lib, components(INVSCAN_LIBDIR)) + "/" INVSCAN_LIBEXEC "/invscan";
    if (isFolder(installed + "/bin")) return installed;
    // A build folder: the helpers in bin beside the library.
    if (isFolder(lib + "/bin")) return lib;
    *why = "KOR_HOMEDIR is not set and no helpers lie beside the library (" + lib + ")";
    return std::string();
}

VtExecInfo* vtExecCommand(const char* command) {
    if (!command) return nullptr;
    // A helper runs by an absolute path only: never from the current folder, which
    // another user may own.
    std::string path;
    if (command[0] == '/' && !std::getenv("KOR_HOMEDIR")) {
        path = command;
    } else {
        std::string why;
        std::string home = vtHelperHome(&why);
        if (home.empty()) {
            getCcLogHw()->traceMIN(__LINE__, VT_PROCESS_SOURCE, "vtExecCommand()",
                                   "hardware ERROR! %s not run: %s", command, why.c_str());
            return new VtExecInfo();
        }
        path = home + "/bin/" + command;
    }
    return vtExecProgram(path.c_str());
}

int vtExecTest(const char* command) {
    VtExecInfo* info = vtExecCommand(command);
    if (info && info->result >= 0) {
        std::printf("Command '%s' executed successfully\n", command);
        std::printf("VT version = %d.%d, result = %d, message = %s\n", info->major, info->minor,
                    info->result, info->message ? info->message : "");
        if (info->tree) vtDumpNode(info->tree, 0);
        delete info;
        return 0;
    }
    delete info;
    std::fprintf(stderr, "*** Fatal: could not execute '%s'\n", command ? command : "(null)");
    return 1;
}

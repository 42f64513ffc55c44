// Another user's files in a folder the scan works in: the tests play that user
// (nobody, uid 65534) to plant links and FIFOs, then run the code as root and check
// that nothing was written through and nothing waited.
#ifndef INVSCAN_TEST_PLANTED_H
#define INVSCAN_TEST_PLANTED_H

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace planted {

const uid_t NOBODY = 65534;

// Runs `body` in a child process as nobody (when the tests run as root) and gives
// back what it reported; "" means all went as expected.
inline std::string asNobody(const std::function<std::string()>& body) {
    int fds[2];
    if (pipe(fds) != 0) return "no pipe";
    pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        std::string report;
        if (geteuid() == 0 && (setgid(NOBODY) != 0 || setuid(NOBODY) != 0))
            report = "cannot drop to uid 65534";
        else
            report = body();
        if (write(fds[1], report.data(), report.size()) < 0) _exit(2);
        _exit(0);
    }
    close(fds[1]);
    std::string out;
    char buf[512];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0)
        out.append(buf, static_cast<size_t>(n));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? out : out + " (child failed)";
}

// Runs `body` in a child that is killed after `seconds`: true when it returned in
// time with true. A call that waits on a FIFO fails here instead of hanging the suite.
inline bool returnsInTime(const std::function<bool()>& body, unsigned seconds = 10) {
    pid_t pid = fork();
    if (pid == 0) {
        alarm(seconds);
        _exit(body() ? 0 : 1);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A folder that nobody owns, below a fresh world-searchable one: where the attacker
// plants. Removed with everything in it.
class NobodysFolder {
public:
    NobodysFolder() {
        char tmpl[] = "/tmp/invscan-planted-XXXXXX";
        if (mkdtemp(tmpl)) m_top = tmpl;
        chmod(m_top.c_str(), 0755);
        m_dir = m_top + "/nobody";
        mkdir(m_dir.c_str(), 0755);
        if (chown(m_dir.c_str(), NOBODY, NOBODY) != 0) m_dir.clear();
    }
    ~NobodysFolder() {
        if (!m_top.empty()) std::system(("rm -rf '" + m_top + "'").c_str());
    }
    // The attacker's folder; empty when it could not be made (not root).
    const std::string& dir() const { return m_dir; }
    // Beside it, root's own: where the victims live.
    std::string rootFile(const std::string& name) const { return m_top + "/" + name; }

private:
    std::string m_top, m_dir;
};

// Skips the test unless it runs as root, which it needs to play another user.
#define INVSCAN_NEEDS_ROOT()                                                                       \
    do {                                                                                           \
        if (geteuid() != 0) GTEST_SKIP() << "needs root to play another user (uid 65534)";         \
    } while (0)

} // namespace planted

#endif

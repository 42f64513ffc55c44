// Runs a shell command the way a person would, for the tests that drive the
// programs themselves: what it printed on standard output, and how it exited.
#ifndef INVSCAN_TEST_RUN_COMMAND_H
#define INVSCAN_TEST_RUN_COMMAND_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>

namespace testrun {

struct Outcome {
    int status; // the exit status, -1 when it did not exit
    std::string out;
};

inline Outcome runCommand(const std::string& command) {
    Outcome r{-1, ""};
    if (std::FILE* p = popen(command.c_str(), "r")) {
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            r.out.append(buf, n);
        int st = pclose(p);
        r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    }
    return r;
}

// Standard output alone.
inline std::string run(const std::string& command) {
    return runCommand(command).out;
}

// A fresh folder below /tmp for one test, emptied and removed afterwards (read-only
// folders in it included).
class TempDirTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/invscan-test-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
    }
    void TearDown() override { runCommand("chmod -R u+w " + dir + "; rm -rf " + dir); }
    std::string dir;
};

} // namespace testrun

#endif

// What the tests share: a shell command run the way a person would (what it printed
// on standard output, and how it exited), whole files, and a fresh folder per test.
#ifndef INVSCAN_TEST_RUN_COMMAND_H
#define INVSCAN_TEST_RUN_COMMAND_H

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
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

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// This process's open file descriptors (the folder's own entries included).
inline int openDescriptors() {
    int n = 0;
    if (DIR* d = opendir("/proc/self/fd")) {
        while (readdir(d))
            ++n;
        closedir(d);
    }
    return n;
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

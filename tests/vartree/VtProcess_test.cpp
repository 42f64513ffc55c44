// Running helpers: the response header, child processes and their clean-up.
#include "invscan/VtProcess.h"
#include "invscan/MacInfo.h"

#include <gtest/gtest.h>

#include "../common/run_command.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testrun::openDescriptors;

using InfoPtr = std::unique_ptr<VtExecInfo>;

InfoPtr parseOutput(const std::string& text) {
    VtIStream_Memory mem(text.data(), text.size(), 5);
    return InfoPtr(vtParseProgramOutput(&mem));
}

TEST(VtResponse, HeaderRules) {
    struct Case {
        const char* text;
        int result, major, minor;
        const char* message; // null: invalid header
    } cases[] = {
        {"; comment\n1.0 0\n(x\n)\n", 0, 1, 0, ""},
        {"1.0 3 partial data\n(x\n)\n", 3, 1, 0, "partial data"},
        {"1.0 0\r\n(x\r\n)\r\n", 0, 1, 0, ""},
        {"2.17   5   two  blanks \n", 5, 2, 17, "two  blanks "},
        {"1.0 0ok\n", 0, 1, 0, "ok"},
        {"1 0\n(x\n)\n", -1, 0, 0, nullptr},    // no minor
        {"0.9 0\n", -1, 0, 0, nullptr},         // major 0
        {"1.0 -1 failed\n", -1, 0, 0, nullptr}, // negative result
        {"1. 0\n", -1, 0, 0, nullptr},
        {"1.0\n", -1, 0, 0, nullptr},
        {" 1.0 0\n", -1, 0, 0, nullptr},
        {"; only comments\n", -1, 0, 0, nullptr},
        {"", -1, 0, 0, nullptr},
    };
    for (const Case& c : cases) {
        InfoPtr info = parseOutput(c.text);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->result, c.result) << c.text;
        if (!c.message) {
            EXPECT_EQ(info->message, nullptr) << c.text;
            EXPECT_EQ(info->tree, nullptr) << c.text;
            continue;
        }
        EXPECT_EQ(info->major, c.major) << c.text;
        EXPECT_EQ(info->minor, c.minor) << c.text;
        EXPECT_STREQ(info->message, c.message) << c.text;
    }
    InfoPtr info = parseOutput("; comment\n1.0 0\n(x\n)\n");
    ASSERT_NE(info->tree, nullptr);
    EXPECT_STREQ(info->tree->name, "");
    ASSERT_NE(info->tree->getChild("x", 0), nullptr);
    EXPECT_EQ(info->tree->getChild(nullptr, 1), nullptr);
}

TEST(VtResponse, LongHeaderIsCut) {
    std::string text = "1.0 0 " + std::string(400, 'm') + "\nn:i=1\n";
    InfoPtr info = parseOutput(text);
    ASSERT_EQ(info->result, 0);
    EXPECT_EQ(std::strlen(info->message), 255u - 6u);
    EXPECT_EQ(info->tree->getValue(nullptr, "n", 0), 1);
}

TEST(VtResponse, BadDumpKeepsHeader) {
    InfoPtr info = parseOutput("1.0 0 ok\nn:x=1\n");
    EXPECT_EQ(info->result, 0);
    EXPECT_STREQ(info->message, "ok");
    EXPECT_EQ(info->tree, nullptr);
}

// A scratch folder with helper scripts; KOR_HOMEDIR points at it while it lives.
class HelperDir {
public:
    HelperDir() {
        char tmpl[] = "/tmp/vtprocXXXXXX";
        const char* d = ::mkdtemp(tmpl);
        EXPECT_NE(d, nullptr);
        m_dir = d ? d : "/tmp";
        ::mkdir((m_dir + "/bin").c_str(), 0755);
        const char* old = std::getenv("KOR_HOMEDIR");
        m_hadHome = old != nullptr;
        if (old) m_oldHome = old;
        ::setenv("KOR_HOMEDIR", m_dir.c_str(), 1);
    }
    ~HelperDir() {
        if (m_hadHome)
            ::setenv("KOR_HOMEDIR", m_oldHome.c_str(), 1);
        else
            ::unsetenv("KOR_HOMEDIR");
        std::string cmd = "rm -rf '" + m_dir + "'";
        if (std::system(cmd.c_str()) != 0) {
            ADD_FAILURE() << cmd;
        }
    }
    std::string script(const char* name, const std::string& body) {
        std::string path = m_dir + "/bin/" + name;
        std::FILE* f = std::fopen(path.c_str(), "w");
        EXPECT_NE(f, nullptr);
        if (!f) return path;
        std::fprintf(f, "#!/bin/sh\n%s\n", body.c_str());
        std::fclose(f);
        ::chmod(path.c_str(), 0755);
        return path;
    }
    void remove(const char* name) { ::unlink((m_dir + "/bin/" + name).c_str()); }
    const std::string& dir() const { return m_dir; }

private:
    std::string m_dir;
    std::string m_oldHome;
    bool m_hadHome = false;
};

// True when this process has no child left to reap.
bool noChildren() {
    int status;
    return ::waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD;
}

TEST(VtExec, RunsHelperAndReadsResponse) {
    HelperDir home;
    home.script("sysprof", "echo '; helper'\n"
                           "printf '1.0 0 fine\\n(SystemProfiler\\n(SPHardwareDataType\\n"
                           "cores:i=2\\n)\\n)\\n'\n"
                           "echo noise >&2");
    int fdsBefore = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        InfoPtr info(vtExecCommand("sysprof"));
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(info->result, 0);
        EXPECT_STREQ(info->message, "fine");
        EXPECT_EQ(vtGetValue(info.get(), "SystemProfiler.SPHardwareDataType", "cores", 0), 2);
    }
    // Every run was reaped and its pipes closed.
    EXPECT_TRUE(noChildren());
    if (fdsBefore >= 0) {
        EXPECT_EQ(openDescriptors(), fdsBefore);
    }
}

TEST(VtExec, FailuresShowAsResultMinusOne) {
    HelperDir home;
    home.script("silent", "exit 0");
    // Garbage header, then far more output than a pipe holds: must not hang.
    home.script("chatty", "echo garbage; i=0; while [ $i -lt 2000 ]; do "
                          "echo 0123456789012345678901234567890123456789012345678901234567890123;"
                          " i=$((i+1)); done");
    home.script("baddump", "echo '1.0 0'; echo 'n:x=1'");
    std::string notExecutable = home.dir() + "/bin/plain";
    std::fclose(std::fopen(notExecutable.c_str(), "w"));
    for (const char* cmd : {"silent", "chatty", "missing", "plain"}) {
        InfoPtr info(vtExecCommand(cmd));
        ASSERT_NE(info, nullptr) << cmd;
        EXPECT_EQ(info->result, -1) << cmd;
        EXPECT_EQ(info->tree, nullptr) << cmd;
    }
    InfoPtr info(vtExecCommand("baddump"));
    EXPECT_EQ(info->result, 0);
    EXPECT_EQ(info->tree, nullptr);
    EXPECT_TRUE(noChildren());
}

TEST(VtExec, HelperThatFillsItsErrorPipe) {
    HelperDir home;
    // Far more on standard error than a pipe holds, before and between the lines of
    // the response: nobody may wait for anybody.
    const std::string flood = "head -c 300000 /dev/zero | tr '\\0' e >&2\n";
    home.script("noisy",
                flood + "echo '1.0 0 ok'\n" + flood + "printf '(x\\nn:i=5\\n)\\n'\n" + flood);
    InfoPtr info(vtExecCommand("noisy"));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->result, 0);
    EXPECT_EQ(vtGetValue(info.get(), "x", "n", 0), 5);
    EXPECT_TRUE(noChildren());
}

// Host agents may run with standard input closed; the helper still gets the pipe.
TEST(VtExecDeathTest, ChildStandardInputWhenOursIsClosed) {
    HelperDir home;
    std::string echo =
        home.script("echo", "if read line; then printf '1.0 0\\nline:s=%s\\n' \"$line\"; "
                            "else printf '1.0 0\\nline:s=none\\n'; fi");
    EXPECT_EXIT(
        {
            ::close(0);
            VtProcess* p = VtProcess::create(echo.c_str(), nullptr);
            if (!p) std::_Exit(2);
            p->getStdin()->write("hello\n", 6);
            p->getStdin()->close();
            InfoPtr info(vtParseProgramOutput(p->getStdout()));
            std::string line = vtGetValue(info.get(), nullptr, "line", "?");
            p->waitFor();
            p->closeStreams();
            delete p;
            std::_Exit(line == "hello" ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(VtExec, CommandPathWithoutHome) {
    HelperDir home;
    ::unsetenv("KOR_HOMEDIR");
    std::string path = home.script("direct", "echo '1.0 7'");
    InfoPtr info(vtExecCommand(path.c_str()));
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->result, 7);
    // A bare name is never a file of the current folder, which another user may own:
    // with KOR_HOMEDIR unset, relative or empty, the helper in it does not run.
    std::string cwdHelper = home.script("sysprof", "touch " + home.dir() + "/ran; echo '1.0 0'");
    std::string planted = home.dir() + "/sysprof";
    ASSERT_EQ(::rename(cwdHelper.c_str(), planted.c_str()), 0);
    char old[4096];
    ASSERT_NE(::getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(::chdir(home.dir().c_str()), 0);
    for (const char* value : {static_cast<const char*>(nullptr), ".", "", "bin/.."}) {
        if (value)
            ::setenv("KOR_HOMEDIR", value, 1);
        else
            ::unsetenv("KOR_HOMEDIR");
        InfoPtr bare(vtExecCommand("sysprof"));
        ASSERT_NE(bare, nullptr);
        EXPECT_EQ(bare->result, -1) << (value ? value : "unset");
        if (value) {
            EXPECT_EQ(vtHelperHome(), "") << value;
        }
    }
    ASSERT_EQ(::chdir(old), 0);
    struct stat st;
    EXPECT_NE(::stat((home.dir() + "/ran").c_str(), &st), 0);
}

TEST(VtProcess, ArgumentsExitCodeAndKill) {
    HelperDir home;
    std::string args = home.script("args", "printf '1.0 0\\ncount:i=%s\\nfirst:s=%s\\n' $# \"$1\"\n"
                                           "exit 3");
    std::string words = "  one two   three ";
    for (int i = 0; i < 70; ++i)
        words += " w";
    struct Case {
        const char* args;
        int count;
        const char* first;
    } cases[] = {{nullptr, 0, ""},
                 {"", 0, ""},
                 {"  one two   three ", 3, "one"},
                 {words.c_str(), VtProcess::MAX_ARGS, "one"}};
    for (const Case& c : cases) {
        VtProcess* p = VtProcess::create(args.c_str(), c.args);
        ASSERT_NE(p, nullptr);
        InfoPtr info(vtParseProgramOutput(p->getStdout()));
        EXPECT_EQ(vtGetValue(info.get(), nullptr, "count", -1), c.count);
        EXPECT_STREQ(vtGetValue(info.get(), nullptr, "first", "?"), c.first);
        EXPECT_EQ(p->waitFor(), 3);
        EXPECT_EQ(p->exitValue(), 3);
        EXPECT_EQ(p->waitFor(), 3); // known: no second wait
        p->closeStreams();
        delete p;
    }

    std::string sleeper = home.script("sleeper", "exec sleep 30");
    VtProcess* p = VtProcess::create(sleeper.c_str(), nullptr);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->exitValue(), -1);
    EXPECT_EQ(p->destroy(), 0);
    EXPECT_EQ(p->exitValue(), -1);
    EXPECT_EQ(p->destroy(), -1); // nothing left to kill
    p->closeStreams();
    delete p;
    EXPECT_TRUE(noChildren());
}

TEST(VtExec, DiagnosticRun) {
    HelperDir home;
    home.script("good", "printf '1.0 0 ok\\n(x\\nn:i=1\\n)\\n'");
    testing::internal::CaptureStdout();
    EXPECT_EQ(vtExecTest("good"), 0);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Command 'good' executed successfully\n"
                                                      "VT version = 1.0, result = 0, message = ok\n"
                                                      "(\n"
                                                      "   (x\n"
                                                      "      n:i=1\n"
                                                      "   )\n"
                                                      ")\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(vtExecTest("absent"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "*** Fatal: could not execute 'absent'\n");
}

TEST(MacInfo, SnapshotsAreCachedOnlyOnSuccess) {
    HelperDir home;
    MacInfo::setSysProf(nullptr);
    MacInfo::setIoKit(nullptr);
    std::string runs = home.dir() + "/runs";
    const std::string count = "echo run >> '" + runs + "'\n";
    auto runCount = [&] {
        int n = 0;
        if (std::FILE* f = std::fopen(runs.c_str(), "r")) {
            char line[16];
            while (std::fgets(line, sizeof line, f))
                ++n;
            std::fclose(f);
        }
        return n;
    };

    EXPECT_EQ(MacInfo::getSysProf(), nullptr); // no helper yet
    home.script("sysprof", count + "printf '1.0 2 partial\\n(SystemProfiler\\n)\\n'");
    EXPECT_EQ(MacInfo::getSysProf(), nullptr); // result 2 is no success
    EXPECT_EQ(MacInfo::getSysProf(), nullptr);
    EXPECT_EQ(runCount(), 2); // retried every time
    home.script("sysprof", count + "printf '1.0 0\\nn:x=1\\n'");
    EXPECT_EQ(MacInfo::getSysProf(), nullptr); // unreadable dump
    EXPECT_EQ(runCount(), 3);
    home.script("sysprof", count + "printf '1.0 0\\n(SystemProfiler\\nv:i=4\\n)\\n'");
    VtExecInfo* first = MacInfo::getSysProf();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(vtGetValue(first, "SystemProfiler", "v", 0), 4);
    home.remove("sysprof");
    EXPECT_EQ(MacInfo::getSysProf(), first); // taken once, then shared
    EXPECT_EQ(runCount(), 4);

    home.script("iokit", "printf '1.0 0\\n(IOKit\\n(Root\\nIOKitBuildVersion:s=Darwin\\n)\\n)\\n'");
    VtExecInfo* io = MacInfo::getIoKit();
    ASSERT_NE(io, nullptr);
    EXPECT_STREQ(vtGetValue(io, "IOKit.Root", "IOKitBuildVersion", ""), "Darwin");
    MacInfo::setSysProf(nullptr);
    MacInfo::setIoKit(nullptr);
    EXPECT_TRUE(noChildren());
}

} // namespace

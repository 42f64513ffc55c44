// The front end with broken and hostile input: every refusal is one line on
// standard error with its own exit status, and a recording either finishes or
// leaves a bundle that replay refuses. The inputs are built here.
#include <gtest/gtest.h>

#include "../common/run_command.h"

#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testrun::writeFile;

const std::string kInvscan = std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";

struct Result {
    int status;
    std::string err;
};

// Runs a shell line; standard error is what the test reads.
Result sh(const std::string& line) {
    testrun::Outcome o = testrun::runCommand("( " + line + " ) 2>&1 >/dev/null");
    return Result{o.status, o.out};
}

class CliErrors : public testrun::TempDirTest {
protected:
    std::string run(const std::string& args) {
        return "env -u KOR_HOMEDIR " + kInvscan + " " + args;
    }
};

} // namespace

TEST_F(CliErrors, SayWhatIsWrong) {
    mkdir((dir + "/empty").c_str(), 0755);
    mkdir((dir + "/fake").c_str(), 0755);
    writeFile(dir + "/fake/bundle.txt", "something else\n");
    mkdir((dir + "/half").c_str(), 0755);
    writeFile(dir + "/half/bundle.txt", "invscan-bundle 1\n");
    writeFile(dir + "/half/incomplete", "x\n");
    writeFile(dir + "/other.xml", "<Software/>");
    writeFile(dir + "/broken.xml", "<Hardware><Group></Hardware>");
    std::string deep;
    for (int i = 0; i < 300; ++i)
        deep += "<a>";
    for (int i = 0; i < 300; ++i)
        deep += "</a>";
    writeFile(dir + "/deep.xml", "<Hardware>" + deep + "</Hardware>");
    writeFile(dir + "/large.xml", "<Hardware>" + std::string(300 << 10, ' ') + "</Hardware>");
    const struct {
        std::string args;
        int status;
        const char* message;
    } cases[] = {
        {"--replay ''", 2, "--replay needs a folder, not an empty argument"},
        {"--record ''", 2, "--record needs a folder, not an empty argument"},
        {"--config ''", 2, "--config needs a file, not an empty argument"},
        {"--force -g 20", 2, "--force goes with --record"},
        {"--replay " + dir + "/empty", 4, "not a bundle: no bundle.txt"},
        {"--replay /proc", 4, "not a bundle: no bundle.txt"},
        {"--replay " + dir + "/fake", 4, "bundle.txt does not begin with 'invscan-bundle 1'"},
        {"--replay " + dir + "/nowhere", 4, "not a readable folder"},
        {"--replay " + dir + "/half", 5, "an incomplete bundle: its recording did not finish"},
        {"-g 20 --config " + dir + "/missing.xml", 7,
         "cannot be opened: No such file or directory"},
        {"-g 20 --config " + dir, 7, "cannot be opened: it is a folder"},
        {"-g 20 --config " + dir + "/large.xml", 8, "is too large (the limit is 256 KiB)"},
        {"-g 20 --config " + dir + "/deep.xml", 9,
         "is nested too deeply (the limit is 256 levels)"},
        {"-g 20 --config " + dir + "/broken.xml", 10, "is not valid XML"},
        {"-g 20 --config " + dir + "/other.xml", 11, "is not a hardware configuration"},
    };
    for (const auto& c : cases) {
        Result r = sh(run(c.args));
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << c.args << ": " << r.err;
    }
    EXPECT_NE(
        sh(run("--help") + " 1>&2").err.find("Exit status: 0 scanned; 1 other trouble; 2 usage"),
        std::string::npos);
}

TEST_F(CliErrors, RecordRefusesAFullFolderUnlessForced) {
    std::string b = dir + "/bundle";
    ASSERT_EQ(sh(run("--record " + b + " -g 20 -g 3")).status, 0);
    Result again = sh(run("--record " + b + " -g 20"));
    EXPECT_EQ(again.status, 6);
    EXPECT_NE(again.err.find("the folder is not empty (--force empties it first)"),
              std::string::npos);
    writeFile(b + "/leftover.txt", "from another host\n");
    ASSERT_EQ(sh(run("--record " + b + " --force -g 20")).status, 0);
    struct stat st;
    EXPECT_NE(stat((b + "/leftover.txt").c_str(), &st), 0); // emptied first
    EXPECT_NE(stat((b + "/incomplete").c_str(), &st), 0);   // finished
    EXPECT_EQ(sh(run("--replay " + b + " -g 20")).status, 0);
}

// A write that fails stops the scan, names the file and the reason, and leaves a
// bundle that replay refuses.
TEST_F(CliErrors, FailedWriteStopsTheRecording) {
    std::string b = dir + "/small";
    Result r = sh("trap '' XFSZ; ulimit -f 1; " + run("--record " + b));
    EXPECT_EQ(r.status, 6) << r.err;
    EXPECT_NE(r.err.find("cannot record into '" + b + "': "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
    Result replay = sh(run("--replay " + b + " -g 20"));
    EXPECT_EQ(replay.status, 5) << replay.err;
}

// Another user's folder: run unprivileged when the test runs as root.
TEST_F(CliErrors, UnwritableFolder) {
    std::string owned = dir + "/owned";
    mkdir(owned.c_str(), 0755);
    chmod(dir.c_str(), 0755);
    std::string prefix;
    if (geteuid() == 0) {
        if (sh("command -v setpriv").status != 0) GTEST_SKIP() << "no setpriv to drop root";
        prefix = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    } else {
        chmod(owned.c_str(), 0555);
    }
    const std::string ownedWhy =
        geteuid() == 0 ? "it belongs to another user" : "Permission denied";
    for (const auto& c : {std::make_pair(owned, ownedWhy),
                          std::make_pair(owned + "/inside", std::string("Permission denied"))}) {
        Result r = sh(prefix + run("--record " + c.first + " -g 20"));
        EXPECT_EQ(r.status, 6) << c.first << ": " << r.err;
        EXPECT_NE(r.err.find(c.second), std::string::npos) << r.err;
    }
}

TEST_F(CliErrors, GroupIdsAndNothingProduced) {
    const std::string bundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";
    const struct {
        std::string args;
        int status;
    } cases[] = {
        {"-g 020 -g 0x14", 2},                                        // decimal ids only
        {"-g 020", 0},                                                // group 20
        {"-g 2", 2},                                                  // no group 2
        {"--replay " + bundles + "macbook2-1-registry -g 5 -g 1", 3}, // neither has data there
        {"--replay " + bundles + "macbook2-1-registry -g 5 -g 20", 0},
    };
    for (const auto& c : cases) {
        Result r = sh(run(c.args));
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
    }
}

// The helpers answer a report they cannot read with a failure response, not a crash.
TEST_F(CliErrors, HelpersRefuseWhatIsNotAReport) {
    const std::string bin = std::string(INVSCAN_BINARY_DIR) + "/bin/";
    writeFile(dir + "/text", "invscan-bundle 1\n");
    for (const std::string& c :
         {bin + "sysprof --from /nonexistent", bin + "iokit --from " + dir + "/text"})
        EXPECT_EQ(testrun::run(c).compare(0, 6, "1.0 1 "), 0) << c;
}

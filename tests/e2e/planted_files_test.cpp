// The front end run as root among another user's files: a link, a FIFO or a folder
// planted where the scan reads or writes by name is refused with one line, nothing
// is written through, nothing waits, and record and replay never eat each other.
#include <gtest/gtest.h>

#include "../common/planted.h"
#include "../common/run_command.h"

#include <algorithm>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testrun::readFile;
using testrun::writeFile;

const std::string kInvscan = std::string(INVSCAN_BINARY_DIR) + "/bin/invscan";
const std::string kBundle = std::string(INVSCAN_TEST_DATA) + "/bundles/imac7-1-10.6.4";

struct Result {
    int status;
    std::string err;
};

// Runs invscan with a time limit, so that a call that waits on a FIFO fails the test
// (status 124) instead of hanging it; standard error is what the test reads.
Result invscan(const std::string& args, const std::string& env = "") {
    testrun::Outcome o =
        testrun::runCommand("( env -u KOR_HOMEDIR -u INVSCAN_TRACE " + env + " timeout 20 " +
                            kInvscan + " " + args + " ) 2>&1 >/dev/null");
    return Result{o.status, o.out};
}

int entries(const std::string& dir) {
    int n = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (struct dirent* e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
    }
    return n;
}

} // namespace

TEST(PlantedFiles, AnotherUsersNamesAreRefused) {
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder folder;
    ASSERT_FALSE(folder.dir().empty());
    const std::string n = folder.dir();
    const std::string victim = folder.rootFile("victim.txt");
    const std::string rootDir = folder.rootFile("rootdir");
    writeFile(victim, "root's own\n");
    mkdir(rootDir.c_str(), 0700);
    const std::string config = folder.rootFile("config.xml");
    writeFile(config, "<Hardware/>");
    ASSERT_EQ(planted::asNobody([&]() {
                  bool ok = symlink(victim.c_str(), (n + "/trace").c_str()) == 0 &&
                            mkfifo((n + "/fifo").c_str(), 0666) == 0 &&
                            symlink(config.c_str(), (n + "/config.xml").c_str()) == 0 &&
                            symlink(rootDir.c_str(), (n + "/record").c_str()) == 0 &&
                            symlink(rootDir.c_str(), (n + "/logs").c_str()) == 0 &&
                            mkdir((n + "/full").c_str(), 0777) == 0 &&
                            chmod((n + "/full").c_str(), 0777) == 0;
                  writeFile(n + "/full/bundle.txt", "invscan-bundle 1\n");
                  writeFile(n + "/full/keep", "nobody's\n");
                  writeFile(n + "/open.log", "");
                  chmod((n + "/open.log").c_str(), 0666);
                  return ok ? "" : "cannot plant";
              }),
              "");
    const struct {
        std::string args;
        int status;
        const char* message;
    } cases[] = {
        {"-g 20 --trace " + n + "/trace", 1, "is a symbolic link owned by another user"},
        {"-g 20 --trace " + n + "/fifo", 1, "is not a regular file"},
        {"-g 20 --config " + n + "/fifo", 7, "is not a regular file"},
        {"-g 20 --config " + n + "/config.xml", 7, "is a symbolic link owned by another user"},
        {"diff " + n + "/fifo " + n + "/fifo", 2, "is not a regular file"},
        {"-g 20 --record " + n + "/record", 6, "is a symbolic link owned by another user"},
        {"-g 20 --record " + n + "/full --force", 6, "belongs to another user"},
        // The link is a folder on the way, not the last name.
        {"-g 20 --trace " + n + "/logs/trace.txt", 1, "is a symbolic link owned by another user"},
        {"-g 20 --record " + n + "/logs/b", 6, "Operation not permitted"},
        {"-g 20 --config " + n + "/logs/../config.xml", 7,
         "is a symbolic link owned by another user"},
        // Another user's file would let that user read the trace.
        {"-g 20 --trace " + n + "/open.log", 1, "belongs to another user"},
    };
    for (const auto& c : cases) {
        Result r = invscan(c.args);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << c.args << ": " << r.err;
    }
    EXPECT_EQ(readFile(victim), "root's own\n");
    EXPECT_EQ(entries(rootDir), 0);
    EXPECT_EQ(readFile(n + "/open.log"), "");
    EXPECT_EQ(readFile(n + "/full/keep"), "nobody's\n");
}

class RecordReplay : public testrun::TempDirTest {};

TEST_F(RecordReplay, NeverEatEachOther) {
    const std::string par = dir + "/par", b = par + "/b", other = dir + "/other";
    ASSERT_EQ(testrun::runCommand("mkdir -p " + par + " && cp -r " + kBundle + " " + b).status, 0);
    mkdir(other.c_str(), 0755);
    writeFile(other + "/notes.txt", "not a bundle\n");
    const int before = entries(b);
    const struct {
        std::string args;
        int status;
        const char* message;
    } cases[] = {
        {"--replay " + b + " --record " + b + " --sanitize-key k", 6, "it is the bundle replayed"},
        {"--replay " + b + " --record " + b + "/copy --sanitize-key k", 6,
         "inside or above the bundle replayed"},
        {"--replay " + b + " --record " + par + " --force --sanitize-key k", 6,
         "inside or above the bundle replayed"},
        {"--replay " + b + "/ --record " + dir + "/./par/../par --force --sanitize-key k", 6,
         "inside or above the bundle replayed"},
        {"-g 20 --record " + other + " --force", 6,
         "--force empties only an empty folder or a bundle"},
        {"-g 20 --sanitize-key k --trace stderr", 2, "--sanitize cannot go with a trace"},
        {"--replay " + b + " -g SMBIOS", 3, "none of the groups asked for produced a table"},
    };
    for (const auto& c : cases) {
        Result r = invscan(c.args);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << ": " << r.err;
    }
    // A copy refuses what a bundle never holds: a FIFO, and folders nested deeper than
    // a bundle's.
    const std::string odd = dir + "/odd";
    ASSERT_EQ(testrun::runCommand("cp -r " + kBundle + " " + odd + " && mkfifo " + odd +
                                  "/pipe && mkdir -p " + dir + "/deep/a/b/c/d/e/f/g/h/i/j && cp " +
                                  kBundle + "/bundle.txt " + dir + "/deep/")
                  .status,
              0);
    for (const auto& c : {std::make_pair(odd, "pipe: is not a regular file or folder"),
                          std::make_pair(dir + "/deep", "nested more than 8 folders deep")}) {
        Result r = invscan("--replay " + c.first + " --record " + dir + "/copy-" +
                           std::to_string(entries(dir)) + " --sanitize-key k -g 20");
        EXPECT_EQ(r.status, 6) << c.first << ": " << r.err;
        EXPECT_NE(r.err.find(c.second), std::string::npos) << r.err;
    }
    EXPECT_EQ(entries(b), before);
    EXPECT_EQ(readFile(other + "/notes.txt"), "not a bundle\n");
    EXPECT_EQ(invscan("--replay " + b + " -g 20").status, 0);
}

TEST_F(RecordReplay, HelpersRunFromTheInstallationOnly) {
    // A current folder holding programs of the helpers' names, as another user could
    // leave it: none of them runs, whatever KOR_HOMEDIR says or does not say.
    const std::string marker = dir + "/ran";
    const std::string script = "#!/bin/sh\ntouch " + marker + "\n";
    mkdir((dir + "/bin").c_str(), 0755);
    for (const std::string& p :
         {dir + "/sysprof", dir + "/iokit", dir + "/bin/sysprof", dir + "/bin/iokit"}) {
        writeFile(p, script);
        chmod(p.c_str(), 0755);
    }
    const std::string in = "cd " + dir + " && ";
    EXPECT_EQ(
        testrun::runCommand(in + "env -u KOR_HOMEDIR " + kInvscan + " >/dev/null 2>&1").status, 0);
    for (const char* home : {"KOR_HOMEDIR=.", "KOR_HOMEDIR="}) {
        testrun::Outcome o =
            testrun::runCommand(in + "env " + home + " " + kInvscan + " -g 24 2>&1 >/dev/null");
        EXPECT_EQ(o.status, 2) << home;
        EXPECT_NE(o.out.find("KOR_HOMEDIR is"), std::string::npos) << home << ": " << o.out;
    }
    struct stat st;
    EXPECT_NE(stat(marker.c_str(), &st), 0) << "a helper ran from the current folder";
}

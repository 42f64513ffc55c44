// Hostile input of the shapes that once crashed or ran away: each is refused with
// its exit status and one line on standard error, and the real inputs beside them
// still go through. The programs are run as built.
#include <gtest/gtest.h>

#include "../common/planted.h"
#include "../common/run_command.h"

#include <algorithm>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using testrun::writeFile;

const std::string kBin = std::string(INVSCAN_BINARY_DIR) + "/bin/";
const std::string kBundles = std::string(INVSCAN_TEST_DATA) + "/bundles/";

struct Result {
    int status;
    std::string err;
};

// Standard error of a command that must not wait on anything it is given.
Result sh(const std::string& line) {
    testrun::Outcome o =
        testrun::runCommand("( env -u KOR_HOMEDIR timeout 20 " + line + " ) 2>&1 >/dev/null");
    return Result{o.status, o.out};
}

struct Case {
    std::string command;
    int status;
    std::string message; // what the one line on standard error holds; "" for none
};

void expectAll(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        Result r = sh(c.command);
        EXPECT_EQ(r.status, c.status) << c.command << ": " << r.err;
        if (c.message.empty()) {
            EXPECT_EQ(r.err, "") << c.command;
            continue;
        }
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.command << ": " << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << c.command << ": " << r.err;
    }
}

// A scan holding one row whose attribute has `value` (JSON text) for its value.
std::string scanWith(const std::string& value) {
    return "{\"format\":1,\"tables\":[{\"id\":27,\"rows\":[[{\"id\":4,\"name\":\"Device "
           "Name\",\"value\":" +
           value + "}]]}]}";
}

std::string nested(int depth) {
    return std::string(static_cast<std::size_t>(depth), '[') +
           std::string(static_cast<std::size_t>(depth), ']');
}

// A bundle holding a mount table of `rows` records of empty names.
void mountBundle(const std::string& dir, int rows) {
    mkdir(dir.c_str(), 0755);
    writeFile(dir + "/bundle.txt", "invscan-bundle 1\n");
    std::string table;
    for (int i = 0; i < rows; ++i)
        table += "hfs\t/dev/disk" + std::to_string(i) + "\t/v\t4096\t4096\t10\t5\t5\t0\t0\t0\n";
    writeFile(dir + "/mounts.txt", table);
}

class Bounds : public testrun::TempDirTest {};

} // namespace

TEST_F(Bounds, HelpersExitNonZeroWhenTheyRefuse) {
    const std::string mac = std::string(INVSCAN_TEST_DATA) + "/macos/";
    writeFile(dir + "/text", "invscan-bundle 1\n");
    ASSERT_EQ(mkfifo((dir + "/fifo").c_str(), 0644), 0);
    mkdir((dir + "/empty").c_str(), 0755);
    mountBundle(dir + "/nohelpers", 1);
    // Past the cap, sparse: nothing but zeros is read, and only up to the cap.
    writeFile(dir + "/huge", "");
    ASSERT_EQ(truncate((dir + "/huge").c_str(), (64 << 20) + 1), 0);
    const std::string sp = kBin + "sysprof ", io = kBin + "iokit ";
    expectAll({
        {sp + "--from " + dir + "/missing", 1,
         "sysprof: cannot read '" + dir + "/missing': No such file or directory"},
        {io + "--from " + dir, 1, "iokit: cannot read '" + dir + "': is a folder"},
        {sp + "--from /dev/zero", 1, "cannot read '/dev/zero': is not a regular file"},
        {io + "--from " + dir + "/fifo", 1, "/fifo': is not a regular file"},
        {sp + "--from " + dir + "/huge", 1, "/huge': larger than its cap of 64 MiB"},
        {sp + "--from " + dir + "/text", 1, "/text': not a system profiler report"},
        {io + "--from " + dir + "/text", 1, "/text': not an I/O registry listing"},
        {sp + "--replay " + dir + "/empty", 2, "cannot replay '" + dir + "/empty': not a bundle"},
        {io + "--replay " + dir + "/missing", 2, "not a readable folder"},
        {sp + "--replay " + dir + "/nohelpers", 1, "sysprof: no recorded output in the bundle"},
        {sp + "--from " + mac + "10.6-macmini", 0, ""},
        {sp + "--replay " + kBundles + "macbook2-1-10.6.6", 0, ""},
        {io + "--replay " + kBundles + "macbook2-1-registry", 0, ""},
    });
}

// Another user's link and FIFO where root reads a report: refused, never waited on.
TEST_F(Bounds, HelpersRefuseWhatAnotherUserPlanted) {
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder nobody;
    ASSERT_FALSE(nobody.dir().empty());
    const std::string link = nobody.dir() + "/report", fifo = nobody.dir() + "/fifo";
    const std::string mine = nobody.rootFile("mine.xml");
    writeFile(mine, testrun::readFile(std::string(INVSCAN_TEST_DATA) + "/macos/10.6-macmini"));
    ASSERT_EQ(planted::asNobody([&]() -> std::string {
                  if (symlink(mine.c_str(), link.c_str()) != 0) return "no link";
                  return mkfifo(fifo.c_str(), 0666) == 0 ? "" : "no fifo";
              }),
              "");
    expectAll({
        {kBin + "sysprof --from " + link, 1, "is a symbolic link owned by another user"},
        {kBin + "iokit --from " + fifo, 1, "is not a regular file"},
        {kBin + "sysprof --from " + mine, 0, ""},
    });
}

TEST_F(Bounds, DiffRefusesDeepAndDearScans) {
    const std::string diff = kBin + "invscan diff ";
    auto file = [this](const std::string& name, const std::string& text) {
        writeFile(dir + "/" + name, text);
        return dir + "/" + name + " ";
    };
    std::string ones = "[1";
    for (int i = 0; i < (1 << 20); ++i)
        ones += ",1";
    ones += "]";
    // The scan takes 6 levels; its value may take the rest of 512.
    const std::string deepest = file("deepest", scanWith(nested(506)));
    const std::string real = dir + "/real.json ";
    ASSERT_EQ(testrun::runCommand(kBin + "invscan --replay " + kBundles +
                                  "macbook2-1-10.6.6 --format json > " + real)
                  .status,
              0);
    expectAll({
        {diff + file("deep", nested(100000)) + real, 2, "nested deeper than 512 levels"},
        {diff + real + file("deepvalue", scanWith(nested(100000))), 2,
         "nested deeper than 512 levels"},
        {diff + file("onetoodeep", scanWith(nested(507))) + real, 2, "deeper than 512"},
        {diff + file("ones", scanWith(ones)) + real, 2,
         "in memory (the limit is 6 times its size plus 8 MiB)"},
        {diff + file("twice", "{\"format\":1,\"tables\":[],\"format\":1}") + real, 2,
         "an object names one key twice"},
        {diff + deepest + deepest, 0, ""},
        {diff + real + real, 0, ""},
        {diff + real + deepest, 1, ""},
    });
}

// More mounts than a Linux host may have (fs.mount-max) are refused, and a host at
// that limit still goes through.
TEST_F(Bounds, MountTablePastAnyHostIsRefused) {
    mountBundle(dir + "/busy", 100000);
    mountBundle(dir + "/past", 100001);
    const std::string scan = kBin + "invscan --replay " + dir;
    expectAll({
        // the block dump: the view of 100,000 rows takes too long under the sanitisers
        {scan + "/busy -g Partition --format dump", 0, ""},
        {scan + "/past", 0, "bundle file 'mounts.txt' lists more than 100000 mounts: refused"},
    });
    Result r = sh(scan + "/past -g Partition");
    EXPECT_EQ(r.status, 3) << r.err;
    EXPECT_NE(r.err.find("lists more than 100000 mounts"), std::string::npos) << r.err;
    EXPECT_NE(testrun::run(scan + "/busy -g Partition --format dump").find("/dev/disk99999"),
              std::string::npos);
}

// 0 turns the reverse lookups off; a bound past the largest, or not a number, is
// still a bound and the lookups go on.
TEST_F(Bounds, LookupSettingsAreAlwaysBounds) {
    const std::string b = dir + "/bundle";
    ASSERT_EQ(testrun::runCommand("cp -r " + kBundles + "macbook2-1-10.6.6 " + b).status, 0);
    writeFile(b + "/hosts.txt", "inet 172.20.10.171\tlaptop.example.org\n");
    const struct {
        const char* attributes;
        bool named;
    } cases[] = {
        {"", true},
        {"reverseLookupTimeout=\"0\"", false},
        {"reverseLookupBudget=\"0\"", false},
        {"reverseLookupTimeout=\"0\" reverseLookupBudget=\"99999\"", false},
        {"reverseLookupTimeout=\"99999999999999999999999\"", true},
        {"reverseLookupBudget=\"4294967296000\"", true},
        {"reverseLookupTimeout=\"-1\"", true},
    };
    for (const auto& c : cases) {
        writeFile(dir + "/config.xml", std::string("<Hardware ") + c.attributes + "/>");
        std::string out = testrun::run(kBin + "invscan --replay " + b + " --config " + dir +
                                       "/config.xml -g 6 --format json");
        EXPECT_EQ(out.find("\"laptop\"") != std::string::npos, c.named) << c.attributes << out;
    }
}

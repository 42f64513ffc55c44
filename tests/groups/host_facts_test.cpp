// The text readers behind the system groups, over sizes and lines as real Macs and
// Linux hosts print them, and the shapes that break naive scanning.
#include <gtest/gtest.h>

#include "invscan/HostFacts.h"

#include <cstring>
#include <string>

using namespace hostfacts;

TEST(HostFacts, ModuleSizes) {
    const struct {
        const char* text;
        std::uint32_t mb;
    } cases[] = {
        {"2 GB", 2048},
        {"512 MB", 512},
        {"4 gb", 4096},
        {"1GB", 1024},
        {"Empty", 0},
        {"", 0},
        {"8", 0},
        {" 16 GB ", 16384},
        {"2 GB DDR3", 2048},
        {"2 TB", 2},
        {"-1 GB", 0xFFFFFC00},
        {"4194304 GB", 0},                                  // wraps in 32 bits
        {"1000000000000000000000000000000 GB", 0xFFFFFC00}, // saturates, then wraps
        {"+3 Gb", 3072},
    };
    for (const auto& c : cases)
        EXPECT_EQ(moduleSizeMB(c.text), c.mb) << "'" << c.text << "'";
    EXPECT_EQ(moduleSizeMB(nullptr), 0u);
}

TEST(HostFacts, StorageSizes) {
    const struct {
        const char* text;
        std::uint32_t mb;
    } cases[] = {
        {"250.06 GB", 256061},
        {"931.5 MB", 931},
        {"", 0},
        {"500.28 GB", 512286},
        {"320.07 GB", 327751},
        {"4.01 GB", 4106},
        {"1 TB", 1},
        {"-5 GB", 0},
        {"nan GB", 0},
        {"1e30 GB", 4294967295u},
        {"4194304 GB", 4294967295u},
        {"4194303.5 GB", 4294966784u},
        {"4194303.99 GB", 4294967295u}, // a float rounds up,
        {"12", 0},
        {"GB", 0},
    };
    for (const auto& c : cases)
        EXPECT_EQ(storageSizeMB(c.text), c.mb) << "'" << c.text << "'";
}

TEST(HostFacts, VersionScan) {
    const struct {
        const char* text;
        int major, minor;
        const char* sub;
    } cases[] = {
        {"10.4.11", 10, 4, "11"},
        {"10.6.8 (10K549)", 10, 6, "8"},
        {"Server 10.5", 0, 0, ""},
        {"10.5", 10, 5, ""},
        {"12", 12, 0, ""},
        {"22.04", 22, 4, ""},
        {"3.19.1", 3, 19, "1"},
        {"", 0, 0, ""},
        {"10.6.123456789012345", 10, 6, "12345678901"}, // the 12-byte buffer of the scan
        {"10..5", 10, 0, ""},
    };
    for (const auto& c : cases) {
        Version v = scanVersion(c.text);
        EXPECT_EQ(v.major, c.major) << c.text;
        EXPECT_EQ(v.minor, c.minor) << c.text;
        EXPECT_EQ(v.sub, c.sub) << c.text;
    }
}

TEST(HostFacts, InstallLogLines) {
    const struct {
        const char* line;
        bool matches;
        const char* date;
    } cases[] = {
        {"Native install completed 2009-08-28 10:12:01 +0200.\n", true,
         "2009-08-28 10:12:01 +0200"},
        {"Native install completed 2009-08-28 10:12:01 +0200", true, "2009-08-28 10:12:01 +0200"},
        {"Native install completed", true, ""},
        {"Native install completed.\n", true, ""},
        {"Native install completed ", true, ""},
        {"Upgrade install completed 2010-01-01\n", false, ""},
        {"", false, ""},
    };
    for (const auto& c : cases) {
        std::string date = "stale";
        EXPECT_EQ(installDate(c.line, &date), c.matches) << c.line;
        EXPECT_EQ(date, c.date) << c.line;
    }
}

TEST(HostFacts, OsRelease) {
    const std::string debian =
        "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nNAME=\"Debian GNU/Linux\"\n"
        "VERSION_ID=\"12\"\nVERSION=\"12 (bookworm)\"\nID=debian\n";
    const std::string ubuntu =
        "NAME=\"Ubuntu\"\nVERSION_ID=\"22.04\"\nPRETTY_NAME=\"Ubuntu 22.04.4 LTS\"\n";
    const std::string alpine = "NAME=\"Alpine Linux\"\nID=alpine\nVERSION_ID=3.19.1\r\n"
                               "PRETTY_NAME=\"Alpine Linux v3.19\"\n";
    const std::string arch =
        "# rolling release\nNAME='Arch Linux'\nPRETTY_NAME=\"Arch \\\"Linux\\\"\"";
    const struct {
        const std::string* text;
        const char *name, *pretty, *version;
    } cases[] = {
        {&debian, "Debian GNU/Linux", "Debian GNU/Linux 12 (bookworm)", "12"},
        {&ubuntu, "Ubuntu", "Ubuntu 22.04.4 LTS", "22.04"},
        {&alpine, "Alpine Linux", "Alpine Linux v3.19", "3.19.1"},
        {&arch, "Arch Linux", "Arch \"Linux\"", ""},
    };
    for (const auto& c : cases) {
        OsRelease r = parseOsRelease(c.text->data(), c.text->size());
        EXPECT_EQ(r.name, c.name);
        EXPECT_EQ(r.prettyName, c.pretty);
        EXPECT_EQ(r.versionId, c.version);
    }
    // Not NUL-terminated, cut inside a quoted value.
    const char cut[] = {'N', 'A', 'M', 'E', '=', '"', 'x'};
    EXPECT_EQ(parseOsRelease(cut, sizeof cut).name, "x");
}

TEST(HostFacts, Meminfo) {
    const std::string text = "MemTotal:       24683656 kB\nMemFree:         2975744 kB\n"
                             "MemAvailable:   24229060 kB\nSwapTotal:             0 kB\n";
    const struct {
        const char* key;
        bool found;
        std::uint64_t kb;
    } cases[] = {{"MemAvailable", true, 24229060},
                 {"MemTotal", true, 24683656},
                 {"SwapTotal", true, 0},
                 {"Mem", false, 0},
                 {"Buffers", false, 0}};
    for (const auto& c : cases) {
        std::uint64_t kb = 0;
        EXPECT_EQ(meminfoKB(text.data(), text.size(), c.key, &kb), c.found) << c.key;
        EXPECT_EQ(kb, c.kb) << c.key;
    }
    std::uint64_t kb = 0;
    const std::string huge = "MemAvailable: 99999999999999999999999 kB\n";
    EXPECT_FALSE(meminfoKB(huge.data(), huge.size(), "MemAvailable", &kb));
}

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

// Real files of several distributions are read in the Linux readers' test; here the
// shapes they do not show.
TEST(HostFacts, OsRelease) {
    const std::string alpine = "NAME=\"Alpine Linux\"\nID=alpine\nVERSION_ID=3.19.1\r\n"
                               "PRETTY_NAME=\"Alpine Linux v3.19\"\n";
    const std::string arch =
        "# rolling release\nNAME='Arch Linux'\nPRETTY_NAME=\"Arch \\\"Linux\\\"\"";
    const struct {
        const std::string* text;
        const char *name, *pretty, *version;
    } cases[] = {
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
    // A key matches whole, and a value past 64 bits is no value.
    const std::string text =
        "MemTotal:       24683656 kB\nMemAvailable: 99999999999999999999999 kB\n";
    std::uint64_t kb = 0;
    EXPECT_FALSE(meminfoKB(text.data(), text.size(), "Mem", &kb));
    EXPECT_FALSE(meminfoKB(text.data(), text.size(), "MemAvailable", &kb));
    EXPECT_TRUE(meminfoKB(text.data(), text.size(), "MemTotal", &kb));
    EXPECT_EQ(kb, 24683656u);
}

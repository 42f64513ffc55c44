// The BIOS date rewrite of the MIF file and its string helpers.
#include "invscan/qtvbios_mif.h"
#include "smbios_builder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
void writeAll(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

const char* const kHead =
    "Start Component\n  Name = \"System BIOS\"\n  Start Attribute\n    Name = \"BIOS_DATE\"\n";

TEST(MifRewrite, Cases) {
    const std::string rewritten = std::string(16, ' ') + "Value = \"12/25/03\"\n";
    struct Case {
        const char* name;
        std::string before;
        const char* date;
        std::string after; // empty: unchanged
    };
    std::string longFile;
    for (int i = 0; i < 100; ++i)
        longFile += "// filler\n";
    const Case cases[] = {
        {"unknown", std::string(kHead) + "    Value = \"UNKNOWN\"\n  End Attribute\n", "2003-12-25",
         std::string(kHead) + rewritten + "  End Attribute\n"},
        {"different", std::string(kHead) + "    Value = \"01/02/99\"\nEnd\n", "2003-12-25",
         std::string(kHead) + rewritten + "End\n"},
        {"same", std::string(kHead) + "    Value = \"12/25/03\"\nEnd\n", "2003-12-25", ""},
        {"value before BIOS_DATE is not taken",
         "    Value = \"01/01/01\"\n" + std::string(kHead) + "x\n    Value = \"UNKNOWN\"\n",
         "2003-12-25", "    Value = \"01/01/01\"\n" + std::string(kHead) + "x\n" + rewritten},
        {"no value line", std::string(kHead) + "    Value = 12/25/03\n", "2003-12-25", ""},
        {"no BIOS_DATE", "    Value = \"UNKNOWN\"\n", "2003-12-25", ""},
        {"null date", std::string(kHead) + "    Value = \"UNKNOWN\"\n", nullptr, ""},
        {"short date", std::string(kHead) + "    Value = \"UNKNOWN\"\n", "2003", ""},
        {"over 100 lines", std::string(kHead) + "    Value = \"UNKNOWN\"\n" + longFile,
         "2003-12-25", ""},
        {"last line without end, long lines kept",
         std::string(300, 'x') + "\n" + std::string(kHead) + "    Value = \"01/02/99\"",
         "2003-12-25", std::string(300, 'x') + "\n" + std::string(kHead) + rewritten},
    };
    const std::string path = scratchPath("qtvbios_test.mif");
    for (const Case& c : cases) {
        writeAll(path, c.before);
        chmod(path.c_str(), 0640);
        int rc = qtvbios_mif_rewrite_file(path.c_str(), c.date);
        EXPECT_EQ(readAll(path), c.after.empty() ? c.before : c.after) << c.name;
        EXPECT_EQ(rc, c.after.empty() ? 0 : 1) << c.name;
        struct stat st;
        ASSERT_EQ(stat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0640u) << c.name;
    }
    std::remove(path.c_str());
    EXPECT_EQ(qtvbios_mif_rewrite_file(path.c_str(), "2003-12-25"), 0);
}

TEST(MifRewrite, WhereTheFileLives) {
    // A link stays a link and its target is rewritten; a folder that takes no new
    // files still gets its file rewritten in place.
    const std::string unknown = std::string(kHead) + "    Value = \"UNKNOWN\"\n";
    const std::string want = std::string(kHead) + std::string(16, ' ') + "Value = \"12/25/03\"\n";
    const std::string dir = scratchPath("mifwhere");
    mkdir(dir.c_str(), 0700);
    const std::string target = dir + "/real.mif", link = dir + "/qtvbios.mif";
    struct Case {
        const char* name;
        bool viaLink, lockFolder;
    };
    const Case cases[] = {{"link", true, false}, {"read-only folder", false, true}};
    for (const Case& c : cases) {
        if (c.lockFolder && geteuid() == 0) continue; // root writes anywhere
        writeAll(target, unknown);
        std::remove(link.c_str());
        if (c.viaLink) {
            ASSERT_EQ(symlink("real.mif", link.c_str()), 0);
        }
        const std::string path = c.viaLink ? link : target;
        if (c.lockFolder) chmod(dir.c_str(), 0500);
        EXPECT_EQ(qtvbios_mif_rewrite_file(path.c_str(), "2003-12-25"), 1) << c.name;
        chmod(dir.c_str(), 0700);
        EXPECT_EQ(readAll(target), want) << c.name;
        struct stat st;
        if (c.viaLink) {
            ASSERT_EQ(lstat(link.c_str(), &st), 0);
            EXPECT_TRUE(S_ISLNK(st.st_mode)) << c.name;
        }
    }
    std::remove(link.c_str());
    std::remove(target.c_str());
    rmdir(dir.c_str());
}

TEST(MifRewrite, CurrentDirectoryFile) {
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    std::string dir = scratchPath("mifcwd");
    mkdir(dir.c_str(), 0700);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    writeAll("qtvbios.mif", std::string(kHead) + "    Value = \"UNKNOWN\"\n");
    char date[] = "2010-06-30";
    qtvbios_mif_rewrite(date);
    EXPECT_EQ(readAll("qtvbios.mif"),
              std::string(kHead) + std::string(16, ' ') + "Value = \"06/30/10\"\n");
    std::remove("qtvbios.mif");
    ASSERT_EQ(chdir(old), 0);
    rmdir(dir.c_str());
}

TEST(MifHelpers, ChangeFormatExtractDateNotBogus) {
    char* f = changeFormat("2003-12-25");
    EXPECT_STREQ(f, "12/25/03");
    std::free(f);
    EXPECT_EQ(changeFormat(nullptr), nullptr);

    struct Case {
        const char* line;
        const char* out;
    };
    const Case cases[] = {{"Value = \"12/25/03\" rest", "12/25/03"},
                          {"Value = \"open\n", "open\n"},
                          {"no quote", nullptr},
                          {"", nullptr},
                          {"\"\"", ""}};
    for (const Case& c : cases) {
        std::string copy = c.line;
        char* d = extractDate(&copy[0]);
        if (c.out)
            EXPECT_STREQ(d, c.out) << c.line;
        else
            EXPECT_EQ(d, nullptr) << c.line;
        std::free(d);
    }
    EXPECT_EQ(extractDate(nullptr), nullptr);

    EXPECT_EQ(notBogus("Apple Inc."), 1);
    EXPECT_EQ(notBogus("x This is OEM y"), 0);
    EXPECT_EQ(notBogus("No Asset Information"), 0);
    EXPECT_EQ(notBogus(nullptr), 0);
}

} // namespace

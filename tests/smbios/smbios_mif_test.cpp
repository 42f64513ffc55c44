// The BIOS date rewrite of the MIF file and its string helpers.
#include "invscan/CcLog.h"
#include "invscan/qtvbios_mif.h"
#include "smbios_builder.h"
#include "../common/planted.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <functional>
#include <sys/stat.h>
#include <sys/wait.h>
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

TEST(MifRewrite, WhereTheFileLivesAndWhoMayWriteIt) {
    // A link stays a link and its target is rewritten; a folder that takes no new files
    // still gets its file rewritten in place; a file the caller may not write stays as
    // it was, whatever its folder allows. Mode and owner are kept.
    const std::string unknown = std::string(kHead) + "    Value = \"UNKNOWN\"\n";
    const std::string want = std::string(kHead) + std::string(16, ' ') + "Value = \"12/25/03\"\n";
    char tmpl[] = "/tmp/invscan-mif-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string top = tmpl;
    chmod(top.c_str(), 0777); // the unprivileged user makes everything below
    std::string report = planted::asNobody([&]() {
        std::string bad;
        const std::string dir = top + "/d", target = dir + "/real.mif", link = dir + "/qtvbios.mif";
        const std::string trace = top + "/trace.txt";
        getCcLogHw()->setOutput(trace.c_str());
        struct Case {
            const char* name;
            bool viaLink;
            mode_t fileMode, folderMode;
            bool rewritten;
        };
        const Case cases[] = {
            {"link", true, 0604, 0700, true},
            {"read-only folder", false, 0640, 0500, true},
            {"read-only file", false, 0444, 0700, false},
            {"read-only file through a link", true, 0400, 0700, false},
            {"read-only file in a read-only folder", false, 0444, 0500, false},
        };
        for (const Case& c : cases) {
            mkdir(dir.c_str(), 0700);
            chmod(dir.c_str(), 0700);
            std::remove(link.c_str());
            std::remove(target.c_str());
            writeAll(target, unknown);
            chmod(target.c_str(), c.fileMode);
            if (c.viaLink && symlink("real.mif", link.c_str()) != 0) bad += "no link; ";
            chmod(dir.c_str(), c.folderMode);
            if (truncate(trace.c_str(), 0) != 0) bad += "trace not emptied; ";
            int rc = qtvbios_mif_rewrite_file((c.viaLink ? link : target).c_str(), "2003-12-25");
            chmod(dir.c_str(), 0700);
            struct stat st, lst;
            stat(target.c_str(), &st);
            std::string why;
            if (rc != (c.rewritten ? 1 : 0)) why += "rc " + std::to_string(rc) + "; ";
            if (readAll(target) != (c.rewritten ? want : unknown)) why += "text; ";
            if ((st.st_mode & 07777) != c.fileMode) why += "mode; ";
            if (st.st_uid != geteuid()) why += "owner; ";
            if (c.viaLink && (lstat(link.c_str(), &lst) != 0 || !S_ISLNK(lst.st_mode)))
                why += "no longer a link; ";
            bool refused =
                readAll(trace).find("It is not possible to open qtvbios.mif to rewrite.") !=
                std::string::npos;
            if (refused == c.rewritten) why += "trace; ";
            if (!why.empty()) bad += std::string(c.name) + ": " + why;
        }
        getCcLogHw()->setOutput(nullptr);
        return bad;
    });
    EXPECT_EQ(report, "");
    std::system(("rm -rf " + top).c_str());
}

TEST(MifRewrite, PlantedNamesAreNeitherWrittenThroughNorWaitedOn) {
    // Another user owns the folder the caller (root) works in and plants the name: a
    // link to root's file, a FIFO, a link to a FIFO. Root's file keeps its text, the
    // call returns, the trace says the file was not taken.
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder folder;
    ASSERT_FALSE(folder.dir().empty());
    const std::string victim = folder.rootFile("victim.mif");
    const std::string unknown = std::string(kHead) + "    Value = \"UNKNOWN\"\n";
    writeAll(victim, unknown);
    const std::string d = folder.dir();
    ASSERT_EQ(planted::asNobody([&]() {
                  std::string bad;
                  if (symlink(victim.c_str(), (d + "/link.mif").c_str()) != 0) bad += "link; ";
                  if (mkfifo((d + "/fifo.mif").c_str(), 0666) != 0) bad += "fifo; ";
                  if (symlink("fifo.mif", (d + "/tofifo.mif").c_str()) != 0) bad += "link2; ";
                  return bad;
              }),
              "");
    const std::string trace = folder.rootFile("trace.txt");
    for (const char* name : {"link.mif", "fifo.mif", "tofifo.mif"}) {
        const std::string path = d + "/" + name;
        EXPECT_TRUE(planted::returnsInTime([&]() {
            getCcLogHw()->setOutput(trace.c_str());
            int rc = qtvbios_mif_rewrite_file(path.c_str(), "2003-12-25");
            getCcLogHw()->setOutput(nullptr);
            return rc == 0;
        })) << name;
        EXPECT_EQ(readAll(victim), unknown) << name;
        EXPECT_NE(readAll(trace).find("qtvbios.mif not found."), std::string::npos) << name;
        std::remove(trace.c_str());
    }
    struct stat st;
    ASSERT_EQ(lstat((d + "/link.mif").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
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

// The processor summary walk over hand-built tables.
#include "invscan/MacInfo.h"
#include "invscan/smbios.h"
#include "smbios_builder.h"
#include "../common/planted.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

std::vector<uint8_t> proc(uint8_t type, uint8_t status, unsigned bus, unsigned maxMHz,
                          unsigned curMHz, int cores = -1, int enabled = -1, int threads = -1) {
    std::vector<uint8_t> f = cat({{1, type, 0xB3, 2},
                                  le32(0x106A5),
                                  le32(0xBFEBFBFF),
                                  {3, 0x8C},
                                  le16(bus),
                                  le16(maxMHz),
                                  le16(curMHz),
                                  {status, 0x16},
                                  le16(0xFFFF),
                                  le16(0xFFFF),
                                  le16(0xFFFF),
                                  {0, 0, 0}});
    if (cores >= 0) {
        f.push_back(static_cast<uint8_t>(cores));
        f.push_back(static_cast<uint8_t>(enabled));
        f.push_back(static_cast<uint8_t>(threads));
        f.insert(f.end(), {0x04, 0x00});
    }
    return f;
}

TEST(SmbiosSummary, Counts) {
    TableBuilder b;
    b.add(1,
          type1Fields(
              1, 2, 3, 4,
              {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66, 8, 9, 10, 11, 12, 13, 14, 15}),
          {"Maker", "Box", "1", "SN"})
        .add(4, proc(3, 0x41, 100, 3800, 3400, 8, 6, 16), {"CPU0", "Intel", "Xeon A"})
        .add(4, proc(3, 0x42, 133, 3800, 3600, 8, 8, 16), {"CPU1", "Intel", "Xeon B"})
        .add(4, proc(3, 0x00, 0, 0, 0), {"CPU2"})
        .add(4, proc(4, 0x41, 0, 0, 0), {"FPU"})
        .end();
    struct Case {
        int major, minor;
        int packages, activePackages, cores, activeCores, threads, activeThreads;
        const char* uuid;
    };
    const Case cases[] = {
        {2, 6, 2, 1, 16, 6, 32, 12, "00112233-4455-6677-0809-0A0B0C0D0E0F"},
        {2, 5, 2, 1, 16, 6, 32, 12, "33221100-5544-7766-0809-0A0B0C0D0E0F"},
        {2, 4, 2, 1, -1, -1, -1, -1, "33221100-5544-7766-0809-0A0B0C0D0E0F"},
        {2, 3, -1, -1, -1, -1, -1, -1, "33221100-5544-7766-0809-0A0B0C0D0E0F"},
    };
    for (const Case& c : cases) {
        SmbiosInfo info;
        EXPECT_TRUE(getSmbiosInfoFromTable(b.bytes.data(), b.bytes.size(), c.major, c.minor, info));
        ASSERT_EQ(info.chips.size(), 3u);
        EXPECT_EQ(info.chips[0].socket, "CPU0");
        EXPECT_EQ(info.chips[0].version, "Xeon A");
        EXPECT_EQ(info.numTotalPackages, c.packages) << c.minor;
        EXPECT_EQ(info.numActivePackages, c.activePackages) << c.minor;
        EXPECT_EQ(info.numTotalCores, c.cores) << c.minor;
        EXPECT_EQ(info.numActiveCores, c.activeCores) << c.minor;
        EXPECT_EQ(info.numTotalProcessors, c.threads) << c.minor;
        EXPECT_EQ(info.numActiveProcessors, c.activeThreads) << c.minor;
        EXPECT_EQ(info.cpuClockMHz, 3400);
        EXPECT_EQ(info.busClockMHz, 100);
        EXPECT_EQ(info.system.product, "Box");
        EXPECT_EQ(info.system.uuid, c.uuid);
    }
}

TEST(SmbiosSummary, BrokenTables) {
    TableBuilder good;
    good.add(4, proc(3, 0x41, 100, 3800, 3400), {"CPU0"});
    const std::vector<std::vector<uint8_t>> tails = {{4, 2, 0, 0},
                                                     {4, 0x30, 0, 0, 1, 3},
                                                     {1},
                                                     {4, 0x1A, 0, 0, 9, 3, 0xB3, 9},
                                                     {2, 5, 0, 0, 1, 'a', 'b'}};
    for (const auto& tail : tails) {
        std::vector<uint8_t> v = good.bytes;
        v.insert(v.end(), tail.begin(), tail.end());
        for (size_t cut = 0; cut <= v.size(); ++cut) {
            SmbiosInfo info;
            getSmbiosInfoFromTable(v.data(), cut, 2, 6, info);
        }
        SmbiosInfo info;
        getSmbiosInfoFromTable(v.data(), v.size(), 2, 6, info);
        ASSERT_GE(info.chips.size(), 1u);
        EXPECT_EQ(info.cpuClockMHz, 3400);
    }
    SmbiosInfo info;
    EXPECT_EQ(parseSmbiosStructs(good.bytes.data(), 0, 0, info), 1);
    std::vector<uint8_t> bad = {4, 2, 0, 0, 0, 0};
    EXPECT_EQ(parseSmbiosStructs(bad.data(), 0, static_cast<unsigned>(bad.size()), info), 0);
}

TEST(SmbiosSummary, GetString) {
    TableBuilder b;
    b.add(2, {1, 2, 3, 0}, {"one", "a rather long second string"});
    const unsigned char* s = b.bytes.data();
    const unsigned char* end = s + b.bytes.size();
    char out[8];
    EXPECT_STREQ(getString(s, end, 1, out, sizeof out), "one");
    EXPECT_STREQ(getString(s, end, 2, out, sizeof out), "a rathe");
    EXPECT_STREQ(getString(s, end, 3, out, sizeof out), "");
    EXPECT_STREQ(getString(s, end, 0, out, sizeof out), "");
}

TEST(SmbiosSummary, ProcStructReadsOnlyWhatTheCallerHands) {
    // Each buffer holds exactly the bytes given: a structure whose length byte claims
    // more must not be read past `end` (the sanitizer build checks the bytes, the
    // values show that fields beyond it read as 0).
    struct Case {
        std::vector<uint8_t> bytes;
        size_t chips;
        int status;
    };
    const std::vector<Case> cases = {
        {{4, 0x30, 0, 0, 1, 3}, 1, 0},
        {cat({{4, 0x30, 0, 0, 1, 3, 0xB3, 2}, std::vector<uint8_t>(16, 0), {0x41}}), 1, 0x41},
        {{4, 0xFF, 0, 0, 1}, 0, 0},
        {{4}, 0, 0},
    };
    for (const Case& c : cases) {
        std::unique_ptr<uint8_t[]> heap(new uint8_t[c.bytes.size()]);
        std::copy(c.bytes.begin(), c.bytes.end(), heap.get());
        SmbiosInfo info;
        parseProcStruct(heap.get(), heap.get() + c.bytes.size(), info);
        ASSERT_EQ(info.chips.size(), c.chips) << c.bytes.size();
        if (c.chips) {
            EXPECT_EQ(info.chips[0].status, c.status);
            EXPECT_EQ(info.chips[0].bootSpeedMHz, 0);
            EXPECT_EQ(info.chips[0].version, "");
        }
    }
}

} // namespace

namespace {

TEST(SmbiosSummary, FailureMessageFollowsTheDebugSwitch) {
    const char* const kMsg = "ERROR! Failed to get SMBIOS table";
    for (int level : {0, 1}) {
        TableBuilder b;
        b.end();
        MacInfo::setIoKit(snapshotWith(b.bytes, false));
        setSmbiosDebug(level);
        SmbiosInfo info;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(getSmbiosInfo(info));
        std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(log.find(kMsg) != std::string::npos, level != 0) << level << ": " << log;
    }
    setSmbiosDebug(0);
    MacInfo::setIoKit(nullptr);
}

TEST(SmbiosSummary, FromTheSnapshotWithDebugDumps) {
    TableBuilder b;
    b.add(4, proc(3, 0x41, 100, 3800, 3400, 4, 4, 8), {"CPU0", "Intel", "Core"}).end();
    MacInfo::setIoKit(snapshotWith(b.bytes));
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    std::string dir = scratchPath("smbios_dumps");
    mkdir(dir.c_str(), 0700);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    setSmbiosDebug(2);
    SmbiosInfo info;
    testing::internal::CaptureStderr();
    EXPECT_TRUE(getSmbiosInfo(info));
    std::string log = testing::internal::GetCapturedStderr();
    setSmbiosDebug(0);
    // The snapshot has no entry point: version 2.4, so cores and threads stay unread.
    EXPECT_EQ(info.version[0], 2);
    EXPECT_EQ(info.version[1], 4);
    EXPECT_EQ(info.numTotalPackages, 1);
    EXPECT_EQ(info.numTotalCores, -1);
    EXPECT_EQ(info.cpuClockMHz, 3400);
    EXPECT_NE(log.find("SMBIOS SUMMARY:"), std::string::npos);
    std::string base = "smbios_" + std::to_string(getpid());
    struct stat st;
    ASSERT_EQ(stat((base + ".raw").c_str(), &st), 0);
    EXPECT_EQ(static_cast<size_t>(st.st_size), b.bytes.size());
    ASSERT_EQ(stat((base + ".txt").c_str(), &st), 0);
    std::remove((base + ".raw").c_str());
    std::remove((base + ".txt").c_str());
    ASSERT_EQ(chdir(old), 0);
    rmdir(dir.c_str());

    MacInfo::setIoKit(snapshotWith(b.bytes, false));
    EXPECT_FALSE(getSmbiosInfo(info));
    EXPECT_EQ(info.numTotalPackages, -1);
    EXPECT_TRUE(info.chips.empty());
    MacInfo::setIoKit(nullptr);
}

TEST(SmbiosSummary, DebugDumpsRefusePlantedNames) {
    // Another user owns the working folder and plants both dump names for this pid: a
    // link to root's file and a FIFO. The file keeps its text and nothing waits.
    INVSCAN_NEEDS_ROOT();
    planted::NobodysFolder folder;
    ASSERT_FALSE(folder.dir().empty());
    const std::string victim = folder.rootFile("victim");
    { std::ofstream(victim) << "root's own\n"; }
    const std::string base = folder.dir() + "/smbios_" + std::to_string(getpid());
    ASSERT_EQ(planted::asNobody([&]() {
                  bool ok = symlink(victim.c_str(), (base + ".raw").c_str()) == 0 &&
                            mkfifo((base + ".txt").c_str(), 0666) == 0;
                  return ok ? "" : "cannot plant";
              }),
              "");
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(chdir(folder.dir().c_str()), 0);
    const unsigned char table[] = {127, 4, 0, 0, 0, 0};
    testing::internal::CaptureStderr();
    EXPECT_TRUE(planted::returnsInTime([&]() {
        dump_smbios(table, sizeof table);
        return true;
    }));
    testing::internal::GetCapturedStderr();
    ASSERT_EQ(chdir(old), 0);
    std::ifstream in(victim);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "root's own\n");
}

} // namespace

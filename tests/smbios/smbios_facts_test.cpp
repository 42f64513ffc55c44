// Memory, processor and security facts from the shared table.
#include "invscan/SMMemory.h"
#include "invscan/SM_HWSecurity.h"
#include "smbios_builder.h"

#include <gtest/gtest.h>

namespace {

std::vector<uint8_t> t17(unsigned size) {
    return cat({le16(0x1000),
                le16(0xFFFE),
                le16(64),
                le16(64),
                le16(size),
                {0x09, 0, 1, 2, 0x18},
                le16(0x80)});
}
std::vector<uint8_t> t16(uint32_t kb, unsigned devices) {
    return cat({{3, 3, 3}, le32(kb), le16(0xFFFE), le16(devices)});
}
std::vector<uint8_t> t5(uint8_t maxCode, uint8_t slots) {
    return cat({{3, 3, 0x0E, 0x02, maxCode}, le16(0), le16(0), {0x02, slots}});
}
std::vector<uint8_t> t6(uint8_t installed) {
    return {1, 0x01, 0, 0x04, 0, installed, installed, 0};
}

TEST(SMFacts, IsPowerOf2) {
    const std::pair<uint32_t, bool> cases[] = {
        {0, false},           {1, true},    {2, true},    {6, false}, {0x80000000u, true},
        {0xFFFFFFFFu, false}, {8192, true}, {2730, false}};
    for (const auto& c : cases)
        EXPECT_EQ(isPowerOf2(c.first), c.second) << c.first;
}

TEST(SMFacts, MemorySpecs) {
    struct Case {
        const char* name;
        TableBuilder table;
        uint32_t maxMB, slots, rc;
    };
    auto b = [] { return TableBuilder(); };
    std::vector<Case> cases;
    cases.push_back({"8 GB over 2 slots, 4 GB module",
                     b().add(16, t16(8388608, 2)).add(17, t17(4096)).add(17, t17(4096)).end(), 4096,
                     2, 1});
    cases.push_back({"8 GB over 2 slots, 8 GB module",
                     b().add(16, t16(8388608, 2)).add(17, t17(8192)).end(), 8192, 2, 1});
    cases.push_back(
        {"8 GB over 3 slots", b().add(16, t16(8388608, 3)).add(17, t17(2048)).end(), 8192, 3, 1});
    cases.push_back({"12 GB over 2 slots", b().add(16, t16(12582912, 2)).end(), 6144, 2, 1});
    cases.push_back({"type 5 code 0x0B", b().add(5, t5(0x0B, 4)).end(), 2048, 4, 1});
    cases.push_back({"type 5 raised by type 6",
                     b().add(5, t5(0x0A, 2)).add(6, t6(0x0B)).add(6, t6(0x7F)).end(), 2048, 2, 1});
    cases.push_back({"type 5 slots win over type 16",
                     b().add(5, t5(0x09, 4)).add(16, t16(4194304, 2)).end(), 1024, 4, 1});
    cases.push_back({"nothing", b().add(0, type0Fields(), {"V"}).end(), 0, 0, 0});
    for (Case& c : cases) {
        GlobalTableScope scope(c.table.parse());
        uint32_t maxMB = 99, slots = 99;
        EXPECT_EQ(getMemorySpecs(&maxMB, &slots), c.rc) << c.name;
        EXPECT_EQ(maxMB, c.maxMB) << c.name;
        EXPECT_EQ(slots, c.slots) << c.name;
    }
    uint32_t maxMB = 99, slots = 99;
    EXPECT_EQ(getMemorySpecs(&maxMB, &slots), 0u);
    EXPECT_EQ(maxMB + slots, 0u);
}

TEST(SMFacts, BiggestModules) {
    GlobalTableScope scope(TableBuilder()
                               .add(17, t17(0x8200))
                               .add(17, t17(0xFFFF))
                               .add(17, t17(0x0400))
                               .add(6, t6(0x7E))
                               .add(6, t6(0x89))
                               .end()
                               .parse());
    EXPECT_EQ(SM_getBiggestMemoryModule_17(), 1024 * 1024);
    EXPECT_EQ(SM_getBiggestMemoryModule_6(), 512);
}

TEST(SMFacts, Processor) {
    auto proc = [](unsigned clock, uint8_t upgrade, uint8_t status, uint8_t type) {
        return cat({{1, type, 0xB3, 2},
                    le32(0x106A5),
                    le32(0xBFEBFBFF),
                    {3, 0x8C},
                    le16(clock),
                    le16(3200),
                    le16(2666),
                    {status, upgrade}});
    };
    struct Case {
        unsigned clock;
        uint8_t upgrade;
        uint16_t wantClock, wantUpgrade;
    };
    const Case cases[] = {{133, 17, 133, 17}, {2000, 18, 2000, 0}, {2001, 0x2A, 0, 0}};
    for (const Case& c : cases) {
        GlobalTableScope scope(TableBuilder()
                                   .add(4, proc(c.clock, c.upgrade, 0x41, 3), {"CPU0"})
                                   .add(4, proc(0, 0, 0x00, 3), {"CPU1"})
                                   .add(4, proc(0, 0, 0x41, 4), {"Math"})
                                   .end()
                                   .parse());
        uint16_t speed = 1, clock = 1, upgrade = 1;
        uint32_t flags = 0;
        EXPECT_EQ(SM_Processor(&speed, &clock, &upgrade, &flags), 1u);
        EXPECT_EQ(speed, 2666);
        EXPECT_EQ(clock, c.wantClock);
        EXPECT_EQ(upgrade, c.wantUpgrade);
        EXPECT_EQ(flags, 0xBFEBFBFFu);
        EXPECT_EQ(SM_Processor(&speed, &clock, &upgrade), 1u);
        EXPECT_EQ(SM_ProcessorFamily(), 0xB3u);
        EXPECT_EQ(SM_ProcessorCount(), 3u);
        EXPECT_EQ(SM_PopulatedProcessorCount(), 1u);
    }
    uint16_t speed = 1, clock = 1, upgrade = 1;
    EXPECT_EQ(SM_Processor(&speed, &clock, &upgrade), 0u);
    EXPECT_EQ(speed + clock + upgrade, 0);
    EXPECT_EQ(SM_ProcessorFamily(), 0u);
    EXPECT_EQ(SM_ProcessorCount(), 0u);
}

TEST(SMFacts, HardwareSecurityStates) {
    struct Case {
        int settings; // -1: no type 24
        uint16_t powerOn;
        uint32_t rc;
    };
    const Case cases[] = {{0x00, 0, 0},    {0x40, 1, 0}, {0x80, 1022, 0},
                          {0xC0, 1023, 0}, {0x7F, 1, 0}, {-1, 3, 1}};
    for (const Case& c : cases) {
        TableBuilder b;
        if (c.settings >= 0) b.add(24, {static_cast<uint8_t>(c.settings)});
        GlobalTableScope scope(b.end().parse());
        uint16_t powerOn = 0, keyboard = 0;
        EXPECT_EQ(SM_HWSecurity(&powerOn, &keyboard), c.rc);
        EXPECT_EQ(powerOn, c.powerOn) << c.settings;
    }
}

} // namespace

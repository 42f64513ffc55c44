// Memory modules of real machines from their SMBIOS tables (tests/data/linux, values
// checked with dmidecode), in the profiler's shape: slots under the wrapper item.
#include "common/report/ReportVt.h"

#include <gtest/gtest.h>

#include "../common/run_command.h"

#include <string>

namespace {

const report::Node* slots(const report::Node& sp) {
    const report::Node* m = sp.child("SPMemoryDataType");
    return m ? m->child("SPMemoryDataType") : nullptr;
}

TEST(SmbiosMemory, ModulesOfRealMachines) {
    struct Case {
        const char* file;
        std::size_t count;
        std::size_t index;
        const char* slot;
        const char* size;
        const char* type;
        const char* part;
        const char* maker;
        int mb; // the size as a number; -1: none (an empty slot)
    } cases[] = {
        {"lenovo-thinkpad-t480s.bin", 2, 0, "BANK 0/ChannelA-DIMM0", "8 GB", "DDR4",
         "HMAA51S6AMR6N-UH", "SK Hynix", 8192},
        {"lenovo-thinkpad-t480s.bin", 2, 1, "BANK 2/ChannelB-DIMM0", "16 GB", "DDR4",
         "M471A2K43CB1-CRC", "Samsung", 16384},
        {"asus-ux305la.bin", 2, 1, "BANK 2/ChannelB-DIMM0", "4 GB", "LPDDR3", "", "Elpida", 4096},
        {"dell-poweredge-r630.bin", 24, 0, "A1", "Empty", "Empty", nullptr, nullptr, -1},
        {"dell-poweredge-r630.bin", 24, 2, "A3", "16 GB", "DDR4", "18ASF2G72PDZ-2G3B1",
         "002C00B3002C", 16384},
    };
    for (const auto& c : cases) {
        report::Node sp("SystemProfiler");
        report::addMemoryModules(
            &sp, testrun::readFile(std::string(INVSCAN_TEST_DATA) + "/linux/" + c.file));
        const report::Node* s = slots(sp);
        ASSERT_NE(nullptr, s) << c.file;
        ASSERT_EQ(c.count, s->children.size()) << c.file;
        const report::Node& m = s->children[c.index];
        EXPECT_EQ(c.slot, m.name) << c.file;
        EXPECT_EQ(c.size, m.text("", "dimm_size")) << c.file;
        EXPECT_EQ(c.type, m.text("", "dimm_type")) << c.file;
        const report::Value* mb = m.value("dimm_size_mb");
        EXPECT_EQ(c.mb, mb ? mb->i : -1) << c.file;
        if (c.part) {
            EXPECT_EQ(c.part, m.text("", "dimm_part_number")) << c.file;
        } else {
            EXPECT_EQ(nullptr, m.value("dimm_part_number")) << c.file;
        }
        if (c.maker) {
            EXPECT_EQ(c.maker, m.text("", "dimm_manufacturer")) << c.file;
        }
    }
}

TEST(SmbiosMemory, BrokenTablesEndTheWalk) {
    std::string t17("\x11\x15\x00\x01", 4);
    t17 += std::string(0x15 - 4, '\0');
    t17[0x0C] = 0x00;
    t17[0x0D] = 0x04; // 1024 MB
    t17[0x10] = 1;    // device locator: string 1
    std::string good = t17 + std::string("DIMM0\0\0", 7);
    struct Case {
        std::string table;
        std::size_t slots;
    } cases[] = {
        {good, 1},
        {good + good, 2},
        {std::string(), 0},
        {good.substr(0, 10), 0},                                // cut inside the formatted part
        {t17 + std::string("DIMM0\0", 6), 0},                   // string set never ends
        {std::string("\x00\x02\x00\x00", 4) + good, 0},         // length below 4
        {std::string("\x7f\x04\x00\x00\x00\x00", 6) + good, 0}, // end of table first
    };
    for (const auto& c : cases) {
        report::Node sp("SystemProfiler");
        report::addMemoryModules(&sp, c.table);
        const report::Node* s = slots(sp);
        EXPECT_EQ(c.slots, s ? s->children.size() : 0u);
        if (c.slots) {
            EXPECT_EQ("1 GB", s->children[0].text("", "dimm_size"));
        }
    }
}

} // namespace

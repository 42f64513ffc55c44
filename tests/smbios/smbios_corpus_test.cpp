// Real machines: every table of tests/data/smbios goes through the walk, the records,
// the facts, the group and the processor summary; the group's rows are checked against
// an expectation file reviewed field by field against dmidecode 3.4's decoding of the
// same tables (the differences are the group's own rules: date form, placeholder
// texts cut, control bytes, chassis types past 25, record caps).
#include "invscan/SMBIOSGroup.h"
#include "invscan/SMMemory.h"
#include "invscan/SM_HWSecurity.h"
#include "invscan/smbios.h"
#include "smbios_builder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string kDir = std::string(INVSCAN_TEST_DATA) + "/smbios/";

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
}

// As the snapshot source holds it: revision 0, structures bounded by length / 4.
std::unique_ptr<SMBIOSTable> snapshotTable(const std::vector<uint8_t>& b) {
    auto t = std::make_unique<SMBIOSTable>(b.data(), static_cast<int>(b.size()), 0,
                                           static_cast<int>(b.size() / 4));
    t->parseData();
    return t;
}

std::map<unsigned long, std::string> groupOf(const SMBIOSTable* t) {
    SMBIOSGroup g;
    ZelTable* table = g.buildTable(t);
    auto row = groupRow(table);
    delete table;
    return row;
}

TEST(SMBIOSCorpus, EveryTableEveryLayer) {
    auto files = corpusTableNames();
    ASSERT_GE(files.size(), 69u);
    std::FILE* devnull = std::fopen("/dev/null", "w");
    int withBios = 0, withSystem = 0, withProcessors = 0;
    for (const std::string& name : files) {
        std::vector<uint8_t> bytes = readFile(kDir + name);
        ASSERT_FALSE(bytes.empty()) << name;
        GlobalTableScope scope(snapshotTable(bytes));
        SMBIOSTable* t = globalSMBIOSTable;
        t->dump(devnull);
        withBios += t->getTable0() != nullptr;
        withSystem += t->getTable1() != nullptr;
        withProcessors += t->getTable4Total() > 0;
        for (int i = 0; i < t->getTable4Total(); ++i)
            EXPECT_LE(t->getTable4(i)->getLength(), 0xFF);

        uint32_t maxMB = 0, slots = 0;
        getMemorySpecs(&maxMB, &slots);
        uint16_t speed, clock, upgrade, powerOn, keyboard;
        SM_Processor(&speed, &clock, &upgrade);
        SM_HWSecurity(&powerOn, &keyboard);
        EXPECT_LE(SM_PopulatedProcessorCount(), SM_ProcessorCount()) << name;

        auto row = groupOf(t);
        ASSERT_EQ(row.count(20), 1u) << name;
        EXPECT_LE(std::stoul(row[20]), 3ul) << name;
        if (row.size() > 1) {
            EXPECT_EQ(row[19].size(), 32u) << name;
        }
        EXPECT_EQ(row.count(9), 0u) << name << ": no UUID from a revision-0 table";

        SmbiosInfo info;
        getSmbiosInfoFromTable(bytes.data(), bytes.size(), 2, 4, info);
        // The file-format round trip holds for real tables too.
        std::string path = scratchPath("corpus_roundtrip.txt");
        t->writeBytesToFile(path.c_str());
        SMBIOSTable back(path.c_str());
        ASSERT_EQ(back.getTotalLength(), t->getTotalLength()) << name;
        EXPECT_EQ(std::memcmp(back.getData(), t->getData(), bytes.size()), 0) << name;
        std::remove(path.c_str());
    }
    std::fclose(devnull);
    // Real tables carry these; a walk that loses them is broken.
    EXPECT_GE(withBios, 65);
    EXPECT_GE(withSystem, 65);
    EXPECT_GE(withProcessors, 60);
}

// group_expected.txt: "<file>\t<id>\t<value>" for every attribute of every table,
// reviewed against dmidecode. INVSCAN_WRITE_EXPECTED=<path>
// writes a fresh one.
TEST(SMBIOSCorpus, GroupRowsAsExpected) {
    std::ostringstream got;
    for (const std::string& name : corpusTableNames()) {
        auto t = snapshotTable(readFile(kDir + name));
        for (const auto& kv : groupOf(t.get()))
            got << name << '\t' << kv.first << '\t' << kv.second << '\n';
    }
    if (const char* out = std::getenv("INVSCAN_WRITE_EXPECTED")) {
        std::ofstream(out) << got.str();
    }
    std::ifstream in(kDir + "group_expected.txt");
    std::string want((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::istringstream a(got.str()), b(want);
    std::string la, lb;
    int line = 0;
    while (true) {
        bool ga = static_cast<bool>(std::getline(a, la)),
             gb = static_cast<bool>(std::getline(b, lb));
        ++line;
        if (!ga && !gb) break;
        ASSERT_EQ(ga ? la : "<end>", gb ? lb : "<end>") << "line " << line;
    }
}

} // namespace

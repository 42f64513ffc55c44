// Builds small SMBIOS structure tables for tests and holds the parsed table.
#ifndef INVSCAN_TESTS_SMBIOS_BUILDER_H
#define INVSCAN_TESTS_SMBIOS_BUILDER_H

#include "invscan/SMBIOSTable.h"
#include "invscan/ZelTable.h"
#include "invscan/vtree.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <algorithm>
#include <dirent.h>
#include <unistd.h>

struct TableBuilder {
    std::vector<uint8_t> bytes;
    int count = 0;

    // One structure: header, `fields` (the bytes after the 4-byte header) and the string
    // set (two NULs when there are no strings).
    TableBuilder& add(int type, std::vector<uint8_t> fields,
                      std::vector<std::string> strings = {}) {
        bytes.push_back(static_cast<uint8_t>(type));
        bytes.push_back(static_cast<uint8_t>(4 + fields.size()));
        bytes.push_back(static_cast<uint8_t>(count));
        bytes.push_back(0);
        bytes.insert(bytes.end(), fields.begin(), fields.end());
        for (const std::string& s : strings) {
            bytes.insert(bytes.end(), s.begin(), s.end());
            bytes.push_back(0);
        }
        if (strings.empty()) bytes.push_back(0);
        bytes.push_back(0);
        ++count;
        return *this;
    }
    TableBuilder& raw(std::vector<uint8_t> b) {
        bytes.insert(bytes.end(), b.begin(), b.end());
        return *this;
    }
    TableBuilder& end() { return add(127, {}); }

    // Parsed as the snapshot source would: revision 0, structures bounded by length / 4.
    std::unique_ptr<SMBIOSTable> parse() const { return parseAt(0); }
    std::unique_ptr<SMBIOSTable> parseAt(unsigned char revision) const {
        auto t = std::make_unique<SMBIOSTable>(bytes.data(), static_cast<int>(bytes.size()),
                                               revision, static_cast<int>(bytes.size() / 4));
        t->parseData();
        return t;
    }
};

// A path in the temporary folder that no other test process (of this or another
// checkout on the machine) uses at the same time.
// The real machines' tables under tests/data/smbios, sorted by name.
inline std::vector<std::string> corpusTableNames() {
    std::vector<std::string> names;
    const std::string dir = std::string(INVSCAN_TEST_DATA) + "/smbios/";
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) {
            std::string n = e->d_name;
            if (n.size() > 4 && n.compare(n.size() - 4, 4, ".bin") == 0) names.push_back(n);
        }
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

inline std::string scratchPath(const std::string& name) {
    return testing::TempDir() + "invscan_" + std::to_string(getpid()) + "_" + name;
}

// Little-endian field helpers.
inline std::vector<uint8_t> le16(unsigned v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)};
}
inline std::vector<uint8_t> le32(uint32_t v) {
    return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
            static_cast<uint8_t>(v >> 24)};
}
inline std::vector<uint8_t> cat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> r;
    for (const auto& p : parts)
        r.insert(r.end(), p.begin(), p.end());
    return r;
}

// Type 0 with strings Vendor=1, Version=2, Date=3 and the given ROM size byte.
inline std::vector<uint8_t> type0Fields(uint8_t romSize = 0x0F) {
    return cat({{1, 2}, le16(0xE800), {3, romSize}, le32(0x00000080), le32(0), {0x01}});
}
// Type 1 fields: four string numbers, UUID, wake-up type.
inline std::vector<uint8_t> type1Fields(uint8_t m, uint8_t p, uint8_t v, uint8_t s,
                                        std::vector<uint8_t> uuid = std::vector<uint8_t>(16, 0)) {
    return cat({{m, p, v, s}, uuid, {0x06}});
}

// Installs a table as the shared instance for the life of the object; the instance
// that was there (the factory's, say) comes back afterwards.
struct GlobalTableScope {
    explicit GlobalTableScope(std::unique_ptr<SMBIOSTable> t) : saved(globalSMBIOSTable) {
        globalSMBIOSTable = t.release();
    }
    ~GlobalTableScope() {
        delete globalSMBIOSTable;
        globalSMBIOSTable = saved;
    }
    SMBIOSTable* saved;
};

// A fake I/O-registry snapshot with the SMBIOS bytes where the platform puts them.
inline VtExecInfo* snapshotWith(const std::vector<uint8_t>& table, bool withClasses = true) {
    VtExecInfo* info = new VtExecInfo();
    info->result = 0;
    info->tree = new VtNode("");
    VtNode* root = info->tree->addNode("IOKit")->addNode("Root");
    VtNode* classes = root->addNode("IOKitDiagnostics")->addNode("Classes");
    classes->addInt("AppleSMBIOS", withClasses ? 1 : 0);
    classes->addInt("AppleACPIPlatformExpert", 1);
    root->addNode("IOResources");
    VtNode* smb = root->addNode("MacBookPro5,1")
                      ->addNode("AppleACPIPlatformExpert")
                      ->addNode("bios")
                      ->addNode("AppleSMBIOS");
    smb->addString("SMBIOS-EPS", "not this one");
    smb->addData("SMBIOS", table.data(), static_cast<unsigned>(table.size()));
    return info;
}

inline unsigned long zelGet32At(const unsigned char* p) {
    return p[0] | (p[1] << 8) | (p[2] << 16) | (static_cast<unsigned long>(p[3]) << 24);
}

// The first row of a table as attribute id -> value: strings as text (ASCII), 32-bit
// values in decimal. Checks that the ids come in ascending order.
inline std::map<unsigned long, std::string> groupRow(ZelTable* table) {
    std::map<unsigned long, std::string> out;
    if (!table) return out;
    table->reset();
    ZelTableRow* row = table->getNext();
    if (!row) return out;
    row->reset();
    unsigned long last = 0;
    while (ZelTableAttrib* a = row->getNext()) {
        EXPECT_GT(a->getId(), last) << "attributes in id order";
        last = a->getId();
        const unsigned char* p = a->getAttribPtr();
        std::string v;
        if (a->getType() == ZEL_STRING) {
            // Counted wide string after the 12-byte header: count (terminator included),
            // then 32-bit units.
            unsigned long count = zelGet32At(p + 12);
            for (unsigned long i = 0; i + 1 < count; ++i)
                v.push_back(static_cast<char>(zelGet32At(p + 16 + 4 * i)));
        } else {
            v = std::to_string(zelGet32At(p + 12));
        }
        out[a->getId()] = v;
    }
    return out;
}

#endif

// The scanned groups' catalogue as the agent reads it, and its look-ups.
#include <gtest/gtest.h>

#include "invscan/ZelDefs.h"

#include <set>
#include <string>
#include <vector>

namespace {

static_assert(sizeof(void*) != 4 || sizeof(zelGroupDef) == 28, "group rows are 7 words");
static_assert(sizeof(void*) != 4 || sizeof(zelAttribDef) == 20, "attribute rows are 5 words");
static_assert(sizeof(void*) != 4 || sizeof(zelEnumDef) == 8, "enumeration rows are 2 words");

struct GroupRow {
    uint32_t id;
    const char* name;
    unsigned attribCount;
    std::vector<uint32_t> keys;
    // Every attribute in table order: "id name type maxlen".
    std::vector<std::string> attribs;
};

std::string describe(const zelAttribDef& a) {
    return std::to_string(a.id) + " " + a.name + " " + std::to_string(a.type) + " " +
           std::to_string(a.maxLength);
}

TEST(Catalog, GroupsInOrderWithKeys) {
    const std::vector<GroupRow> expected = {
        {1, "ComponentID", 14, {}, {}},
        {20, "Scan Info", 9, {}, {}},
        {4, "Operating System", 21, {}, {}},
        {24, "SMBIOS", 23, {}, {}},
        {3, "Memory", 9, {}, {}},
        {31, "Memory Modules", 6, {1}, {}},
        {5, "Storage", 11, {1, 2}, {}},
        {7, "Network Adapter", 15, {2}, {}},
        {6,
         "IP Address",
         11,
         {2},
         {"1 Index 3 0", "2 Address 7 40", "9 DHCP Enabled 7 1", "3 Hostname 7 64", "4 Domain 7 64",
          "5 Subnet 7 40", "6 Gateway 7 40", "7 Primary DNS 7 40", "8 Secondary DNS 7 40",
          "10 Permanent Mac Address 7 64", "11 IPV6Address 7 64"}},
        {51, "IPv6 Address", 11, {2}, {}},
        {27, "Partition", 12, {1, 7, 8}, {}},
        {15, "Regional", 6, {}, {}},
        {44, "PhysicalProcessor", 14, {1}, {}},
    };
    size_t i = 0;
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g, ++i) {
        ASSERT_LT(i, expected.size());
        const GroupRow& e = expected[i];
        EXPECT_EQ(g->id, e.id);
        EXPECT_STREQ(g->name, e.name);
        EXPECT_EQ(g->version, 1u);
        EXPECT_EQ(g->debugMask, 0u);
        EXPECT_EQ(zelAttribCount(g->attribs), e.attribCount) << e.name;
        ASSERT_EQ(g->keyCount, e.keys.size()) << e.name;
        for (size_t k = 0; k < e.keys.size(); ++k)
            EXPECT_EQ(g->keys[k], e.keys[k]) << e.name;
        if (e.keys.empty()) {
            EXPECT_EQ(g->keys, nullptr);
        }
        for (size_t a = 0; a < e.attribs.size(); ++a)
            EXPECT_EQ(describe(g->attribs[a]), e.attribs[a]) << e.name;
        // Ids are unique; strings carry a length, numbers and dates do not.
        std::set<uint32_t> ids;
        for (const zelAttribDef* a = g->attribs; a->id != ZEL_DEF_END; ++a) {
            EXPECT_TRUE(ids.insert(a->id).second) << e.name << " " << a->id;
            EXPECT_EQ(a->type == ZEL_STRING, a->maxLength > 0) << e.name << " " << a->name;
        }
    }
    EXPECT_EQ(i, 13u);
}

TEST(Catalog, LookUps) {
    EXPECT_STREQ(getGroupNameFromId(44), "PhysicalProcessor");
    EXPECT_STREQ(getGroupNameFromId(2), "Unknown");
    EXPECT_STREQ(getGroupNameFromId(ZEL_DEF_END), "Unknown");
    EXPECT_EQ(getGroupIdFromName(String("Scan Info")), 20u);
    EXPECT_EQ(getGroupIdFromName(String("scan info")), 0u);
    EXPECT_EQ(getGroupIdFromName(String("")), 0u);
    EXPECT_EQ(getDebugMaskFromName("Regional"), 0u);
    EXPECT_EQ(getDebugMaskFromName(nullptr), 0u);
    EXPECT_EQ(getGroupDefinitionFromId(52), nullptr);

    const zelGroupDef* ip = getGroupDefinitionFromId(6);
    const zelAttribDef* dhcp = getAttribDefinitionFromId(ip, 9);
    ASSERT_NE(dhcp, nullptr);
    EXPECT_EQ(dhcp, ip->attribs + 2);
    EXPECT_STREQ(getAttribNameFromId(ip, 9), "DHCP Enabled");
    EXPECT_EQ(getAttribNameFromId(ip, 12), nullptr);
    EXPECT_EQ(getAttribNameFromId(nullptr, 1), nullptr);
}

TEST(Catalog, EnumAsciiValueReadsTheFirstAttributesEnumeration) {
    // No scanned group has an enumeration on its first attribute, so every
    // look-up comes back empty.
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g)
        for (const zelAttribDef* a = g->attribs; a->id != ZEL_DEF_END; ++a)
            EXPECT_EQ(getEnumAsciiValue(g, a->id, 1), nullptr) << g->name << " " << a->name;
    EXPECT_EQ(getEnumAsciiValue(getGroupDefinitionFromId(4), 2, 3), nullptr);

    static const zelAttribDef attrs[] = {{1, "First", ZEL_ULONG, 0, HWSEC_POP_ENUM_DEF},
                                         {2, "Second", ZEL_ULONG, 0, PART_TYPE_ENUM_DEF},
                                         {ZEL_DEF_END, nullptr, 0, 0, nullptr}};
    static const zelGroupDef group = {99, "T", attrs, nullptr, 0, 1, 0};
    EXPECT_STREQ(getEnumAsciiValue(&group, 2, 1), "Enabled");
    EXPECT_EQ(getEnumAsciiValue(&group, 3, 1), nullptr);
    EXPECT_EQ(getEnumAsciiValue(nullptr, 2, 1), nullptr);
}

TEST(Catalog, PrintEnumeration) {
    std::FILE* f = std::tmpfile();
    PrintZelEnumToFile(f, getAttribDefinitionFromId(getGroupDefinitionFromId(15), 3));
    std::rewind(f);
    char buf[64] = {};
    size_t n = std::fread(buf, 1, sizeof buf - 1, f);
    std::fclose(f);
    EXPECT_EQ(std::string(buf, n), "\n\t\t1 = \"+\"\n\t\t2 = \"-\"");
}

} // namespace

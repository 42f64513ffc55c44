// The result of one scan of one group (ZelTable) and the base of every inventory
// group (ZelGroup).
#ifndef INVSCAN_ZELTABLE_H
#define INVSCAN_ZELTABLE_H

#include "invscan_export.h"
#include "String.h"
#include "ZelDefs.h"
#include "ZelTableRow.h"

#include <utility>
#include <vector>

// (key, value) pairs of the hardware configuration file.
typedef std::vector<std::pair<String, String>> ZelAttrList;

class INVSCAN_API ZelTable {
public:
    ZelTable(const zelGroupDef* definitions, unsigned long groupId, unsigned long version);
    ZelTable(unsigned long groupId, unsigned long version);
    ~ZelTable();
    ZelTable(const ZelTable&) = delete;
    ZelTable& operator=(const ZelTable&) = delete;

    // Refuses a null row with 0; otherwise takes ownership and returns 1.
    int addRow(ZelTableRow* row);
    unsigned long getGroupId() const { return m_groupId; }
    unsigned long getGroupVersion() const { return m_version; }
    unsigned long getRowCount() const { return m_rowCount; }
    long getTimeStamp() const { return m_timeStamp; }
    const char* getGroupName() const;
    const zelGroupDef* getGroupDefinitionFromId() const;
    const zelGroupDef* getDefinitions() const { return m_definitions; }

    int reset() {
        m_cursor = nullptr;
        return 1;
    }
    ZelTableRow* getNext();
    void toString() const;

private:
    void createTimeStap();
    struct Link {
        ZelTableRow* row;
        Link* next;
    };
    unsigned long m_version;
    unsigned long m_groupId;
    const zelGroupDef* m_definitions;
    Link* m_head = nullptr;
    Link* m_tail = nullptr;
    Link* m_cursor = nullptr;
    unsigned long m_rowCount = 0;
    long m_timeStamp = 0;
};

class INVSCAN_API ZelGroup {
public:
    ZelGroup(unsigned long groupId, unsigned long version);
    virtual ~ZelGroup();
    ZelGroup(const ZelGroup&) = delete;
    ZelGroup& operator=(const ZelGroup&) = delete;

    // A new table that the caller owns, or null.
    virtual ZelTable* getTable() = 0;
    virtual ZelTable* generateTable();

    unsigned long getGroupId() const { return m_groupId; }
    unsigned long getGroupVersion() const { return m_version; }
    String getGroupName() const;

    // Extra tables are not owned by the group.
    void addExtraTable(ZelTable* table);
    int getExtraTableCount() const { return m_extraCount; }
    ZelTable* getExtraTable(int index) const;

    void setMobilityFlag(int flag) { m_mobilityFlag = flag; }
    int getMobilityFlag() const { return m_mobilityFlag; }

    // The factory's lists; the group does not own them.
    void setGlobalAttrs(const ZelAttrList* list) { m_globalAttrs = list; }
    void setGroupAttrs(const ZelAttrList* list) { m_groupAttrs = list; }
    // Value of the first pair with this key, or null.
    const wchar_t* getGroupAttr(const wchar_t* key) const;
    const wchar_t* getGlobalAttr(const wchar_t* key) const;

private:
    unsigned long m_version;
    unsigned long m_groupId;
    ZelTable** m_extraTables = nullptr;
    int m_extraCount = 0;
    int m_mobilityFlag = 0;
    const ZelAttrList* m_globalAttrs = nullptr;
    const ZelAttrList* m_groupAttrs = nullptr;
};

#endif

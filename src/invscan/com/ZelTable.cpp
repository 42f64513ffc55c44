#include "invscan/ZelTable.h"

#include <cstdio>
#include <ctime>
#include <new>

ZelTable::ZelTable(const zelGroupDef* definitions, unsigned long groupId, unsigned long version)
    : m_version(version), m_groupId(groupId), m_definitions(definitions) {
    createTimeStap();
}

ZelTable::ZelTable(unsigned long groupId, unsigned long version)
    : ZelTable(GROUPS_DEF, groupId, version) {}

ZelTable::~ZelTable() {
    Link* l = m_head;
    while (l) {
        Link* next = l->next;
        delete l->row;
        delete l;
        l = next;
    }
}

void ZelTable::createTimeStap() {
    m_timeStamp = static_cast<long>(std::time(nullptr));
}

int ZelTable::addRow(ZelTableRow* row) {
    if (!row) return 0;
    Link* l = new Link{row, nullptr};
    if (m_tail)
        m_tail->next = l;
    else
        m_head = l;
    m_tail = l;
    ++m_rowCount;
    return 1;
}

const zelGroupDef* ZelTable::getGroupDefinitionFromId() const {
    if (!m_definitions) return nullptr;
    for (const zelGroupDef* g = m_definitions; g->id != ZEL_DEF_END; ++g)
        if (g->id == m_groupId) return g;
    return nullptr;
}

const char* ZelTable::getGroupName() const {
    const zelGroupDef* g = getGroupDefinitionFromId();
    return g && g->name ? g->name : "Unknown";
}

ZelTableRow* ZelTable::getNext() {
    Link* next = m_cursor ? m_cursor->next : m_head;
    if (!next) return nullptr;
    m_cursor = next;
    return next->row;
}

void ZelTable::toString() const {
    std::printf("\n--------Table %s (%08lX) ver=%lu", getGroupName(), m_groupId, m_version);
    std::printf("\nRows=%lu", m_rowCount);
    for (Link* l = m_head; l; l = l->next)
        l->row->toString();
}

ZelGroup::ZelGroup(unsigned long groupId, unsigned long version)
    : m_version(version), m_groupId(groupId) {}

ZelGroup::~ZelGroup() {
    delete[] m_extraTables;
}

ZelTable* ZelGroup::getTable() {
    return nullptr;
}

ZelTable* ZelGroup::generateTable() {
    return nullptr;
}

String ZelGroup::getGroupName() const {
    return String(getGroupNameFromId(m_groupId));
}

void ZelGroup::addExtraTable(ZelTable* table) {
    ZelTable** grown = new (std::nothrow) ZelTable*[static_cast<size_t>(m_extraCount) + 1];
    if (!grown) return;
    for (int i = 0; i < m_extraCount; ++i)
        grown[i] = m_extraTables[i];
    grown[m_extraCount] = table;
    delete[] m_extraTables;
    m_extraTables = grown;
    ++m_extraCount;
}

ZelTable* ZelGroup::getExtraTable(int index) const {
    if (index < 0 || index >= m_extraCount) return nullptr;
    return m_extraTables[index];
}

namespace {
const wchar_t* findAttr(const ZelAttrList* list, const wchar_t* key) {
    if (!list || list->empty() || !key) return nullptr;
    String k(key);
    for (const auto& pair : *list)
        if (pair.first.compareTo(k) == 0) return pair.second.c_str();
    return nullptr;
}
} // namespace

const wchar_t* ZelGroup::getGroupAttr(const wchar_t* key) const {
    return findAttr(m_groupAttrs, key);
}

const wchar_t* ZelGroup::getGlobalAttr(const wchar_t* key) const {
    return findAttr(m_globalAttrs, key);
}

// The library's entry point: one factory per process that hands out inventory
// groups by id or name and keeps what the hardware configuration file said.
#ifndef INVSCAN_GROUPFACTORY_H
#define INVSCAN_GROUPFACTORY_H

#include "invscan_export.h"
#include "HWConfig.h"
#include "String.h"
#include "ZelTable.h"

#include <list>
#include <memory>
#include <string>
#include <map>
#include <vector>

class INVSCAN_API GroupFactory {
public:
    static GroupFactory* getInstance();
    virtual ~GroupFactory();

    bool initialise();
    void setHWConfigFile();
    const String& getHWConfigFile() const { return m_HWConfigFile; }

    // A new group (caller deletes) or null for an unknown id.
    ZelGroup* getZELGroup(unsigned long id);
    // A new group with the configured attribute lists attached, or null.
    ZelGroup* getGroup(const String& name);
    int getAllGroups(std::list<String>& names);

    // kind 1: global and group attributes, 5: processors, 6: QCMs.
    // 0 read (or other kind), 5 file not readable, 2 parse error, -1 no such node.
    int loadNodeFromFile(const String& path, int kind);
    void getHWGroupFromNode(const Node* node);
    void getQCMFromNode(const Node* node);
    void getProcessorFromNode(const Node* node);

    const ZelAttrList& getGlobalAttrs() const { return m_globalAttrs; }
    const std::map<String, ZelAttrList>& getGroupAttrMap() const { return m_groupAttrs; }
    const std::list<String>& getConfiguredGroups() const { return m_groupNames; }
    // Whether the last configuration file read with kind 1 had a "Hardware" root.
    bool hasHardwareConfig() const { return m_hardwareRoot; }
    const std::vector<QCMInfo*>& getQCMs() const { return m_qcms; }
    const std::vector<ProcessorInfo*>& getProcessors() const { return m_processors; }

private:
    GroupFactory() = default;
    GroupFactory(const GroupFactory&) = delete;
    GroupFactory& operator=(const GroupFactory&) = delete;

    std::vector<ProcessorInfo*> m_processors;
    std::vector<QCMInfo*> m_qcms;
    String m_HWConfigFile;
    std::list<String> m_groupNames;
    bool m_hardwareRoot = false;
    // The configuration tree of the last kind-1 load, and which file it came from.
    std::unique_ptr<Node> m_document;
    std::string m_documentIdentity;
    ZelAttrList m_globalAttrs;
    std::map<String, ZelAttrList> m_groupAttrs;
};

#endif

#include "invscan/GroupFactory.h"
#include "invscan/SafeFile.h"

#include <unistd.h>

#include "invscan/CcLog.h"
#include "invscan/File.h"
#include "invscan/KorCfg.h"
#include "invscan/ComponentIDGroup.h"
#include "invscan/IpAddressGroup.h"
#include "invscan/MemoryGroup.h"
#include "invscan/MemoryModulesGroup.h"
#include "invscan/NetworkAdapterGroup.h"
#include "invscan/OperatingSystemGroup.h"
#include "invscan/PartitionGroup.h"
#include "invscan/PhysicalProcessorGroup.h"
#include "invscan/RegionalGroup.h"
#include "invscan/SMBIOSGroup.h"
#include "invscan/SMBIOSTable.h"
#include "invscan/ScanInfoGroup.h"
#include "invscan/StorageGroup.h"

#include <cstdio>
#include <sys/stat.h>

namespace {
const char* const SRC = "./../../../src/invscan/com/GroupFactory";

std::string narrow(const String& s) {
    return s.toMultiByte();
}
} // namespace

namespace {
// Device, inode, size and modification time: the same text when they are the same.
std::string fileIdentity(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return std::string();
    return std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino) + ":" +
           std::to_string(st.st_size) + ":" + std::to_string(st.st_mtime);
}
} // namespace

GroupFactory* GroupFactory::getInstance() {
    static GroupFactory* instance = nullptr;
    if (!instance) instance = new GroupFactory();
    return instance;
}

// The QCM and processor objects are not deleted here: they outlive the arrays.
GroupFactory::~GroupFactory() = default;

bool GroupFactory::initialise() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, "initialise", "hardware ");
    setHWConfigFile();
    SMBIOSTable::initializeGlobalTable(1);
    log->traceMidExit(__LINE__, SRC, "initialise", "hardware");
    return true;
}

void GroupFactory::setHWConfigFile() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, "setHWConfigFile()", "hardware");
    String file = KorCfg::getKey(String("hwscanner.config_file"));
    String dir = KorCfg::getKey(String("config_dir"));
    m_HWConfigFile =
        dir + File::pathSeparator + (file.length() >= 1 ? file : String("KorHWConfig.xml"));
    if (log->isOn())
        log->traceMidExit(__LINE__, SRC, "setHWConfigFile()", "hardware m_HWConfigFile = %s",
                          narrow(m_HWConfigFile).c_str());
}

ZelGroup* GroupFactory::getZELGroup(unsigned long id) {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, "getZELGroup()", "hardware %s %d",
                       "Table id =", static_cast<int>(id));
    ZelGroup* group = nullptr;
    switch (id) {
    case ZEL_GROUP_SCAN_INFO:
        group = new ScanInfoGroup();
        break;
    case ZEL_GROUP_SMBIOS:
        group = new SMBIOSGroup();
        break;
    case ZEL_GROUP_PHYS_PROC:
        group = new PhysicalProcessorGroup();
        break;
    case ZEL_GROUP_COMPONENTID:
        group = new ComponentIDGroup();
        break;
    case ZEL_GROUP_MEMORY:
        group = new MemoryGroup();
        break;
    case ZEL_GROUP_OPER_SYS:
        group = new OperatingSystemGroup();
        break;
    case ZEL_GROUP_STORAGE:
        group = new StorageGroup();
        break;
    case ZEL_GROUP_REGIONAL:
        group = new RegionalGroup();
        break;
    case ZEL_GROUP_MEMORY_MODULES:
        group = new MemoryModulesGroup();
        break;
    case ZEL_GROUP_NETWORK_ADAPTER:
        group = new NetworkAdapterGroup();
        break;
    case ZEL_GROUP_IP_ADDRESS:
        group = new IpAddressGroup();
        break;
    case ZEL_GROUP_IPV6_ADDRESS:
        group = new Ipv6AddressGroup();
        break;
    case ZEL_GROUP_PARTITION:
        group = new PartitionGroup();
        break;
    default:
        break;
    }
    log->traceMidExit(__LINE__, SRC, "getZELGroup()", "hardware %s %d",
                      "Finished group =", static_cast<int>(id));
    return group;
}

ZelGroup* GroupFactory::getGroup(const String& name) {
    CcLogWrapper* log = getCcLogHw();
    if (log->isOn())
        log->traceMidEntry(__LINE__, SRC, "getGroup", "hardware groupName=%s",
                           narrow(name).c_str());
    unsigned long id = getGroupIdFromName(name);
    ZelGroup* group = id ? getZELGroup(id) : nullptr;
    if (group) {
        group->setGlobalAttrs(&m_globalAttrs);
        group->setGroupAttrs(&m_groupAttrs[name]);
    }
    log->traceMidExit(__LINE__, SRC, "getGroup", "hardware groupId=%ld", static_cast<long>(id));
    return group;
}

int GroupFactory::getAllGroups(std::list<String>& names) {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, "getAllGroups", "hardware ");
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        // Ids 100 and 26 are never offered.
        if (g->id == 100 || g->id == 26) continue;
        names.push_back(String(g->name));
        log->traceMAX(__LINE__, SRC, "getAllGroups", "hardware group = %s", g->name);
    }
    log->traceMidExit(__LINE__, SRC, "getAllGroups", "hardware result=%d", 0);
    return 0;
}

int GroupFactory::loadNodeFromFile(const String& path, int kind) {
    CcLogWrapper* log = getCcLogHw();
    const char* op = "loadNodeFromFile";
    std::string p = narrow(path);
    log->traceMidEntry(__LINE__, SRC, op, "hardware");
    int result = 0;
    log->traceMAX(__LINE__, SRC, op, "hardware Open config file %s for read", p.c_str());
    // A probe that neither follows another user's link nor waits on a FIFO.
    int fd = safefile::openRead(p.c_str(), nullptr);
    if (fd < 0) {
        log->traceMIN(__LINE__, SRC, op, "hardware ERROR! Failed to open file %s for reading",
                      p.c_str());
        result = 5;
    } else {
        ::close(fd);
        Node* node = nullptr;
        int status = 0;
        const std::string identity = fileIdentity(p);
        if (kind == 1) {
            ParseNodeSink sink;
            log->traceMAX(__LINE__, SRC, op, "hardware After ParseNodeSink()");
            XmlKorParser parser(path, &sink);
            log->traceMAX(__LINE__, SRC, op, "hardware After new XmlKorParser()");
            status = parser.getStatus();
            node = status == 0 ? sink.getNode(1) : nullptr;
            log->traceMAX(__LINE__, SRC, op, "hardware After sink->getNode()");
        } else if (kind == 5 || kind == 6) {
            HWParseNodeSink sink;
            log->traceMAX(__LINE__, SRC, op, "hardware After HWParseNodeSink()");
            if (m_document && !identity.empty() && identity == m_documentIdentity) {
                // The file read for kind 1 and unchanged since: its tree serves again.
                sink.onNodeTree(m_document.get());
            } else {
                HWXmlKorParser parser(path, &sink);
                status = parser.getStatus();
            }
            log->traceMAX(__LINE__, SRC, op, "hardware After new HWXmlKorParser()");
            node = status == 0 ? sink.getNode(kind) : nullptr;
            log->traceMAX(__LINE__, SRC, op, "hardware After sink->getNode()");
        }
        if (kind == 1 || kind == 5 || kind == 6) {
            log->traceMAX(__LINE__, SRC, op, "hardware %s is %d", "korparser status", status);
            if (status != 0) {
                log->traceMIN(__LINE__, SRC, op, "hardware ERROR! Failed to parse the xmlfile %s",
                              p.c_str());
                result = 2;
            } else if (!node) {
                result = -1;
            } else {
                if (kind == 1) {
                    m_hardwareRoot = node->getName() == String("Hardware");
                    getHWGroupFromNode(node);
                    // Kept, so that the processor and QCM lists do not parse it again.
                    m_document.reset(node);
                    m_documentIdentity = identity;
                    node = nullptr;
                } else if (kind == 5) {
                    getProcessorFromNode(node);
                } else {
                    getQCMFromNode(node);
                }
            }
            delete node;
            log->traceMAX(__LINE__, SRC, op, "hardware After parsing config file %s", p.c_str());
        }
    }
    log->traceMidExit(__LINE__, SRC, op, "hardware return =%d", result);
    return result;
}

void GroupFactory::getHWGroupFromNode(const Node* node) {
    if (!node) return;
    CcLogWrapper* log = getCcLogHw();
    const char* op = "getHWGroupFromNode";
    const StringMap& attrs = node->getAttributes();
    String key, value;
    if (node->getName() == String("Hardware")) {
        for (int i = 0; attrs.getEntry(i, key, value); ++i) {
            m_globalAttrs.emplace_back(key, value);
            if (log->isOn())
                log->traceMAX(__LINE__, SRC, op, "hardware get global attribute %s=%s",
                              narrow(key).c_str(), narrow(value).c_str());
        }
        for (int i = 0; i < node->getChildCount(); ++i)
            getHWGroupFromNode(node->getChild(i));
    } else if (node->getName() == String("Group")) {
        String name;
        ZelAttrList list;
        for (int i = 0; attrs.getEntry(i, key, value); ++i) {
            if (key == String("Name")) {
                name = value;
                m_groupNames.push_back(name);
                log->traceMAX(__LINE__, SRC, op, "hardware %s",
                              "add a new element to the group...");
            } else {
                list.emplace_back(key, value);
                if (log->isOn())
                    log->traceMAX(__LINE__, SRC, op, "hardware get group attribute %s=%s",
                                  narrow(key).c_str(), narrow(value).c_str());
            }
        }
        if (name.length() > 0) m_groupAttrs[name] = list;
    }
}

namespace {
// Appends one Info per child named `item` of a node named `list`.
template <typename Info>
void readEntries(const Node* node, const char* list, const char* item, const char* op,
                 std::vector<Info*>& out) {
    if (!node || node->getName() != String(list)) return;
    for (int i = 0; i < node->getChildCount(); ++i) {
        const Node* child = node->getChild(i);
        if (child->getName() != String(item)) continue;
        out.push_back(new Info(child));
        getCcLogHw()->traceMAX(__LINE__, SRC, op, "hardware add a new element");
    }
}
} // namespace

void GroupFactory::getQCMFromNode(const Node* node) {
    readEntries(node, "QCMs", "QCM", "getQCMFromNode", m_qcms);
}

void GroupFactory::getProcessorFromNode(const Node* node) {
    readEntries(node, "Processors", "Processor", "getProcessorFromNode", m_processors);
}

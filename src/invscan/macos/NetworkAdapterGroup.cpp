#include "invscan/NetworkAdapterGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/md5.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <string>

namespace {
const char* const SRC = "./../../../src/invscan/macos/NetworkAdapterGroup";
const char* const OP = "getTable()";
const unsigned long TYPE_UNKNOWN = 1, TYPE_ETHERNET = 3, TYPE_PPP = 10;
} // namespace

ZelTable* NetworkAdapterGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "NetworkAdapterGroup");
    VtExecInfo* info = MacInfo::getSysProf();
    if (!info || !info->tree) {
        log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "no system profiler snapshot");
        return nullptr;
    }
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    VtNode* net = MacInfo::getSection(info, "SPNetworkDataType");
    unsigned long index = 1;
    const bool linuxHost = hostfacts::scannedHostIsLinux();
    for (VtNode* svc = net ? net->children : nullptr; svc; svc = svc->next) {
        const char* hardware = svc->getValue("", "hardware", "");
        const char* interface = svc->getValue("", "interface", "");
        const char* type = svc->getValue("", "type", "");
        VtNode* ether = svc->getChild("Ethernet", 0);
        const char* mac = "";
        const char* connector = "";
        unsigned long code;
        if (ether) {
            // An Ethernet child decides, whatever the service calls itself.
            code = TYPE_ETHERNET;
            mac = ether->getValue("", "MAC Address", "");
            connector = ether->getValue("", "MediaSubType", "");
        } else if (strcasecmp(type, "Ethernet") == 0) {
            code = TYPE_ETHERNET;
        } else {
            code = std::string(type).compare(0, 3, "PPP") == 0 ? TYPE_PPP : TYPE_UNKNOWN;
        }
        std::string model = std::string(hardware) + "-" + interface;
        char* id = md5_checksum(model.c_str());
        ZelTableRow* row = new ZelTableRow();
        row->addAttrib(new ZelTableAttrib(1UL, index++));
        row->addAttrib(new ZelTableAttrib(2UL, id ? id : ""));
        row->addAttrib(new ZelTableAttrib(3UL, mac));
        row->addAttrib(new ZelTableAttrib(4UL, mac));
        row->addAttrib(new ZelTableAttrib(5UL, code));
        row->addAttrib(new ZelTableAttrib(6UL, model.c_str()));
        row->addAttrib(new ZelTableAttrib(9UL, connector));
        // Linux lists virtual interfaces (bridges, veth, bonds, VLANs, tun) too: the
        // physical type tells them from the ports a device backs.
        const char* physical = "ethernet";
        if (linuxHost && std::strcmp(svc->getValue("", "physical", "yes"), "no") == 0)
            physical = "virtual";
        else if (linuxHost && std::strcmp(hardware, "AirPort") == 0)
            physical = "wireless";
        row->addAttrib(new ZelTableAttrib(10UL, physical));
        row->addAttrib(new ZelTableAttrib(11UL, ""));
        table->addRow(row);
        std::free(id);
    }
    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "NetworkAdapterGroup");
    return table;
}

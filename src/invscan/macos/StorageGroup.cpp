// Storage devices from the profiler's bus sections: each section holds
// controllers, each controller its devices. Rows carry an MD5 of the device's
// identity so that a host agent can follow one disk from scan to scan. NVMe, which
// Macs have used since 2015, comes last so that older machines keep their numbers.
// A Mac gives the size as text in GB of 1024 MB; on Linux the gathering's byte count
// gives megabytes of 10^6 bytes, the unit disk makers and other agents use.
#include "invscan/StorageGroup.h"

#include "common/host/linux_facts.h"
#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/Toolbox.h"
#include "invscan/ZelTableRow.h"
#include "invscan/md5.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* const SRC = "./../../../src/invscan/macos/StorageGroup";
const char* const OP = "getTable()";
const char* const SECTIONS[] = {"SPSerialATADataType", "SPParallelATADataType", "SPUSBDataType",
                                "SPNVMeDataType"};

const unsigned long TYPE_UNKNOWN = 1;
const unsigned long TYPE_DVD = 23;
const unsigned long TYPE_HARD_DISK = 30;

// Linux: size_in_bytes (a number, or its exact decimal text past 32 bits), else the
// size text read in decimal units; 0 when neither is there.
unsigned long linuxSizeMB(VtNode* dev, const char* sizeText) {
    std::uint64_t bytes = 0;
    const int small = dev->getValue("", "size_in_bytes", -1);
    if (small >= 0)
        bytes = static_cast<std::uint64_t>(small);
    else if (!linuxfacts::parseByteCount(dev->getValue("", "size_in_bytes", ""), &bytes) &&
             !linuxfacts::parseDecimalSize(sizeText, &bytes))
        return 0;
    return linuxfacts::decimalMB(bytes);
}

} // namespace

ZelTable* StorageGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "StorageGroup");

    VtExecInfo* info = MacInfo::getSysProf();
    if (!info || !info->tree) {
        log->traceMIN(__LINE__, SRC, OP, "hardware %s", "No system profiler snapshot");
        log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "StorageGroup");
        return nullptr;
    }
    const bool onLinux = hostfacts::scannedHostIsLinux();
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    unsigned long index = 1;
    for (const char* section : SECTIONS) {
        VtNode* sec = MacInfo::getSection(info, section);
        for (VtNode* ctl = sec ? sec->children : nullptr; ctl; ctl = ctl->next) {
            for (VtNode* dev = ctl->children; dev; dev = dev->next) {
                const char* name = dev->name ? dev->name : "";
                if (std::strcmp(name, section) == 0) continue;
                const char* model = dev->getValue("", "device_model", "");
                if (!*model) model = name;
                const char* serial = dev->getValue("", "device_serial", "");
                if (!*serial) serial = dev->getValue("", "d_serial_num", "");
                const char* sizeText = dev->getValue("", "size", "");
                const char* maker = dev->getValue("", "f_manufacturer", "");
                const char* bsd = dev->getValue("", "bsd_name", "");
                unsigned long size =
                    onLinux ? linuxSizeMB(dev, sizeText) : hostfacts::storageSizeMB(sizeText);
                unsigned long type = Toolbox::strcasestr(model, "DVD")   ? TYPE_DVD
                                     : std::strncmp(bsd, "disk", 4) == 0 ? TYPE_HARD_DISK
                                                                         : TYPE_UNKNOWN;
                // Hubs and empty card readers: nothing that stores data.
                if (!*bsd && type == TYPE_UNKNOWN && size == 0) continue;
                std::string identity = std::string(name) + model + maker + serial;
                char* id = md5_checksum(identity.c_str());
                ZelTableRow* row = new ZelTableRow();
                row->addAttrib(new ZelTableAttrib(1UL, index++));
                row->addAttrib(new ZelTableAttrib(2UL, id ? id : ""));
                row->addAttrib(new ZelTableAttrib(3UL, type));
                row->addAttrib(new ZelTableAttrib(4UL, model));
                row->addAttrib(new ZelTableAttrib(6UL, serial));
                row->addAttrib(new ZelTableAttrib(10UL, size));
                table->addRow(row);
                std::free(id);
            }
        }
    }
    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "StorageGroup");
    return table;
}

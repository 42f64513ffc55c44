// The snapshot source: the "SMBIOS" bytes of AppleSMBIOS under the platform expert's
// "bios" node in the I/O-registry tree.
#include "invscan/SMBIOSTable.h"

#include "invscan/CcLog.h"
#include "invscan/MacInfo.h"
#include "invscan/vtree.h"
#include "invscan/SMBIOS/smbios_host.h"

#include <vector>

static const char* const kFile = "./../../../src/invscan/SMBIOS/SMBIOSTable";
static const char* const kOp = "getDataFromIOKit()";

// The first "SMBIOS" byte array found under IOKit / Root / <entry> /
// AppleACPIPlatformExpert / bios / AppleSMBIOS, or null.
static const VtVariant* findSmbiosValue(const VtNode* root) {
    const VtNode* ioKit = root ? root->getChild("IOKit", 0) : nullptr;
    const VtNode* reg = ioKit ? ioKit->getChild("Root", 0) : nullptr;
    if (!reg) return nullptr;
    for (int i = 0;; ++i) {
        const VtNode* c = reg->getChild(nullptr, i);
        if (!c) return nullptr;
        const VtNode* n = c->getChild("AppleACPIPlatformExpert", 0);
        n = n ? n->getChild("bios", 0) : nullptr;
        n = n ? n->getChild("AppleSMBIOS", 0) : nullptr;
        const VtVariant* v = n ? n->getValue("SMBIOS") : nullptr;
        if (v && v->type == VT_DATA) return v;
    }
}

bool SMBIOSTable::setDataFromIoRegistry(const VtNode* root) {
    const VtVariant* v = findSmbiosValue(root);
    if (!v || v->length > 0x7FFFFFF0u) return false;
    const int len = static_cast<int>(v->length);
    // The snapshot carries no entry point: no version, and the structure count is
    // only bounded (every structure has at least 4 bytes).
    revision = majorVersion = minorVersion = 0;
    numTables = len / 4;
    takeBytes(v->value.d, len);
    return true;
}

bool SMBIOSTable::getDataFromIOKit() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, kFile, kOp, "hardware %s", "Retrieving data from MACOS IOKIT");
    // A fixed trace text from the code's first platform, kept as it is.
    log->traceMAX(__LINE__, kFile, kOp, "hardware %s", "Looking for kernel32.dll");
    bool ok = false;
    VtExecInfo* info = MacInfo::getIoKit();
    std::vector<unsigned char> raw;
    if (linuxSmbiosTable(&raw) && raw.size() <= 0x7FFFFFF0u) {
        // Read whole from the kernel: no size limit of the snapshot's dump on the way.
        revision = majorVersion = minorVersion = 0;
        numTables = static_cast<int>(raw.size() / 4);
        takeBytes(raw.data(), static_cast<int>(raw.size()));
        ok = true;
        log->traceMAX(__LINE__, kFile, kOp,
                      "hardware SMBIOS Version: %d.%d (Length: %d) successfully retrieved",
                      majorVersion, minorVersion, totalLength);
    } else if (!info) {
        log->traceMAX(__LINE__, kFile, kOp, "hardware %s", "No IOKIT data available");
    } else if (vtGetValue(info, "IOKit.Root.IOKitDiagnostics.Classes", "AppleSMBIOS", 1) != 0 &&
               vtGetValue(info, "IOKit.Root.IOKitDiagnostics.Classes", "AppleACPIPlatformExpert",
                          1) != 0) {
        ok = setDataFromIoRegistry(info->tree);
        if (ok)
            log->traceMAX(__LINE__, kFile, kOp,
                          "hardware SMBIOS Version: %d.%d (Length: %d) successfully retrieved",
                          majorVersion, minorVersion, totalLength);
    }
    log->traceMidExit(__LINE__, kFile, kOp, "hardware Ending with status %d", ok ? 1 : 0);
    return ok;
}

// Raw SMBIOS table of the I/O-registry snapshot for the processor summary.
#include "invscan/smbios.h"
#include "invscan/SMBIOS/smbios_host.h"

#include "invscan/MacInfo.h"
#include "invscan/vtree.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

// The module's trace line (smbios.cpp), led by "<function>(<line>) - ".
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
void smbiosTrace(const char* fn, int line, const char* fmt, ...);

static bool getSmbiosTableRaw(std::vector<unsigned char>& table) {
    if (linuxSmbiosTable(&table)) {
        // The same spare zero bytes after the data as the snapshot's copy has.
        const size_t n = table.size();
        table.resize(n + 10, 0);
        table.resize(n);
        return true;
    }
    VtExecInfo* info = MacInfo::getIoKit();
    if (!info) {
        std::fprintf(stderr, "getSmbiosTableRaw() ERROR! No iokit data available\n");
        return false;
    }
    if (vtGetValue(info, "IOKit.Root.IOKitDiagnostics.Classes", "AppleSMBIOS", 1) == 0 ||
        vtGetValue(info, "IOKit.Root.IOKitDiagnostics.Classes", "AppleACPIPlatformExpert", 1) == 0)
        return false;
    const VtNode* ioKit = info->tree ? info->tree->getChild("IOKit", 0) : nullptr;
    const VtNode* root = ioKit ? ioKit->getChild("Root", 0) : nullptr;
    if (!root) return false;
    const VtNode* expert = nullptr;
    for (int i = 0; !expert; ++i) {
        const VtNode* c = root->getChild(nullptr, i);
        if (!c) return false;
        expert = c->getChild("AppleACPIPlatformExpert", 0);
    }
    const VtNode* bios = expert->getChild("bios", 0);
    const VtNode* smb = bios ? bios->getChild("AppleSMBIOS", 0) : nullptr;
    const VtVariant* v = smb ? smb->getValue("SMBIOS") : nullptr;
    if (!v || v->type != VT_DATA) return false;
    // Ten spare zero bytes after the data, as the walk has always had.
    table.assign(static_cast<size_t>(v->length) + 10, 0);
    if (v->length) std::memcpy(table.data(), v->value.d, v->length);
    table.resize(v->length);
    return true;
}

bool getSmbiosInfo(SmbiosInfo& info) {
    info = SmbiosInfo();
    std::vector<unsigned char> table;
    if (!getSmbiosTableRaw(table)) {
        // The debug switch, not the variable's mere presence: INVSCAN_SMBIOS_DEBUG=0 is off.
        if (getSmbiosDebug())
            smbiosTrace(__func__, __LINE__, "ERROR! Failed to get SMBIOS table\n");
        return false;
    }
    // The snapshot carries no entry point; 2.4 is the version the summary assumes.
    return getSmbiosInfoFromTable(table.data(), table.size(), 2, 4, info);
}

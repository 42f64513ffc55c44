// Cached helper snapshots.
#include "invscan/MacInfo.h"

#include "invscan/CcLog.h"
#include "invscan/VtProcess.h"
#include "invscan/VtStream.h"
#include "invscan/host.h"

#include <cstring>
#include <string>

namespace {

const char* const MACINFO_SOURCE = "./../../../src/invscan/macos/MacInfo";

VtExecInfo* vt_sysprof = nullptr;
VtExecInfo* vt_iokit = nullptr;

// A replayed host's helper output is the bundle's copy: parsed here, it is the same
// text the helper would print, without a process to start for it.
VtExecInfo* replayed(const char* command) {
    std::string out;
    if (!host::backend()->helperOutput(command, &out)) {
        // What the helper itself would answer for a bundle without its output.
        VtExecInfo* none = new VtExecInfo();
        none->result = 2;
        none->major = 1;
        none->message = vtStrDup("no recorded output in the bundle");
        return none;
    }
    VtIStream_Memory mem(out.data(), out.size());
    return vtParseProgramOutput(&mem);
}

VtExecInfo* snapshot(VtExecInfo*& cache, const char* command, const char* op) {
    CcLogWrapper* log = getCcLogHw();
    if (!cache && std::strcmp(host::mode(), "replay") == 0) {
        log->traceMidEntry(__LINE__, MACINFO_SOURCE, op, "hardware replaying %s", command);
        cache = replayed(command);
    }
    if (!cache) {
        log->traceMidEntry(__LINE__, MACINFO_SOURCE, op, "hardware running %s", command);
        cache = vtExecCommand(command);
        if (!cache) {
            log->traceMIN(__LINE__, MACINFO_SOURCE, op, "hardware ERROR! Could not start %s",
                          command);
            return nullptr;
        }
    }
    if (cache->result != 0 || !cache->tree) {
        log->traceMIN(__LINE__, MACINFO_SOURCE, op, "hardware ERROR! %s gave result %d%s", command,
                      cache->result, cache->tree ? "" : " and no tree");
        // Nobody else holds a failed record: drop it, and retry on the next call.
        delete cache;
        cache = nullptr;
        return nullptr;
    }
    return cache;
}

void replace(VtExecInfo*& cache, VtExecInfo* info) {
    if (cache != info) delete cache;
    cache = info;
}

} // namespace

VtExecInfo* MacInfo::getSysProf() {
    return snapshot(vt_sysprof, "sysprof", "getSysProf()");
}

VtExecInfo* MacInfo::getIoKit() {
    return snapshot(vt_iokit, "iokit", "getIoKit()");
}

void MacInfo::setSysProf(VtExecInfo* info) {
    replace(vt_sysprof, info);
}

VtNode* MacInfo::getSection(const VtExecInfo* info, const char* dataType) {
    VtNode* sp = info && info->tree ? info->tree->getChild("SystemProfiler", 0) : nullptr;
    return sp ? sp->getChild(dataType, 0) : nullptr;
}

void MacInfo::setIoKit(VtExecInfo* info) {
    replace(vt_iokit, info);
}

// Shared pieces of the group tests: a host whose every answer a test sets, helper
// snapshots made from dump text, and tables flattened to "id=value;..." rows.
#ifndef INVSCAN_TEST_GROUP_FIXTURE_H
#define INVSCAN_TEST_GROUP_FIXTURE_H

#include "invscan/MacInfo.h"
#include "invscan/ZelRender.h"
#include "invscan/ZelTable.h"
#include "invscan/ZelTableRow.h"
#include "common/host/host_internal.h"
#include "invscan/vtree.h"

#include <arpa/inet.h>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace testhost {

class FakeHost : public host::PosixBackend {
public:
    const char* name() const override { return "fake"; }
    int sysctlbyname(const char* n, void* oldp, std::size_t* oldlenp) override {
        return answer(n, oldp, oldlenp);
    }
    int sysctl(const int* mib, unsigned n, void* oldp, std::size_t* oldlenp) override {
        return answer(host::mibKey(mib, n), oldp, oldlenp);
    }
    host::kern_return_t hostPageSize(std::size_t* p) override {
        if (!pageSize) return KERN_FAILURE;
        *p = pageSize;
        return KERN_SUCCESS;
    }
    host::kern_return_t hostStatistics(host::VmStatistics* vm) override {
        if (!haveVm) return KERN_FAILURE;
        *vm = vmStats;
        return KERN_SUCCESS;
    }
    int uname(host::Utsname* u) override {
        if (sysname.empty()) return -1;
        std::memset(u, 0, sizeof *u);
        host::copyField(u->sysname, sizeof u->sysname, sysname.c_str());
        host::copyField(u->release, sizeof u->release, "1.0");
        host::copyField(u->version, sizeof u->version, "#1");
        host::copyField(u->machine, sizeof u->machine, machine.c_str());
        return 0;
    }
    std::FILE* fopen(const char* path) override {
        auto it = files.find(path);
        return it == files.end() ? nullptr : host::bundle::memoryFile(it->second);
    }
    // Commands the test answers; any other runs for real.
    std::FILE* popen(const char* command) override {
        ++popens;
        auto it = commands.find(command);
        if (it == commands.end()) return host::PosixBackend::popen(command);
        return served.open(it->second, commandStatus);
    }
    int pclose(std::FILE* stream) override {
        ++pcloses;
        int rc = served.close(stream);
        return rc == -1 && errno == ECHILD ? host::PosixBackend::pclose(stream) : rc;
    }
    // Answered lookups are never asked of a real resolver, ahead of time either.
    void prefetchLookup(const void* addr, unsigned len, int type) override {
        if (!answerLookups) host::PosixBackend::prefetchLookup(addr, len, type);
    }
    struct hostent* gethostbyaddr(const void* addr, unsigned len, int type) override {
        if (!answerLookups) return host::PosixBackend::gethostbyaddr(addr, len, type);
        char text[64] = "";
        inet_ntop(type, addr, text, sizeof text);
        lookups.push_back(text);
        auto it = names.find(text);
        if (it == names.end()) return nullptr;
        static char* none[1] = {nullptr};
        static struct hostent h;
        lookupName = it->second;
        h.h_name = &lookupName[0];
        h.h_aliases = none;
        h.h_addr_list = none;
        return &h;
    }
    char* setlocale(int category, const char*) override {
        auto it = locales.find(category);
        if (it == locales.end()) return nullptr;
        return &it->second[0];
    }
    void tzset() override {}
    int timeZone(host::TimeZoneInfo* out) override {
        if (!haveZone) return -1;
        *out = zone;
        return 0;
    }

    void setInt(const std::string& key, long long v) {
        sysctls[key] =
            v == static_cast<int32_t>(v) ? host::SysctlValue::i32(v) : host::SysctlValue::i64(v);
    }
    void setQuad(const std::string& key, long long v) { sysctls[key] = host::SysctlValue::i64(v); }
    void setText(const std::string& key, const std::string& v) {
        sysctls[key] = host::SysctlValue::str(v);
    }
    void setSwap(unsigned long long total, unsigned long long used) {
        host::XswUsage u;
        std::memset(&u, 0, sizeof u);
        u.xsu_total = total;
        u.xsu_used = used;
        u.xsu_avail = total - used;
        sysctls["2.5"] = host::SysctlValue::raw(&u, sizeof u);
    }

    std::map<std::string, std::string> commands;
    int commandStatus = 0; // what pclose gives for an answered command
    int popens = 0, pcloses = 0;
    host::bundle::CommandFiles served;
    bool answerLookups = true;
    std::map<std::string, std::string> names; // address text -> host name
    std::vector<std::string> lookups;
    std::string lookupName;
    std::vector<host::Statfs> mountList;
    bool mounts(host::Statfs** out, int* count) override {
        if (mountList.empty()) return false;
        *out = &mountList[0];
        *count = static_cast<int>(mountList.size());
        return true;
    }
    std::map<std::string, host::SysctlValue> sysctls;
    std::map<std::string, std::string> files;
    std::map<int, std::string> locales;
    std::string sysname, machine;
    std::size_t pageSize = 0;
    bool haveVm = false;
    host::VmStatistics vmStats{};
    bool haveZone = false;
    host::TimeZoneInfo zone{};

private:
    int answer(const std::string& key, void* oldp, std::size_t* oldlenp) {
        auto it = sysctls.find(key);
        if (it == sysctls.end()) {
            errno = ENOENT; // as the kernel answers an unknown name
            return -1;
        }
        return host::answerSysctl(it->second, oldp, oldlenp);
    }
};

// A snapshot as a helper would have given it; null text gives null.
inline VtExecInfo* snapshot(const char* dump) {
    if (!dump) return nullptr;
    VtExecInfo* info = new VtExecInfo();
    info->result = 0;
    info->tree = vtParseDumpBuffer(dump, std::strlen(dump));
    return info;
}

// Numbers bare, texts as printed.
inline std::string valueText(const ZelTableAttrib* a) {
    char* buf = nullptr;
    std::size_t size = 0;
    std::FILE* f = open_memstream(&buf, &size);
    PrintZelAttribValueToFile(f, a->getAttribPtr());
    std::fclose(f);
    std::string text(buf, size);
    std::free(buf);
    if (a->getType() == ZEL_ULONG) text = text.substr(0, text.find(' '));
    return text;
}

inline std::vector<std::string> rowsOf(ZelTable* table) {
    std::vector<std::string> rows;
    if (!table) return rows;
    table->reset();
    while (ZelTableRow* r = table->getNext()) {
        std::string row;
        r->reset();
        while (ZelTableAttrib* a = r->getNext())
            row += (row.empty() ? "" : ";") + std::to_string(a->getId()) + "=" + valueText(a);
        rows.push_back(row);
    }
    return rows;
}

// Installs the fake host and keeps helper programs out of reach, so a missing
// snapshot stays missing; undone at the end of the test.
class HostGroupTest {
public:
    void install() {
        host::useBackend(&fake);
        const char* home = std::getenv("KOR_HOMEDIR");
        savedHome = home ? home : "";
        setenv("KOR_HOMEDIR", "/nonexistent-invscan-home", 1);
        MacInfo::setSysProf(nullptr);
        MacInfo::setIoKit(nullptr);
    }
    void uninstall() {
        MacInfo::setSysProf(nullptr);
        MacInfo::setIoKit(nullptr);
        host::useBackend(nullptr);
        if (savedHome.empty())
            unsetenv("KOR_HOMEDIR");
        else
            setenv("KOR_HOMEDIR", savedHome.c_str(), 1);
    }
    template <typename Group> std::vector<std::string> scan(bool* gotTable = nullptr) {
        Group group;
        ZelTable* table = group.getTable();
        if (gotTable) *gotTable = table != nullptr;
        std::vector<std::string> rows = rowsOf(table);
        delete table;
        return rows;
    }

    FakeHost fake;
    std::string savedHome;
};

} // namespace testhost

#endif

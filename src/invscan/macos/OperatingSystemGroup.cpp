// On a Mac the name comes from the system profiler and the version numbers are
// scanned out of it; on a Linux host (the scanned host's kernel name decides) the
// same row is filled from os-release, the kernel's version text and the root file
// system's birth time, because the Mac sources would report nonsense there.
#include "invscan/OperatingSystemGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host.h"

#include <clocale>
#include <cstring>
#include <string>

namespace {

const char* const SRC = "./../../../src/invscan/macos/OperatingSystemGroup";
const char* const OP = "getTable()";
const char* const INSTALL_LOG = "/var/log/OSInstall.custom";
const char* const OS_OVERVIEW = "SystemProfiler.SPSoftwareDataType.os_overview";

const unsigned long OS_TYPE_MACOS = 3;
const unsigned long OS_TYPE_LINUX = 37;

#define OS_TRACE(...) getCcLogHw()->traceMAX(__LINE__, SRC, OP, __VA_ARGS__)

struct OsFacts {
    std::string name;
    unsigned long type = OS_TYPE_MACOS;
    hostfacts::Version version;
    std::string installDate;
    std::string description;
};

// Mac: name from the profiler, numbers scanned past "Mac OS X ".
void macFacts(VtExecInfo* sysprof, VtExecInfo* iokit, OsFacts* os) {
    CcLogWrapper* log = getCcLogHw();
    if (sysprof) {
        OS_TRACE("hardware %s", "Parsing sysprog");
        os->name = vtGetValue(sysprof, OS_OVERVIEW, "os_version", "");
        const char* kernel = vtGetValue(sysprof, OS_OVERVIEW, "kernel_version", "");
        OS_TRACE("hardware %s [%s]", "OS Name", os->name.c_str());
        OS_TRACE("hardware %s [%s]", "Kernel Name", kernel);
    } else {
        OS_TRACE("hardware %s", "Can't parse sysprog binary");
        os->name = "Mac OS";
    }
    if (iokit) {
        os->description = vtGetValue(iokit, "IOKit.Root", "IOKitBuildVersion", "");
        OS_TRACE("hardware %s [%s]", "OS description", os->description.c_str());
    } else {
        log->traceMIN(__LINE__, SRC, OP, "hardware %s", "Can't parse iokit binary");
        os->description = "Mac OS X";
    }
    if (os->name.compare(0, 8, "Mac OS X") == 0 && os->name.size() >= 8) {
        // One separator follows the prefix; a name of exactly "Mac OS X" has none.
        os->version = hostfacts::scanVersion(os->name.size() > 9 ? os->name.c_str() + 9 : "");
        OS_TRACE("hardware %s [%d.%d.%s]", "OS VERSION", os->version.major, os->version.minor,
                 os->version.sub.c_str());
    } else {
        log->traceMIN(__LINE__, SRC, OP, "hardware %s", "OS VERSION FORMAT MISMASH");
    }

    OS_TRACE("hardware %s [%s]", "Checking install log", INSTALL_LOG);
    std::FILE* f = host::fopen(INSTALL_LOG, "r");
    if (!f) {
        OS_TRACE("hardware %s", "Install log doesn't exists");
        return;
    }
    char line[512];
    bool got = std::fgets(line, sizeof line, f) != nullptr;
    std::fclose(f);
    OS_TRACE("hardware %s", "Found data");
    if (got && hostfacts::installDate(line, &os->installDate))
        OS_TRACE("hardware %s [%s]", "Data", os->installDate.c_str());
    else
        OS_TRACE("hardware %s", "Wrong format of file");
}

// Linux: os-release names the distribution, VERSION_ID gives the numbers.
void linuxFacts(VtExecInfo* iokit, const host::Utsname& un, OsFacts* os) {
    os->type = OS_TYPE_LINUX;
    std::string text;
    if (!hostfacts::readHostFile("/etc/os-release", &text, 64 * 1024))
        hostfacts::readHostFile("/usr/lib/os-release", &text, 64 * 1024);
    hostfacts::OsRelease rel = hostfacts::parseOsRelease(text.data(), text.size());
    os->name = !rel.prettyName.empty() ? rel.prettyName : !rel.name.empty() ? rel.name : "Linux";
    OS_TRACE("hardware %s [%s]", "OS Name", os->name.c_str());
    os->version = hostfacts::scanVersion(rel.versionId.c_str());
    OS_TRACE("hardware %s [%d.%d.%s]", "OS VERSION", os->version.major, os->version.minor,
             os->version.sub.c_str());

    char date[64] = "";
    std::size_t len = sizeof date - 1;
    if (host::sysctlbyname("kern.install_date", date, &len) == 0) {
        date[len < sizeof date ? len : sizeof date - 1] = '\0';
        os->installDate = date;
        OS_TRACE("hardware %s [%s]", "Data", date);
    } else {
        OS_TRACE("hardware %s", "Install date not recorded");
    }

    const char* banner = iokit ? vtGetValue(iokit, "IOKit.Root", "IOKitBuildVersion", "") : "";
    if (*banner) {
        os->description = banner;
    } else {
        os->description = std::string(un.sysname) + " version " + un.release + " " + un.version;
        if (!un.sysname[0]) os->description.clear();
    }
    OS_TRACE("hardware %s [%s]", "OS description", os->description.c_str());
}

} // namespace

ZelTable* OperatingSystemGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC, OP, "hardware %s", "OperatingSystemGroup");

    OS_TRACE("hardware %s", "Retrieve data from MacInfo");
    VtExecInfo* iokit = MacInfo::getIoKit();
    VtExecInfo* sysprof = MacInfo::getSysProf();
    OS_TRACE("hardware %s", "Data retrieved");

    host::Utsname un;
    std::memset(&un, 0, sizeof un);
    bool haveUname = host::uname(&un) == 0;
    bool linuxHost = haveUname && std::strcmp(un.sysname, "Linux") == 0;

    OsFacts os;
    if (linuxHost)
        linuxFacts(iokit, un, &os);
    else
        macFacts(sysprof, iokit, &os);

    OS_TRACE("hardware %s", "Retrieving uname");
    OS_TRACE("hardware %s [%s]", "Sysname", un.sysname);
    OS_TRACE("hardware %s [%s]", "Node name", un.nodename);
    OS_TRACE("hardware %s [%s]", "Release", un.release);
    OS_TRACE("hardware %s [%s]", "Version", un.version);
    OS_TRACE("hardware %s [%s]", "Machine", un.machine);

    OS_TRACE("hardware %s", "Checking 64-bits");
    OS_TRACE("hardware %s [%d]", "64-bits status", 0);
    // Only the exact machine name counts: x86_64h and arm64 report 32.
    const char* kernelMode = std::strcmp(un.machine, "x86_64") == 0 ? "64" : "32";

    const char* locale = host::setlocale(LC_MESSAGES, "");
    if (!locale) locale = host::setlocale(LC_MESSAGES, nullptr);
    std::string messages = locale ? locale : "";

    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    ZelTableRow* row = new ZelTableRow();
    row->addAttrib(new ZelTableAttrib(1UL, os.name.c_str()));
    row->addAttrib(new ZelTableAttrib(2UL, os.type));
    row->addAttrib(new ZelTableAttrib(
        3UL, static_cast<unsigned long>(static_cast<std::uint32_t>(os.version.major))));
    row->addAttrib(new ZelTableAttrib(
        4UL, static_cast<unsigned long>(static_cast<std::uint32_t>(os.version.minor))));
    row->addAttrib(new ZelTableAttrib(5UL, os.version.sub.c_str()));
    // A text, as the log gives it: the string constructor decides the block type.
    row->addAttrib(new ZelTableAttrib(6UL, os.installDate.c_str()));
    row->addAttrib(new ZelTableAttrib(10UL, un.machine));
    row->addAttrib(new ZelTableAttrib(11UL, kernelMode));
    row->addAttrib(new ZelTableAttrib(12UL, os.description.c_str()));
    row->addAttrib(new ZelTableAttrib(15UL, messages.c_str()));
    table->addRow(row);

    log->traceMidExit(__LINE__, SRC, OP, "hardware %s", "OperatingSystemGroup");
    return table;
}

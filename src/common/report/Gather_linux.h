// The Linux gathering in two steps: everything the reports need is read first into
// a LinuxMachine (from this machine, or from a captured tree below a root folder),
// and the reports are then built from it alone, so the building is tested on files
// of machines other than this one.
#ifndef INVSCAN_GATHER_LINUX_H
#define INVSCAN_GATHER_LINUX_H

#include "common/host/linux_facts.h"
#include "common/report/Report.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace report {

struct LinuxMachine {
    // /sys/class/dmi/id
    std::string product, family, vendor, bios, serial, uuid;
    // /sys/firmware/dmi/tables
    std::string smbiosTable, smbiosEntry;
    linuxfacts::SmbiosState smbiosState = linuxfacts::SMBIOS_ABSENT;
    std::uint64_t smbiosSize = 0; // also of a table refused for its size
    linuxfacts::CpuInfo cpu;
    std::int64_t maxKHz = -1;
    std::vector<linuxfacts::Cache> caches;
    std::uint64_t memoryBytes = 0;          // what the kernel manages, from sysinfo or meminfo
    std::string osRelease;                  // /etc/os-release as text
    std::string sysname, release, nodename; // uname; empty from a captured tree
    double uptime = 0;                      // seconds
    std::string kernelVersion;              // the first line of /proc/version
    std::vector<linuxfacts::BlockDevice> disks;
    std::vector<linuxfacts::NetInterface> interfaces;
    struct Addresses {
        std::vector<std::string> v4, masks, v6, prefixes;
    };
    std::map<std::string, Addresses> addresses; // by interface; live only
    std::map<std::string, bool> dhcp;           // by interface
    std::string routes4, routes6;               // /proc/net/route, ipv6_route
    linuxfacts::Resolver resolver;
};

// The addresses of the walker's list grouped by interface, masks and prefixes in
// step with their addresses.
std::map<std::string, LinuxMachine::Addresses>
addressesByInterface(const std::vector<linuxfacts::IfAddress>& list);

// What `helper` ("sysprof" or "iokit") needs of the machine below `root` ("" for
// this one: then uname, sysinfo and the interface addresses come from the kernel).
LinuxMachine readLinuxMachine(const std::string& root, const char* helper);

// The reports in the shape of their Mac counterparts.
void buildSystemProfiler(const LinuxMachine& m, Node* root);
void buildRegistry(const LinuxMachine& m, Node* root);

} // namespace report

#endif

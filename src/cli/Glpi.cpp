#include "cli/Glpi.h"

#include "invscan/IpAddressGroup.h"
#include "invscan/PartitionGroup.h"
#include "invscan/md5.h"

#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <map>
#include <unordered_map>
#include <regex>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

typedef std::map<std::string, Json> Row; // attribute name -> value (text for enumerations)

std::vector<Row> rows(const Json& scan, unsigned id) {
    std::vector<Row> out;
    for (const Json& t : scan["tables"]) {
        if (t["id"] != id || !t["rows"].is_array()) continue;
        for (const Json& r : t["rows"]) {
            Row row;
            for (const Json& a : r) {
                row[a["name"].get<std::string>()] = a["value"];
                if (a.contains("text")) row[a["name"].get<std::string>() + "#text"] = a["text"];
            }
            out.push_back(row);
        }
    }
    return out;
}

std::string text(const Row& r, const char* name) {
    auto it = r.find(name);
    if (it == r.end() || !it->second.is_string()) return std::string();
    std::string s = it->second.get<std::string>();
    std::size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

long long number(const Row& r, const char* name) {
    auto it = r.find(name);
    return it != r.end() && it->second.is_number_integer() ? it->second.get<long long>() : -1;
}

// Sets `key` when there is something to set.
void put(Json& obj, const char* key, const std::string& value) {
    if (!value.empty()) obj[key] = value;
}
void putNumber(Json& obj, const char* key, long long value) {
    if (value >= 0) obj[key] = value;
}

// "2009-08-28 10:12:01 +0200" and "2026-11-23-05.12.00.000000" as GLPI dates.
std::string glpiDateTime(const std::string& s) {
    static const std::regex plain(
        "^([0-9]{4}-[0-9]{2}-[0-9]{2})[ T]([0-9]{2}:[0-9]{2}:[0-9]{2}).*");
    static const std::regex zel(
        "^([0-9]{4}-[0-9]{2}-[0-9]{2})-([0-9]{2})\\.([0-9]{2})\\.([0-9]{2})\\..*");
    std::smatch m;
    if (std::regex_match(s, m, plain)) return m[1].str() + " " + m[2].str();
    if (std::regex_match(s, m, zel))
        return m[1].str() + " " + m[2].str() + ":" + m[3].str() + ":" + m[4].str();
    return std::string();
}

// SMBIOS dates come as MM/DD/YYYY or YYYY-MM-DD.
std::string glpiDate(const std::string& s) {
    static const std::regex us("^([0-9]{2})/([0-9]{2})/([0-9]{4})$");
    static const std::regex iso("^[0-9]{4}-[0-9]{2}-[0-9]{2}$");
    std::smatch m;
    if (std::regex_match(s, m, us)) return m[3].str() + "-" + m[1].str() + "-" + m[2].str();
    return std::regex_match(s, iso) ? s : std::string();
}

// The release in a kernel's own description: "Linux version 6.1.0-18-amd64 (...) ..."
// (/proc/version) or "Darwin Kernel Version 18.7.0: ..." (uname -v).
std::string kernelRelease(const std::string& description) {
    static const std::regex release("^[A-Za-z]+ (?:[Kk]ernel )?[Vv]ersion ([^ :]+).*");
    std::smatch m;
    return std::regex_match(description, m, release) ? m[1].str() : std::string();
}

bool isMac(const std::string& s) {
    static const std::regex mac("^[0-9A-Fa-f]{2}(:[0-9A-Fa-f]{2}){5}$");
    return std::regex_match(s, mac);
}

// The network part of an IPv4 address and mask, or of an IPv6 address and prefix
// length; the mask of that prefix into `mask` for IPv6.
std::string subnet4(const std::string& address, const std::string& mask) {
    in_addr a, m;
    if (inet_pton(AF_INET, address.c_str(), &a) != 1 || inet_pton(AF_INET, mask.c_str(), &m) != 1)
        return std::string();
    a.s_addr &= m.s_addr;
    char buf[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &a, buf, sizeof buf) ? buf : std::string();
}
std::string subnet6(const std::string& address, const std::string& prefix, std::string* mask) {
    unsigned char a[16], m[16] = {};
    char* end = nullptr;
    unsigned long bits = std::strtoul(prefix.c_str(), &end, 10);
    if (prefix.empty() || *end || bits > 128 || inet_pton(AF_INET6, address.c_str(), a) != 1)
        return std::string();
    for (unsigned long i = 0; i < bits; ++i)
        m[i / 8] = static_cast<unsigned char>(m[i / 8] | (0x80 >> (i % 8)));
    for (int i = 0; i < 16; ++i)
        a[i] &= m[i];
    char buf[INET6_ADDRSTRLEN];
    if (!inet_ntop(AF_INET6, m, buf, sizeof buf)) return std::string();
    *mask = buf;
    return inet_ntop(AF_INET6, a, buf, sizeof buf) ? buf : std::string();
}

// A Linux scan's adapters, one entry per address as GLPI agents send them: each
// address goes to the interface that holds it (a bridge's address is not its
// members'), and an interface without an address still has its entry.
Json linuxNetworks(const std::vector<Row>& adapters, const std::vector<Row>& ipv4,
                   const std::vector<Row>& ipv6, std::string* firstMac) {
    // The interface of each IPv4 row: as the scan kept it, else by a MAC that one
    // adapter alone has.
    std::map<std::string, int> macCount;
    for (const Row& a : adapters)
        ++macCount[text(a, "Permanent Address")];
    // Rows by interface (else by MAC), so that a host of 10,000 interfaces is not
    // 10,000 walks over its 100,000 addresses.
    std::unordered_map<std::string, std::vector<std::size_t>> v4ByName, v4ByMac, v6ByName;
    for (std::size_t k = 0; k < ipv4.size(); ++k) {
        const Row& r = ipv4[k];
        std::string name = text(r, "interface");
        if (name.empty())
            name = ipAddressInterface(static_cast<unsigned long>(number(r, "Index")),
                                      text(r, "Address").c_str());
        if (!name.empty())
            v4ByName[name].push_back(k);
        else
            v4ByMac[text(r, "Permanent Mac Address")].push_back(k);
    }
    for (std::size_t k = 0; k < ipv6.size(); ++k)
        v6ByName[text(ipv6[k], "Adapter Name")].push_back(k);
    static const std::vector<std::size_t> none;
    auto of = [](const std::unordered_map<std::string, std::vector<std::size_t>>& m,
                 const std::string& key) -> const std::vector<std::size_t>& {
        auto it = m.find(key);
        return it == m.end() ? none : it->second;
    };
    Json networks = Json::array();
    for (const Row& a : adapters) {
        const std::string model = text(a, "Model"), mac = text(a, "Permanent Address");
        const std::size_t dash = model.find('-');
        const std::string kind = model.substr(0, dash);
        const std::string ifname = dash == std::string::npos ? model : model.substr(dash + 1);
        Json base = Json::object();
        base["description"] = ifname;
        if (isMac(mac)) {
            base["mac"] = mac;
            if (firstMac->empty()) *firstMac = mac;
        }
        if (kind == "Bridge")
            base["type"] = "bridge";
        else if (kind == "Bond")
            base["type"] = "aggregate";
        else if (kind == "AirPort")
            base["type"] = "wifi";
        else if (number(a, "Type") == 10)
            base["type"] = "dialup";
        else if (number(a, "Type") == 3)
            base["type"] = "ethernet";
        base["virtualdev"] = text(a, "Physical Type") == "virtual";
        std::size_t before = networks.size();
        std::vector<std::size_t> mine = of(v4ByName, ifname);
        if (!mac.empty() && macCount[mac] == 1) {
            const std::vector<std::size_t>& byMac = of(v4ByMac, mac);
            mine.insert(mine.end(), byMac.begin(), byMac.end());
            std::sort(mine.begin(), mine.end()); // in the table's order
        }
        for (std::size_t k : mine) {
            const Row& r = ipv4[k];
            Json e = base;
            put(e, "ipaddress", text(r, "Address"));
            put(e, "ipmask", text(r, "Subnet"));
            put(e, "ipsubnet", subnet4(text(r, "Address"), text(r, "Subnet")));
            put(e, "ipgateway", text(r, "Gateway"));
            networks.push_back(e);
        }
        for (std::size_t k : of(v6ByName, ifname)) {
            const Row& r = ipv6[k];
            Json e = base;
            std::string mask;
            const std::string sub = subnet6(text(r, "Address"), text(r, "Subnet"), &mask);
            put(e, "ipaddress6", text(r, "Address"));
            put(e, "ipmask6", mask);
            put(e, "ipsubnet6", sub);
            networks.push_back(e);
        }
        if (networks.size() == before) networks.push_back(base);
    }
    return networks;
}

} // namespace

Json glpiInventory(const Json& scan, const std::string& deviceId) {
    Json content;
    const std::vector<Row> smbios = rows(scan, 24), component = rows(scan, 1),
                           memory = rows(scan, 3);
    const std::vector<Row> ipv4 = rows(scan, 6), ipv6 = rows(scan, 51);

    Json bios = Json::object();
    if (!smbios.empty()) {
        const Row& s = smbios[0];
        put(bios, "bmanufacturer", text(s, "BIOS Vendor"));
        put(bios, "bversion", text(s, "BIOS Version"));
        put(bios, "bdate", glpiDate(text(s, "BIOS Date")));
        put(bios, "smanufacturer", text(s, "System Manufacturer"));
        put(bios, "smodel", text(s, "System Product Name"));
        put(bios, "ssn", text(s, "System Serial Number"));
        put(bios, "mmanufacturer", text(s, "Board Manufacturer"));
        put(bios, "mmodel", text(s, "Board Product"));
        put(bios, "msn", text(s, "Board Serial Number"));
        put(bios, "enclosureserial", text(s, "Enclosure Serial Number"));
        put(bios, "assettag", text(s, "Enclosure Asset Tag"));
    }
    if (!component.empty()) {
        const Row& c = component[0];
        if (!bios.contains("smanufacturer")) put(bios, "smanufacturer", text(c, "Manufacturer"));
        if (!bios.contains("smodel")) put(bios, "smodel", text(c, "Product"));
        if (!bios.contains("ssn")) put(bios, "ssn", text(c, "Serial Number"));
    }
    if (!bios.empty()) content["bios"] = bios;

    Json hardware = Json::object();
    put(hardware, "name", scan.value("host", std::string()));
    std::string uuid = component.empty() ? std::string() : text(component[0], "UUID");
    if (uuid.empty() && !smbios.empty()) uuid = text(smbios[0], "System UUID");
    put(hardware, "uuid", uuid);
    if (!memory.empty()) {
        long long total = number(memory[0], "Total Physical"),
                  virt = number(memory[0], "Total Virtual");
        if (total > 0) hardware["memory"] = total / 1024;
        if (total > 0 && virt >= total) hardware["swap"] = (virt - total) / 1024;
    }
    std::string dns;
    for (const Row& r : ipv4) {
        for (const char* k : {"Primary DNS", "Secondary DNS"}) {
            std::string d = text(r, k);
            if (!d.empty() && ("/" + dns + "/").find("/" + d + "/") == std::string::npos)
                dns += (dns.empty() ? "" : "/") + d;
        }
        if (!hardware.contains("defaultgateway"))
            put(hardware, "defaultgateway", text(r, "Gateway"));
    }
    put(hardware, "dns", dns);
    if (!smbios.empty()) {
        auto it = smbios[0].find("Enclosure Type#text");
        if (it != smbios[0].end() && it->second.is_string())
            put(hardware, "chassis_type", it->second.get<std::string>());
    }
    if (!hardware.empty()) content["hardware"] = hardware;

    for (const Row& o : rows(scan, 4)) {
        Json os = Json::object();
        put(os, "full_name", text(o, "Name"));
        put(os, "name", text(o, "Name"));
        put(os, "arch", text(o, "OS Arch"));
        if (number(o, "Major Version") > 0) {
            std::string v = std::to_string(number(o, "Major Version")) + "." +
                            std::to_string(number(o, "Minor Version"));
            if (!text(o, "Sub Version").empty()) v += "." + text(o, "Sub Version");
            os["version"] = v;
        }
        put(os, "install_date", glpiDateTime(text(o, "Install Date")));
        std::string kernel = scan.value("kernel", "");
        for (char& ch : kernel)
            ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        put(os, "kernel_name", kernel);
        put(os, "kernel_version", kernelRelease(text(o, "Description String")));
        for (const Row& g : rows(scan, 15)) {
            long long secs = number(g, "Time Zone Seconds");
            std::string name = text(g, "Time Zone Name");
            if (secs < 0 || name.empty()) continue;
            char off[16];
            std::snprintf(off, sizeof off, "%c%02lld%02lld",
                          number(g, "Time Zone Plus Minus") == 2 ? '-' : '+', secs / 3600 % 100,
                          secs / 60 % 60);
            os["timezone"] = {{"name", name}, {"offset", off}};
        }
        if (!os.empty()) content["operatingsystem"] = os;
    }

    Json cpus = Json::array();
    for (const Row& p : rows(scan, 44)) {
        Json c = Json::object();
        put(c, "manufacturer", text(p, "Manufacturer") == "Unknown" ? "" : text(p, "Manufacturer"));
        put(c, "name", text(p, "Brandname"));
        put(c, "familyname", text(p, "Family") == "Unknown" ? "" : text(p, "Family"));
        putNumber(c, "core", number(p, "Core Per Package Count"));
        putNumber(c, "thread", number(p, "Logical Proc Per Core"));
        if (number(p, "CpuFreq") > 0) c["speed"] = number(p, "CpuFreq");
        if (!c.empty()) cpus.push_back(c);
    }
    if (!cpus.empty()) content["cpus"] = cpus;

    Json memories = Json::array();
    for (const Row& m : rows(scan, 31)) {
        Json e = Json::object();
        if (number(m, "Module Size MB") > 0) e["capacity"] = number(m, "Module Size MB");
        put(e, "caption", text(m, "Socket Name"));
        std::string type = text(m, "Memory Type"), part = text(m, "Packaging");
        put(e, "type", type == "Empty" ? "" : type);
        put(e, "model", part == "Empty" ? "" : part);
        putNumber(e, "numslots", number(m, "Index"));
        memories.push_back(e);
    }
    if (!memories.empty()) content["memories"] = memories;

    Json storages = Json::array();
    for (const Row& s : rows(scan, 5)) {
        Json e = Json::object();
        put(e, "name", text(s, "Model"));
        put(e, "model", text(s, "Model"));
        put(e, "serial", text(s, "Serial Number"));
        if (number(s, "Total Size") > 0) e["disksize"] = number(s, "Total Size");
        long long type = number(s, "Type");
        if (type == 30) e["type"] = "disk";
        if (type == 23) e["type"] = "dvd";
        storages.push_back(e);
    }
    if (!storages.empty()) content["storages"] = storages;

    Json drives = Json::array();
    for (const Row& p : rows(scan, 27)) {
        Json e = Json::object();
        put(e, "volumn", text(p, "Device Name"));
        put(e, "type", text(p, "FS Mount Point"));
        // The mount's own type where the scan knows it (Linux), else the code's name.
        std::string own = text(p, "fs");
        if (own.empty())
            own = partitionFsName(static_cast<unsigned long>(number(p, "Index")),
                                  text(p, "FS Mount Point").c_str());
        auto fs = p.find("FS Type#text");
        if (!own.empty())
            e["filesystem"] = own;
        else if (fs != p.end() && fs->second.is_string() && fs->second != "UNKNOWN")
            e["filesystem"] = fs->second;
        if (number(p, "FS Total Size") >= 0) e["total"] = number(p, "FS Total Size") / 1024;
        if (number(p, "FS Free Size") >= 0) e["free"] = number(p, "FS Free Size") / 1024;
        drives.push_back(e);
    }
    if (!drives.empty()) content["drives"] = drives;

    Json networks = Json::array();
    std::string firstMac;
    const bool linuxScan = scan.value("kernel", std::string()) == "Linux";
    if (linuxScan) networks = linuxNetworks(rows(scan, 7), ipv4, ipv6, &firstMac);
    for (const Row& a : linuxScan ? std::vector<Row>() : rows(scan, 7)) {
        Json e = Json::object();
        const std::string model = text(a, "Model"), mac = text(a, "Permanent Address");
        e["description"] = model;
        if (isMac(mac)) {
            e["mac"] = mac;
            if (firstMac.empty()) firstMac = mac;
        }
        long long type = number(a, "Type");
        if (type == 3) e["type"] = "ethernet";
        if (type == 10) e["type"] = "dialup";
        for (const Row& r : ipv4)
            if (!mac.empty() && text(r, "Permanent Mac Address") == mac &&
                !e.contains("ipaddress")) {
                put(e, "ipaddress", text(r, "Address"));
                put(e, "ipmask", text(r, "Subnet"));
                put(e, "ipgateway", text(r, "Gateway"));
            }
        for (const Row& r : ipv6) {
            const std::string ifname = text(r, "Adapter Name");
            if (!ifname.empty() && model.size() > ifname.size() &&
                model.compare(model.size() - ifname.size() - 1, std::string::npos, "-" + ifname) ==
                    0 &&
                !e.contains("ipaddress6"))
                put(e, "ipaddress6", text(r, "Address"));
        }
        networks.push_back(e);
    }
    if (!networks.empty()) content["networks"] = networks;

    for (const Row& s : rows(scan, 20)) {
        std::string when = glpiDateTime(text(s, "Scan Date"));
        if (!when.empty()) content["accesslog"] = {{"logdate", when}};
    }
    content["versionclient"] = "invscan_v" + scan.value("version", std::string());

    // The agent's id: the one the caller keeps, else the node name, which every scan
    // has whatever its groups and whoever runs it (a hardware value would change the id
    // with the groups asked for, a UUID or serial with root). Only a scan that has no
    // node name (bundles recorded without one) falls back to what its tables hold.
    std::string deviceid = deviceId.empty() ? scan.value("host", std::string()) : deviceId;
    if (deviceid.empty()) {
        std::string identity = uuid;
        if (identity.empty() && bios.contains("ssn")) identity = bios["ssn"].get<std::string>();
        if (identity.empty()) identity = firstMac;
        if (identity.empty()) {
            Json stable = content; // less what changes from scan to scan
            stable.erase("accesslog");
            stable.erase("versionclient");
            identity = stable.dump();
        }
        char* digest = md5_checksum(identity.c_str());
        deviceid = std::string("invscan-") + (digest ? std::string(digest).substr(0, 16) : "host");
        std::free(digest);
    }

    Json inventory;
    inventory["action"] = "inventory";
    inventory["deviceid"] = deviceid;
    inventory["itemtype"] = "Computer";
    inventory["content"] = content;
    return inventory;
}

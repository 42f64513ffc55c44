#include "cli/Ocs.h"
#include "invscan/PartitionGroup.h"

#include <pugixml.hpp>

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <sstream>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

typedef std::map<std::string, const Json*> Row; // attribute name -> value; "#text" for names

std::string member(const Json& scan, const char* key) {
    return scan.is_object() && scan.contains(key) && scan[key].is_string()
               ? scan[key].get<std::string>()
               : std::string();
}

const Json& nothing() {
    static const Json none;
    return none;
}

// The group's table when it was read ("ok"), else null.
const Json* table(const Json& scan, unsigned id) {
    const Json& tables = scan.contains("tables") ? scan["tables"] : nothing();
    if (!tables.is_array()) return nullptr;
    for (const Json& t : tables)
        if (t.is_object() && t.contains("id") && t["id"].is_number_integer() && t["id"] == id &&
            member(t, "status") == "ok")
            return &t;
    return nullptr;
}

std::vector<Row> rows(const Json& scan, unsigned id) {
    std::vector<Row> out;
    const Json* t = table(scan, id);
    if (!t || !t->contains("rows") || !(*t)["rows"].is_array()) return out;
    for (const Json& r : (*t)["rows"]) {
        if (!r.is_array()) continue;
        Row row;
        for (const Json& a : r) {
            if (!a.is_object() || !a.contains("name") || !a["name"].is_string()) continue;
            const std::string name = a["name"].get<std::string>();
            if (a.contains("value")) row[name] = &a["value"];
            if (a.contains("text")) row[name + "#text"] = &a["text"];
        }
        out.push_back(row);
    }
    return out;
}

std::string text(const Row& r, const std::string& name) {
    auto it = r.find(name);
    if (it == r.end() || !it->second->is_string()) return std::string();
    const std::string& s = it->second->get_ref<const std::string&>();
    std::size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// A number the table has, or -1.
long long number(const Row& r, const char* name) {
    auto it = r.find(name);
    if (it == r.end()) return -1;
    if (it->second->is_number_unsigned())
        return static_cast<long long>(
            std::min<std::uint64_t>(it->second->get<std::uint64_t>(), INT64_MAX));
    return it->second->is_number_integer() ? it->second->get<long long>() : -1;
}

// A known value: the scanners say "Unknown" or "Empty" where there is none.
std::string known(const std::string& s) {
    return s == "Unknown" || s == "UNKNOWN" || s == "Empty" ? std::string() : s;
}

void put(pugi::xml_node parent, const char* name, const std::string& value) {
    if (value.empty()) return;
    parent.append_child(name).text().set(ocsXmlText(value).c_str());
}
void putNumber(pugi::xml_node parent, const char* name, long long value) {
    if (value > 0) put(parent, name, std::to_string(value));
}

bool isMac(const std::string& s) {
    if (s.size() != 17) return false;
    for (std::size_t i = 0; i < s.size(); ++i)
        if (i % 3 == 2 ? s[i] != ':' : !std::isxdigit(static_cast<unsigned char>(s[i])))
            return false;
    return true;
}

// The network an IPv4 address and mask belong to.
std::string subnetOf(const std::string& address, const std::string& mask) {
    in_addr a, m;
    if (inet_pton(AF_INET, address.c_str(), &a) != 1 || inet_pton(AF_INET, mask.c_str(), &m) != 1)
        return std::string();
    a.s_addr &= m.s_addr;
    char out[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &a, out, sizeof out) ? out : std::string();
}

// "2026-11-23-05.12.00.000000" as "2026-11-23 05:12:00".
std::string logDate(const std::string& s) {
    if (s.size() < 19 || s[4] != '-' || s[7] != '-' || s[10] != '-' || s[13] != '.' || s[16] != '.')
        return std::string();
    return s.substr(0, 10) + " " + s.substr(11, 2) + ":" + s.substr(14, 2) + ":" + s.substr(17, 2);
}

} // namespace

std::string ocsXmlText(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s.data());
    const std::size_t n = s.size();
    for (std::size_t i = 0; i < n;) {
        unsigned c = p[i];
        if (c < 0x80) {
            if (c >= 0x20 || c == '\t' || c == '\n' || c == '\r') out += static_cast<char>(c);
            ++i;
            continue;
        }
        std::size_t len = c >= 0xF0 && c <= 0xF4  ? 4
                          : c >= 0xE0             ? 3
                          : c >= 0xC2 && c < 0xE0 ? 2
                                                  : 0;
        unsigned cp = len == 4 ? c & 0x07 : len == 3 ? c & 0x0F : c & 0x1F;
        bool ok = len != 0 && i + len <= n;
        for (std::size_t k = 1; ok && k < len; ++k) {
            ok = (p[i + k] & 0xC0) == 0x80;
            cp = cp << 6 | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates, values past U+10FFFF and the two non-characters
        // XML excludes.
        ok = ok && !(len == 3 && cp < 0x800) && !(len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) &&
             !(cp >= 0xD800 && cp <= 0xDFFF) && cp != 0xFFFE && cp != 0xFFFF;
        if (ok) {
            out.append(s, i, len);
            i += len;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

unsigned long ocsChecksum(const Json& scan) {
    unsigned long sum = OCS_HARDWARE;
    if (table(scan, 24) || table(scan, 1)) sum |= OCS_BIOS;
    if (table(scan, 31)) sum |= OCS_MEMORIES;
    if (table(scan, 5)) sum |= OCS_STORAGES;
    if (table(scan, 27)) sum |= OCS_DRIVES;
    if (table(scan, 7)) sum |= OCS_NETWORKS;
    if (table(scan, 44)) sum |= OCS_CPUS;
    return sum;
}

std::string ocsInventory(const Json& scan, const std::string& deviceId) {
    pugi::xml_document doc;
    pugi::xml_node decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    pugi::xml_node request = doc.append_child("REQUEST");
    pugi::xml_node content = request.append_child("CONTENT");

    const std::vector<Row> smbios = rows(scan, 24), component = rows(scan, 1),
                           memory = rows(scan, 3), ipv4 = rows(scan, 6), ipv6 = rows(scan, 51),
                           os = rows(scan, 4), cpuRows = rows(scan, 44);
    const Row none;
    const Row& s = smbios.empty() ? none : smbios[0];
    const Row& c = component.empty() ? none : component[0];

    // Processors with at least one fact; a row of unknowns says nothing.
    std::vector<const Row*> cpus;
    for (const Row& p : cpuRows)
        if (!known(text(p, "Manufacturer")).empty() || !text(p, "Brandname").empty() ||
            number(p, "CpuFreq") > 0 || number(p, "Core Per Package Count") > 0)
            cpus.push_back(&p);

    pugi::xml_node hw = content.append_child("HARDWARE");
    put(hw, "NAME", member(scan, "host"));
    if (!os.empty()) {
        const Row& o = os[0];
        put(hw, "OSNAME", text(o, "Name"));
        if (number(o, "Major Version") > 0) {
            std::string v = std::to_string(number(o, "Major Version")) + "." +
                            std::to_string(std::max(0LL, number(o, "Minor Version")));
            if (!text(o, "Sub Version").empty()) v += "." + text(o, "Sub Version");
            put(hw, "OSVERSION", v);
        }
        put(hw, "OSCOMMENTS", text(o, "Description String"));
        put(hw, "ARCH", text(o, "OS Arch"));
    }
    if (!cpus.empty()) {
        put(hw, "PROCESSORT", text(*cpus[0], "Brandname"));
        putNumber(hw, "PROCESSORS", number(*cpus[0], "CpuFreq"));
        putNumber(hw, "PROCESSORN", static_cast<long long>(cpus.size()));
    }
    if (!memory.empty()) {
        long long total = number(memory[0], "Total Physical"),
                  virt = number(memory[0], "Total Virtual");
        putNumber(hw, "MEMORY", total / 1024);
        if (total > 0 && virt > total) putNumber(hw, "SWAP", (virt - total) / 1024);
    }
    std::string dns, gateway, address, domain;
    for (const Row& r : ipv4) {
        for (const char* k : {"Primary DNS", "Secondary DNS"}) {
            const std::string d = text(r, k);
            if (!d.empty() && ("/" + dns + "/").find("/" + d + "/") == std::string::npos)
                dns += (dns.empty() ? "" : "/") + d;
        }
        if (gateway.empty()) gateway = text(r, "Gateway");
        if (address.empty()) address = text(r, "Address");
        if (domain.empty()) domain = text(r, "Domain");
    }
    put(hw, "IPADDR", address);
    put(hw, "DNS", dns);
    put(hw, "DEFAULTGATEWAY", gateway);
    put(hw, "WORKGROUP", domain);
    std::string uuid = text(c, "UUID");
    if (uuid.empty()) uuid = text(s, "System UUID");
    put(hw, "UUID", uuid);
    hw.append_child("CHECKSUM").text().set(std::to_string(ocsChecksum(scan)).c_str());

    if (!smbios.empty() || !component.empty()) {
        pugi::xml_node bios = content.append_child("BIOS");
        auto either = [&](const char* sm, const char* comp) {
            std::string v = text(s, sm);
            return v.empty() && comp ? text(c, comp) : v;
        };
        put(bios, "SMANUFACTURER", either("System Manufacturer", "Manufacturer"));
        put(bios, "SMODEL", either("System Product Name", "Product"));
        put(bios, "SSN", either("System Serial Number", "Serial Number"));
        put(bios, "TYPE", text(s, "Enclosure Type#text"));
        put(bios, "BMANUFACTURER", text(s, "BIOS Vendor"));
        // Not the component's version: on a Mac that is the SMC's, not the firmware's.
        put(bios, "BVERSION", text(s, "BIOS Version"));
        put(bios, "BDATE", text(s, "BIOS Date"));
        put(bios, "MMANUFACTURER", text(s, "Board Manufacturer"));
        put(bios, "MMODEL", text(s, "Board Product"));
        put(bios, "MSN", text(s, "Board Serial Number"));
        put(bios, "ASSETTAG", text(s, "Enclosure Asset Tag"));
        if (!bios.first_child()) content.remove_child(bios);
    }

    for (const Row* p : cpus) {
        pugi::xml_node e = content.append_child("CPUS");
        put(e, "MANUFACTURER", known(text(*p, "Manufacturer")));
        put(e, "TYPE", text(*p, "Brandname"));
        putNumber(e, "SPEED", number(*p, "CpuFreq"));
        const long long cores = number(*p, "Core Per Package Count"),
                        perCore = number(*p, "Logical Proc Per Core");
        putNumber(e, "CORES", cores);
        if (cores > 0 && perCore > 0) putNumber(e, "LOGICAL_CPUS", cores * perCore);
        putNumber(e, "L2CACHESIZE", number(*p, "L2 Cache Size"));
        if (text(*p, "Is64BitSupported") == "Y") put(e, "DATA_WIDTH", "64");
    }

    for (const Row& m : rows(scan, 31)) {
        pugi::xml_node e = content.append_child("MEMORIES");
        putNumber(e, "CAPACITY", number(m, "Module Size MB"));
        put(e, "CAPTION", text(m, "Socket Name"));
        put(e, "TYPE", known(text(m, "Memory Type")));
        putNumber(e, "NUMSLOTS", number(m, "Index"));
    }

    for (const Row& d : rows(scan, 5)) {
        pugi::xml_node e = content.append_child("STORAGES");
        put(e, "NAME", text(d, "Model"));
        put(e, "MODEL", text(d, "Model"));
        put(e, "TYPE", known(text(d, "Type#text")));
        putNumber(e, "DISKSIZE", number(d, "Total Size"));
        put(e, "SERIALNUMBER", text(d, "Serial Number"));
    }

    for (const Row& p : rows(scan, 27)) {
        pugi::xml_node e = content.append_child("DRIVES");
        put(e, "VOLUMN", text(p, "Device Name"));
        put(e, "TYPE", text(p, "FS Mount Point"));
        // The mount's own type where the scan knows it (Linux), else the code's name.
        const std::string own = partitionFsName(static_cast<unsigned long>(number(p, "Index")),
                                                text(p, "FS Mount Point").c_str());
        put(e, "FILESYSTEM", own.empty() ? known(text(p, "FS Type#text")) : own);
        // Kilobytes in the table, megabytes on the server.
        if (number(p, "FS Total Size") >= 0)
            put(e, "TOTAL", std::to_string(number(p, "FS Total Size") / 1024));
        if (number(p, "FS Free Size") >= 0)
            put(e, "FREE", std::to_string(number(p, "FS Free Size") / 1024));
    }

    // One entry per address of an adapter, as agents send them; an adapter without an
    // address still gets one. Addresses are found by interface (IPv6 rows name it) or
    // MAC, through an index: a host of 10,000 interfaces and 100,000 addresses.
    std::unordered_map<std::string, std::vector<std::size_t>> v4ByMac, v6ByName, v6ByMac;
    for (std::size_t k = 0; k < ipv4.size(); ++k)
        v4ByMac[text(ipv4[k], "Permanent Mac Address")].push_back(k);
    for (std::size_t k = 0; k < ipv6.size(); ++k) {
        const std::string ifname = text(ipv6[k], "Adapter Name");
        if (ifname.empty())
            v6ByMac[text(ipv6[k], "Permanent Mac Address")].push_back(k);
        else
            v6ByName[ifname].push_back(k);
    }
    static const std::vector<std::size_t> noRows;
    auto of = [](const std::unordered_map<std::string, std::vector<std::size_t>>& m,
                 const std::string& key) -> const std::vector<std::size_t>& {
        auto it = m.find(key);
        return it == m.end() ? noRows : it->second;
    };
    for (const Row& a : rows(scan, 7)) {
        const std::string model = text(a, "Model");
        std::string mac = text(a, "Permanent Address");
        if (!isMac(mac)) mac = text(a, "Current Address");
        if (!isMac(mac)) mac.clear();
        auto entry = [&]() {
            pugi::xml_node e = content.append_child("NETWORKS");
            put(e, "DESCRIPTION", model);
            put(e, "TYPE", known(text(a, "Type#text")));
            put(e, "MACADDR", mac);
            return e;
        };
        int n = 0;
        for (std::size_t k : mac.empty() ? noRows : of(v4ByMac, mac)) {
            const Row& r = ipv4[k];
            pugi::xml_node e = entry();
            put(e, "IPADDRESS", text(r, "Address"));
            put(e, "IPMASK", text(r, "Subnet"));
            put(e, "IPSUBNET", subnetOf(text(r, "Address"), text(r, "Subnet")));
            put(e, "IPGATEWAY", text(r, "Gateway"));
            ++n;
        }
        const std::size_t dash = model.find('-');
        std::vector<std::size_t> mine =
            dash == std::string::npos ? noRows : of(v6ByName, model.substr(dash + 1));
        if (!mac.empty()) {
            const std::vector<std::size_t>& byMac = of(v6ByMac, mac);
            mine.insert(mine.end(), byMac.begin(), byMac.end());
            std::sort(mine.begin(), mine.end()); // in the table's order
        }
        for (std::size_t k : mine) {
            const Row& r = ipv6[k];
            pugi::xml_node e = entry();
            put(e, "IPADDRESS", text(r, "Address"));
            put(e, "IPMASK", text(r, "Subnet"));
            put(e, "IPGATEWAY", text(r, "Gateway"));
            ++n;
        }
        if (n == 0) entry();
    }

    for (const Row& r : rows(scan, 20)) {
        const std::string when = logDate(text(r, "Scan Date"));
        if (!when.empty()) put(content.append_child("ACCESSLOG"), "LOGDATE", when);
    }
    put(content, "VERSIONCLIENT", "invscan_v" + member(scan, "version"));

    put(request, "DEVICEID", deviceId);
    put(request, "QUERY", "INVENTORY");

    std::ostringstream out;
    doc.save(out, "  ", pugi::format_indent | pugi::format_no_declaration, pugi::encoding_utf8);
    return out.str();
}

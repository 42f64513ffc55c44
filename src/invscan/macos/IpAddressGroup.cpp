// Both address groups walk the network services of the profiler snapshot; the
// IPv6 one takes its addresses from interface discovery, since the profiler lists
// only one per service. Reverse lookups may wait on a resolver that never
// answers: each is bounded, the group has a total budget, and an address asked once
// is not asked again for a minute. The bounds come from the configuration file: 0
// turns the lookups off, and larger values than MAX_TIMEOUT_MS and MAX_BUDGET_MS
// are taken as those. The configuration key "hwscanner.reverse_lookup" set to "off"
// turns them off too, and loopback and link-local addresses are never asked for:
// no name server knows them.
#include "invscan/IpAddressGroup.h"

#include "invscan/CcLog.h"
#include "invscan/HostFacts.h"
#include "invscan/IfInfo.h"
#include "invscan/KorCfg.h"
#include "invscan/MacInfo.h"
#include "invscan/ZelTableRow.h"
#include "invscan/host.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <map>
#include <string>
#include <utility>
#include <vector>
#include <sys/socket.h>

namespace {

const char* const SRC4 = "./../../../src/invscan/macos/IpAddressGroup";
const char* const SRC6 = "./../../../src/invscan/macos/Ipv6AddressGroup";
const char* const OP = "getTable()";

typedef std::chrono::steady_clock Clock;

struct Dns {
    std::string primary, secondary, fallback;
};

Dns dnsOf(VtNode* svc) {
    Dns d;
    VtNode* dns = svc->getChild("DNS", 0);
    if (!dns) return d;
    VtNode* servers = dns->getChild("ServerAddresses", 0);
    int found = 0;
    for (VtVariant* v = servers ? servers->values : nullptr; v && found < 2; v = v->next) {
        if (v->name && std::strcmp(v->name, "size") == 0) continue;
        if (v->type != VT_STRING) break;
        (found++ ? d.secondary : d.primary) = v->value.s ? v->value.s : "";
    }
    // The fallback domain is read from the server list, as it always has been.
    if (dns->getChild("SearchDomains", 0) && servers && servers->values &&
        servers->values->type == VT_STRING && servers->values->value.s)
        d.fallback = servers->values->value.s;
    return d;
}

// The longest a lookup and a group's lookups may take, whatever the configuration.
const unsigned long MAX_TIMEOUT_MS = 5000, MAX_BUDGET_MS = 30000;

// A bound in ms from the configuration: the default when absent or not a number, at
// most `most` (a value past the range of the type included).
unsigned long setting(const ZelGroup& g, const wchar_t* key, unsigned long dflt,
                      unsigned long most) {
    const wchar_t* v = g.getGlobalAttr(key);
    if (!v) return dflt;
    while (*v == L' ' || *v == L'\t')
        ++v;
    if (*v < L'0' || *v > L'9') return dflt; // wcstoul would take "-1" for a huge bound
    unsigned long n = std::wcstoul(v, nullptr, 10);
    return n < most ? n : most;
}

// Answers by address text, valid for a minute: one scan asks each address once.
struct Cached {
    std::string name;
    Clock::time_point when;
};
std::map<std::string, Cached>& cache() {
    static std::map<std::string, Cached>* c = new std::map<std::string, Cached>();
    return *c;
}

bool lookupsSwitchedOff() {
    const std::string v =
        KorCfg::getKey(String("hwscanner.reverse_lookup")).trim().toLowerCase().toMultiByte();
    return v == "off" || v == "no" || v == "false" || v == "0";
}

// 127/8, 169.254/16, ::1 and fe80::/10 (a v4-mapped loopback or link-local too).
bool neverAsked(const unsigned char* bin, unsigned len) {
    if (len == 16) {
        static const unsigned char loop6[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
        static const unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
        if (std::memcmp(bin, loop6, 16) == 0) return true;
        if (bin[0] == 0xfe && (bin[1] & 0xc0) == 0x80) return true;
        if (std::memcmp(bin, mapped, 12) != 0) return false;
        bin += 12;
    }
    return bin[0] == 127 || (bin[0] == 169 && bin[1] == 254);
}

// Interface and address of each row of the last IPv4 table of a Linux host.
std::vector<std::pair<std::string, std::string>>& rowInterfaces() {
    static std::vector<std::pair<std::string, std::string>> rows;
    return rows;
}

class ReverseLookup {
public:
    explicit ReverseLookup(const ZelGroup& g)
        : m_perAddress(setting(g, L"reverseLookupTimeout", 300, MAX_TIMEOUT_MS)),
          m_budget(setting(g, L"reverseLookupBudget", 1000, MAX_BUDGET_MS)) {}
    ~ReverseLookup() { host::setLookupTimeout(0); }

    // Host name and domain of an address; `fallback` is the domain without one.
    void resolve(const char* addr, int family, const std::string& fallback, std::string* hostName,
                 std::string* domain) {
        std::string name = lookup(addr, family);
        hostName->clear();
        *domain = fallback;
        if (name.empty()) return;
        std::size_t dot = name.find('.');
        *hostName = name.substr(0, dot);
        if (dot != std::string::npos) *domain = name.substr(dot + 1);
    }

    // Starts the lookup of an address not answered yet, so that the lookups of a
    // scan go on at once instead of one after another.
    void prefetch(const char* addr, int family) {
        if (off()) return;
        unsigned char bin[16];
        unsigned len = toBinary(addr, family, bin);
        if (!len || neverAsked(bin, len)) return;
        auto it = cache().find(std::to_string(family) + " " + addr);
        if (it != cache().end() && Clock::now() - it->second.when < std::chrono::minutes(1)) return;
        host::prefetchLookup(bin, len, family);
    }

private:
    bool off() const { return m_off || m_perAddress == 0 || m_budget == 0; }

    static unsigned toBinary(const char* addr, int family, unsigned char* bin) {
        if (family == AF_INET) {
            in_addr_t a = inet_addr(addr);
            std::memcpy(bin, &a, 4);
            return 4;
        }
        return inet_pton(AF_INET6, addr, bin) == 1 ? 16 : 0;
    }

    std::string lookup(const char* addr, int family) {
        unsigned char bin[16];
        unsigned len = off() ? 0 : toBinary(addr, family, bin);
        if (!len || neverAsked(bin, len)) return std::string();
        const std::string key = std::to_string(family) + " " + addr;
        const Clock::time_point now = Clock::now();
        auto it = cache().find(key);
        if (it != cache().end() && now - it->second.when < std::chrono::minutes(1))
            return it->second.name;
        long spent = static_cast<long>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now - m_start).count());
        if (spent < 0 || spent >= static_cast<long>(m_budget)) return std::string();
        unsigned long bound = m_perAddress;
        if (m_budget - static_cast<unsigned long>(spent) < bound)
            bound = m_budget - static_cast<unsigned long>(spent);
        host::setLookupTimeout(static_cast<unsigned>(bound));
        struct hostent* h = host::gethostbyaddr(bin, len, family);
        std::string name = h && h->h_name ? h->h_name : "";
        cache()[key] = Cached{name, Clock::now()};
        return name;
    }

    unsigned long m_perAddress, m_budget;
    bool m_off = lookupsSwitchedOff();
    Clock::time_point m_start = Clock::now();
};

ZelTableAttrib* text(unsigned long id, const std::string& s) {
    return new ZelTableAttrib(id, s.c_str());
}

} // namespace

ZelTable* IpAddressGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC4, OP, "hardware %s", "IpAddressGroup");
    VtExecInfo* info = MacInfo::getSysProf();
    if (!info || !info->tree) {
        log->traceMidExit(__LINE__, SRC4, OP, "hardware %s", "no system profiler snapshot");
        return nullptr;
    }
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    ReverseLookup lookups(*this);
    VtNode* net = MacInfo::getSection(info, "SPNetworkDataType");
    // Every address the services name, the IPv6 ones too for the group after this.
    for (VtNode* svc = net ? net->children : nullptr; svc; svc = svc->next) {
        const struct {
            const char* node;
            int family;
        } kinds[] = {{"IPv4", AF_INET}, {"IPv6", AF_INET6}};
        for (const auto& k : kinds) {
            VtNode* addrs = svc->getNode((std::string(k.node) + ".Addresses").c_str());
            for (VtVariant* a = addrs ? addrs->values : nullptr; a; a = a->next)
                if (a->type == VT_STRING && a->value.s) lookups.prefetch(a->value.s, k.family);
        }
    }
    unsigned long index = 1;
    const bool linuxHost = hostfacts::scannedHostIsLinux();
    rowInterfaces().clear();
    for (VtNode* svc = net ? net->children : nullptr; svc; svc = svc->next) {
        Dns dns = dnsOf(svc);
        const char* mac = svc->getValue("Ethernet", "MAC Address", "");
        VtNode* v4 = svc->getChild("IPv4", 0);
        if (!v4) continue;
        const char* method = v4->getValue("", "ConfigMethod", "");
        v4->getValue("", "InterfaceName", "");
        const char* router = v4->getValue("", "Router", "");
        const char* subnet = v4->getValue("SubnetMasks", "SubnetMasks", "");
        VtNode* addrs = v4->getChild("Addresses", 0);
        // Linux lists every address of an interface, each with its own mask.
        VtNode* masks = linuxHost ? v4->getChild("SubnetMasks", 0) : nullptr;
        VtVariant* mask = masks ? masks->values : nullptr;
        for (VtVariant* a = addrs ? addrs->values : nullptr; a;
             a = a->next, mask = mask ? mask->next : nullptr) {
            if (mask && mask->type == VT_STRING && mask->value.s) subnet = mask->value.s;
            if (a->type != VT_STRING || !a->value.s) continue;
            std::string hostName, domain;
            lookups.resolve(a->value.s, AF_INET, dns.fallback, &hostName, &domain);
            ZelTableRow* row = new ZelTableRow();
            row->addAttrib(new ZelTableAttrib(1UL, index++));
            row->addAttrib(new ZelTableAttrib(2UL, a->value.s));
            row->addAttrib(text(3UL, hostName));
            row->addAttrib(text(4UL, domain));
            row->addAttrib(new ZelTableAttrib(5UL, subnet));
            row->addAttrib(new ZelTableAttrib(6UL, router));
            row->addAttrib(text(7UL, dns.primary));
            row->addAttrib(text(8UL, dns.secondary));
            row->addAttrib(
                new ZelTableAttrib(9UL, std::strcmp(method, "Automatic") == 0 ? "Y" : "N"));
            row->addAttrib(new ZelTableAttrib(10UL, mac));
            table->addRow(row);
            if (linuxHost)
                rowInterfaces().emplace_back(svc->getValue("", "interface", ""), a->value.s);
        }
    }
    log->traceMidExit(__LINE__, SRC4, OP, "hardware %s", "IpAddressGroup");
    return table;
}

ZelTable* Ipv6AddressGroup::getTable() {
    CcLogWrapper* log = getCcLogHw();
    log->traceMidEntry(__LINE__, SRC6, OP, "hardware %s", "Ipv6AddressGroup");
    VtExecInfo* info = MacInfo::getSysProf();
    IfInfoList interfaces;
    populateIfInfoList(interfaces);
    if (!info || !info->tree) {
        log->traceMidExit(__LINE__, SRC6, OP, "hardware %s", "no system profiler snapshot");
        return nullptr;
    }
    ZelTable* table = new ZelTable(getGroupId(), getGroupVersion());
    ReverseLookup lookups(*this);
    VtNode* net = MacInfo::getSection(info, "SPNetworkDataType");
    unsigned long index = 1;
    const bool linuxHost = hostfacts::scannedHostIsLinux();
    for (VtNode* svc = net ? net->children : nullptr; svc; svc = svc->next) {
        Dns dns = dnsOf(svc);
        const char* mac = svc->getValue("Ethernet", "MAC Address", "");
        const char* ifname = svc->getValue("", "interface", "");
        VtNode* v6 = svc->getChild("IPv6", 0);
        if (!v6) {
            log->traceMAX(__LINE__, SRC6, OP, "hardware no ipv6 support on interface [%s]", ifname);
            continue;
        }
        const char* router = v6->getValue("", "Router", "");
        IfInfo* found = interfaces.find(ifname);
        if (!found) {
            log->traceMAX(__LINE__, SRC6, OP, "hardware no ifconfig support for [%s]", ifname);
            continue;
        }
        for (const IPv6_entry& e : found->ipv6List)
            lookups.prefetch(e.address.c_str(), AF_INET6);
        for (const IPv6_entry& e : found->ipv6List) {
            std::string hostName, domain;
            lookups.resolve(e.address.c_str(), AF_INET6, dns.fallback, &hostName, &domain);
            ZelTableRow* row = new ZelTableRow();
            row->addAttrib(new ZelTableAttrib(1UL, index++));
            row->addAttrib(text(2UL, e.address));
            row->addAttrib(text(3UL, hostName));
            row->addAttrib(text(4UL, domain));
            row->addAttrib(text(5UL, e.prefixLength));
            row->addAttrib(new ZelTableAttrib(6UL, router));
            row->addAttrib(text(7UL, dns.primary));
            row->addAttrib(text(8UL, dns.secondary));
            row->addAttrib(new ZelTableAttrib(9UL, mac));
            // Unique-local addresses (fc00::/7) are routed like global ones.
            std::string scope = e.scope;
            if (linuxHost && scope.empty() && e.address.size() > 2 &&
                (e.address[0] == 'f' || e.address[0] == 'F') &&
                (e.address[1] == 'c' || e.address[1] == 'd' || e.address[1] == 'C' ||
                 e.address[1] == 'D'))
                scope = "global";
            row->addAttrib(text(10UL, scope));
            row->addAttrib(new ZelTableAttrib(11UL, ifname));
            table->addRow(row);
        }
    }
    log->traceMidExit(__LINE__, SRC6, OP, "hardware %s", "Ipv6AddressGroup");
    return table;
}

std::string ipAddressInterface(unsigned long index, const char* address) {
    const auto& rows = rowInterfaces();
    if (index < 1 || index > rows.size() || !address) return std::string();
    const auto& r = rows[index - 1];
    return r.second == address ? r.first : std::string();
}

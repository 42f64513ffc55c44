// Network interface discovery: the interface-configuration command's text parsed
// into one record per interface (IPv4 address, IPv6 addresses with prefix length
// and scope, hardware address), the resolver file's name servers and domain, and
// the small conversions the address groups need.
#ifndef INVSCAN_IFINFO_H
#define INVSCAN_IFINFO_H

#include "invscan_export.h"

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

// Appended to the interface commands; a host agent may change it.
extern "C" INVSCAN_API char StdErrRedir[64];

struct INVSCAN_API IPv6_entry {
    std::string address; // as printed, without a "%zone" suffix
    std::string scope;   // "global", "link", "site" or empty
    std::string prefixLength;
    int index = -1;    // set to -1 by the parser
    std::string extra; // left empty by the parser
};

struct INVSCAN_API IfInfo {
    char* name = nullptr;
    char* description = nullptr; // not filled by the parser
    char* flags = nullptr;       // not filled by the parser
    char* ipv4 = nullptr;
    char* ipv6 = nullptr;    // the last IPv6 address seen
    char* mac = nullptr;     // canonical form when it converts
    char* netmask = nullptr; // the four below are not filled by the parser
    char* broadcast = nullptr;
    char* media = nullptr;
    char* status = nullptr;
    std::vector<IPv6_entry> ipv6List;

    IfInfo() = default;
    ~IfInfo() { clear(); }
    IfInfo(const IfInfo& o);
    IfInfo& operator=(const IfInfo& o);
    void clear();
};

class INVSCAN_API IfInfoList {
public:
    IfInfoList() = default;
    ~IfInfoList();
    IfInfoList(const IfInfoList&) = delete;
    IfInfoList& operator=(const IfInfoList&) = delete;

    // Merges into the record of the same name or appends a copy; non-zero when it
    // appended. A record without name and addresses is ignored.
    int add(const IfInfo& info);
    IfInfo* get(int i) const;
    // The first record of that name, or null.
    IfInfo* find(const char* name) const;
    int getCount() const { return m_count; }

private:
    IfInfo** m_items = nullptr;
    int m_count = 0;
    int m_capacity = 0;
    std::unordered_map<std::string, int> m_byName; // first record of each name
};

INVSCAN_API char* x_strdup(const char* s);
// Runs "ifconfig -a" and then "/sbin/ifconfig -a" and parses the second; the
// result is in the list's count (the return value is always -1).
INVSCAN_API int populateIfInfoList(IfInfoList& list);
// -1 for a null stream, else 0 at end of input.
INVSCAN_API int parse_ifconfig_unix(std::FILE* in, IfInfoList& list);
INVSCAN_API IfInfo* find_if(const char* name, const IfInfoList& list);
INVSCAN_API IfInfo* findIPv4(IfInfoList& list, const char* address);
// 0 when the text became six upper-case two-digit components; 1 leaves it as it was.
// The result can be longer than the text ("0:1:2:3:4:5"): `mac` must hold 18 bytes.
INVSCAN_API int convertMacToCanonical(char* mac);
INVSCAN_API int fixDigit(char* c);
INVSCAN_API std::string getScope(const char* address);
// From the resolver file: two name servers and the first "domain"; buffers of at
// least 1024 bytes, zero-filled by the caller. 0 when anything was found.
INVSCAN_API int getNameservers(char* first, char* second, char* domain);

#endif

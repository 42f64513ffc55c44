// The host's IP addresses, one row each: IPv4 from the network services of the
// system profiler snapshot, IPv6 from interface discovery joined to those services
// by interface name. Both add the name a reverse lookup gives, within bounds.
#ifndef INVSCAN_IPADDRESSGROUP_H
#define INVSCAN_IPADDRESSGROUP_H

#include "invscan_export.h"
#include "ZelTable.h"

#include <string>

class INVSCAN_API IpAddressGroup : public ZelGroup {
public:
    IpAddressGroup() : ZelGroup(ZEL_GROUP_IP_ADDRESS, 1) {}
    ZelTable* getTable() override;
};

class INVSCAN_API Ipv6AddressGroup : public ZelGroup {
public:
    Ipv6AddressGroup() : ZelGroup(ZEL_GROUP_IPV6_ADDRESS, 1) {}
    ZelTable* getTable() override;
};

// The interface (eth0, br0, ...) of row `index` of the last IP Address table built
// for a Linux host, when that row's address is `address`; empty otherwise.
INVSCAN_API std::string ipAddressInterface(unsigned long index, const char* address);

#endif

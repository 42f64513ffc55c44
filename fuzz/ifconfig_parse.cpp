// The interface-command parser over any output, read as the command's stream.
#include "invscan/IfInfo.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::FILE* f =
        fmemopen(const_cast<uint8_t*>(size ? data : reinterpret_cast<const uint8_t*>("")),
                 size ? size : 1, "r");
    if (!f) return 0;
    IfInfoList list;
    parse_ifconfig_unix(f, list);
    std::fclose(f);
    for (int i = 0; i < list.getCount(); ++i) {
        IfInfo* e = list.get(i);
        if (!e) std::abort();
        if (e->mac && std::strlen(e->mac) > 19) std::abort();
        for (const IPv6_entry& x : e->ipv6List)
            if (x.address.size() > 511 || x.index != -1) std::abort();
    }
    return 0;
}

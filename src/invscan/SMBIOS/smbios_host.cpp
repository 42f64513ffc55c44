#include "invscan/SMBIOS/smbios_host.h"

#include "invscan/HostFacts.h"
#include "invscan/host.h"

#include <cstdio>

bool linuxSmbiosTable(std::vector<unsigned char>* out) {
    out->clear();
    if (hostfacts::kernelName() != "Linux") return false;
    std::FILE* f = host::fopen("/sys/firmware/dmi/tables/DMI", "rb");
    if (!f) return false;
    // A structure table is at most 4 GiB by its entry point; real ones are some KiB.
    const std::size_t cap = 16u << 20;
    unsigned char buf[65536];
    std::size_t n;
    bool ok = true;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        if (out->size() + n > cap) {
            ok = false;
            break;
        }
        out->insert(out->end(), buf, buf + n);
    }
    ok = ok && !std::ferror(f) && !out->empty();
    std::fclose(f);
    if (!ok) out->clear();
    return ok;
}

// Memory modules from the SMBIOS structure table (memory devices, type 17), in the
// shape of the profiler's memory section, with each size also as a number of MB.
// The walk trusts no length byte: a structure that does not fit ends it.
#include "common/report/ReportVt.h"

#include <cstdint>
#include <cstring>

namespace report {
namespace {

std::string trim(const std::string& s) {
    std::size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return std::string();
    return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

const char* memoryType(unsigned t) {
    static const char* const names[] = {
        nullptr,        "Other",  "Unknown", "DRAM",
        "EDRAM",        "VRAM",   "SRAM",    "RAM",
        "ROM",          "Flash",  "EEPROM",  "FEPROM",
        "EPROM",        "CDRAM",  "3DRAM",   "SDRAM",
        "SGRAM",        "RDRAM",  "DDR",     "DDR2",
        "DDR2 FB-DIMM", nullptr,  nullptr,   nullptr,
        "DDR3",         "FBD2",   "DDR4",    "LPDDR",
        "LPDDR2",       "LPDDR3", "LPDDR4",  "Logical non-volatile device",
        "HBM",          "HBM2",   "DDR5",    "LPDDR5",
        "HBM3"};
    if (t < sizeof names / sizeof names[0] && names[t]) return names[t];
    return "Unknown";
}

} // namespace

void addMemoryModules(Node* sp, const std::string& t) {
    const unsigned char* b = reinterpret_cast<const unsigned char*>(t.data());
    std::size_t len = t.size(), off = 0;
    Node* wrap = nullptr;
    while (off + 4 <= len) {
        unsigned type = b[off], flen = b[off + 1];
        if (flen < 4 || off + flen > len) break;
        std::vector<std::string> strs;
        std::size_t p = off + flen;
        std::size_t start = p;
        bool ended = false;
        while (p + 1 < len) {
            if (b[p] == 0) {
                if (p > start)
                    strs.push_back(
                        std::string(reinterpret_cast<const char*>(b + start), p - start));
                if (b[p + 1] == 0) {
                    ended = true;
                    break;
                }
                start = p + 1;
            }
            ++p;
        }
        if (!ended) break;
        auto str = [&](std::size_t at) -> std::string {
            if (at >= flen) return std::string();
            unsigned i = b[off + at];
            return i >= 1 && i <= strs.size() ? trim(strs[i - 1]) : std::string();
        };
        auto word = [&](std::size_t at) -> unsigned {
            return at + 1 < flen ? static_cast<unsigned>(b[off + at] | (b[off + at + 1] << 8)) : 0u;
        };
        if (type == 17 && flen >= 0x15) {
            if (!wrap) {
                Node& dt = sp->addChild("SPMemoryDataType");
                wrap = &dt.addChild("SPMemoryDataType");
            }
            std::string bank = str(0x11), dev = str(0x10);
            Node& slot =
                wrap->addChild(bank.empty() ? (dev.empty() ? "DIMM" : dev) : bank + "/" + dev);
            unsigned size = word(0x0C);
            long long mb = 0;
            if (size == 0x7FFF && flen >= 0x20)
                mb = static_cast<long long>(b[off + 0x1C] | (b[off + 0x1D] << 8) |
                                            (b[off + 0x1E] << 16)) |
                     (static_cast<long long>(b[off + 0x1F] & 0x7F) << 24);
            else if (size != 0xFFFF)
                mb = (size & 0x8000) ? (size & 0x7FFF) / 1024 : size;
            bool empty = size == 0;
            // The number itself, so that the group need not read the text back.
            if (!empty) slot.addInt("dimm_size_mb", static_cast<std::int32_t>(mb));
            slot.addString("dimm_size", empty                  ? "Empty"
                                        : mb % 1024 == 0 && mb ? std::to_string(mb / 1024) + " GB"
                                                               : std::to_string(mb) + " MB");
            slot.addString("dimm_type", empty ? "Empty" : memoryType(b[off + 0x12]));
            unsigned speed = flen >= 0x17 ? word(0x15) : 0;
            slot.addString("dimm_speed", empty   ? "Empty"
                                         : speed ? std::to_string(speed) + " MHz"
                                                 : "Unknown");
            slot.addString("dimm_status", empty ? "empty" : "ok");
            if (!empty) {
                if (flen > 0x17) slot.addString("dimm_manufacturer", str(0x17));
                if (flen > 0x18) slot.addString("dimm_serial_number", str(0x18));
                if (flen > 0x1A) slot.addString("dimm_part_number", str(0x1A));
            }
        }
        if (type == 127) break;
        off = p + 2;
    }
}

} // namespace report

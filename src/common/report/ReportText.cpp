// The text forms: `system_profiler` text output and `ioreg -l` listings. Both are
// indentation trees; the text labels are mapped to the keys of the XML form so that
// a saved text report yields the same tree as the XML one would.
#include "common/report/Report.h"

#include <cstdlib>
#include <map>
#include <cstring>

namespace report {
namespace {

struct Line {
    int indent;
    std::string text; // without the indentation and the line end
};

std::vector<Line> splitLines(const char* data, std::size_t len) {
    std::vector<Line> out;
    std::size_t p = 0;
    while (p < len) {
        std::size_t e = p;
        while (e < len && data[e] != '\n')
            ++e;
        std::string l(data + p, e - p);
        p = e + 1;
        while (!l.empty() && (l.back() == '\r' || l.back() == '\0'))
            l.pop_back();
        int indent = 0;
        std::size_t i = 0;
        while (i < l.size() && (l[i] == ' ' || l[i] == '\t')) {
            indent = l[i] == '\t' ? (indent / 8 + 1) * 8 : indent + 1;
            ++i;
        }
        if (i == l.size()) continue;
        out.push_back(Line{indent, l.substr(i)});
    }
    return out;
}

std::string rtrim(const std::string& s) {
    std::size_t e = s.find_last_not_of(" \t");
    return e == std::string::npos ? std::string() : s.substr(0, e + 1);
}

// ---- system profiler text ----

struct Section {
    const char* title;
    const char* dataType;
};
const Section SECTIONS[] = {
    {"Hardware", "SPHardwareDataType"},
    {"Software", "SPSoftwareDataType"},
    {"Memory", "SPMemoryDataType"},
    {"Network", "SPNetworkDataType"},
    {"Serial-ATA", "SPSerialATADataType"},
    {"SATA/SATA Express", "SPSerialATADataType"},
    {"SATA", "SPSerialATADataType"},
    {"ATA", "SPParallelATADataType"},
    {"Parallel ATA", "SPParallelATADataType"},
    {"USB", "SPUSBDataType"},
    {"Audio (Built In)", "SPAudioDataType"},
    {"Audio", "SPAudioDataType"},
    {"Bluetooth", "SPBluetoothDataType"},
    {"Diagnostics", "SPDiagnosticsDataType"},
    {"Disc Burning", "SPDiscBurningDataType"},
    {"Ethernet Cards", "SPEthernetDataType"},
    {"FireWire", "SPFireWireDataType"},
    {"Graphics/Displays", "SPDisplaysDataType"},
    {"Power", "SPPowerDataType"},
    {"Printers", "SPPrintersDataType"},
    {"AirPort", "SPAirPortDataType"},
    {"Wi-Fi", "SPAirPortDataType"},
    {"Firewall", "SPFirewallDataType"},
    {"Locations", "SPNetworkLocationDataType"},
    {"Volumes", "SPNetworkVolumeDataType"},
    {"Universal Access", "SPUniversalAccessDataType"},
    {"PCI Cards", "SPPCIDataType"},
    {"PCI", "SPPCIDataType"},
    {"Card Reader", "SPCardReaderDataType"},
    {"Thunderbolt", "SPThunderboltDataType"},
    {"NVMExpress", "SPNVMeDataType"},
    {"Storage", "SPStorageDataType"},
    {"Fibre Channel", "SPFibreChannelDataType"},
    {"Parallel SCSI", "SPParallelSCSIDataType"},
    {"SAS", "SPSASDataType"},
};

std::string dataTypeOf(const std::string& title) {
    for (const Section& s : SECTIONS)
        if (title == s.title) return s.dataType;
    std::string n = "SP";
    for (char c : title)
        if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) n += c;
    return n + "DataType";
}

struct Label {
    const char* scope; // data type, or data type + "/" + node name for sub-nodes
    const char* label;
    const char* key;
    bool list; // comma-separated list -> array node
};

// Text labels and the XML keys they stand for.
const Label LABELS[] = {
    {"SPHardwareDataType", "Model Name", "machine_name", false},
    {"SPHardwareDataType", "Machine Name", "machine_name", false},
    {"SPHardwareDataType", "Model Identifier", "machine_model", false},
    {"SPHardwareDataType", "Machine Model", "machine_model", false},
    {"SPHardwareDataType", "Processor Name", "cpu_type", false},
    {"SPHardwareDataType", "CPU Type", "cpu_type", false},
    {"SPHardwareDataType", "Chip", "chip_type", false},
    {"SPHardwareDataType", "Processor Speed", "current_processor_speed", false},
    {"SPHardwareDataType", "CPU Speed", "current_processor_speed", false},
    {"SPHardwareDataType", "Number Of Processors", "packages", false},
    {"SPHardwareDataType", "Number Of CPUs", "packages", false},
    {"SPHardwareDataType", "Number of Processors", "packages", false},
    {"SPHardwareDataType", "Total Number Of Cores", "number_processors", false},
    {"SPHardwareDataType", "Total Number of Cores", "number_processors", false},
    {"SPHardwareDataType", "L2 Cache", "l2_cache", false},
    {"SPHardwareDataType", "L2 Cache (per CPU)", "l2_cache", false},
    {"SPHardwareDataType", "L2 Cache (per Core)", "l2_cache_core", false},
    {"SPHardwareDataType", "L3 Cache", "l3_cache", false},
    {"SPHardwareDataType", "Memory", "physical_memory", false},
    {"SPHardwareDataType", "Bus Speed", "bus_speed", false},
    {"SPHardwareDataType", "Boot ROM Version", "boot_rom_version", false},
    {"SPHardwareDataType", "System Firmware Version", "boot_rom_version", false},
    {"SPHardwareDataType", "OS Loader Version", "os_loader_version", false},
    {"SPHardwareDataType", "SMC Version", "SMC_version", false},
    {"SPHardwareDataType", "SMC Version (system)", "SMC_version_system", false},
    {"SPHardwareDataType", "Serial Number", "serial_number", false},
    {"SPHardwareDataType", "Serial Number (system)", "serial_number", false},
    {"SPHardwareDataType", "Hardware UUID", "platform_UUID", false},
    {"SPHardwareDataType", "Provisioning UDID", "provisioning_UDID", false},
    {"SPHardwareDataType", "Model Number", "model_number", false},
    {"SPHardwareDataType", "Activation Lock Status", "activation_lock_status", false},
    {"SPHardwareDataType", "Hyper-Threading Technology", "platform_cpu_htt", false},
    {"SPSoftwareDataType", "System Version", "os_version", false},
    {"SPSoftwareDataType", "Kernel Version", "kernel_version", false},
    {"SPSoftwareDataType", "Boot Volume", "boot_volume", false},
    {"SPSoftwareDataType", "Boot Mode", "boot_mode", false},
    {"SPSoftwareDataType", "Computer Name", "local_host_name", false},
    {"SPSoftwareDataType", "User Name", "user_name", false},
    {"SPSoftwareDataType", "Secure Virtual Memory", "secure_vm", false},
    {"SPSoftwareDataType", "System Integrity Protection", "system_integrity", false},
    {"SPSoftwareDataType", "64-bit Kernel and Extensions", "64bit_kernel_and_kexts", false},
    {"SPSoftwareDataType", "Time since boot", "uptime", false},
    {"SPMemoryDataType", "Size", "dimm_size", false},
    {"SPMemoryDataType", "Type", "dimm_type", false},
    {"SPMemoryDataType", "Speed", "dimm_speed", false},
    {"SPMemoryDataType", "Status", "dimm_status", false},
    {"SPMemoryDataType", "Manufacturer", "dimm_manufacturer", false},
    {"SPMemoryDataType", "Part Number", "dimm_part_number", false},
    {"SPMemoryDataType", "Serial Number", "dimm_serial_number", false},
    {"SPMemoryDataType", "ECC", "global_ecc_state", false},
    {"SPMemoryDataType", "Memory", "SPMemoryDataType", false},
    {"SPNetworkDataType", "Type", "type", false},
    {"SPNetworkDataType", "Hardware", "hardware", false},
    {"SPNetworkDataType", "BSD Device Name", "interface", false},
    {"SPNetworkDataType", "Has IP Assigned", "ip_assigned", false},
    {"SPNetworkDataType", "IPv4 Addresses", "ip_address", true},
    {"SPNetworkDataType", "Service Order", "spnetwork_service_order", false},
    {"SPNetworkDataType/IPv4", "Addresses", "Addresses", true},
    {"SPNetworkDataType/IPv4", "Configuration Method", "ConfigMethod", false},
    {"SPNetworkDataType/IPv4", "Interface Name", "InterfaceName", false},
    {"SPNetworkDataType/IPv4", "Router", "Router", false},
    {"SPNetworkDataType/IPv4", "Subnet Masks", "SubnetMasks", true},
    {"SPNetworkDataType/IPv4", "Network Signature", "NetworkSignature", false},
    {"SPNetworkDataType/IPv6", "Addresses", "Addresses", true},
    {"SPNetworkDataType/IPv6", "Configuration Method", "ConfigMethod", false},
    {"SPNetworkDataType/IPv6", "Interface Name", "InterfaceName", false},
    {"SPNetworkDataType/IPv6", "Router", "Router", false},
    {"SPNetworkDataType/IPv6", "Prefix Length", "PrefixLength", true},
    {"SPNetworkDataType/DNS", "Server Addresses", "ServerAddresses", true},
    {"SPNetworkDataType/DNS", "Search Domains", "SearchDomains", true},
    {"SPNetworkDataType/DNS", "Domain Name", "DomainName", false},
    {"SPNetworkDataType/Ethernet", "MAC Address", "MAC Address", false},
    {"SPNetworkDataType/Ethernet", "Media Options", "MediaOptions", true},
    {"SPNetworkDataType/Ethernet", "Media Subtype", "MediaSubType", false},
    {"SPNetworkDataType/Proxies", "Exceptions List", "ExceptionsList", true},
    {"SPNetworkDataType/Proxies", "FTP Passive Mode", "FTPPassive", false},
    {"SPSerialATADataType", "Capacity", "size", false},
    {"SPSerialATADataType", "Model", "device_model", false},
    {"SPSerialATADataType", "Revision", "device_revision", false},
    {"SPSerialATADataType", "Serial Number", "device_serial", false},
    {"SPSerialATADataType", "BSD Name", "bsd_name", false},
    {"SPSerialATADataType", "Removable Media", "removable_media", false},
    {"SPSerialATADataType", "Detachable Drive", "detachable_drive", false},
    {"SPSerialATADataType", "Medium Type", "spsata_medium_type", false},
    {"SPSerialATADataType", "Native Command Queuing", "spsata_ncq", false},
    {"SPSerialATADataType", "Queue Depth", "spsata_ncq_depth", false},
    {"SPSerialATADataType", "Partition Map Type", "partition_map_type", false},
    {"SPSerialATADataType", "S.M.A.R.T. status", "smart_status", false},
    {"SPSerialATADataType", "Vendor", "spsata_vendor", false},
    {"SPSerialATADataType", "Product", "spsata_product", false},
    {"SPSerialATADataType", "Link Speed", "spsata_portspeed", false},
    {"SPSerialATADataType", "Negotiated Link Speed", "spsata_negotiatedlinkspeed", false},
    {"SPSerialATADataType", "Description", "spsata_portdescription", false},
    {"SPSerialATADataType", "Available", "free_space", false},
    {"SPSerialATADataType", "Mount Point", "mount_point", false},
    {"SPSerialATADataType", "File System", "file_system", false},
    {"SPSerialATADataType", "Writable", "writable", false},
    {"SPParallelATADataType", "Capacity", "size", false},
    {"SPParallelATADataType", "Model", "device_model", false},
    {"SPParallelATADataType", "Revision", "device_revision", false},
    {"SPParallelATADataType", "Serial Number", "device_serial", false},
    {"SPParallelATADataType", "BSD Name", "bsd_name", false},
    {"SPParallelATADataType", "Removable Media", "removable_media", false},
    {"SPParallelATADataType", "Detachable Drive", "detachable_drive", false},
    {"SPParallelATADataType", "Protocol", "protocol", false},
    {"SPParallelATADataType", "Unit Number", "unit_number", false},
    {"SPParallelATADataType", "Socket Type", "socket_type", false},
    {"SPUSBDataType", "Product ID", "a_product_id", false},
    {"SPUSBDataType", "Vendor ID", "b_vendor_id", false},
    {"SPUSBDataType", "Version", "c_bcd_device", false},
    {"SPUSBDataType", "Serial Number", "d_serial_num", false},
    {"SPUSBDataType", "Speed", "e_device_speed", false},
    {"SPUSBDataType", "Manufacturer", "f_manufacturer", false},
    {"SPUSBDataType", "Location ID", "g_location_id", false},
    {"SPUSBDataType", "Current Available (mA)", "h_bus_power", false},
    {"SPUSBDataType", "Current Required (mA)", "j_bus_power_used", false},
    {"SPUSBDataType", "Capacity", "size", false},
    {"SPUSBDataType", "BSD Name", "bsd_name", false},
    {"SPUSBDataType", "Removable Media", "removable_media", false},
    {"SPUSBDataType", "Detachable Drive", "detachable_drive", false},
    {"SPUSBDataType", "Host Controller Location", "controller_location", false},
    {"SPUSBDataType", "Host Controller Driver", "host_controller", false},
    {"SPUSBDataType", "PCI Device ID", "pci_device", false},
    {"SPUSBDataType", "PCI Revision ID", "pci_revision", false},
    {"SPUSBDataType", "PCI Vendor ID", "pci_vendor", false},
    {"SPUSBDataType", "Bus Number", "usb_bus_number", false},
};

const Label* findLabel(const std::string& dataType, const std::string& node,
                       const std::string& label) {
    static const std::map<std::string, const Label*> index = [] {
        std::map<std::string, const Label*> m;
        for (const Label& l : LABELS)
            m.emplace(std::string(l.scope) + '\n' + l.label, &l);
        return m;
    }();
    // A sub-node's own label (IPv4 / Router) before the section's (Router).
    auto it = index.find(dataType + "/" + node + '\n' + label);
    if (it == index.end()) it = index.find(dataType + '\n' + label);
    return it == index.end() ? nullptr : it->second;
}

std::vector<std::string> splitList(const std::string& v) {
    std::vector<std::string> out;
    std::size_t p = 0;
    while (p <= v.size()) {
        std::size_t c = v.find(',', p);
        if (c == std::string::npos) c = v.size();
        std::string item = v.substr(p, c - p);
        std::size_t b = item.find_first_not_of(' ');
        item = b == std::string::npos ? std::string() : rtrim(item.substr(b));
        if (!item.empty()) out.push_back(item);
        p = c + 1;
    }
    return out;
}

// "320,07 GB (320 072 933 376 bytes)" -> "320.07 GB", the XML form of the size.
std::string normalizeSize(const std::string& v) {
    std::size_t open = v.find('(');
    std::size_t bytesAt = v.find("bytes", open == std::string::npos ? 0 : open);
    if (open != std::string::npos && bytesAt != std::string::npos) {
        std::uint64_t n = 0;
        bool any = false, overflow = false;
        for (std::size_t i = open + 1; i < bytesAt; ++i) {
            char c = v[i];
            if (c >= '0' && c <= '9') {
                if (n > (UINT64_MAX - 9) / 10) overflow = true;
                n = n * 10 + static_cast<unsigned>(c - '0');
                any = true;
            }
        }
        if (any && !overflow) return formatSize(n);
    }
    std::string s = rtrim(open == std::string::npos ? v : v.substr(0, open));
    for (char& c : s)
        if (c == ',') c = '.';
    return s;
}

// Names of the item headings that the XML form names by a key instead.
std::string itemName(const std::string& dataType, const std::string& title) {
    if (dataType == "SPHardwareDataType" && title == "Hardware Overview")
        return "hardware_overview";
    if (dataType == "SPSoftwareDataType" && title == "System Software Overview")
        return "os_overview";
    if (dataType == "SPMemoryDataType" && title == "Memory Slots") return dataType; // the wrapper
    return title;
}

struct Frame {
    int indent;
    Node* node;
    int depth; // 0 = section
};

} // namespace

bool sysprofFromText(const char* data, std::size_t len, Node* root) {
    std::vector<Line> lines = splitLines(data, len);
    Node* sp = nullptr;
    std::vector<Frame> stack;
    std::string dataType;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const Line& l = lines[i];
        std::string t = rtrim(l.text);
        std::size_t sep = t.find(": ");
        bool headerLike = sep == std::string::npos && !t.empty() && t.back() == ':';
        bool deeperNext = i + 1 < lines.size() && lines[i + 1].indent > l.indent;
        while (!stack.empty() && stack.back().indent >= l.indent)
            stack.pop_back();

        if (headerLike && l.indent == 0) { // a section
            if (!sp)
                sp = root->child("SystemProfiler") ? root->child("SystemProfiler")
                                                   : &root->addChild("SystemProfiler");
            dataType = dataTypeOf(t.substr(0, t.size() - 1));
            stack.clear();
            stack.push_back(Frame{0, &sp->addChild(dataType), 0});
            continue;
        }
        if (stack.empty()) continue; // text before the first section
        Frame& top = stack.back();
        if (headerLike && deeperNext) {
            if (static_cast<int>(stack.size()) > MAX_DEPTH) continue;
            std::string title = t.substr(0, t.size() - 1);
            std::string name = top.depth == 0 ? itemName(dataType, title) : title;
            Node* n = &top.node->addChild(name);
            stack.push_back(Frame{l.indent, n, top.depth + 1});
            continue;
        }
        std::string label, value;
        if (sep != std::string::npos) {
            label = t.substr(0, sep);
            value = l.text.substr(sep + 2);
            std::size_t b = value.find_first_not_of(' ');
            value = b == std::string::npos ? std::string() : value.substr(b);
        } else if (headerLike) {
            label = t.substr(0, t.size() - 1); // "Media Options:" with nothing after it
        } else {
            continue;
        }
        Node* target = top.node;
        if (top.depth == 0) {
            // Values straight under a section belong to an unnamed item.
            target = top.node->child(dataType);
            if (!target) target = &top.node->addChild(dataType);
        }
        const Label* m = findLabel(dataType, target->name, label);
        std::string key = m ? m->key : label;
        if (key == "size") value = normalizeSize(value);
        if (m && m->list)
            target->addList(key, splitList(value));
        else
            target->addString(key, value);
    }
    return sp != nullptr;
}

// ---- ioreg ----

namespace {

struct IoParser {
    const std::string& s;
    std::size_t p = 0;
    explicit IoParser(const std::string& text) : s(text) {}

    void ws() {
        while (p < s.size() && (s[p] == ' ' || s[p] == '\t'))
            ++p;
    }

    bool quoted(std::string* out) {
        if (p >= s.size() || s[p] != '"') return false;
        std::size_t e = s.find('"', p + 1);
        if (e == std::string::npos) return false;
        *out = s.substr(p + 1, e - p - 1);
        p = e + 1;
        return true;
    }

    static int hex(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    bool value(PValue* v, int depth) {
        if (depth > MAX_DEPTH) return false;
        ws();
        if (p >= s.size()) return false;
        char c = s[p];
        if (c == '"') {
            v->kind = PValue::STRING;
            return quoted(&v->text);
        }
        if (c == '<') {
            ++p;
            v->kind = PValue::DATA;
            ws();
            if (p < s.size() && s[p] == '"') {
                // Printable data is shown as its strings: <"a","b"> is "a\0b\0".
                for (;;) {
                    std::string part;
                    if (!quoted(&part)) return false;
                    v->text += part;
                    v->text.push_back('\0');
                    ws();
                    if (p < s.size() && s[p] == ',') {
                        ++p;
                        ws();
                        continue;
                    }
                    break;
                }
            } else {
                while (p + 1 < s.size() && hex(s[p]) >= 0 && hex(s[p + 1]) >= 0) {
                    v->text.push_back(static_cast<char>(hex(s[p]) * 16 + hex(s[p + 1])));
                    p += 2;
                }
            }
            ws();
            if (p >= s.size() || s[p] != '>') return false;
            ++p;
            return true;
        }
        if (c == '(') {
            ++p;
            v->kind = PValue::ARRAY;
            ws();
            if (p < s.size() && s[p] == ')') {
                ++p;
                return true;
            }
            for (;;) {
                PValue e;
                if (!value(&e, depth + 1)) return false;
                v->items.push_back(std::move(e));
                ws();
                if (p < s.size() && s[p] == ',') {
                    ++p;
                    continue;
                }
                if (p < s.size() && s[p] == ')') {
                    ++p;
                    return true;
                }
                return false;
            }
        }
        if (c == '{') {
            ++p;
            v->kind = PValue::DICT;
            ws();
            if (p < s.size() && s[p] == '}') {
                ++p;
                return true;
            }
            for (;;) {
                std::string key;
                ws();
                if (!quoted(&key)) return false;
                ws();
                if (p >= s.size() || s[p] != '=') return false;
                ++p;
                PValue e;
                if (!value(&e, depth + 1)) return false;
                v->dict.emplace_back(key, std::move(e));
                ws();
                if (p < s.size() && s[p] == ',') {
                    ++p;
                    continue;
                }
                if (p < s.size() && s[p] == '}') {
                    ++p;
                    return true;
                }
                return false;
            }
        }
        // Numbers, Yes / No, and the bare words of unserialisable objects.
        std::size_t b = p;
        while (p < s.size() && s[p] != ',' && s[p] != ')' && s[p] != '}')
            ++p;
        std::string word = s.substr(b, p - b);
        while (!word.empty() && word.back() == ' ')
            word.pop_back();
        if (word.empty()) return false;
        if (word == "Yes" || word == "No") {
            v->kind = PValue::BOOL;
            v->flag = word == "Yes";
            return true;
        }
        std::size_t d = word[0] == '-' ? 1 : 0;
        bool digits = d < word.size();
        for (std::size_t k = d; k < word.size() && digits; ++k)
            digits = word[k] >= '0' && word[k] <= '9';
        v->kind = digits ? PValue::INTEGER : PValue::STRING;
        v->text = word;
        return true;
    }
};

} // namespace

bool parseIoregValue(const std::string& text, PValue* out) {
    IoParser ps(text);
    *out = PValue();
    if (ps.value(out, 0)) {
        ps.ws();
        if (ps.p == text.size()) return true;
    }
    *out = PValue();
    out->kind = PValue::STRING;
    out->text = rtrim(text);
    return !out->text.empty();
}

bool iokitFromText(const char* data, std::size_t len, Node* root) {
    struct Entry {
        std::size_t col;
        Node* node;
    };
    Node tops;
    std::vector<Entry> stack;
    Node* current = nullptr;
    bool inProps = false;
    std::size_t p = 0;
    while (p < len) {
        std::size_t e = p;
        while (e < len && data[e] != '\n')
            ++e;
        std::string l(data + p, e - p);
        p = e + 1;
        while (!l.empty() && (l.back() == '\r' || l.back() == '\0'))
            l.pop_back();

        std::size_t o = l.find("+-o ");
        if (o != std::string::npos && l.find_first_not_of("| ") == o) {
            std::string rest = l.substr(o + 4);
            std::size_t cls = rest.rfind("  <class ");
            std::string name = rtrim(cls == std::string::npos ? rest : rest.substr(0, cls));
            while (!stack.empty() && stack.back().col >= o)
                stack.pop_back();
            if (stack.size() > static_cast<std::size_t>(MAX_DEPTH)) {
                current = nullptr;
                continue;
            }
            Node* parent = stack.empty() ? &tops : stack.back().node;
            current = &parent->addChild(name);
            if (cls != std::string::npos) {
                std::string c = rest.substr(cls + 9);
                std::size_t end = c.find_first_of(",>");
                current->addString("IOObjectClass", c.substr(0, end));
            }
            stack.push_back(Entry{o, current});
            inProps = false;
            continue;
        }
        std::size_t b = l.find_first_not_of("| ");
        if (b == std::string::npos) continue;
        std::string body = l.substr(b);
        if (body == "{") {
            inProps = current != nullptr;
            continue;
        }
        if (body == "}") {
            inProps = false;
            continue;
        }
        if (!inProps || body[0] != '"') continue;
        std::size_t eq = body.find("\" = ");
        if (eq == std::string::npos) continue;
        std::string key = body.substr(1, eq - 1);
        PValue v;
        if (parseIoregValue(body.substr(eq + 4), &v)) addPValue(current, key, v);
    }
    if (tops.children.empty()) return false;
    placeRegistry(root, std::move(tops));
    return true;
}

} // namespace report

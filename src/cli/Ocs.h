// The inventory in the XML an OCS Inventory NG server takes from its agents, made from
// the tables of a scan. As with the GLPI format, only what a table holds is given.
#ifndef INVSCAN_CLI_OCS_H
#define INVSCAN_CLI_OCS_H

#include <nlohmann/json.hpp>

#include <string>

// Bits of HARDWARE/CHECKSUM: the sections the server replaces with what is sent.
// A section whose group was read is flagged even when it has no rows, so that
// hardware taken out disappears from the server; one whose group could not be read
// is not, so that the server keeps what it had.
enum OcsSection : unsigned long {
    OCS_HARDWARE = 1,
    OCS_BIOS = 2,
    OCS_MEMORIES = 4,
    OCS_STORAGES = 256,
    OCS_DRIVES = 512,
    OCS_NETWORKS = 4096,
    OCS_CPUS = 262144,
};

// A whole INVENTORY request: REQUEST with CONTENT, DEVICEID and QUERY. `scan` is the
// front end's JSON object (tool, version, host, tables ...).
std::string ocsInventory(const nlohmann::ordered_json& scan, const std::string& deviceId);

// The value of HARDWARE/CHECKSUM that ocsInventory sends for `scan`.
unsigned long ocsChecksum(const nlohmann::ordered_json& scan);

// Text fit for XML 1.0: valid UTF-8 (a stray byte becomes U+FFFD) without the control
// characters XML forbids.
std::string ocsXmlText(const std::string& s);

#endif

// Change tracking between two JSON scans: rows matched by their group's key
// attributes, then what was added, removed and changed, attribute by attribute.
#ifndef INVSCAN_CLI_DIFF_H
#define INVSCAN_CLI_DIFF_H

#include <nlohmann/json.hpp>

#include <string>

// The largest scan a diff reads; past it the file is refused.
const std::size_t DIFF_MAX_INPUT = 64u << 20;

// Parses one scan; false with the reason in `why` when it is not one.
bool diffReadScan(const std::string& text, nlohmann::ordered_json* scan, std::string* why);

// The differences of two scans of the same format: {"format", "differences": [...]}.
// Values that change on every scan are left out unless `all`.
nlohmann::ordered_json diffScans(const nlohmann::ordered_json& oldScan,
                                 const nlohmann::ordered_json& newScan, bool all);

// One line a difference, and a last line with their count.
std::string diffText(const nlohmann::ordered_json& differences);

// The attributes left out without --all, as "Group: Attribute" lines for --help.
std::string diffVolatileList();

#endif

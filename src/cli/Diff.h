// Change tracking between two JSON scans: rows matched by their group's key
// attributes, then what was added, removed and changed, attribute by attribute.
#ifndef INVSCAN_CLI_DIFF_H
#define INVSCAN_CLI_DIFF_H

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

// The largest scan a diff reads; past it the file is refused.
const std::size_t DIFF_MAX_INPUT = 64u << 20;

// Deeper nesting is refused; a scan's own nesting is 5 levels.
const std::size_t DIFF_MAX_DEPTH = 512;
// A scan's tree may take this many times its size plus the slack in memory; real
// scans take 3 to 6 times their text, a hostile one of tiny values 30 times.
const std::size_t DIFF_MEMORY_FACTOR = 6;
const std::size_t DIFF_MEMORY_SLACK = 8u << 20;

// Parses one scan; false with the reason in `why` when it is not one (or when it is
// nested too deeply or would take more memory than the limits above allow).
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

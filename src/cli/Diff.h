// Change tracking between two JSON scans: rows paired by what identifies them (an
// address and its interface, a mount point, a disk's ID or serial ...), then what was
// added, removed and changed, attribute by attribute, and which groups only one scan
// has.
#ifndef INVSCAN_CLI_DIFF_H
#define INVSCAN_CLI_DIFF_H

#include <nlohmann/json.hpp>

#include <cstddef>
#include <iosfwd>
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

// The differences of two scans of the same format: {"format", "differences": [...]},
// each of a group's rows "removed", "added" or "changed", or the group "not scanned"
// in the scan it is "absent_from". Values that change on every scan are left out
// unless `all`.
nlohmann::ordered_json diffScans(const nlohmann::ordered_json& oldScan,
                                 const nlohmann::ordered_json& newScan, bool all);

// One line a difference, and a last line with their count.
std::string diffText(const nlohmann::ordered_json& differences);

// Writes what diffScans gives, dumped with an indent of two (`json`) or as diffText
// has it, one difference at a time as it is found, and returns their count: the
// differences of a large scan against one whose rows all went are never held whole.
std::size_t diffWrite(std::ostream& out, const nlohmann::ordered_json& oldScan,
                      const nlohmann::ordered_json& newScan, bool all, bool json);

// The attributes left out without --all, as "Group: Attribute" lines for --help.
std::string diffVolatileList();

#endif

// The readable view of a scan, the front end's default output: a header naming the
// host, then each group under its name, values with their units and enumerations by
// their texts. Made from the same JSON document that --format json prints.
#ifndef INVSCAN_CLI_VIEW_H
#define INVSCAN_CLI_VIEW_H

#include <nlohmann/json.hpp>

#include <memory>
#include <string>

// The widest line a table of columns may take; wider tables are shown as blocks.
constexpr std::size_t VIEW_WIDTH = 100;

// The view of `scan`, every line ended by a newline. Any document is accepted: keys
// that are missing or of the wrong type are left out, text is shown with control
// characters escaped and invalid UTF-8 replaced.
std::string readableView(const nlohmann::ordered_json& scan);
// The view in parts, for a scan printed as its tables come: the header (host,
// system from the Operating System table when the scan holds it, scan time) and one
// group.
std::string readableHeader(const nlohmann::ordered_json& scan);
// What the scan could not read without root, after the groups; empty when nothing.
std::string readableFooter(const nlohmann::ordered_json& scan);
std::string readableGroup(const nlohmann::ordered_json& table, bool linuxHost);

// One group's view made in two passes over its rows, so that a large table is never
// held as JSON nor as cells: every row is measured, then begin() writes the group's
// heading and writeRow() each row again, in the same order.
class ViewGroup {
public:
    ViewGroup(unsigned long id, const std::string& name, bool linuxHost);
    ~ViewGroup();
    ViewGroup(const ViewGroup&) = delete;
    ViewGroup& operator=(const ViewGroup&) = delete;
    void measureRow(const nlohmann::ordered_json& row);
    void begin(std::string* out);
    void writeRow(const nlohmann::ordered_json& row, std::string* out);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Unit of a numeric attribute ("KB", "MB", "bytes", "MHz", "seconds"), or null when
// its values are plain numbers.
const char* attributeUnit(unsigned long groupId, unsigned long attribId);

// `text` as one line for a terminal: control characters (C0, DEL, C1) and the
// characters that reorder or break lines escaped as \t, \n, \xHH or \u{HHHH}, invalid
// UTF-8 bytes replaced by U+FFFD.
std::string viewText(const std::string& text);

// Columns `text` takes on a terminal: wide (East Asian) characters count two,
// combining marks none. `text` must be valid UTF-8, as viewText makes it.
std::size_t viewWidth(const std::string& text);

#endif

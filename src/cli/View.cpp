#include "cli/View.h"
#include "invscan/PartitionGroup.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

// Group ids of the catalogue, as the JSON document carries them.
enum : unsigned long {
    GROUP_OPER_SYS = 4,
    GROUP_MEMORY = 3,
    GROUP_STORAGE = 5,
    GROUP_REGIONAL = 15,
    GROUP_PARTITION = 27,
    GROUP_MEMORY_MODULES = 31,
    GROUP_PHYS_PROC = 44,
};

struct Unit {
    unsigned long group, attrib;
    const char* name;
};

// What the groups store: memory and partition sizes in KB (sizes shifted by 10),
// modules in MB of 1024 KB, disks in MB of 1024 KB on a Mac and of 10^6 bytes on Linux,
// processor caches in KB, the clock in MHz.
const Unit UNITS[] = {
    {GROUP_MEMORY, 1, "KB"},         {GROUP_MEMORY, 2, "KB"},     {GROUP_MEMORY, 3, "KB"},
    {GROUP_MEMORY, 4, "KB"},         {GROUP_MEMORY, 5, "KB"},     {GROUP_MEMORY, 6, "KB"},
    {GROUP_MEMORY, 7, "bytes"},      {GROUP_MEMORY, 8, "MB"},     {GROUP_MEMORY_MODULES, 2, "MB"},
    {GROUP_MEMORY_MODULES, 3, "MB"}, {GROUP_STORAGE, 10, "MB"},   {GROUP_PARTITION, 5, "KB"},
    {GROUP_PARTITION, 9, "KB"},      {GROUP_PARTITION, 10, "KB"}, {GROUP_PHYS_PROC, 7, "MHz"},
    {GROUP_PHYS_PROC, 8, "KB"},      {GROUP_PHYS_PROC, 9, "KB"},  {GROUP_REGIONAL, 2, "seconds"},
};

const char* const INDENT = "  ";

// ---- text ---------------------------------------------------------------------------

void appendUtf8(char32_t c, std::string* out) {
    if (c < 0x80) {
        *out += static_cast<char>(c);
    } else if (c < 0x800) {
        *out += static_cast<char>(0xC0 | (c >> 6));
        *out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *out += static_cast<char>(0xE0 | (c >> 12));
        *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        *out += static_cast<char>(0xF0 | (c >> 18));
        *out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        *out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        *out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

// The code point starting at s[i] and its length; a length of 0 for a byte that
// does not start a well-formed sequence (overlong forms and surrogates included).
char32_t decode(const std::string& s, std::size_t i, std::size_t* len) {
    const auto b = [&](std::size_t k) { return static_cast<unsigned char>(s[i + k]); };
    const unsigned char c = b(0);
    *len = 0;
    if (c < 0x80) {
        *len = 1;
        return c;
    }
    std::size_t n;
    char32_t cp, min;
    if ((c & 0xE0) == 0xC0) {
        n = 2, cp = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        n = 3, cp = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        n = 4, cp = c & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (i + n > s.size()) return 0;
    for (std::size_t k = 1; k < n; ++k) {
        if ((b(k) & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (b(k) & 0x3F);
    }
    if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    *len = n;
    return cp;
}

// Characters that would break a row or turn the text around it on a terminal.
bool mustEscape(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

void appendEscaped(char32_t c, std::string* out) {
    char buf[16];
    switch (c) {
    case '\t':
        *out += "\\t";
        return;
    case '\n':
        *out += "\\n";
        return;
    case '\r':
        *out += "\\r";
        return;
    default:
        break;
    }
    if (c < 0x80)
        std::snprintf(buf, sizeof buf, "\\x%02X", static_cast<unsigned>(c));
    else
        std::snprintf(buf, sizeof buf, "\\u{%04X}", static_cast<unsigned>(c));
    *out += buf;
}

bool isCombining(char32_t c) {
    return (c >= 0x0300 && c <= 0x036F) || (c >= 0x0483 && c <= 0x0489) ||
           (c >= 0x0591 && c <= 0x05BD) || (c >= 0x0610 && c <= 0x061A) ||
           (c >= 0x064B && c <= 0x065F) || (c >= 0x1AB0 && c <= 0x1AFF) ||
           (c >= 0x1DC0 && c <= 0x1DFF) || (c >= 0x200B && c <= 0x200D) ||
           (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE00 && c <= 0xFE0F) ||
           (c >= 0xFE20 && c <= 0xFE2F) || c == 0xFEFF;
}

bool isWide(char32_t c) {
    return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0x303E) ||
           (c >= 0x3041 && c <= 0x33FF) || (c >= 0x3400 && c <= 0x4DBF) ||
           (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xA000 && c <= 0xA4CF) ||
           (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) ||
           (c >= 0xFE30 && c <= 0xFE4F) || (c >= 0xFF00 && c <= 0xFF60) ||
           (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
           (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
}

void pad(std::size_t n, std::string* out) {
    out->append(n, ' ');
}

// Ends the line, without the blanks that padding left at its end.
void endLine(std::string* out) {
    std::size_t e = out->size();
    while (e > 0 && (*out)[e - 1] == ' ')
        --e;
    out->resize(e);
    *out += '\n';
}

// ---- values -------------------------------------------------------------------------

std::string grouped(std::uint64_t v) {
    std::string digits = std::to_string(v), out;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

// `decimal`: a disk's MB of 10^6 bytes, shown again in GB and TB.
std::string withUnit(std::uint64_t v, const char* unit, bool decimal) {
    std::string out = grouped(v) + " " + unit;
    const std::string u = unit;
    char buf[48];
    if (decimal && u == "MB") {
        if (v < 1000) return out;
        const bool tera = v >= 1000000;
        std::snprintf(buf, sizeof buf, " (%.1f %s)", static_cast<double>(v) / (tera ? 1e6 : 1e3),
                      tera ? "TB" : "GB");
        out += buf;
    } else if (u == "KB" || u == "MB" || u == "bytes") {
        // The plain value says enough below 1024 of its own unit.
        if (v < 1024) return out;
        static const char* const BIN[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB", "ZiB"};
        double size = static_cast<double>(v);
        int k = u == "KB" ? 0 : u == "MB" ? 1 : -1;
        while (k < 6 && size >= 1024.0) {
            size /= 1024.0;
            ++k;
        }
        std::snprintf(buf, sizeof buf, " (%.1f %s)", size, BIN[k]);
        out += buf;
    } else if (u == "MHz" && v >= 1000) {
        std::snprintf(buf, sizeof buf, " (%.2f GHz)", static_cast<double>(v) / 1000.0);
        out += buf;
    }
    return out;
}

// "2026-11-23-21.37.48.000000", the catalogue's date and time, as "2026-11-23 21:37:48";
// any other text as it is.
std::string dateTime(const std::string& s) {
    static const char SHAPE[] = "dddd-dd-dd-dd.dd.dd.dddddd";
    if (s.size() != sizeof SHAPE - 1) return viewText(s);
    for (std::size_t i = 0; i < s.size(); ++i)
        if (SHAPE[i] == 'd' ? (s[i] < '0' || s[i] > '9') : s[i] != SHAPE[i]) return viewText(s);
    std::string out =
        s.substr(0, 10) + " " + s.substr(11, 2) + ":" + s.substr(14, 2) + ":" + s.substr(17, 2);
    if (s.compare(20, 6, "000000") != 0) out += "." + s.substr(20);
    return out;
}

std::string plain(const Json& v) {
    if (v.is_string()) return viewText(v.get_ref<const std::string&>());
    if (v.is_null()) return std::string();
    return viewText(v.dump());
}

struct Cell {
    std::string text;
    std::uint32_t width = 0;
    bool number = false; // a number without an enumeration text: shown flush right
};

Cell cellOf(unsigned long group, bool linuxHost, const Json& attr) {
    Cell c;
    const Json* text = attr.contains("text") ? &attr["text"] : nullptr;
    static const Json null;
    const Json& value = attr.contains("value") ? attr["value"] : null;
    if (text && text->is_string()) {
        c.text = viewText(text->get_ref<const std::string&>());
    } else if (value.is_number_unsigned() || value.is_number_integer()) {
        unsigned long id = attr.contains("id") && attr["id"].is_number_unsigned()
                               ? attr["id"].get<unsigned long>()
                               : 0;
        const char* unit = attributeUnit(group, id);
        if (unit && value.is_number_unsigned())
            c.text =
                withUnit(value.get<std::uint64_t>(), unit, linuxHost && group == GROUP_STORAGE);
        else
            c.text = value.dump();
        c.number = true;
    } else if (value.is_string()) {
        const std::string& s = value.get_ref<const std::string&>();
        // Fixed-width fields (ATA model names) come padded with blanks.
        const std::size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
        if (b != std::string::npos)
            c.text = dateTime(s.substr(b, e - b + 1)); // a build date is text of that shape
    } else if (value.is_array()) {
        for (const Json& w : value) {
            if (!c.text.empty()) c.text += ' ';
            c.text += plain(w);
        }
    } else {
        c.text = plain(value);
        c.number = value.is_number();
    }
    c.width = static_cast<std::uint32_t>(viewWidth(c.text));
    return c;
}

std::string nameOf(const Json& obj, const char* fallback) {
    if (obj.is_object() && obj.contains("name") && obj["name"].is_string()) {
        std::string n = viewText(obj["name"].get_ref<const std::string&>());
        if (!n.empty()) return n;
    }
    return fallback;
}

// ---- groups -------------------------------------------------------------------------

struct Column {
    std::string name;
    std::size_t nameWidth = 0;
    std::size_t width = 0; // of the widest non-empty cell
    bool used = false;
    bool number = true;
};

struct Placed {
    std::uint32_t column;
    Cell cell;
};

// A group's rows as columns or blocks. Rows are either kept (addRow, then write) or,
// for a table too large to hold twice, measured in one pass (measureRow) and written
// in a second (begin, then writeRow for each row again), so that only the columns'
// widths are held.
class Group {
public:
    Group(unsigned long id, bool linuxHost) : id_(id), linuxHost_(linuxHost) {}

    void addRow(const Json& row) {
        rows_.push_back(measureRow(row));
        // Rows of a large table are kept at their exact size: no spare capacity each.
        rows_.back().shrink_to_fit();
    }

    // Counts the row and widens its columns; its cells are given back.
    std::vector<Placed> measureRow(const Json& row) {
        std::vector<Placed> cells = cellsOf(row, true);
        ++count_;
        if (!cells.empty()) any_ = true;
        for (const Placed& p : cells) {
            Column& k = columns_[p.column];
            k.used = true;
            k.number = k.number && p.cell.number;
            if (p.cell.width > k.width) k.width = p.cell.width;
        }
        return cells;
    }

    std::size_t rowCount() const { return count_; }
    bool anyValue() const { return any_; }

    // Chooses columns or blocks once every row is measured: columns for more than one
    // row when they fit the width.
    void layOut() {
        pairWidth_ = 0;
        for (const Column& k : columns_)
            if (k.used && k.nameWidth > pairWidth_) pairWidth_ = k.nameWidth;
        shown_.clear();
        width_.assign(columns_.size(), 0);
        asTable_ = false;
        if (count_ < 2) return;
        std::size_t total = 0;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (!columns_[i].used) continue;
            width_[i] = std::max(columns_[i].width, columns_[i].nameWidth);
            total += (shown_.empty() ? std::char_traits<char>::length(INDENT) : 2) + width_[i];
            if (total > VIEW_WIDTH) {
                shown_.clear();
                return;
            }
            shown_.push_back(i);
        }
        asTable_ = true;
    }

    // The column names' line of a table; nothing for blocks.
    void writeHeading(std::string* out) const {
        if (!asTable_) return;
        writeLine(
            [&](std::size_t i, std::size_t* w) -> const std::string& {
                *w = columns_[i].nameWidth;
                return columns_[i].name;
            },
            out);
    }

    // One row, as a table line or as a block of "Name: value" lines.
    void writeCells(const std::vector<Placed>& row, std::string* out) {
        if (asTable_) {
            static const std::string none;
            line_.assign(columns_.size(), nullptr);
            for (const Placed& p : row)
                if (p.column < line_.size()) line_[p.column] = &p.cell;
            writeLine(
                [&](std::size_t i, std::size_t* w) -> const std::string& {
                    *w = line_[i] ? line_[i]->width : 0;
                    return line_[i] ? line_[i]->text : none;
                },
                out);
            return;
        }
        if (row.empty()) return;
        if (wroteBlock_) endLine(out);
        wroteBlock_ = true;
        for (const Placed& p : row) {
            const Column& k = columns_[p.column];
            *out += INDENT;
            *out += k.name;
            *out += ':';
            pad(pairWidth_ - k.nameWidth + 1, out);
            *out += p.cell.text;
            endLine(out);
        }
    }

    // The second pass over a measured row.
    void writeRow(const Json& row, std::string* out) { writeCells(cellsOf(row, false), out); }

    // The kept rows.
    void writeKept(std::string* out) {
        writeHeading(out);
        for (const auto& row : rows_)
            writeCells(row, out);
    }

private:
    template <typename Text> void writeLine(Text text, std::string* out) const {
        *out += INDENT;
        for (std::size_t n = 0; n < shown_.size(); ++n) {
            const std::size_t i = shown_[n];
            std::size_t w;
            const std::string& s = text(i, &w);
            if (n) pad(2, out);
            if (columns_[i].number) pad(width_[i] - w, out);
            *out += s;
            if (!columns_[i].number) pad(width_[i] - w, out);
        }
        endLine(out);
    }

    // The shown cells of a row; `grow` makes columns for attributes not seen before,
    // else such cells are dropped.
    std::vector<Placed> cellsOf(const Json& row, bool grow) {
        std::vector<Placed> cells;
        if (!row.is_array()) return cells;
        const std::string fsName = ownFsName(row);
        for (const Json& attr : row) {
            if (!attr.is_object()) continue;
            std::string name = nameOf(attr, "(unnamed)");
            if (name == "Index") continue; // the running row number
            const std::size_t col = columnOf(attr, name, grow);
            if (col == NO_COLUMN) continue;
            Cell c = cellOf(id_, linuxHost_, attr);
            if (!fsName.empty() && name == "FS Type") {
                // The mount's own type first; the catalogue's code, when it names one, after.
                c.text =
                    c.text.empty() || c.text == "UNKNOWN" ? fsName : fsName + " (" + c.text + ")";
                c.width = static_cast<std::uint32_t>(viewWidth(c.text));
                c.number = false;
            }
            if (c.text.empty()) continue;
            cells.push_back({static_cast<std::uint32_t>(col), std::move(c)});
        }
        return cells;
    }

    // A Linux mount's own file-system type (ext4, tmpfs, ...), which the Partition
    // table's FS Type code cannot tell.
    std::string ownFsName(const Json& row) const {
        if (id_ != GROUP_PARTITION || !linuxHost_) return std::string();
        unsigned long index = 0;
        const std::string* mountPoint = nullptr;
        for (const Json& attr : row) {
            if (!attr.is_object() || !attr.contains("name") || !attr.contains("value")) continue;
            const Json& v = attr["value"];
            if (attr["name"] == "Index" && v.is_number_unsigned()) index = v.get<unsigned long>();
            if (attr["name"] == "FS Mount Point" && v.is_string())
                mountPoint = &v.get_ref<const std::string&>();
        }
        return mountPoint ? viewText(partitionFsName(index, mountPoint->c_str())) : std::string();
    }

    static constexpr std::size_t NO_COLUMN = static_cast<std::size_t>(-1);

    std::size_t columnOf(const Json& attr, const std::string& name, bool grow) {
        const Json* id = attr.contains("id") ? &attr["id"] : nullptr;
        std::string key = id && id->is_number_unsigned() ? std::to_string(id->get<std::uint64_t>())
                                                         : "name:" + name;
        auto it = index_.find(key);
        if (it != index_.end()) return it->second;
        if (!grow) return NO_COLUMN;
        Column k;
        k.name = name;
        k.nameWidth = viewWidth(name);
        columns_.push_back(std::move(k));
        index_.emplace(std::move(key), columns_.size() - 1);
        return columns_.size() - 1;
    }

    unsigned long id_;
    bool linuxHost_;
    std::size_t count_ = 0;
    bool any_ = false;
    std::vector<Column> columns_;
    std::unordered_map<std::string, std::size_t> index_;
    std::vector<std::vector<Placed>> rows_;
    // the layout, once chosen
    bool asTable_ = false;
    bool wroteBlock_ = false;
    std::size_t pairWidth_ = 0;
    std::vector<std::size_t> shown_;
    std::vector<std::size_t> width_;
    std::vector<const Cell*> line_;
};

// The group's name line, or the whole view of a group without values; false when no
// rows follow.
bool groupHeading(const std::string& name, Group& g, std::string* out) {
    if (g.rowCount() == 0 || !g.anyValue()) {
        *out += name + (g.rowCount() == 0 ? ": none" : ": no values");
        endLine(out);
        return false;
    }
    *out += g.rowCount() == 1 ? name : name + " (" + grouped(g.rowCount()) + ")";
    endLine(out);
    g.layOut();
    return true;
}

// `linuxHost`: the scan is of a Linux host, whose disk sizes are in MB of 10^6 bytes
// (a Mac's in MB of 2^20).
void group(const Json& t, bool linuxHost, std::string* out) {
    const std::string name = nameOf(t, "(unnamed group)");
    const unsigned long id =
        t.contains("id") && t["id"].is_number_unsigned() ? t["id"].get<unsigned long>() : 0;
    *out += '\n';
    const Json status = t.contains("status") ? t["status"] : Json("ok");
    if (status != "ok") {
        *out += name + ": " + (status.is_string() ? plain(status) : std::string("unknown status"));
        endLine(out);
        return;
    }
    Group g(id, linuxHost);
    if (t.contains("rows") && t["rows"].is_array())
        for (const Json& row : t["rows"])
            g.addRow(row);
    if (groupHeading(name, g, out)) g.writeKept(out);
}

std::string stringAt(const Json& scan, const char* key) {
    if (!scan.is_object() || !scan.contains(key)) return std::string();
    return plain(scan[key]);
}

// The Operating System table's Name, or empty.
std::string systemName(const Json& scan) {
    if (!scan.is_object() || !scan.contains("tables") || !scan["tables"].is_array())
        return std::string();
    for (const Json& t : scan["tables"]) {
        if (!t.is_object() || !t.contains("id") ||
            t["id"] != static_cast<unsigned long>(GROUP_OPER_SYS))
            continue;
        if (t.value("status", Json("ok")) != "ok" || !t.contains("rows")) continue;
        const Json& rows = t["rows"];
        if (!rows.is_array() || rows.empty() || !rows[0].is_array()) continue;
        for (const Json& a : rows[0])
            if (a.is_object() && a.contains("id") && a["id"] == 1 && a.contains("value") &&
                a["value"].is_string())
                return viewText(a["value"].get_ref<const std::string&>());
    }
    return std::string();
}

// "2026-11-23T21:37:48Z" as "2026-11-23 21:37:48 UTC".
std::string scanTime(const std::string& s) {
    if (s.size() == 20 && s[10] == 'T' && s[19] == 'Z')
        return s.substr(0, 10) + " " + s.substr(11, 8) + " UTC";
    return s;
}

} // namespace

const char* attributeUnit(unsigned long groupId, unsigned long attribId) {
    for (const Unit& u : UNITS)
        if (u.group == groupId && u.attrib == attribId) return u.name;
    return nullptr;
}

std::string viewText(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t len;
        char32_t c = decode(text, i, &len);
        if (len == 0) {
            appendUtf8(0xFFFD, &out);
            ++i;
            continue;
        }
        if (mustEscape(c))
            appendEscaped(c, &out);
        else
            out.append(text, i, len);
        i += len;
    }
    return out;
}

std::size_t viewWidth(const std::string& text) {
    std::size_t w = 0;
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char b = static_cast<unsigned char>(text[i]);
        if (b < 0x80) { // the common case, without decoding
            ++w;
            ++i;
            continue;
        }
        std::size_t len;
        char32_t c = decode(text, i, &len);
        if (len == 0) {
            ++w; // shown as one replacement character
            ++i;
            continue;
        }
        w += isCombining(c) ? 0 : isWide(c) ? 2 : 1;
        i += len;
    }
    return w;
}

struct ViewGroup::Impl {
    Impl(unsigned long id, bool linuxHost) : group(id, linuxHost) {}
    std::string name;
    Group group;
    bool rowsFollow = false;
};

ViewGroup::ViewGroup(unsigned long id, const std::string& name, bool linuxHost)
    : impl_(new Impl(id, linuxHost)) {
    impl_->name = name;
}

ViewGroup::~ViewGroup() = default;

void ViewGroup::measureRow(const Json& row) {
    impl_->group.measureRow(row);
}

void ViewGroup::begin(std::string* out) {
    *out += '\n';
    impl_->rowsFollow = groupHeading(viewText(impl_->name), impl_->group, out);
    if (impl_->rowsFollow) impl_->group.writeHeading(out);
}

void ViewGroup::writeRow(const Json& row, std::string* out) {
    if (impl_->rowsFollow) impl_->group.writeRow(row, out);
}

std::string readableGroup(const Json& table, bool linuxHost) {
    std::string out;
    if (table.is_object()) group(table, linuxHost, &out);
    return out;
}

std::string readableView(const Json& scan) {
    std::string out = readableHeader(scan);
    const bool linuxHost = stringAt(scan, "kernel") == "Linux";
    if (scan.is_object() && scan.contains("tables") && scan["tables"].is_array())
        for (const Json& t : scan["tables"])
            if (t.is_object()) group(t, linuxHost, &out);
    return out + readableFooter(scan);
}

std::string readableHeader(const Json& scan) {
    std::string out;
    std::string host = stringAt(scan, "host");
    std::string system = systemName(scan);
    const std::string kernel = stringAt(scan, "kernel");
    if (system.empty()) system = kernel;
    std::string when = scanTime(stringAt(scan, "scan_time"));
    const std::string tool = stringAt(scan, "tool"), version = stringAt(scan, "version");
    if (!tool.empty()) when += " (" + tool + (version.empty() ? "" : " " + version) + ")";
    const char* const unknown = "unknown";
    out += "Host:    " + (host.empty() ? unknown : host);
    endLine(&out);
    out += "System:  " + (system.empty() ? unknown : system);
    endLine(&out);
    out += "Scanned: " + (when.empty() ? unknown : when);
    endLine(&out);
    return out;
}

std::string readableFooter(const Json& scan) {
    std::string out;
    // What a scan without root could not read, told apart from what the host lacks.
    if (scan.is_object() && scan.contains("needs_root") && scan["needs_root"].is_array() &&
        !scan["needs_root"].empty()) {
        std::string what;
        for (const Json& w : scan["needs_root"])
            if (w.is_string()) what += (what.empty() ? "" : ", ") + viewText(w.get<std::string>());
        out += "\nNot read: " + what + " (needs root)";
        endLine(&out);
    }
    return out;
}

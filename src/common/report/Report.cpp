// The tree, the XML property-list reader and the plist -> tree rules.
#include "common/report/Report.h"

#include <algorithm>

#include <pugixml.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace report {

const PValue* PValue::get(const std::string& key) const {
    for (const auto& kv : dict)
        if (kv.first == key) return &kv.second;
    return nullptr;
}

// ---- tree ----

// Names are capped so that a value line (name, type, value) always fits the dump
// reader's line buffer.
const std::size_t MAX_NAME = 1024;

std::string safeNodeName(const std::string& n) {
    std::string o = n.substr(0, MAX_NAME);
    for (char& c : o)
        if (c == '\n' || c == '\r' || c == '\0') c = ' ';
    return o;
}

static bool isAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

std::string safeValueName(const std::string& n) {
    // The dump reader takes a line that starts with anything but a letter or digit for
    // a node, comment or error, and splits a value line at its first ':'.
    std::size_t b = 0;
    while (b < n.size() && !isAlnum(n[b]))
        ++b;
    std::string o = n.substr(b, MAX_NAME);
    for (char& c : o)
        if (c == ':' || c == '=')
            c = '_';
        else if (c == '\n' || c == '\r' || c == '\0')
            c = ' ';
    return o.empty() ? std::string("value") : o;
}

static std::string oneLine(const std::string& s) {
    std::string o = s;
    for (char& c : o)
        if (c == '\n' || c == '\r') c = ' ';
    std::size_t nul = o.find('\0');
    if (nul != std::string::npos) o.resize(nul);
    if (o.size() > 100000) o.resize(100000);
    return o;
}

Node::Node(const std::string& n) : name(safeNodeName(n)) {}

Node& Node::addChild(const std::string& n) {
    children.emplace_back(n);
    return children.back();
}

void Node::addString(const std::string& n, const std::string& v) {
    Value x;
    x.name = safeValueName(n);
    x.type = 's';
    x.s = oneLine(v);
    values.push_back(x);
}

void Node::addInt(const std::string& n, std::int32_t v) {
    Value x;
    x.name = safeValueName(n);
    x.type = 'i';
    x.i = v;
    values.push_back(x);
}

void Node::addReal(const std::string& n, double v) {
    Value x;
    x.name = safeValueName(n);
    x.type = 'f';
    x.f = v;
    values.push_back(x);
}

void Node::addData(const std::string& n, const std::string& bytes) {
    if (bytes.size() > MAX_DATA) return;
    Value x;
    x.name = safeValueName(n);
    x.type = 'd';
    x.s = bytes;
    values.push_back(x);
}

void Node::addList(const std::string& n, const std::vector<std::string>& items) {
    Node& c = addChild(n);
    c.addInt("size", static_cast<std::int32_t>(items.size()));
    for (const auto& s : items)
        c.addString(n, s);
}

Node* Node::child(const std::string& n) {
    for (auto& c : children)
        if (c.name == n) return &c;
    return nullptr;
}

const Node* Node::child(const std::string& n) const {
    for (const auto& c : children)
        if (c.name == n) return &c;
    return nullptr;
}

const Value* Node::value(const std::string& n) const {
    for (const auto& v : values)
        if (v.name == n) return &v;
    return nullptr;
}

std::string Node::text(const std::string& path, const std::string& n) const {
    const Node* cur = this;
    std::size_t p = 0;
    while (cur && p < path.size()) {
        std::size_t d = path.find('.', p);
        if (d == std::string::npos) d = path.size();
        cur = cur->child(path.substr(p, d - p));
        p = d + 1;
    }
    if (!cur) return std::string();
    const Value* v = cur->value(n);
    return v && v->type == 's' ? v->s : std::string();
}

std::size_t Node::count() const {
    std::size_t n = 1;
    for (const auto& c : children)
        n += c.count();
    return n;
}

std::string formatSize(std::uint64_t bytes) {
    static const char* const units[] = {"bytes", "KB", "MB", "GB", "TB", "PB", "EB"};
    if (bytes < 1000) return std::to_string(bytes) + " bytes";
    double v = static_cast<double>(bytes);
    int u = 0;
    while (v >= 1000.0 && u < 6) {
        v /= 1000.0;
        ++u;
    }
    // system_profiler gives KB whole, MB with one decimal, GB and up with two, and
    // drops trailing zeros: "209.7 MB", "650 MB", "250.06 GB".
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", u <= 1 ? 0 : u == 2 ? 1 : 2, v);
    std::string s = buf;
    while (!s.empty() && s.back() == '0')
        s.pop_back();
    if (!s.empty() && s.back() == '.') s.pop_back();
    return s + " " + units[u];
}

// ---- XML property lists ----

static bool decodeBase64(const char* s, std::string* out) {
    static signed char table[256];
    static bool init = false;
    if (!init) {
        std::memset(table, -1, sizeof table);
        const char* a = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (int i = 0; i < 64; ++i)
            table[static_cast<unsigned char>(a[i])] = static_cast<signed char>(i);
        init = true;
    }
    out->clear();
    unsigned acc = 0;
    int bits = 0;
    for (; *s; ++s) {
        unsigned char c = static_cast<unsigned char>(*s);
        if (c == '=') break;
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') continue;
        if (table[c] < 0) return false;
        acc = (acc << 6) | static_cast<unsigned>(table[c]);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out->push_back(static_cast<char>((acc >> bits) & 0xFF));
        }
    }
    return true;
}

static std::string trimmed(const char* s) {
    std::string t = s ? s : "";
    std::size_t b = t.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return std::string();
    return t.substr(b, t.find_last_not_of(" \t\r\n") - b + 1);
}

static bool readXmlValue(const pugi::xml_node& n, PValue* out, int depth) {
    if (depth > MAX_DEPTH) return false;
    std::string tag = n.name();
    if (tag == "string") {
        out->kind = PValue::STRING;
        out->text = n.child_value();
    } else if (tag == "integer") {
        out->kind = PValue::INTEGER;
        out->text = trimmed(n.child_value());
    } else if (tag == "real") {
        out->kind = PValue::REAL;
        out->real = std::strtod(trimmed(n.child_value()).c_str(), nullptr);
    } else if (tag == "true" || tag == "false") {
        out->kind = PValue::BOOL;
        out->flag = tag == "true";
    } else if (tag == "date") {
        out->kind = PValue::DATE;
        out->text = trimmed(n.child_value());
    } else if (tag == "data") {
        out->kind = PValue::DATA;
        if (!decodeBase64(n.child_value(), &out->text)) out->text.clear();
    } else if (tag == "array") {
        out->kind = PValue::ARRAY;
        for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_element) continue;
            PValue v;
            if (readXmlValue(c, &v, depth + 1)) out->items.push_back(std::move(v));
        }
    } else if (tag == "dict") {
        out->kind = PValue::DICT;
        std::string key;
        bool haveKey = false;
        for (pugi::xml_node c = n.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_element) continue;
            if (std::strcmp(c.name(), "key") == 0) {
                key = c.child_value();
                haveKey = true;
                continue;
            }
            if (!haveKey) continue; // a value without its key is dropped
            PValue v;
            if (readXmlValue(c, &v, depth + 1)) out->dict.emplace_back(key, std::move(v));
            haveKey = false;
        }
    } else {
        return false;
    }
    return true;
}

namespace {
// What one tag of a property list, or one line of a text report, costs at most
// once parsed, converted and printed, whatever its length (a registry line becomes
// a node with its class and id, the dearest).
const double TAG_COST = 192, PROFILER_LINE_COST = 256, REGISTRY_LINE_COST = 768;

// Whether `items` of a report of `len` bytes fit in 8 times its size plus 16 MiB.
bool withinBudget(std::size_t items, double cost, std::size_t len) {
    return static_cast<double>(items) * cost <= 8.0 * static_cast<double>(len) + (16 << 20);
}
} // namespace

bool parsePlist(const char* data, std::size_t len, PValue* out, std::string* err) {
    // Every tag costs the parse and the value tree up to ITEM_COST bytes whatever
    // its text, so a report of tiny tags would cost many times its size: it is taken
    // only when that stays within 8 times its size plus 16 MiB, as real reports do.
    std::size_t tags = 0;
    for (const char* p = data;
         (p = static_cast<const char*>(std::memchr(p, '<', len - (p - data)))); ++p)
        ++tags;
    if (!withinBudget(tags, TAG_COST, len)) {
        if (err) *err = "XML: more tags than a report of its size holds";
        return false;
    }
    pugi::xml_document doc;
    pugi::xml_parse_result r =
        doc.load_buffer(data, len, pugi::parse_default | pugi::parse_ws_pcdata_single);
    if (!r) {
        if (err) *err = std::string("XML: ") + r.description();
        return false;
    }
    pugi::xml_node top = doc.child("plist");
    if (!top) {
        if (err) *err = "not a property list";
        return false;
    }
    for (pugi::xml_node c = top.first_child(); c; c = c.next_sibling()) {
        if (c.type() != pugi::node_element) continue;
        *out = PValue();
        if (readXmlValue(c, out, 0)) return true;
        break;
    }
    if (err) *err = "empty property list";
    return false;
}

// ---- plist -> tree ----

static bool isScalar(const PValue& v) {
    return v.kind != PValue::ARRAY && v.kind != PValue::DICT;
}

static void fillDict(Node* n, const PValue& dict, int depth) {
    for (const auto& kv : dict.dict)
        addPValue(n, kv.first, kv.second, depth + 1);
}

void addPValue(Node* parent, const std::string& key, const PValue& v, int depth) {
    if (depth > MAX_DEPTH) return;
    switch (v.kind) {
    case PValue::STRING:
    case PValue::DATE:
        parent->addString(key, v.text);
        break;
    case PValue::INTEGER: {
        errno = 0;
        char* end = nullptr;
        long long x = std::strtoll(v.text.c_str(), &end, 10);
        if (!errno && end && !*end && !v.text.empty() && x >= INT32_MIN && x <= INT32_MAX)
            parent->addInt(key, static_cast<std::int32_t>(x));
        else
            parent->addString(key, v.text);
        break;
    }
    case PValue::REAL:
        parent->addReal(key, v.real);
        break;
    case PValue::BOOL:
        parent->addInt(key, v.flag ? 1 : 0);
        break;
    case PValue::DATA:
        parent->addData(key, v.text);
        break;
    case PValue::DICT:
        fillDict(&parent->addChild(key), v, depth);
        break;
    case PValue::ARRAY: {
        Node& c = parent->addChild(key);
        bool scalars = true;
        for (const auto& e : v.items)
            scalars = scalars && isScalar(e);
        if (scalars) c.addInt("size", static_cast<std::int32_t>(v.items.size()));
        for (std::size_t i = 0; i < v.items.size(); ++i) {
            const PValue& e = v.items[i];
            if (isScalar(e)) {
                addPValue(&c, key, e, depth + 1);
            } else if (e.kind == PValue::DICT) {
                const PValue* nm = e.get("_name");
                std::string name = nm && nm->kind == PValue::STRING ? nm->text : std::to_string(i);
                fillDict(&c.addChild(name), e, depth + 1);
            } else {
                addPValue(&c, std::to_string(i), e, depth + 1);
            }
        }
        break;
    }
    }
}

// ---- system profiler ----

static bool isPlaceholder(const std::string& name) {
    return name.empty() || name.compare(0, 7, "global_") == 0;
}

static void addItems(Node* parent, const PValue& items, const std::string& dataType, int depth) {
    if (depth > MAX_DEPTH || items.kind != PValue::ARRAY) return;
    for (const PValue& e : items.items) {
        if (e.kind != PValue::DICT) continue;
        const PValue* nm = e.get("_name");
        std::string name = nm && nm->kind == PValue::STRING ? nm->text : std::string();
        Node& c = parent->addChild(isPlaceholder(name) ? dataType : name);
        for (const auto& kv : e.dict) {
            if (kv.first == "_items")
                addItems(&c, kv.second, dataType, depth + 1);
            else if (kv.first != "_name")
                addPValue(&c, kv.first, kv.second, depth + 1);
        }
    }
}

bool sysprofFromPlist(const PValue& plist, Node* root) {
    std::vector<const PValue*> types;
    if (plist.kind == PValue::ARRAY) {
        for (const auto& e : plist.items)
            if (e.kind == PValue::DICT) types.push_back(&e);
    } else if (plist.kind == PValue::DICT) {
        types.push_back(&plist);
    }
    Node* sp = nullptr;
    for (const PValue* t : types) {
        const PValue* dt = t->get("_dataType");
        if (!dt || dt->kind != PValue::STRING || dt->text.empty()) continue;
        if (!sp)
            sp = root->child("SystemProfiler") ? root->child("SystemProfiler")
                                               : &root->addChild("SystemProfiler");
        Node& n = sp->addChild(dt->text);
        for (const auto& kv : t->dict) {
            // Only the items are data; the other members (display properties, timing)
            // would pass for items with the groups that walk every child.
            if (kv.first == "_items")
                addItems(&n, kv.second, dt->text, 0);
            else if (isScalar(kv.second))
                addPValue(&n, kv.first, kv.second, 0);
        }
    }
    return sp != nullptr;
}

// ---- I/O registry ----

static void addEntry(Node* parent, const PValue& e, int depth) {
    if (depth > MAX_DEPTH || e.kind != PValue::DICT) return;
    const PValue* nm = e.get("IORegistryEntryName");
    if (!nm || nm->kind != PValue::STRING) nm = e.get("IOObjectClass");
    Node& c = parent->addChild(nm && nm->kind == PValue::STRING ? nm->text : std::string("entry"));
    for (const auto& kv : e.dict) {
        if (kv.first == "IORegistryEntryChildren" && kv.second.kind == PValue::ARRAY) {
            for (const PValue& ch : kv.second.items)
                addEntry(&c, ch, depth + 1);
        } else {
            addPValue(&c, kv.first, kv.second, depth + 1);
        }
    }
}

// Puts the top entries under IOKit: a lone "Root" stays the root, anything else (a
// filtered listing) is hung under a made-up "Root" so that paths from Root still work.
void placeRegistry(Node* root, Node&& tops) {
    Node& io = root->child("IOKit") ? *root->child("IOKit") : root->addChild("IOKit");
    if (tops.children.size() == 1 && tops.children[0].name == "Root") {
        io.children.push_back(std::move(tops.children[0]));
    } else {
        Node& r = io.addChild("Root");
        for (auto& c : tops.children)
            r.children.push_back(std::move(c));
    }
}

bool iokitFromPlist(const PValue& plist, Node* root) {
    Node tops;
    if (plist.kind == PValue::DICT) {
        addEntry(&tops, plist, 0);
    } else if (plist.kind == PValue::ARRAY) {
        for (const auto& e : plist.items)
            addEntry(&tops, e, 0);
    }
    if (tops.children.empty()) return false;
    placeRegistry(root, std::move(tops));
    return true;
}

// ---- detection ----

Format detectFormat(const char* data, std::size_t len) {
    std::size_t i = 0;
    if (len >= 3 && static_cast<unsigned char>(data[0]) == 0xEF) i = 3; // UTF-8 mark
    while (i < len && (data[i] == ' ' || data[i] == '\t' || data[i] == '\r' || data[i] == '\n'))
        ++i;
    if (i < len && data[i] == '<') return FORMAT_PLIST;
    // `ioreg -l` draws its tree with "+-o"; system_profiler text has "Title:" lines.
    std::size_t scan = len < 4096 ? len : 4096;
    for (std::size_t k = i; k + 2 < scan; ++k)
        if (data[k] == '+' && data[k + 1] == '-' && data[k + 2] == 'o') return FORMAT_IOREG_TEXT;
    for (std::size_t k = i; k < scan; ++k)
        if (data[k] == ':') return FORMAT_SP_TEXT;
    return FORMAT_UNKNOWN;
}

bool convertReport(const char* helper, const char* data, std::size_t len, Node* root,
                   std::string* err) {
    bool io = std::strcmp(helper, "iokit") == 0;
    Format f = detectFormat(data, len);
    if (f == FORMAT_PLIST) {
        PValue v;
        if (!parsePlist(data, len, &v, err)) return false;
        if (io ? iokitFromPlist(v, root) : sysprofFromPlist(v, root)) return true;
        if (err)
            *err = io ? "no registry entries in the property list"
                      : "no data types in the property list";
        return false;
    }
    if ((f == FORMAT_IOREG_TEXT || f == FORMAT_SP_TEXT) &&
        !withinBudget(static_cast<std::size_t>(std::count(data, data + len, '\n')),
                      f == FORMAT_IOREG_TEXT ? REGISTRY_LINE_COST : PROFILER_LINE_COST, len)) {
        if (err) *err = "more lines than a report of its size holds";
        return false;
    }
    if (f == FORMAT_IOREG_TEXT && io) {
        if (iokitFromText(data, len, root)) return true;
    } else if (f == FORMAT_SP_TEXT && !io) {
        if (sysprofFromText(data, len, root)) return true;
    }
    if (err) *err = io ? "not an I/O registry listing" : "not a system profiler report";
    return false;
}

} // namespace report

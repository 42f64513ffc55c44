// Conversion of the machine reports that the helper programs hand on: system
// profiler and I/O registry output (XML property lists, and the text forms of older
// Macs and saved reports) into one tree shape that the groups read.
//
// The converters build a small owned tree (report::Node); the helpers turn it into
// a variant tree and print it as a dump. Keeping the converters on their own tree
// lets tests and fuzzers run them without touching process-wide state.
#ifndef INVSCAN_REPORT_H
#define INVSCAN_REPORT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace report {

// A property-list value, as read from XML plists and from `ioreg -l` text.
struct PValue {
    enum Kind { STRING, INTEGER, REAL, BOOL, DATE, DATA, ARRAY, DICT };
    Kind kind = STRING;
    std::string text; // STRING, DATE, DATA bytes, INTEGER as decimal text
    double real = 0;
    bool flag = false;
    std::vector<PValue> items;                        // ARRAY
    std::vector<std::pair<std::string, PValue>> dict; // DICT, in document order

    const PValue* get(const std::string& key) const;
};

// One value of a tree node; type letters as in the dump: 'i', 's', 'f', 'd'.
struct Value {
    std::string name;
    char type = 's';
    std::int32_t i = 0;
    double f = 0;
    std::string s; // 's' text or 'd' bytes
};

// A tree node. Names are made safe for the dump on the way in: no line breaks; value
// names start with a letter or digit and hold no ':' or '='.
struct Node {
    std::string name;
    std::vector<Value> values;
    std::vector<Node> children;

    explicit Node(const std::string& n = std::string());
    Node& addChild(const std::string& n);
    void addString(const std::string& n, const std::string& v);
    void addInt(const std::string& n, std::int32_t v);
    void addReal(const std::string& n, double v);
    void addData(const std::string& n, const std::string& bytes);
    // Array of scalars: a child named `n` holding size:i=N and one value per element.
    void addList(const std::string& n, const std::vector<std::string>& items);

    Node* child(const std::string& n);
    const Node* child(const std::string& n) const;
    const Value* value(const std::string& n) const;
    // Dotted path lookup of a string value, "" when absent (for tests and tools).
    std::string text(const std::string& path, const std::string& n) const;
    std::size_t count() const; // nodes in this subtree, itself included
};

std::string safeNodeName(const std::string& n);
std::string safeValueName(const std::string& n);

// Data values longer than this are left out: the dump reader holds one line in a
// 100 KB buffer and a data value is written as hex on one line.
const std::size_t MAX_DATA = 50000;
// Nesting deeper than this is cut off (hostile input; real reports stay below 40).
const int MAX_DEPTH = 200;

// ---- parsers of outside input; none reads outside its buffer on any input ----

// XML property list (pugixml). False with a message when the text is not a plist.
bool parsePlist(const char* data, std::size_t len, PValue* out, std::string* err);
// One value in `ioreg -l` notation ("text", 12, Yes, <0a1b>, <"s">, (...), {...}).
bool parseIoregValue(const std::string& text, PValue* out);

// Which form a saved report has.
enum Format { FORMAT_UNKNOWN, FORMAT_PLIST, FORMAT_SP_TEXT, FORMAT_IOREG_TEXT };
Format detectFormat(const char* data, std::size_t len);

// system profiler: XML (array of data-type dicts) or text output, into `root`
// (gets the child "SystemProfiler"). False when nothing could be read.
bool sysprofFromPlist(const PValue& plist, Node* root);
bool sysprofFromText(const char* data, std::size_t len, Node* root);
// I/O registry: `ioreg -a -l` XML or `ioreg -l` text, into `root` (gets "IOKit"
// holding "Root").
bool iokitFromPlist(const PValue& plist, Node* root);
bool iokitFromText(const char* data, std::size_t len, Node* root);

// Detects the form and converts; `helper` is "sysprof" or "iokit".
bool convertReport(const char* helper, const char* data, std::size_t len, Node* root,
                   std::string* err);

// The plist -> tree value rules shared by both reports: a scalar becomes a value
// named `key`, a dict a child named `key`, an array a child named `key`.
void addPValue(Node* parent, const std::string& key, const PValue& v, int depth = 0);

// Hangs the top registry entries of `tops` under root/IOKit (a lone "Root" is the
// root; anything else goes under a made-up "Root").
void placeRegistry(Node* root, Node&& tops);

// "250.06 GB" style size from a byte count (decimal units, as system_profiler prints).
std::string formatSize(std::uint64_t bytes);

} // namespace report

#endif

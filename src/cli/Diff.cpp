#include "cli/Diff.h"

#include "invscan/ZelDefs.h"

#include <algorithm>
#include <functional>
#include <ostream>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

using Json = nlohmann::ordered_json;

namespace {

// What changes from one scan to the next on any host.
const struct {
    unsigned group;
    const char* attribute;
} VOLATILE[] = {{20, "Scan Date"},
                {20, "Build"},
                {3, "Free Physical"},
                {3, "Free Virtual"},
                {27, "FS Free Size"}};

bool isVolatile(unsigned group, const std::string& name) {
    for (const auto& v : VOLATILE)
        if (v.group == group && name == v.attribute) return true;
    return false;
}

// A row's attributes by id, pointing into the scan (which outlives the diff).
struct Attr {
    const Json* value;
    const std::string* name;
};
// A row's attributes, sorted by id (a row holds a dozen at most: a search is cheaper
// than a tree).
struct Row {
    std::vector<std::pair<unsigned, Attr>> values;
    const Attr* find(unsigned id) const {
        auto it = std::lower_bound(
            values.begin(), values.end(), id,
            [](const std::pair<unsigned, Attr>& v, unsigned k) { return v.first < k; });
        return it != values.end() && it->first == id ? &it->second : nullptr;
    }
};

const std::string& noName() {
    static const std::string n;
    return n;
}

const Json& nullJson() {
    static const Json n(nullptr);
    return n;
}

// What identifies a row of a group, tried in turn: rows one identity leaves unpaired
// may still pair by the next (an adapter whose hardware address changed keeps its
// name). A running Index is never one: it moves when a row before it comes or goes.
struct Identities {
    unsigned group;
    const char* names[3][2];
};
const Identities IDENTITIES[] = {
    {5, {{"ID"}, {"Serial Number"}}},
    // An interface with the same address and name, then either one (Model is the
    // interface's kind and name: "Ethernet-en0").
    {7, {{"Permanent Address", "Model"}, {"Permanent Address"}, {"Model"}}},
    {6, {{"Address", "Permanent Mac Address"}}},
    {51, {{"Address", "Adapter Name"}}},
    {27, {{"FS Mount Point"}}},
    {31, {{"Socket Name"}}},
    {44, {{"Id"}}},
};

typedef std::vector<unsigned> Identity; // attribute ids

// A group's identities as attribute ids; a group not listed above is identified by
// its catalog keys less Index. A group without any pairs its rows in order.
std::vector<Identity> identitiesOf(unsigned group) {
    std::vector<Identity> out;
    const zelGroupDef* def = getGroupDefinitionFromId(group);
    if (!def) return out;
    auto idOf = [def](const char* name) -> unsigned {
        for (const zelAttribDef* a = def->attribs; a && a->id != ZEL_DEF_END; ++a)
            if (std::string(a->name) == name) return a->id;
        return ZEL_DEF_END;
    };
    for (const Identities& g : IDENTITIES) {
        if (g.group != group) continue;
        for (const auto& names : g.names) {
            Identity id;
            for (const char* n : names)
                if (n && idOf(n) != ZEL_DEF_END) id.push_back(idOf(n));
            if (!id.empty()) out.push_back(id);
        }
        return out;
    }
    Identity keys;
    for (uint32_t i = 0; def->keys && i < def->keyCount && def->keys[i] != ZEL_DEF_END; ++i)
        if (def->keys[i] != idOf("Index")) keys.push_back(def->keys[i]);
    if (!keys.empty()) out.push_back(keys);
    return out;
}

bool blank(const Json& v) {
    return v.is_null() || (v.is_string() && v.get_ref<const std::string&>().find_first_not_of(
                                                ' ') == std::string::npos);
}

// An identity names a row when one of its values at least is there and not blank.
bool identifies(const Row& r, const Identity& keys) {
    for (unsigned id : keys) {
        const Attr* a = r.find(id);
        if (a && !blank(*a->value)) return true;
    }
    return false;
}

std::string keyOf(const Row& r, const Identity& keys) {
    std::string k;
    for (unsigned id : keys) {
        const Attr* a = r.find(id);
        // Texts as they are, marked apart from numbers; anything else as JSON.
        if (a && a->value->is_string())
            k += 's' + a->value->get_ref<const std::string&>();
        else
            k += a ? a->value->dump() : std::string("null");
        k += '\x1f';
    }
    return k;
}

Json keyJson(const Row& r, const Identity& keys) {
    Json k = Json::object();
    for (unsigned id : keys)
        if (const Attr* a = r.find(id)) k[*a->name] = *a->value;
    return k;
}

std::vector<Row> rowsOf(const Json& table) {
    std::vector<Row> out;
    if (!table.is_object() || !table.contains("rows") || !table["rows"].is_array()) return out;
    for (const Json& r : table["rows"]) {
        if (!r.is_array()) continue;
        Row row;
        row.values.reserve(r.size());
        for (const Json& a : r) {
            if (!a.is_object()) continue;
            auto i = a.find("id");
            if (i == a.end() || !i->is_number_unsigned()) continue;
            auto v = a.find("value");
            auto n = a.find("name");
            row.values.push_back(
                {i->get<unsigned>(),
                 {v != a.end() ? &*v : &nullJson(),
                  n != a.end() && n->is_string() ? &n->get_ref<const std::string&>() : &noName()}});
        }
        // By id; of an id given twice, the last one counts.
        std::stable_sort(row.values.begin(), row.values.end(),
                         [](const std::pair<unsigned, Attr>& a,
                            const std::pair<unsigned, Attr>& b) { return a.first < b.first; });
        auto last =
            std::unique(row.values.rbegin(), row.values.rend(),
                        [](const std::pair<unsigned, Attr>& a, const std::pair<unsigned, Attr>& b) {
                            return a.first == b.first;
                        });
        row.values.erase(row.values.begin(), last.base());
        out.push_back(std::move(row));
    }
    return out;
}

std::map<unsigned, const Json*> tablesById(const Json& scan) {
    std::map<unsigned, const Json*> t;
    for (const Json& table : scan["tables"])
        // A group asked for that gave no table ("no table", "not available") was
        // not scanned.
        if (table.is_object() && table.contains("id") && table["id"].is_number_unsigned() &&
            table.contains("rows") && table["rows"].is_array())
            t.emplace(table["id"].get<unsigned>(), &table);
    return t;
}

Json rowJson(const Row& r, unsigned group, bool all) {
    Json out = Json::object();
    for (const auto& v : r.values) {
        const std::string& name = *v.second.name;
        if (all || !isVolatile(group, name)) out[name] = *v.second.value;
    }
    return out;
}

} // namespace

namespace {

// Builds the tree from the parser's events, refusing nesting past DIFF_MAX_DEPTH and
// a tree that would take more than `limit` bytes. What each value costs is counted
// from the containers' real capacities, the growth of the one being filled and the
// stack the tree's destructor takes (one slot a value), so the refusal comes before
// the memory is spent rather than after.
class ScanBuilder {
public:
    ScanBuilder(Json* root, std::size_t limit, std::string* why)
        : m_root(root), m_limit(limit), m_why(why) {}

    bool null() { return put(Json(nullptr)); }
    bool boolean(bool v) { return put(Json(v)); }
    bool number_integer(Json::number_integer_t v) { return put(Json(v)); }
    bool number_unsigned(Json::number_unsigned_t v) { return put(Json(v)); }
    bool number_float(Json::number_float_t v, const std::string&) { return put(Json(v)); }
    bool string(std::string& v) {
        // The tree keeps a string on the heap, with its own text when that is long.
        if (!spend(sizeof(std::string) + HEAP + textCost(v))) return false;
        return put(Json(std::move(v)));
    }
    bool binary(Json::binary_t&) { return false; } // never in JSON text
    bool start_object(std::size_t) { return open(Json::object()); }
    bool key(std::string& k) {
        if (!spend(textCost(k))) return false;
        m_key = std::move(k);
        return true;
    }
    bool end_object() {
        Json::object_t& o = *m_stack.back()->get_ptr<Json::object_t*>();
        if (!uniqueKeys(o)) return false;
        return close(o.capacity() * sizeof(Json::object_t::value_type));
    }
    bool start_array(std::size_t) { return open(Json::array()); }
    bool end_array() {
        return close(m_stack.back()->get_ptr<Json::array_t*>()->capacity() * sizeof(Json));
    }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
        if (m_why->empty()) *m_why = "not JSON (or cut short)";
        return false;
    }

private:
    static const std::size_t HEAP = 16; // what the allocator adds to a block

    static std::size_t textCost(const std::string& s) {
        return s.capacity() > 15 ? s.capacity() + 1 + HEAP : 0;
    }

    bool spend(std::size_t bytes) {
        if (m_spent + m_open + bytes <= m_limit) {
            m_spent += bytes;
            return true;
        }
        if (m_why->empty())
            *m_why = "would take more than " + std::to_string(m_limit >> 20) +
                     " MiB in memory (the limit is " + std::to_string(DIFF_MEMORY_FACTOR) +
                     " times its size plus " + std::to_string(DIFF_MEMORY_SLACK >> 20) + " MiB)";
        return false;
    }

    // A container's buffer is counted while it is filled, and once more for the moment
    // it grows and both buffers are held.
    template <class Vec, class... Args> bool append(Vec& v, Args&&... args) {
        const std::size_t slot = sizeof(typename Vec::value_type);
        const std::size_t before = v.capacity();
        if (v.size() == before) {
            const std::size_t grown = before ? 2 * before : 1;
            if (m_spent + m_open + grown * slot > m_limit) return spend(grown * slot);
        }
        v.emplace_back(std::forward<Args>(args)...);
        m_open += (v.capacity() - before) * slot;
        return true;
    }

    bool put(Json&& v) {
        // The destructor moves each value to a stack of its own.
        if (!spend(sizeof(Json))) return false;
        if (m_stack.empty()) {
            *m_root = std::move(v);
            return true;
        }
        Json* top = m_stack.back();
        if (top->is_array()) return append(*top->get_ptr<Json::array_t*>(), std::move(v));
        // Straight onto the member list: the map's own insert looks for the key first,
        // which costs the square of the member count. Doubles are refused at the end.
        Json::object_t::Container& members = *top->get_ptr<Json::object_t*>();
        return append(members, std::move(m_key), std::move(v));
    }

    Json* lastPut() {
        if (m_stack.empty()) return m_root;
        Json* top = m_stack.back();
        if (top->is_array()) return &top->get_ptr<Json::array_t*>()->back();
        return &top->get_ptr<Json::object_t*>()->back().second;
    }

    bool open(Json&& container) {
        if (m_stack.size() >= DIFF_MAX_DEPTH) {
            *m_why = "nested deeper than " + std::to_string(DIFF_MAX_DEPTH) + " levels (the limit)";
            return false;
        }
        if (!spend(sizeof(Json::array_t) + HEAP) || !put(std::move(container))) return false;
        m_stack.push_back(lastPut());
        return true;
    }

    bool close(std::size_t buffer) {
        m_open -= buffer;
        m_spent += buffer;
        m_stack.pop_back();
        return true;
    }

    // One key twice in an object is no scan; small objects are searched in place, large
    // ones through a sorted list of their keys.
    bool uniqueKeys(const Json::object_t::Container& o) {
        bool twice = false;
        if (o.size() <= 16) {
            for (std::size_t i = 1; i < o.size() && !twice; ++i)
                for (std::size_t j = 0; j < i && !twice; ++j)
                    twice = o[i].first == o[j].first;
        } else {
            if (!spend(o.size() * sizeof(const std::string*))) return false;
            std::vector<const std::string*> keys;
            keys.reserve(o.size());
            for (const auto& m : o)
                keys.push_back(&m.first);
            std::sort(keys.begin(), keys.end(),
                      [](const std::string* a, const std::string* b) { return *a < *b; });
            twice = std::adjacent_find(keys.begin(), keys.end(),
                                       [](const std::string* a, const std::string* b) {
                                           return *a == *b;
                                       }) != keys.end();
            m_spent -= o.size() * sizeof(const std::string*);
        }
        if (twice) *m_why = "not an invscan JSON scan (an object names one key twice)";
        return !twice;
    }

    Json* m_root;
    const std::size_t m_limit;
    std::string* m_why;
    std::vector<Json*> m_stack; // the open containers, outermost first
    std::string m_key;
    std::size_t m_spent = 0; // closed containers and every value so far
    std::size_t m_open = 0;  // the buffers of the open containers
};

} // namespace

bool diffReadScan(const std::string& text, Json* scan, std::string* why) {
    if (text.size() > DIFF_MAX_INPUT) {
        *why = "larger than " + std::to_string(DIFF_MAX_INPUT >> 20) + " MiB";
        return false;
    }
    why->clear();
    *scan = Json();
    ScanBuilder builder(scan, DIFF_MEMORY_FACTOR * text.size() + DIFF_MEMORY_SLACK, why);
    if (!Json::sax_parse(text, &builder)) {
        *scan = Json();
        if (why->empty()) *why = "not JSON (or cut short)";
        return false;
    }
    if (!scan->is_object() || !scan->contains("format") || !(*scan)["format"].is_number_integer() ||
        !scan->contains("tables") || !(*scan)["tables"].is_array()) {
        *why = "not an invscan JSON scan (no format and tables)";
        return false;
    }
    return true;
}

namespace {

// Rows of one group paired across the scans, by the identity that paired them.
struct Pairing {
    struct Pair {
        const Row* before;
        const Row* after;
        const Identity* by; // null when paired in order
    };
    std::vector<Pair> both;
    std::vector<const Row*> removed, added;
};

Pairing pairRows(const std::vector<Row>& before, const std::vector<Row>& after,
                 const std::vector<Identity>& identities) {
    Pairing p;
    std::vector<bool> oldDone(before.size(), false), newDone(after.size(), false);
    // Of rows sharing one key, the first old pairs with the first new, and so on.
    struct Pending {
        std::vector<std::size_t> rows; // positions in `after`
        std::size_t next = 0;
    };
    for (const Identity& keys : identities) {
        std::unordered_map<std::string, Pending> newByKey;
        for (std::size_t i = 0; i < after.size(); ++i)
            if (!newDone[i] && identifies(after[i], keys))
                newByKey[keyOf(after[i], keys)].rows.push_back(i);
        if (newByKey.empty()) continue;
        for (std::size_t o = 0; o < before.size(); ++o) {
            if (oldDone[o] || !identifies(before[o], keys)) continue;
            auto it = newByKey.find(keyOf(before[o], keys));
            if (it == newByKey.end() || it->second.next == it->second.rows.size()) continue;
            const std::size_t n = it->second.rows[it->second.next++];
            oldDone[o] = newDone[n] = true;
            p.both.push_back({&before[o], &after[n], &keys});
        }
    }
    // Rows that nothing identifies (the one row of a group without keys, or a row
    // whose identifying values are all blank) pair in their order.
    auto anonymous = [&identities](const Row& r) {
        for (const Identity& keys : identities)
            if (identifies(r, keys)) return false;
        return true;
    };
    std::size_t n = 0;
    for (std::size_t o = 0; o < before.size(); ++o) {
        if (oldDone[o] || !anonymous(before[o])) continue;
        while (n < after.size() && (newDone[n] || !anonymous(after[n])))
            ++n;
        if (n == after.size()) break;
        oldDone[o] = newDone[n] = true;
        p.both.push_back({&before[o], &after[n], nullptr});
    }
    for (std::size_t o = 0; o < before.size(); ++o)
        if (!oldDone[o]) p.removed.push_back(&before[o]);
    for (std::size_t i = 0; i < after.size(); ++i)
        if (!newDone[i]) p.added.push_back(&after[i]);
    return p;
}

// What names a row on its own: its first identity that does.
Json keyJson(const Row& r, const std::vector<Identity>& identities) {
    for (const Identity& keys : identities)
        if (identifies(r, keys)) return keyJson(r, keys);
    return Json::object();
}

} // namespace

namespace {

// Hands each difference to `emit` as it is found.
void forEachDifference(const Json& oldScan, const Json& newScan, bool all,
                       const std::function<void(Json&&)>& emit) {
    const auto oldTables = tablesById(oldScan), newTables = tablesById(newScan);
    std::set<unsigned> groups;
    for (const auto& t : oldTables)
        groups.insert(t.first);
    for (const auto& t : newTables)
        groups.insert(t.first);
    for (unsigned group : groups) {
        auto o = oldTables.find(group), n = newTables.find(group);
        const zelGroupDef* def = getGroupDefinitionFromId(group);
        const std::string groupName = def ? def->name : std::to_string(group);
        // A group one scan did not cover says nothing of its rows.
        const bool inOld = o != oldTables.end(), inNew = n != newTables.end();
        if (inOld != inNew) {
            emit({{"group", groupName},
                  {"id", group},
                  {"change", "not scanned"},
                  {"absent_from", inOld ? "new" : "old"}});
            continue;
        }
        const std::vector<Row> before = rowsOf(*o->second), after = rowsOf(*n->second);
        const std::vector<Identity> identities = identitiesOf(group);
        const Pairing p = pairRows(before, after, identities);
        for (const auto& side : {std::make_pair("removed", &p.removed), {"added", &p.added}})
            for (const Row* r : *side.second)
                emit({{"group", groupName},
                      {"id", group},
                      {"change", side.first},
                      {"key", keyJson(*r, identities)},
                      {"row", rowJson(*r, group, all)}});
        for (const auto& pair : p.both) {
            Json attrs = Json::array();
            // Both rows list mostly the same attributes: the first's, then any the
            // second has alone.
            std::vector<unsigned> ids;
            ids.reserve(pair.before->values.size());
            for (const auto& v : pair.before->values)
                ids.push_back(v.first);
            for (const auto& v : pair.after->values)
                if (!pair.before->find(v.first)) ids.push_back(v.first);
            for (unsigned id : ids) {
                const Attr* a = pair.before->find(id);
                const Attr* b = pair.after->find(id);
                const Json& ov = a ? *a->value : nullJson();
                const Json& nv = b ? *b->value : nullJson();
                const std::string& name = a ? *a->name : *b->name;
                // Index only counts the rows before this one.
                if (ov == nv || (!all && isVolatile(group, name)) || name == "Index") continue;
                attrs.push_back({{"id", id}, {"name", name}, {"old", ov}, {"new", nv}});
            }
            if (!attrs.empty())
                emit({{"group", groupName},
                      {"id", group},
                      {"change", "changed"},
                      {"key", pair.by ? keyJson(*pair.before, *pair.by) : Json::object()},
                      {"attributes", attrs}});
        }
    }
}

// One difference as diffText gives it.
std::string differenceText(const Json& d) {
    std::string out = d["group"].get<std::string>() + ": " + d["change"].get<std::string>();
    if (d.contains("absent_from"))
        return out + " in the " + d["absent_from"].get<std::string>() + " scan\n";
    std::string key;
    for (const auto& k : d["key"].items())
        key += (key.empty() ? "" : ", ") + k.key() + "=" + k.value().dump();
    if (!key.empty()) out += " (" + key + ")";
    if (d.contains("attributes")) {
        for (const Json& a : d["attributes"])
            out += "\n    " + a["name"].get<std::string>() + ": " + a["old"].dump() + " -> " +
                   a["new"].dump();
    } else {
        for (const auto& v : d["row"].items())
            out += "\n    " + v.key() + ": " + v.value().dump();
    }
    return out + "\n";
}

std::string countText(std::size_t n) {
    return n == 0 ? std::string("no differences\n")
                  : std::to_string(n) + (n == 1 ? " difference\n" : " differences\n");
}

} // namespace

Json diffScans(const Json& oldScan, const Json& newScan, bool all) {
    Json differences = Json::array();
    forEachDifference(oldScan, newScan, all,
                      [&differences](Json&& d) { differences.push_back(std::move(d)); });
    Json out;
    out["format"] = oldScan["format"];
    out["differences"] = std::move(differences);
    return out;
}

std::size_t diffWrite(std::ostream& out, const Json& oldScan, const Json& newScan, bool all,
                      bool json) {
    std::size_t n = 0;
    if (json) out << "{\n  \"format\": " << oldScan["format"].dump() << ",\n  \"differences\": [";
    forEachDifference(oldScan, newScan, all, [&](Json&& d) {
        if (!json) {
            out << differenceText(d);
        } else {
            // As dump(2) nests it: two levels in. No line of a dump but the first
            // starts inside a string (a newline in one is written \n).
            std::string text = d.dump(2);
            for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 5)
                text.insert(at + 1, "    ");
            out << (n ? ",\n    " : "\n    ") << text;
        }
        ++n;
    });
    if (json)
        out << (n ? "\n  ]\n}\n" : "]\n}\n");
    else
        out << countText(n);
    return n;
}

std::string diffText(const Json& result) {
    std::string out;
    for (const Json& d : result["differences"])
        out += differenceText(d);
    return out + countText(result["differences"].size());
}

std::string diffVolatileList() {
    std::string s;
    for (const auto& v : VOLATILE) {
        const zelGroupDef* def = getGroupDefinitionFromId(v.group);
        s += std::string(s.empty() ? "" : ", ") + (def ? def->name : "?") + ": " + v.attribute;
    }
    return s;
}

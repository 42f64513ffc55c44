#include "cli/Diff.h"

#include "invscan/ZelDefs.h"

#include <algorithm>
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

// The attribute ids a group's rows are matched by: its keys, less "Index" when
// there are others, so that a new disk or mount does not shift every row after it.
std::vector<unsigned> matchKeys(unsigned group) {
    std::vector<unsigned> keys;
    const zelGroupDef* def = getGroupDefinitionFromId(group);
    if (!def || !def->keys) return keys;
    for (uint32_t i = 0; i < def->keyCount && def->keys[i] != ZEL_DEF_END; ++i)
        keys.push_back(def->keys[i]);
    if (keys.size() > 1) {
        std::vector<unsigned> rest;
        for (unsigned k : keys) {
            const zelAttribDef* a = getAttribDefinitionFromId(def, k);
            if (!a || std::string(a->name) != "Index") rest.push_back(k);
        }
        if (!rest.empty()) keys = rest;
    }
    return keys;
}

std::string keyOf(const Row& r, const std::vector<unsigned>& keys) {
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

Json keyJson(const Row& r, const std::vector<unsigned>& keys) {
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
        if (table.is_object() && table.contains("id") && table["id"].is_number_unsigned())
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

Json diffScans(const Json& oldScan, const Json& newScan, bool all) {
    Json differences = Json::array();
    const auto oldTables = tablesById(oldScan), newTables = tablesById(newScan);
    std::set<unsigned> groups;
    for (const auto& t : oldTables)
        groups.insert(t.first);
    for (const auto& t : newTables)
        groups.insert(t.first);
    for (unsigned group : groups) {
        auto o = oldTables.find(group), n = newTables.find(group);
        const std::vector<Row> before =
            o == oldTables.end() ? std::vector<Row>() : rowsOf(*o->second);
        const std::vector<Row> after =
            n == newTables.end() ? std::vector<Row>() : rowsOf(*n->second);
        const zelGroupDef* def = getGroupDefinitionFromId(group);
        const std::string groupName = def ? def->name : std::to_string(group);
        const std::vector<unsigned> keys = matchKeys(group);
        const zelAttribDef* indexDef = nullptr;
        for (const zelAttribDef* a = def ? def->attribs : nullptr; a && a->id != ZEL_DEF_END; ++a)
            if (std::string(a->name) == "Index") indexDef = a;
        const bool byIndex =
            indexDef && std::find(keys.begin(), keys.end(), indexDef->id) != keys.end();
        // New rows by key; a key met twice pairs its rows in order, so both stay apart.
        // Old rows are then taken in their order, and what is left of the new is added.
        auto keyFor = [&keys](const Row& r) {
            return keys.empty() ? std::string("row") : keyOf(r, keys);
        };
        struct Pending {
            std::vector<std::size_t> rows; // positions in `after`
            std::size_t next = 0;
        };
        std::unordered_map<std::string, Pending> newByKey;
        newByKey.reserve(after.size());
        for (std::size_t i = 0; i < after.size(); ++i)
            newByKey[keyFor(after[i])].rows.push_back(i);
        std::vector<const Row*> removed, added;
        std::vector<std::pair<const Row*, const Row*>> both;
        std::vector<bool> matched(after.size(), false);
        for (const Row& r : before) {
            auto it = newByKey.find(keyFor(r));
            if (it != newByKey.end() && it->second.next < it->second.rows.size()) {
                const std::size_t i = it->second.rows[it->second.next++];
                matched[i] = true;
                both.emplace_back(&r, &after[i]);
            } else {
                removed.push_back(&r);
            }
        }
        for (std::size_t i = 0; i < after.size(); ++i)
            if (!matched[i]) added.push_back(&after[i]);
        // A row whose key itself changed (a disk's serial is part of its ID) is still
        // the same row when it keeps its place: unmatched rows of the same Index pair up.
        if (indexDef) {
            for (auto r = removed.begin(); r != removed.end();) {
                auto same = added.end();
                const Attr* ri = (*r)->find(indexDef->id);
                for (auto a = added.begin(); a != added.end() && ri; ++a) {
                    const Attr* ai = (*a)->find(indexDef->id);
                    if (ai && *ai->value == *ri->value) same = a;
                }
                if (same == added.end()) {
                    ++r;
                    continue;
                }
                both.emplace_back(*r, *same);
                added.erase(same);
                r = removed.erase(r);
            }
        }
        for (const auto& side : {std::make_pair("removed", &removed), {"added", &added}})
            for (const Row* r : *side.second)
                differences.push_back({{"group", groupName},
                                       {"id", group},
                                       {"change", side.first},
                                       {"key", keyJson(*r, keys)},
                                       {"row", rowJson(*r, group, all)}});
        for (const auto& p : both) {
            Json attrs = Json::array();
            // Both rows list mostly the same attributes: the first's, then any the
            // second has alone.
            std::vector<unsigned> ids;
            ids.reserve(p.first->values.size());
            for (const auto& v : p.first->values)
                ids.push_back(v.first);
            for (const auto& v : p.second->values)
                if (!p.first->find(v.first)) ids.push_back(v.first);
            for (unsigned id : ids) {
                const Attr* a = p.first->find(id);
                const Attr* b = p.second->find(id);
                const Json& ov = a ? *a->value : nullJson();
                const Json& nv = b ? *b->value : nullJson();
                const std::string& name = a ? *a->name : *b->name;
                if (ov == nv || (!all && isVolatile(group, name)) || (name == "Index" && !byIndex))
                    continue;
                attrs.push_back({{"id", id}, {"name", name}, {"old", ov}, {"new", nv}});
            }
            if (!attrs.empty())
                differences.push_back({{"group", groupName},
                                       {"id", group},
                                       {"change", "changed"},
                                       {"key", keyJson(*p.first, keys)},
                                       {"attributes", attrs}});
        }
    }
    Json out;
    out["format"] = oldScan["format"];
    out["differences"] = differences;
    return out;
}

std::string diffText(const Json& result) {
    std::string out;
    for (const Json& d : result["differences"]) {
        out += d["group"].get<std::string>() + ": " + d["change"].get<std::string>();
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
        out += "\n";
    }
    const std::size_t n = result["differences"].size();
    out += n == 0 ? std::string("no differences\n")
                  : std::to_string(n) + (n == 1 ? " difference\n" : " differences\n");
    return out;
}

std::string diffVolatileList() {
    std::string s;
    for (const auto& v : VOLATILE) {
        const zelGroupDef* def = getGroupDefinitionFromId(v.group);
        s += std::string(s.empty() ? "" : ", ") + (def ? def->name : "?") + ": " + v.attribute;
    }
    return s;
}

#include "Diff.h"

#include "ZelDefs.h"

#include <algorithm>
#include <map>
#include <set>
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
struct Row {
    std::map<unsigned, Attr> values;
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
        auto it = r.values.find(id);
        k += (it == r.values.end() ? std::string("null") : it->second.value->dump()) + "\x1f";
    }
    return k;
}

Json keyJson(const Row& r, const std::vector<unsigned>& keys) {
    Json k = Json::object();
    for (unsigned id : keys) {
        auto it = r.values.find(id);
        if (it != r.values.end()) k[*it->second.name] = *it->second.value;
    }
    return k;
}

std::vector<Row> rowsOf(const Json& table) {
    std::vector<Row> out;
    if (!table.is_object() || !table.contains("rows") || !table["rows"].is_array()) return out;
    for (const Json& r : table["rows"]) {
        if (!r.is_array()) continue;
        Row row;
        for (const Json& a : r) {
            if (!a.is_object() || !a.contains("id") || !a["id"].is_number_unsigned()) continue;
            unsigned id = a["id"].get<unsigned>();
            auto v = a.find("value");
            auto n = a.find("name");
            row.values[id] = {v != a.end() ? &*v : &nullJson(),
                              n != a.end() && n->is_string() ? &n->get_ref<const std::string&>()
                                                             : &noName()};
        }
        out.push_back(row);
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

bool diffReadScan(const std::string& text, Json* scan, std::string* why) {
    if (text.size() > DIFF_MAX_INPUT) {
        *why = "larger than " + std::to_string(DIFF_MAX_INPUT >> 20) + " MiB";
        return false;
    }
    *scan = Json::parse(text, nullptr, false);
    if (scan->is_discarded()) {
        *why = "not JSON (or cut short)";
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
        // Rows by key; a key met twice counts its occurrences, so both rows stay apart.
        auto index = [&keys](const std::vector<Row>& rows) {
            std::map<std::string, std::vector<const Row*>> m;
            for (const Row& r : rows)
                m[keys.empty() ? std::string("row") : keyOf(r, keys)].push_back(&r);
            return m;
        };
        auto oldByKey = index(before), newByKey = index(after);
        std::vector<const Row*> removed, added;
        std::vector<std::pair<const Row*, const Row*>> both;
        for (const auto& entry : oldByKey) {
            auto it = newByKey.find(entry.first);
            std::size_t matched =
                it == newByKey.end() ? 0 : std::min(entry.second.size(), it->second.size());
            for (std::size_t i = 0; i < entry.second.size(); ++i) {
                if (i < matched)
                    both.emplace_back(entry.second[i], it->second[i]);
                else
                    removed.push_back(entry.second[i]);
            }
        }
        for (const auto& entry : newByKey) {
            auto it = oldByKey.find(entry.first);
            std::size_t have = it == oldByKey.end() ? 0 : it->second.size();
            for (std::size_t i = have; i < entry.second.size(); ++i)
                added.push_back(entry.second[i]);
        }
        // A row whose key itself changed (a disk's serial is part of its ID) is still
        // the same row when it keeps its place: unmatched rows of the same Index pair up.
        if (indexDef) {
            for (auto r = removed.begin(); r != removed.end();) {
                auto same = added.end();
                auto ri = (*r)->values.find(indexDef->id);
                for (auto a = added.begin(); a != added.end() && ri != (*r)->values.end(); ++a) {
                    auto ai = (*a)->values.find(indexDef->id);
                    if (ai != (*a)->values.end() && *ai->second.value == *ri->second.value)
                        same = a;
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
                if (!p.first->values.count(v.first)) ids.push_back(v.first);
            for (unsigned id : ids) {
                auto a = p.first->values.find(id), b = p.second->values.find(id);
                const Json& ov = a == p.first->values.end() ? nullJson() : *a->second.value;
                const Json& nv = b == p.second->values.end() ? nullJson() : *b->second.value;
                const std::string& name =
                    a != p.first->values.end() ? *a->second.name : *b->second.name;
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

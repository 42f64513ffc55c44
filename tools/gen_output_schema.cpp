// Prints the JSON Schema (draft 2020-12) of invscan's JSON output, made from the
// group and attribute catalogue at build time, so that the schema and the output
// cannot drift apart.
#include "invscan/ZelDefs.h"
#include "invscan/ZelTableRow.h"

#include <nlohmann/json.hpp>

#include <iostream>

using Json = nlohmann::ordered_json;

namespace {

// The value's JSON type follows the block's type code, whatever the catalogue says.
Json valueRules() {
    const struct {
        std::vector<const char*> types;
        Json value;
    } kinds[] = {
        {{"ZEL_UCHAR", "ZEL_USHORT", "ZEL_ULONG", "ZEL_ULONGLONG"},
         {{"type", "integer"}, {"minimum", 0}}},
        {{"ZEL_LONGLONG"}, {{"type", "integer"}}},
        {{"ZEL_FLOAT", "ZEL_DOUBLE"}, {{"type", "number"}}},
        {{"ZEL_STRING", "ZEL_OCTETSTRING", "ZEL_DATETIME"}, {{"type", "string"}}},
        {{"ZEL_UQUAD"},
         {{"type", "array"},
          {"items", {{"type", "integer"}, {"minimum", 0}}},
          {"minItems", 2},
          {"maxItems", 2}}},
    };
    Json all = Json::array();
    for (const auto& k : kinds) {
        Json types = Json::array();
        for (const char* t : k.types)
            types.push_back(t);
        all.push_back({{"if", {{"properties", {{"type", {{"enum", types}}}}}}},
                       {"then", {{"properties", {{"value", k.value}}}}}});
    }
    return all;
}

// One group's attributes: the id picks the name that goes with it. Conditions on
// the id, not alternatives, keep a validator quick over thousands of rows.
Json attributes(const zelGroupDef& g) {
    Json typeNames = Json::array(), ids = Json::array(), names = Json::array();
    for (unsigned code = 1; code <= 11; ++code)
        typeNames.push_back(getZelAttribTypeAsString(code));
    for (const zelAttribDef* a = g.attribs; a && a->id != ZEL_DEF_END; ++a) {
        ids.push_back(a->id);
        names.push_back({{"if", {{"properties", {{"id", {{"const", a->id}}}}}}},
                         {"then", {{"properties", {{"name", {{"const", a->name}}}}}}}});
    }
    Json props;
    props["id"] = {{"enum", ids}};
    props["name"] = {{"type", "string"}};
    props["type"] = {{"enum", typeNames}};
    props["value"] = Json::object();
    props["text"] = {{"type", Json::array({"string", "null"})}};
    return {{"type", "object"},
            {"required", {"id", "name", "type", "value"}},
            {"additionalProperties", false},
            {"properties", props},
            {"allOf", {{{"$ref", "#/$defs/value"}}, {{"allOf", names}}}}};
}

} // namespace

int main() {
    Json ids = Json::array(), groups = Json::array(), defs;
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        const std::string attrs = "attributes" + std::to_string(g->id);
        defs[attrs] = attributes(*g);
        ids.push_back(g->id);
        Json rows = {{"type", Json::array({"array", "null"})},
                     {"items", {{"type", "array"}, {"items", {{"$ref", "#/$defs/" + attrs}}}}}};
        groups.push_back({{"if", {{"properties", {{"id", {{"const", g->id}}}}}}},
                          {"then",
                           {{"properties",
                             {{"name", {{"const", g->name}}},
                              {"version", {{"const", g->version}}},
                              {"rows", rows}}}}}});
    }
    Json table;
    table["type"] = "object";
    table["required"] = {"id", "name", "version", "status", "rows"};
    table["additionalProperties"] = false;
    table["properties"] = {{"id", {{"enum", ids}}},
                           {"name", {{"type", "string"}}},
                           {"version", {{"type", "integer"}}},
                           {"status", {{"enum", {"ok", "no table", "not available"}}}},
                           {"rows", Json::object()}};
    table["allOf"] = groups;
    defs["table"] = table;
    defs["value"] = {{"allOf", valueRules()}};

    Json schema;
    schema["$schema"] = "https://json-schema.org/draft/2020-12/schema";
    schema["title"] = "invscan --format json output, format 1";
    schema["type"] = "object";
    schema["required"] = {"tool", "version", "format", "kernel", "scan_time", "tables"};
    schema["additionalProperties"] = false;
    Json props;
    props["tool"] = {{"const", "invscan"}};
    props["version"] = {{"type", "string"}};
    props["format"] = {{"const", 1}};
    props["kernel"] = {{"type", "string"}};
    // The scanned host's node name; absent in scans made before it was added.
    props["host"] = {{"type", "string"}};
    // What a scan that was not root could not read ("serial number", "UUID",
    // "SMBIOS table"); absent when nothing was missed for want of root.
    props["needs_root"] = {{"type", "array"}, {"items", {{"type", "string"}}}};
    props["scan_time"] = {{"type", "string"},
                          {"pattern", "^[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z$"}};
    props["tables"] = {{"type", "array"}, {"items", {{"$ref", "#/$defs/table"}}}};
    schema["properties"] = props;
    schema["$defs"] = defs;
    std::cout << schema.dump(2) << std::endl;
    return 0;
}

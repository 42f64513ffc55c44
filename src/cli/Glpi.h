// The inventory in the GLPI agent's JSON format, made from the tables of a scan, so
// that a fleet can report to the GLPI server it already runs. Only what a table
// holds is given: a field without a source is left out.
#ifndef INVSCAN_CLI_GLPI_H
#define INVSCAN_CLI_GLPI_H

#include <nlohmann/json.hpp>

#include <string>

// `scan` is the front end's JSON object (tool, version, kernel, host, tables ...).
// `deviceId` is the agent's id when the caller keeps one; without it the id is the
// scan's node name.
nlohmann::ordered_json glpiInventory(const nlohmann::ordered_json& scan,
                                     const std::string& deviceId = "");

#endif

// Every JSON output a test makes is checked against the schema made at build time,
// with Debian's python3-jsonschema: a few outputs at a time, in one validator run.
#ifndef INVSCAN_TEST_JSON_SCHEMA_H
#define INVSCAN_TEST_JSON_SCHEMA_H

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace testjson {

// What the validator says of `outputs` against `schema` (empty when every one is
// valid); the default is the schema of invscan's own JSON.
inline std::string schemaProblems(const std::vector<std::string>& outputs,
                                  std::string schema = std::string()) {
    if (outputs.empty()) return std::string();
    if (schema.empty()) schema = std::string(INVSCAN_BINARY_DIR) + "/invscan-output.schema.json";
    char dir[] = "/tmp/invscan-json-XXXXXX";
    if (!mkdtemp(dir)) return "cannot make a folder for the outputs";
    std::string cmd =
        std::string("/usr/bin/python3 ") + INVSCAN_TEST_DATA + "/../validate_json.py " + schema;
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        std::string path = std::string(dir) + "/" + std::to_string(i) + ".json";
        std::ofstream(path, std::ios::binary) << outputs[i];
        cmd += " " + path;
    }
    std::string said;
    if (std::FILE* p = popen((cmd + " 2>&1").c_str(), "r")) {
        char buf[4096];
        std::size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
            said.append(buf, n);
        if (pclose(p) != 0 && said.empty()) said = "the validator failed";
    }
    std::system((std::string("rm -rf ") + dir).c_str());
    return said;
}

} // namespace testjson

#endif

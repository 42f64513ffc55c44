// What comes back from a server, and what goes to one: any bytes as an OCS server's
// answer (compressed or not) are read within the cap without fault; any text made fit
// for XML stays so; any JSON document as a scan gives an inventory XML that parses.
#include "cli/Ocs.h"
#include "cli/Send.h"

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string raw(reinterpret_cast<const char*>(data), size);
    std::string response;
    if (ocsParseReply(raw, 1 << 16, &response) && response.size() > (1 << 16)) std::abort();

    const std::string clean = ocsXmlText(raw);
    if (ocsXmlText(clean) != clean) std::abort();

    const nlohmann::ordered_json scan = nlohmann::ordered_json::parse(raw, nullptr, false);
    if (!scan.is_discarded()) {
        const std::string xml = ocsInventory(scan, "fuzz-2026-01-02-03-04-05");
        pugi::xml_document doc;
        if (!doc.load_buffer(xml.data(), xml.size()) || !doc.child("REQUEST")) std::abort();
    }
    return 0;
}

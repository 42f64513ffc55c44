// GLPI networks of a Linux scan: one entry per address, each on the interface that
// holds it, and an entry for an interface without addresses.
#include <gtest/gtest.h>

#include "cli/Glpi.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

Json attr(const char* name, Json value) {
    return Json{{"name", name}, {"value", std::move(value)}};
}

Json adapter(const char* model, const char* mac, const char* physical) {
    return Json::array({attr("Model", model), attr("Permanent Address", mac), attr("Type", 3),
                        attr("Physical Type", physical)});
}

Json ipv4(int index, const char* address, const char* mask, const char* mac) {
    return Json::array({attr("Index", index), attr("Address", address), attr("Subnet", mask),
                        attr("Permanent Mac Address", mac)});
}

} // namespace

TEST(GlpiLinux, OneEntryPerAddressOnItsOwnInterface) {
    // br0 and its member veth0 share a MAC; bond0 and its port too. eth1 is down.
    const char* shared = "02:00:00:00:00:01";
    Json scan = {{"kernel", "Linux"}, {"host", "h"}};
    scan["tables"] = Json::array(
        {{{"id", 7},
          {"rows", Json::array({adapter("Bridge-br0", shared, "virtual"),
                                adapter("veth-veth0", shared, "virtual"),
                                adapter("Ethernet-eth0", "02:00:00:00:00:02", "ethernet"),
                                adapter("Ethernet-eth1", "02:00:00:00:00:03", "ethernet")})}},
         {{"id", 6},
          {"rows", Json::array({ipv4(1, "10.0.0.1", "255.255.255.0", shared),
                                ipv4(2, "192.0.2.2", "255.255.255.0", "02:00:00:00:00:02"),
                                ipv4(3, "198.51.100.9", "255.255.255.128", "02:00:00:00:00:02")})}},
         {{"id", 51},
          {"rows", Json::array({Json::array({attr("Address", "fd12::1"), attr("Subnet", "48"),
                                             attr("Adapter Name", "br0")})})}}});
    const Json nets = glpiInventory(scan, "id")["content"]["networks"];
    std::vector<std::string> got;
    for (const Json& n : nets)
        got.push_back(n["description"].get<std::string>() + " " + n.value("type", "") + " " +
                      n.value("ipaddress", "") + "/" + n.value("ipmask", "") + " " +
                      n.value("ipsubnet", "") + " " + n.value("ipaddress6", "") + " " +
                      n.value("ipsubnet6", "") + " " + (n["virtualdev"] ? "v" : "p"));
    // Without the scan's interface of each IPv4 row, a MAC two adapters share
    // gives its addresses to neither.
    EXPECT_EQ(got, (std::vector<std::string>{
                       "br0 bridge /  fd12::1 fd12:: v",
                       "veth0 ethernet /    v",
                       "eth0 ethernet 192.0.2.2/255.255.255.0 192.0.2.0   p",
                       "eth0 ethernet 198.51.100.9/255.255.255.128 198.51.100.0   p",
                       "eth1 ethernet /    p",
                   }));
}

// Interface discovery over real Mac "ifconfig -a" outputs (tests/data/macos/ifconfig,
// see SOURCES.md there) and over the shapes that break line-based parsing; the
// hardware address, scope and resolver rules; and the text the Linux backend prints
// in the Mac's format, read back by the same parser.
#include <gtest/gtest.h>

#include "../common/group_fixture.h"

#include "invscan/IfInfo.h"
#include "common/host/host_internal.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::FILE* textStream(const std::string& text) {
    return host::bundle::memoryFile(text);
}

// "name v4 mac | addr/prefix/scope ..." for each interface.
std::vector<std::string> summary(const IfInfoList& list) {
    std::vector<std::string> out;
    for (int i = 0; i < list.getCount(); ++i) {
        const IfInfo* e = list.get(i);
        std::string s = std::string(e->name ? e->name : "?") + " " + (e->ipv4 ? e->ipv4 : "-") +
                        " " + (e->mac ? e->mac : "-") + " |";
        for (const IPv6_entry& x : e->ipv6List)
            s += " " + x.address + "/" + x.prefixLength + "/" + x.scope;
        out.push_back(s);
    }
    return out;
}

std::vector<std::string> parseText(const std::string& text) {
    IfInfoList list;
    std::FILE* f = textStream(text);
    EXPECT_EQ(parse_ifconfig_unix(f, list), 0);
    std::fclose(f);
    return summary(list);
}

} // namespace

TEST(IfInfo, RealMacOutputs) {
    const struct {
        const char* file;
        int count;
        std::vector<std::string> some; // interfaces checked in full
    } cases[] = {
        {"facter-darwin_10_6_6_dualstack",
         2,
         {"lo0 127.0.0.1 - | ::1/128/ fe80::1/64/link", "en0 - 00:25:4B:CA:56:72 |"}},
        {"facter-darwin_10_8_5.txt",
         8,
         {"en0 10.16.141.17 28:CF:E9:1A:8A:2D | fe80::2acf:e9ff:fe1a:8a2d/64/link",
          "vmnet8 172.16.138.1 00:50:56:C0:00:08 |"}},
        // 10.5 prints a blank after the hardware address: it stays as printed.
        {"facter-darwin_9_8_0",
         8,
         {"en0 100.100.107.4 00:17:f2:06:e4:2e  | fe80::217:f2ff:fe06:e42e/64/link"}},
        {"facter-ifconfig_mac",
         18,
         {"utun3 - - | 2001:db8:cafe::132:213/128/global", "en0 0.0.0.0 08:00:27:F5:23:F7 |"}},
        {"jc-osx-10.14.6-ifconfig.out",
         20,
         {"en0 192.168.1.72 f0:18:98:03:d9:30  | fe80::8b7:1281:7499:b504/64/link "
          "2600:1700:bab0:d40:bb:9ad:34c5:2e9a/64/global "
          "2600:1700:bab0:d40:4573:9380:5ecb:ef52/64/global "
          "2600:1700:bab0:d40::24/64/global"}},
        {"glpi-agent-ifconfig-macbook-pro-16-intel-2019-catalina",
         26,
         {"utun4 10.75.129.190 - | fe80::0000:00ff:ffff:0000/64/link "
          "fe80::1111:2222:eeee:0000/128/link"}},
        {"python-ifcfg-ifconfig_MACOSX.txt",
         2,
         {"en0 192.168.0.1 1A:2B:3C:4D:5E:6F | fe80::4240:36ff:fe38:a121/64/link"}},
    };
    for (const auto& c : cases) {
        std::string path = std::string(INVSCAN_TEST_DATA) + "/macos/ifconfig/" + c.file;
        std::FILE* f = std::fopen(path.c_str(), "r");
        ASSERT_NE(f, nullptr) << path;
        IfInfoList list;
        parse_ifconfig_unix(f, list);
        std::fclose(f);
        EXPECT_EQ(list.getCount(), c.count) << c.file;
        std::vector<std::string> got = summary(list);
        for (const std::string& want : c.some) {
            bool found = false;
            for (const std::string& g : got)
                found = found || g == want;
            EXPECT_TRUE(found) << c.file << ": " << want;
        }
    }
}

TEST(IfInfo, LineShapes) {
    const struct {
        const char* what;
        std::string text;
        std::vector<std::string> want;
    } cases[] = {
        {"loopback",
         "lo0: flags=8049<UP,LOOPBACK,RUNNING,MULTICAST> mtu 16384\n\tinet 127.0.0.1 netmask "
         "0xff000000\n"
         "\tinet6 fe80::1%lo0 prefixlen 64 scopeid 1\n",
         {"lo0 127.0.0.1 - | fe80::1/64/link"}},
        {"repeated header merges, later fields win",
         "en0: flags=1\n\tinet 10.0.0.1 netmask 0\nen1: flags=1\nen0: flags=1\n\tinet 10.0.0.2 "
         "netmask 0\n",
         {"en0 10.0.0.2 - |", "en1 - - |"}},
        {"no address still a record",
         "gif0: flags=8010<POINTOPOINT,MULTICAST> mtu 1280\n",
         {"gif0 - - |"}},
        {"ether canonical",
         "en0: flags=1\n\tether 0:1b:63:a:b:cd\n",
         {"en0 - 00:1B:63:0A:0B:CD |"}},
        {"five components stay", "en0: flags=1\n\tether 0:1:2:3:4\n", {"en0 - 0:1:2:3:4 |"}},
        {"20-character tail cut at 19",
         "en0: flags=1\n\tether 00:11:22:33:44:55:66:77\n",
         {"en0 - 00:11:22:33:44:55:6 |"}},
        {"inet and ether on one line",
         "en0: flags=1\n\tinet 10.1.1.1 ether 00:11:22:33:44:55\n",
         {"en0 10.1.1.1 00:11:22:33:44:55 |"}},
        {"subnet form", "en0: flags=1\n\tinet subnet 10.9.9.9 \n", {"en0 10.9.9.9 - |"}},
        {"inet6 without prefixlen",
         "en0: flags=1\n\tinet6 2001:db8::5\n",
         {"en0 - - | 2001:db8::5//global"}},
        {"keyword glued to a word is no keyword",
         "en0: flags=1\n\txinet 1.2.3.4 xether 00:11:22:33:44:55\n",
         {"en0 - - |"}},
        {"NUL inside a line",
         std::string("en0: flags=1\n\tinet 10.0.0.7\0 junk\n", 33),
         {"en0 10.0.0.7 - |"}},
        {"trailing colon of an alias",
         "en0:1: flags=1\n\tinet 10.0.0.8 netmask 0\n",
         {"en0:1 10.0.0.8 - |"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parseText(c.text), c.want) << c.what;
}

// fgets hands over 511 characters at a time: a longer line goes on as a new read,
// whose first character decides what it is.
TEST(IfInfo, LongLines) {
    std::string fits = "\tinet 10.0.0.1 " + std::string(511 - 16, 'x') + "\n"; // 511 with the LF
    std::string longer = "\tinet 10.0.0.2 " + std::string(512 - 16, 'y') + "z\n";
    EXPECT_EQ(parseText("en0: flags=1\n" + fits), std::vector<std::string>{"en0 10.0.0.1 - |"});
    EXPECT_EQ(parseText("en0: flags=1\n" + longer),
              (std::vector<std::string>{"en0 10.0.0.2 - |", "z - - |"}));
}

TEST(IfInfo, TenThousandInterfaces) {
    std::string text;
    for (int i = 0; i < 10000; ++i)
        text += "en" + std::to_string(i) + ": flags=1\n\tinet 10." + std::to_string(i / 256) + "." +
                std::to_string(i % 256) + ".1 netmask 0\n";
    IfInfoList list;
    std::FILE* f = textStream(text);
    parse_ifconfig_unix(f, list);
    std::fclose(f);
    ASSERT_EQ(list.getCount(), 10000);
    EXPECT_STREQ(list.get(9999)->ipv4, "10.39.15.1");
    EXPECT_EQ(find_if("en4242", list), list.get(4242));
    EXPECT_EQ(findIPv4(list, "10.0.5.1"), list.get(5));
    EXPECT_EQ(findIPv4(list, ""), nullptr);
    EXPECT_EQ(parse_ifconfig_unix(nullptr, list), -1);
}

TEST(IfInfo, HardwareAddresses) {
    const struct {
        const char *in, *out;
        int rc;
    } cases[] = {
        {"00:1b:63:a0:b1:c2", "00:1B:63:A0:B1:C2", 0},
        {"0:1b:63:a:b:cd", "00:1B:63:0A:0B:CD", 0},
        {"0:1:2:3:4", "0:1:2:3:4", 1},
        {"gg:hh:GG:HH:0:1", "GG:HH:GG:HH:00:01", 0},
        {"zz:00:00:00:00:00", "zz:00:00:00:00:00", 1},
        {"00::11:22:33:44:55", "00:11:22:33:44:55", 0},
        {"001:1:2:3:4:5", "001:1:2:3:4:5", 1},
        {"1:2:3:4:5:6:7", "1:2:3:4:5:6:7", 1},
        {"", "", 1},
    };
    for (const auto& c : cases) {
        char buf[64];
        std::strcpy(buf, c.in);
        EXPECT_EQ(convertMacToCanonical(buf), c.rc) << c.in;
        EXPECT_STREQ(buf, c.out) << c.in;
    }
    std::string huge(128, 'a');
    EXPECT_EQ(convertMacToCanonical(&huge[0]), 1);
}

TEST(IfInfo, Scopes) {
    const struct {
        const char *address, *scope;
    } cases[] = {{"2001:db8::1", "global"},
                 {"3ffe::1", "global"},
                 {"fe80::1", "link"},
                 {"FE80::1", "link"},
                 {"fec0::1", "site"},
                 {"FEDF::1", "site"},
                 {"::1", ""},
                 {"fe80", ""},
                 {"fd00::2", ""},
                 {"20", ""},
                 {"fec", ""}};
    for (const auto& c : cases)
        EXPECT_EQ(getScope(c.address), c.scope) << c.address;
}

class Resolver : public ::testing::Test, public testhost::HostGroupTest {
protected:
    void SetUp() override { install(); }
    void TearDown() override { uninstall(); }
};

TEST_F(Resolver, NameServersAndDomain) {
    const struct {
        const char* file; // null: no resolver file
        int rc;
        const char *first, *second, *domain;
    } cases[] = {
        {"nameserver 10.0.0.1\nnameserver 10.0.0.2\nnameserver 10.0.0.3\n", 0, "10.0.0.1",
         "10.0.0.2", ""},
        {"search a.example b.example\ndomain corp.example # office\ndomain second.example\n", 0, "",
         "", "corp.example"},
        {"domain#x\nnameserver\n", 0, "", "", ""},
        {"# comment\noptions ndots:2\n", -1, "", "", ""},
        {nullptr, -1, "", "", ""},
    };
    for (const auto& c : cases) {
        fake.files.clear();
        if (c.file) fake.files["/etc/resolv.conf"] = c.file;
        char a[1024] = "", b[1024] = "", d[1024] = "";
        EXPECT_EQ(getNameservers(a, b, d), c.rc) << (c.file ? c.file : "none");
        EXPECT_STREQ(a, c.first);
        EXPECT_STREQ(b, c.second);
        EXPECT_STREQ(d, c.domain);
    }
}

// Both commands run, in order, the second is parsed, and both are closed.
TEST_F(Resolver, DiscoveryRunsBothCommandsAndClosesThem) {
    fake.commands["ifconfig -a 2>/dev/null"] = "en9: flags=1\n\tinet 1.1.1.1 netmask 0\n";
    fake.commands["/sbin/ifconfig -a 2>/dev/null"] = "en0: flags=1\n\tinet 10.0.0.1 netmask 0\n";
    IfInfoList list;
    EXPECT_EQ(populateIfInfoList(list), -1);
    EXPECT_EQ(summary(list), std::vector<std::string>{"en0 10.0.0.1 - |"});
    EXPECT_EQ(fake.popens, 2);
    EXPECT_EQ(fake.pcloses, 2);
}

// What the Linux backend prints for the kernel's interfaces reads back as it was.
TEST(IfInfo, LinuxInterfaceTextReadsBack) {
    host::InterfaceFacts lo, eth;
    lo.name = "lo";
    lo.index = 1;
    lo.flags = 0x49;
    lo.mtu = 65536;
    lo.addresses = {{AF_INET, "127.0.0.1", "0xff000000", "", 8, 0},
                    {AF_INET6, "::1", "", "", 128, 0}};
    eth.name = "eth0";
    eth.index = 4;
    eth.flags = 0x1043;
    eth.mtu = 1500;
    eth.mac = "02:fc:00:00:00:01";
    eth.addresses = {{AF_INET, "192.0.2.2", "0xffffff00", "192.0.2.255", 24, 0},
                     {AF_INET6, "fd00::2", "", "", 64, 0},
                     {AF_INET6, "fe80::fc:ff:fe00:1", "", "", 64, 4}};
    std::string text = host::ifconfigText({lo, eth});
    EXPECT_NE(text.find("eth0: flags=1043<UP,BROADCAST,RUNNING,MULTICAST> mtu 1500\n"),
              std::string::npos);
    EXPECT_NE(text.find("\tinet6 fe80::fc:ff:fe00:1%eth0 prefixlen 64 scopeid 0x4\n"),
              std::string::npos);
    EXPECT_EQ(parseText(text),
              (std::vector<std::string>{
                  "lo 127.0.0.1 - | ::1/128/",
                  "eth0 192.0.2.2 02:FC:00:00:00:01 | fd00::2/64/ fe80::fc:ff:fe00:1/64/link"}));
}

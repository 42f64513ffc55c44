#include <gtest/gtest.h>

#include "invscan/CcLog.h"
#include "invscan/File.h"
#include "invscan/GroupFactory.h"
#include "invscan/KorCfg.h"
#include "invscan/ScanInfoGroup.h"
#include "invscan/ZelRender.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

const String kConfig(INVSCAN_TEST_DATA "/config/KorHWConfig.xml");

TEST(GroupFactory, HandsOutGroupsByNameAndId) {
    GroupFactory* f = GroupFactory::getInstance();
    EXPECT_EQ(f, GroupFactory::getInstance());
    std::unique_ptr<ZelGroup> g(f->getGroup(String("Scan Info")));
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->getGroupId(), 20u);
    EXPECT_EQ(g->getGroupVersion(), 1u);
    EXPECT_EQ(f->getGroup(String("scan info")), nullptr);
    EXPECT_EQ(f->getGroup(String("No Such Group")), nullptr);
    for (unsigned long id : {0UL, 2UL, 26UL, 52UL, 100UL, 0xFFFFFFFFUL})
        EXPECT_EQ(f->getZELGroup(id), nullptr) << id;
    std::unique_ptr<ZelGroup> byId(f->getZELGroup(20));
    ASSERT_NE(byId, nullptr);
    // A group handed out by id has no attribute lists.
    EXPECT_EQ(byId->getGlobalAttr(L"scanMode"), nullptr);
}

TEST(GroupFactory, AllGroupsInCatalogueOrder) {
    std::list<String> names{String("already there")};
    EXPECT_EQ(GroupFactory::getInstance()->getAllGroups(names), 0);
    const char* expected[] = {
        "already there", "ComponentID",    "Scan Info", "Operating System", "SMBIOS",
        "Memory",        "Memory Modules", "Storage",   "Network Adapter",  "IP Address",
        "IPv6 Address",  "Partition",      "Regional",  "PhysicalProcessor"};
    ASSERT_EQ(names.size(), 14u);
    size_t i = 0;
    for (const String& n : names)
        EXPECT_EQ(n, String(expected[i++]));
}

TEST(GroupFactory, ConfigFilePathFromTheHostConfiguration) {
    struct {
        const char *file, *dir, *expected;
    } cases[] = {
        {"", "/etc/inv", "/etc/inv/KorHWConfig.xml"},
        {"custom.xml", "/opt/x", "/opt/x/custom.xml"},
        {nullptr, nullptr, "/KorHWConfig.xml"},
    };
    GroupFactory* f = GroupFactory::getInstance();
    for (auto& c : cases) {
        KorCfg::clear();
        if (c.file) KorCfg::setKey(String("hwscanner.config_file"), String(c.file));
        if (c.dir) KorCfg::setKey(String("config_dir"), String(c.dir));
        EXPECT_TRUE(f->initialise());
        EXPECT_EQ(f->getHWConfigFile(), String(c.expected));
    }
    KorCfg::clear();
    EXPECT_EQ(File::pathSeparator, String("/"));
}

TEST(GroupFactory, ResultCodesOfLoadNodeFromFile) {
    GroupFactory* f = GroupFactory::getInstance();
    const String missing(INVSCAN_TEST_DATA "/config/missing.xml");
    const String broken(INVSCAN_TEST_DATA "/config/broken.xml");
    const String plain(INVSCAN_TEST_DATA "/config/plain.xml");
    size_t globals = f->getGlobalAttrs().size();
    struct {
        const String* path;
        int kind, expected;
    } cases[] = {
        {&missing, 1, 5}, {&missing, 5, 5}, {&missing, 6, 5}, {&missing, 3, 5},
        {&broken, 1, 2},  {&broken, 5, 2},  {&broken, 6, 2},  {&kConfig, 3, 0},
        {&kConfig, 0, 0}, {&plain, 5, -1},  {&plain, 6, -1},
    };
    for (auto& c : cases)
        EXPECT_EQ(f->loadNodeFromFile(*c.path, c.kind), c.expected)
            << c.path->toMultiByte() << " kind " << c.kind;
    // None of those changed what the factory holds.
    EXPECT_EQ(f->getGlobalAttrs().size(), globals);
}

// The messages loadNodeFromFile traces, in order, for one call.
std::vector<std::string> loadTrace(const String& path, int kind, int& result) {
    char name[] = "/tmp/invscan_trace_XXXXXX";
    int fd = mkstemp(name);
    if (fd < 0) return {};
    close(fd);
    CcLogWrapper* log = getCcLogHw();
    log->setOutput(name);
    result = GroupFactory::getInstance()->loadNodeFromFile(path, kind);
    log->setOutput(nullptr);
    std::vector<std::string> messages;
    std::ifstream in(name);
    const std::string tag = " loadNodeFromFile: ";
    for (std::string line; std::getline(in, line);) {
        size_t at = line.find(tag);
        if (at != std::string::npos) messages.push_back(line.substr(at + tag.size()));
    }
    std::remove(name);
    return messages;
}

TEST(GroupFactory, LoadNodeFromFileTracesEveryOutcome) {
    const std::string dir = INVSCAN_TEST_DATA "/config/";
    struct {
        const char* file;
        int kind, result;
        std::vector<std::string> expected; // "*" ends a prefix match
    } cases[] = {
        {"missing.xml",
         1,
         5,
         {"hardware", "hardware Open config file @ for read",
          "hardware ERROR! Failed to open file @ for reading", "hardware return =5"}},
        {"broken.xml",
         1,
         2,
         {"hardware", "hardware Open config file @ for read", "hardware After ParseNodeSink()",
          "hardware After new XmlKorParser()", "hardware After sink->getNode()",
          "hardware korparser status is *", "hardware ERROR! Failed to parse the xmlfile @",
          "hardware After parsing config file @", "hardware return =2"}},
        {"plain.xml",
         5,
         -1,
         {"hardware", "hardware Open config file @ for read", "hardware After HWParseNodeSink()",
          "hardware After new HWXmlKorParser()", "hardware After sink->getNode()",
          "hardware korparser status is 0", "hardware After parsing config file @",
          "hardware return =-1"}},
    };
    for (auto& c : cases) {
        std::string path = dir + c.file;
        int result = 0;
        std::vector<std::string> got = loadTrace(String(path.c_str()), c.kind, result);
        EXPECT_EQ(result, c.result) << c.file;
        ASSERT_EQ(got.size(), c.expected.size()) << c.file;
        for (size_t i = 0; i < got.size(); ++i) {
            std::string want = c.expected[i];
            size_t at = want.find('@');
            if (at != std::string::npos) want.replace(at, 1, path);
            if (!want.empty() && want.back() == '*')
                EXPECT_EQ(got[i].compare(0, want.size() - 1, want, 0, want.size() - 1), 0)
                    << got[i];
            else
                EXPECT_EQ(got[i], want) << c.file;
        }
    }
}

TEST(GroupFactory, ConfigurationReachesTheGroups) {
    GroupFactory* f = GroupFactory::getInstance();
    size_t globals = f->getGlobalAttrs().size();
    size_t qcms = f->getQCMs().size();
    size_t procs = f->getProcessors().size();
    size_t names = f->getConfiguredGroups().size();
    ASSERT_EQ(f->loadNodeFromFile(kConfig, 1), 0);
    ASSERT_EQ(f->loadNodeFromFile(kConfig, 6), 0);
    ASSERT_EQ(f->loadNodeFromFile(kConfig, 5), 0);

    // Globals: the root's attributes, then the nested Hardware element's.
    ASSERT_EQ(f->getGlobalAttrs().size(), globals + 3);
    EXPECT_EQ(f->getGlobalAttrs()[globals].first, String("scanMode"));
    EXPECT_EQ(f->getGlobalAttrs()[globals + 2].second, String("1"));
    // Three named groups (Partition twice) and none from below <Section>.
    EXPECT_EQ(f->getConfiguredGroups().size(), names + 3);
    const auto& map = f->getGroupAttrMap();
    EXPECT_EQ(map.count(String("Regional")), 0u);
    // The later Partition element replaced the earlier list.
    const ZelAttrList& part = map.at(String("Partition"));
    ASSERT_EQ(part.size(), 2u);
    EXPECT_EQ(part[0].second, String("true"));

    std::unique_ptr<ZelGroup> g(f->getGroup(String("Scan Info")));
    EXPECT_STREQ(g->getGlobalAttr(L"scanMode"), L"full");
    EXPECT_EQ(g->getGroupAttr(L"scanMode"), nullptr);
    // The group's own map entry is made empty on first request.
    EXPECT_TRUE(map.at(String("Scan Info")).empty());

    ASSERT_EQ(f->getQCMs().size(), qcms + 4);
    const unsigned long cores[] = {4, 16, 8, 1};
    for (size_t i = 0; i < 4; ++i)
        EXPECT_EQ(f->getQCMs()[qcms + i]->CoresPerPackage, cores[i]);
    EXPECT_EQ(f->getQCMs()[qcms]->NewFamily, String("Core 2 Quad"));

    ASSERT_EQ(f->getProcessors().size(), procs + 2);
    const ProcessorInfo* p = f->getProcessors()[procs];
    EXPECT_EQ(p->Manufactor, String("GenuineIntel"));
    EXPECT_EQ(p->Signature, String("0x6F6"));
    EXPECT_EQ(p->PCX, String("T7200"));
    EXPECT_EQ(p->TypeEnum, String("3"));
    EXPECT_EQ(f->getProcessors()[procs + 1]->Signature, String());

    // Loading again appends again.
    ASSERT_EQ(f->loadNodeFromFile(kConfig, 6), 0);
    EXPECT_EQ(f->getQCMs().size(), qcms + 8);
}

TEST(HWConfig, InfoFromNodesOfTheWrongName) {
    Node other(String("Other"));
    other.getAttributes().put(String("CoresPerPackage"), String("4"));
    QCMInfo q(&other);
    EXPECT_EQ(q.CoresPerPackage, 0u);
    EXPECT_TRUE(q.Family.isEmpty());
    ProcessorInfo p(&other);
    EXPECT_TRUE(p.Manufactor.isEmpty());
}

TEST(HWConfig, CoresPerPackageReadsAlikeOnEveryHost) {
    struct {
        const char* text; // null: no attribute
        uint32_t cores;
    } cases[] = {
        {nullptr, 1},
        {"", 1},
        {"0x10", 16},
        {"010", 8},
        {"4", 4},
        {"four", 0},
        {"4294967295", 4294967295u},
        {"4294967296", 4294967295u},
        {"99999999999999999999", 4294967295u},
        {"-1", 4294967295u},
        {"-5", 4294967291u},
        {" -4294967296", 4294967295u},
        {"-18446744073709551615", 4294967295u},
        {"-0", 0},
    };
    for (auto& c : cases) {
        Node qcm(String("QCM"));
        if (c.text) qcm.getAttributes().put(String("CoresPerPackage"), String(c.text));
        EXPECT_EQ(QCMInfo(&qcm).CoresPerPackage, c.cores) << (c.text ? c.text : "absent");
    }
}

TEST(HWConfig, SinkKeepsCopiesAndAnswersErrors) {
    HWParseNodeSink sink;
    HWXmlKorParser parser(kConfig, &sink);
    ASSERT_EQ(parser.getStatus(), 0);
    std::unique_ptr<Node> qcms(sink.getNode(6));
    std::unique_ptr<Node> procs(sink.getNode(5));
    ASSERT_NE(qcms, nullptr);
    ASSERT_NE(procs, nullptr);
    EXPECT_EQ(qcms->getName(), String("QCMs"));
    EXPECT_EQ(qcms->getChildCount(), 5);
    EXPECT_EQ(procs->getName(), String("Processors"));
    EXPECT_EQ(sink.getNode(1), nullptr);
    EXPECT_EQ(sink.onWarning(String("w"), 1), 0);
    EXPECT_EQ(sink.onError(String("e"), 2), -1009);
    EXPECT_EQ(sink.onCriticalError(String("c"), 3), -1009);

    HWParseNodeSink none;
    HWXmlKorParser missing(String("/nonexistent/KorHWConfig.xml"), &none);
    EXPECT_EQ(missing.getStatus(), 1);
}

TEST(XmlKorParser, HostileDocumentsGiveAStatus) {
    struct {
        std::string doc;
        int expected;
    } cases[] = {
        {"", NodeReader::PARSE_FAILED},
        {"<a><b></a>", NodeReader::PARSE_FAILED},
        {"<!-- only a comment -->", NodeReader::PARSE_FAILED},
        {"<a b='1", NodeReader::PARSE_FAILED},
        {std::string(300, '\0'), NodeReader::PARSE_FAILED},
        {"<a>" + std::string(100000, '<') + "</a>", NodeReader::PARSE_FAILED},
    };
    for (auto& c : cases) {
        ParseNodeSink sink;
        NodeReader reader(&sink);
        EXPECT_EQ(reader.processBuffer(c.doc.data(), c.doc.size()), c.expected)
            << c.doc.substr(0, 40);
        EXPECT_EQ(sink.getNode(1), nullptr);
    }
    std::string deep;
    for (int i = 0; i < 30000; ++i)
        deep += "<d>"; // within the size cap
    for (int i = 0; i < 30000; ++i)
        deep += "</d>";
    ParseNodeSink sink;
    EXPECT_EQ(NodeReader(&sink).processBuffer(deep.data(), deep.size()), NodeReader::TOO_DEEP);

    std::string ok = "<r a='1'><c/><c b='2'/></r>";
    EXPECT_EQ(NodeReader(&sink).processBuffer(ok.data(), ok.size()), 0);
    std::unique_ptr<Node> root(sink.getNode(1));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getChildCount(), 2);
    String k, v;
    EXPECT_TRUE(root->getChild(1)->getAttributes().getEntry(0, k, v));
    EXPECT_EQ(k, String("b"));
    EXPECT_FALSE(root->getAttributes().getEntry(1, k, v));
}

TEST(XmlKorParser, TextDecodesTheSameInEveryLocale) {
    std::string before = std::setlocale(LC_CTYPE, nullptr);
    struct {
        std::string doc;
    } docs[] = {
        {"<Hardware Vendor=\"caf\xC3\xA9\"><Group Name=\"x\"/></Hardware>"},
        {"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><Hardware Vendor=\"caf\xE9\"/>"},
    };
    for (const char* locale : {"C", "C.UTF-8"}) {
        if (!std::setlocale(LC_CTYPE, locale)) continue;
        for (auto& d : docs) {
            ParseNodeSink sink;
            ASSERT_EQ(NodeReader(&sink).processBuffer(d.doc.data(), d.doc.size()), 0);
            std::unique_ptr<Node> root(sink.getNode(1));
            ASSERT_NE(root, nullptr);
            const String* v = root->getAttributes().get(String("Vendor"));
            ASSERT_NE(v, nullptr);
            EXPECT_EQ(v->wstr(), std::wstring(L"caf\u00e9")) << locale << " " << d.doc;
        }
    }
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(String, UndecodableBytesSurviveTheRoundTrip) {
    std::string before = std::setlocale(LC_CTYPE, nullptr);
    struct {
        const char* locale;
        const char* text;
        const char* back;
    } cases[] = {
        {"C", "/tmp/caf\xC3\xA9/KorHWConfig.xml", "/tmp/caf\xC3\xA9/KorHWConfig.xml"},
        {"C", "\xFF\x80", "\xFF\x80"},
        {"C.UTF-8", "/tmp/caf\xC3\xA9", "/tmp/caf\xC3\xA9"},
    };
    for (auto& c : cases) {
        if (!std::setlocale(LC_CTYPE, c.locale)) continue;
        EXPECT_EQ(String(c.text).toMultiByte(), c.back) << c.locale;
    }
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(String(L"\u20ac1").toMultiByte(), "?1"); // not a byte, not in the locale
    std::setlocale(LC_CTYPE, before.c_str());
}

TEST(ScanInfoGroup, OneRowOfSevenAttributes) {
    ScanInfoGroup group;
    std::unique_ptr<ZelTable> t1(group.getTable());
    std::unique_ptr<ZelTable> t2(group.getTable());
    ASSERT_NE(t1, nullptr);
    EXPECT_NE(t1.get(), t2.get());
    EXPECT_EQ(t1->getGroupId(), 20u);
    EXPECT_EQ(t1->getGroupVersion(), 1u);
    ASSERT_EQ(t1->getRowCount(), 1u);
    ZelTableRow* row = t1->getNext();
    ASSERT_EQ(row->getNumAttribs(), 7u);
    const unsigned long ids[] = {1, 2, 3, 7, 9, 4, 5};
    const unsigned long types[] = {ZEL_STRING, ZEL_ULONG,    ZEL_ULONG, ZEL_ULONG,
                                   ZEL_ULONG,  ZEL_DATETIME, ZEL_STRING};
    const uint32_t numbers[] = {0, 2, 7, 0, 6};
    for (int i = 0; i < 7; ++i) {
        ZelTableAttrib* a = row->getNext();
        EXPECT_EQ(a->getId(), ids[i]);
        EXPECT_EQ(a->getType(), types[i]);
        if (i >= 1 && i <= 4) {
            EXPECT_EQ(zelGet32(a->getAttribPtr() + 12), numbers[i]);
        }
    }
    // The build stamp: 26 characters and the terminator.
    row->reset();
    ZelTableAttrib* build = nullptr;
    while (ZelTableAttrib* a = row->getNext())
        build = a;
    const unsigned char* b = build->getAttribPtr();
    ASSERT_EQ(zelGet32(b + 12), 27u);
    std::string stamp;
    for (int i = 0; i < 26; ++i)
        stamp += static_cast<char>(zelGet32(b + 16 + 4 * i));
    EXPECT_EQ(stamp, getBuildDateVMQT());
}

} // namespace

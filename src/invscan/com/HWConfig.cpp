#include "invscan/HWConfig.h"
#include "invscan/SafeFile.h"

#include <unistd.h>

#include "invscan/Trace.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace {
String attr(const Node* node, const char* name) {
    const String* v = node->getAttributes().get(String(name));
    return v ? *v : String();
}
// strtoul(text, nullptr, 0) as a 32-bit host computes it, on any host: a value
// beyond 32 bits saturates, a negated one wraps within 32 bits.
uint32_t strtou32(const char* text) {
    unsigned long long v = std::strtoull(text, nullptr, 0);
    const char* p = text;
    while (std::isspace(static_cast<unsigned char>(*p)))
        ++p;
    if (*p == '-') v = 0ULL - v; // the magnitude
    if (v > 0xFFFFFFFFULL) return 0xFFFFFFFFu;
    uint32_t r = static_cast<uint32_t>(v);
    return *p == '-' ? 0u - r : r;
}
} // namespace

QCMInfo::QCMInfo(const Node* node) {
    if (!node || node->getName() != String("QCM")) return;
    Family = attr(node, "Family");
    CC = attr(node, "CC");
    NewFamily = attr(node, "NewFamily");
    String cores = attr(node, "CoresPerPackage");
    if (cores.length() == 0) cores = String("1");
    // Base 0 on purpose: "0x10" is hexadecimal and "010" octal.
    CoresPerPackage = strtou32(cores.toMultiByte().c_str());
}

ProcessorInfo::ProcessorInfo(const Node* node) {
    if (!node || node->getName() != String("Processor")) return;
    Manufactor = attr(node, "Manufactor");
    BrandID = attr(node, "BrandID");
    Signature = attr(node, "Signature");
    Type = attr(node, "Type");
    Family = attr(node, "Family");
    Model = attr(node, "Model");
    PCX = attr(node, "PCX");
    Description = attr(node, "Description");
    TypeEnum = attr(node, "TypeEnum");
}

HWParseNodeSink::~HWParseNodeSink() {
    delete m_processorNode;
    delete m_qcmNode;
}

int HWParseNodeSink::onNodeTree(Node* node) {
    if (node) visit(node);
    return 0;
}

void HWParseNodeSink::visit(Node* node) {
    Trace t(Tracer::getInstance(2), "HWParseNodeSink::onNodeTree");
    t << "Node name is " << node->getName() << Trace::endl;
    if (node->getName() == String("QCMs")) {
        delete m_qcmNode;
        m_qcmNode = node->copy();
        t << "QCM node stored" << Trace::endl;
    } else if (node->getName() == String("Processors")) {
        delete m_processorNode;
        m_processorNode = node->copy();
        t << "Processor node stored" << Trace::endl;
    }
    if (node->getChildCount() == 0) t << "no children" << Trace::endl;
    // Depth is bounded by the reader's nesting limit.
    for (int i = 0; i < node->getChildCount(); ++i)
        visit(node->getChild(i));
}

Node* HWParseNodeSink::getNode(int kind) const {
    if (kind == 5 && m_processorNode) return m_processorNode->copy();
    if (kind == 6 && m_qcmNode) return m_qcmNode->copy();
    return nullptr;
}

int HWParseNodeSink::onWarning(const String& message, int line) {
    Trace t(Tracer::getInstance(2), "HWParseNodeSink::onWarning");
    t << "Message is " << message << " at line " << line << Trace::endl;
    return 0;
}

int HWParseNodeSink::onError(const String& message, int line) {
    Trace t(Tracer::getInstance(2), "HWParseNodeSink::onError");
    t << "Message is " << message << " at line " << line << Trace::endl;
    return -1009;
}

int HWParseNodeSink::onCriticalError(const String& message, int line) {
    Trace t(Tracer::getInstance(2), "HWParseNodeSink::onCriticalError");
    t << "Message is " << message << " at line " << line << Trace::endl;
    return -1009;
}

HWXmlKorParser::HWXmlKorParser(const String& path, HWParseNodeSink* sink) : m_path(path) {
    int fd = safefile::openRead(path.toMultiByte().c_str(), nullptr);
    if (fd < 0) {
        m_status = 1;
        Trace t(Tracer::getInstance(2), "HWXmlKorParser::HWXmlKorParser");
        t << "Error opening the configuration file " << path << Trace::endl;
        return;
    }
    ::close(fd);
    NodeReader reader(sink);
    m_status = reader.process(path, 2);
}

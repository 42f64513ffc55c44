#include "invscan/XmlKorParser.h"
#include "invscan/SafeFile.h"

#include "invscan/Trace.h"

#include <pugixml.hpp>

#include <cstdio>
#include <vector>

int NodeSink::onWarning(const String&, int) {
    return 0;
}
int NodeSink::onError(const String&, int) {
    return -1;
}
int NodeSink::onCriticalError(const String&, int) {
    return -1;
}
int NodeSink::adoptNodeTree(Node* node) {
    int rc = onNodeTree(node);
    delete node;
    return rc;
}

namespace {

// Line number of a byte offset, for error messages.
int lineOf(const char* data, size_t size, ptrdiff_t offset) {
    int line = 1;
    for (ptrdiff_t i = 0; i < offset && static_cast<size_t>(i) < size; ++i)
        if (data[i] == '\n') ++line;
    return line;
}

// The parser hands out UTF-8 whatever the file's encoding; the process locale
// (often "C" in a host agent) must not decide how names and values decode.
String wide(const char* utf8) {
    return String(pugi::as_wide(utf8));
}

// Converts the element tree without recursion so that depth is bounded by
// MAX_DEPTH rather than by the stack.
Node* convert(const pugi::xml_node& rootElement, bool& tooDeep) {
    Node* root = new Node(wide(rootElement.name()));
    struct Frame {
        pugi::xml_node xml;
        Node* node;
        int depth;
    };
    std::vector<Frame> stack{{rootElement, root, 1}};
    while (!stack.empty()) {
        Frame f = stack.back();
        stack.pop_back();
        for (pugi::xml_attribute a = f.xml.first_attribute(); a; a = a.next_attribute())
            f.node->getAttributes().put(wide(a.name()), wide(a.value()));
        for (pugi::xml_node c = f.xml.first_child(); c; c = c.next_sibling()) {
            if (c.type() != pugi::node_element) continue;
            if (f.depth + 1 > NodeReader::MAX_DEPTH) {
                tooDeep = true;
                delete root;
                return nullptr;
            }
            Node* child = new Node(wide(c.name()));
            f.node->addChild(child);
            stack.push_back({c, child, f.depth + 1});
        }
    }
    return root;
}

} // namespace

int NodeReader::process(const String& path, int) {
    std::string narrow = path.toMultiByte();
    // Another user's link or FIFO in the configuration's place is refused, not
    // followed or waited on.
    std::string data, why;
    bool tooLarge = false;
    if (!safefile::readAll(narrow.c_str(), static_cast<size_t>(MAX_FILE_BYTES), &data, &why,
                           &tooLarge)) {
        if (tooLarge) {
            if (m_sink) m_sink->onCriticalError(String("file too large: ") + path, 0);
            return TOO_LARGE;
        }
        if (m_sink) m_sink->onCriticalError(String("cannot open ") + path, 0);
        return OPEN_FAILED;
    }
    return processBuffer(data.data(), data.size());
}

int NodeReader::processBuffer(const char* data, size_t size) {
    if (size > static_cast<size_t>(MAX_FILE_BYTES)) {
        if (m_sink) m_sink->onCriticalError(String("document too large"), 0);
        return TOO_LARGE;
    }
    pugi::xml_document doc;
    pugi::xml_parse_result r =
        doc.load_buffer(data, size, pugi::parse_default, pugi::encoding_auto);
    if (!r) {
        if (m_sink) m_sink->onError(String(r.description()), lineOf(data, size, r.offset));
        return PARSE_FAILED;
    }
    pugi::xml_node rootElement = doc.document_element();
    if (!rootElement) {
        if (m_sink) m_sink->onError(String("no root element"), 0);
        return NO_ELEMENT;
    }
    bool tooDeep = false;
    Node* root = convert(rootElement, tooDeep);
    if (!root) {
        if (m_sink) m_sink->onError(String("elements nested too deeply"), 0);
        return TOO_DEEP;
    }
    if (m_sink)
        m_sink->adoptNodeTree(root);
    else
        delete root;
    return OK;
}

ParseNodeSink::~ParseNodeSink() {
    delete m_root;
}

int ParseNodeSink::onNodeTree(Node* node) {
    delete m_root;
    m_root = node ? node->copy() : nullptr;
    return 0;
}

int ParseNodeSink::adoptNodeTree(Node* node) {
    delete m_root;
    m_root = node;
    return 0;
}

Node* ParseNodeSink::getNode(int kind) {
    if (kind != 1) return nullptr;
    Node* n = m_root;
    m_root = nullptr;
    return n;
}

XmlKorParser::XmlKorParser(const String& path, NodeSink* sink) : m_path(path) {
    NodeReader reader(sink);
    m_status = reader.process(path, 2);
    if (m_status != 0) {
        Trace t(Tracer::getInstance(2), "XmlKorParser::XmlKorParser");
        t << "Parsing " << path << " failed with status " << m_status << Trace::endl;
    }
}

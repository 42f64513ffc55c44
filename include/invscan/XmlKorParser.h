// The configuration library's XML parsing: NodeReader turns a file into a Node tree
// (pugixml does the parsing) and hands the root element to a NodeSink.
#ifndef INVSCAN_XMLKORPARSER_H
#define INVSCAN_XMLKORPARSER_H

#include "invscan_export.h"
#include "Node.h"
#include "String.h"

class INVSCAN_API NodeSink {
public:
    virtual ~NodeSink() = default;
    // Called once with the document's root element; the sink does not own it.
    virtual int onNodeTree(Node* node) = 0;
    // The reader's whole tree, the sink's to keep: by default it is shown to
    // onNodeTree() and freed. A sink that keeps it spares the reader a copy.
    virtual int adoptNodeTree(Node* node);
    virtual int onWarning(const String& message, int line);
    virtual int onError(const String& message, int line);
    virtual int onCriticalError(const String& message, int line);
};

class INVSCAN_API NodeReader {
public:
    // Status codes of process().
    enum {
        OK = 0,
        OPEN_FAILED = 1,
        PARSE_FAILED = 2,
        TOO_LARGE = 3,
        TOO_DEEP = 4,
        NO_ELEMENT = 5,
    };
    // Limits that keep a hostile file from exhausting the process.
    // A hardware configuration is a few KB; its tree costs about 50 bytes a byte at
    // worst, so 256 KiB keeps a hostile file within 8 times its size + 16 MiB.
    static const long MAX_FILE_BYTES = 256L * 1024;
    static const int MAX_DEPTH = 256;

    explicit NodeReader(NodeSink* sink) : m_sink(sink) {}
    // Parses the file and passes the tree to the sink. mode is accepted for
    // compatibility; every mode parses the whole document.
    int process(const String& path, int mode);
    // The same over text held in memory.
    int processBuffer(const char* data, size_t size);

private:
    NodeSink* m_sink;
};

// Keeps the whole document tree.
class INVSCAN_API ParseNodeSink : public NodeSink {
public:
    ~ParseNodeSink() override;
    int onNodeTree(Node* node) override;
    int adoptNodeTree(Node* node) override;
    // kind 1: the document tree, handed over (caller deletes; the sink keeps no copy,
    // so a second call gives null); null for other kinds.
    Node* getNode(int kind);

private:
    Node* m_root = nullptr;
};

class INVSCAN_API XmlKorParser {
public:
    // Parses on construction; getStatus() is 0 on success.
    XmlKorParser(const String& path, NodeSink* sink);
    int getStatus() const { return m_status; }
    const String& getPath() const { return m_path; }

private:
    String m_path;
    int m_status;
};

#endif

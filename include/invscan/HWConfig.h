// The hardware configuration file: QCM and processor descriptions and the sink and
// parser that find the "QCMs" and "Processors" elements.
#ifndef INVSCAN_HWCONFIG_H
#define INVSCAN_HWCONFIG_H

#include "invscan_export.h"
#include "Node.h"
#include "String.h"
#include "XmlKorParser.h"

#include <cstdint>

class INVSCAN_API QCMInfo {
public:
    explicit QCMInfo(const Node* node);
    String Family;
    String CC;
    String NewFamily;
    uint32_t CoresPerPackage = 0;
};

class INVSCAN_API ProcessorInfo {
public:
    explicit ProcessorInfo(const Node* node);
    String Manufactor; // spelled as in the file
    String BrandID;
    String Signature;
    String Type;
    String Family;
    String Model;
    String PCX;
    String Description;
    String TypeEnum;
};

class INVSCAN_API HWParseNodeSink : public NodeSink {
public:
    HWParseNodeSink() = default;
    ~HWParseNodeSink() override;
    HWParseNodeSink(const HWParseNodeSink&) = delete;
    HWParseNodeSink& operator=(const HWParseNodeSink&) = delete;

    int onNodeTree(Node* node) override;
    // 5: copy of the "Processors" node, 6: copy of the "QCMs" node; caller deletes.
    Node* getNode(int kind) const;
    int onWarning(const String& message, int line) override;
    int onError(const String& message, int line) override;
    int onCriticalError(const String& message, int line) override;

private:
    void visit(Node* node);
    Node* m_processorNode = nullptr;
    Node* m_qcmNode = nullptr;
};

class INVSCAN_API HWXmlKorParser {
public:
    HWXmlKorParser(const String& path, HWParseNodeSink* sink);
    int getStatus() const { return m_status; }
    const String& getPath() const { return m_path; }

private:
    String m_path;
    int m_status;
};

#endif

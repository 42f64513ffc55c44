// The hardware configuration loader over arbitrary bytes: the XML layer, the
// sinks and the factory's readers must never fault or read out of bounds.
#include "invscan/GroupFactory.h"
#include "invscan/HWConfig.h"
#include "invscan/XmlKorParser.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const char* bytes = reinterpret_cast<const char*>(data);

    ParseNodeSink tree;
    if (NodeReader(&tree).processBuffer(bytes, size) == 0) {
        Node* root = tree.getNode(1);
        if (root) {
            GroupFactory::getInstance()->getHWGroupFromNode(root);
            HWParseNodeSink hw;
            hw.onNodeTree(root);
            for (int kind : {5, 6}) {
                Node* n = hw.getNode(kind);
                if (kind == 5)
                    GroupFactory::getInstance()->getProcessorFromNode(n);
                else
                    GroupFactory::getInstance()->getQCMFromNode(n);
                delete n;
            }
            delete root;
        }
    }

    // The whole path through a file, as the host agent uses it.
    static std::string path = "/tmp/invscan-fuzz-config-" + std::to_string(getpid()) + ".xml";
    if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, f);
        std::fclose(f);
        GroupFactory::getInstance()->loadNodeFromFile(String(path.c_str()), 1);
    }
    return 0;
}

// From the converters' tree to the variant tree, and the helper programs' output.
#include "common/report/Report.h"
#include "common/report/ReportVt.h"

#include "common/host/host_internal.h"

#include "invscan/SafeFile.h"
#include "invscan/host.h"
#include "invscan/vtree.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace report {

static void fill(VtNode* out, const Node& in) {
    for (const Value& v : in.values) {
        switch (v.type) {
        case 'i':
            out->addInt(v.name.c_str(), v.i);
            break;
        case 'f':
            out->addReal(v.name.c_str(), v.f);
            break;
        case 'd':
            out->addData(v.name.c_str(), reinterpret_cast<const unsigned char*>(v.s.data()),
                         static_cast<unsigned>(v.s.size()));
            break;
        default:
            out->addString(v.name.c_str(), v.s.c_str());
            break;
        }
    }
    for (const Node& c : in.children)
        fill(out->addNode(c.name.c_str()), c);
}

VtNode* toVtTree(const Node& root) {
    VtNode* out = new VtNode("");
    fill(out, root);
    return out;
}

std::string renderResponse(int result, const char* message, const Node* root) {
    // The dump writer prints to a stream; a memory stream keeps this off the disk.
    char* buf = nullptr;
    std::size_t size = 0;
    std::FILE* f = ::open_memstream(&buf, &size);
    if (!f) return std::string();
    vtDumpResponse(f, result, message);
    if (root) {
        VtNode* vt = toVtTree(*root);
        vtDumpTree(f, vt);
        delete vt;
    }
    std::fclose(f);
    std::string out(buf ? buf : "", size);
    std::free(buf);
    return out;
}

std::string helperOutput(const char* helper, const char* fromFile, std::string* failure) {
    std::string err, dummy;
    if (!failure) failure = &dummy;
    failure->clear();
    auto refuse = [failure](int result, const std::string& why) {
        *failure = why;
        return renderResponse(result, why.c_str(), nullptr);
    };
    Node root;
    if (fromFile) {
        // A report is a few MB. The opener refuses a FIFO, device or folder without
        // waiting on it, and another user's link; the read stops at the cap.
        const std::size_t cap = host::bundle::MAX_FILE;
        std::string data, why;
        bool tooLarge = false;
        if (!safefile::readAll(fromFile, cap, &data, &why, &tooLarge)) {
            if (tooLarge) why = "larger than its cap of " + host::bundle::capText(cap);
            return refuse(1, std::string("cannot read '") + fromFile + "': " + why);
        }
        if (!convertReport(helper, data.data(), data.size(), &root, &err))
            return refuse(1, std::string("cannot read '") + fromFile + "': " + err);
        return renderResponse(0, nullptr, &root);
    }
    host::Backend* b = host::backend();
    if (std::strcmp(host::mode(), "replay") == 0) {
        std::string out;
        if (b->helperOutput(helper, &out)) return out;
        const std::vector<std::string>* refused = b->problems();
        return refuse(2, refused && !refused->empty() ? refused->back()
                                                      : "no recorded output in the bundle");
    }
    std::string out;
    if (!gatherLive(helper, &root, &err)) return refuse(1, err);
    out = renderResponse(0, nullptr, &root);
    // Output the bundle could not keep is not given either: a replay would lack it.
    if (std::strcmp(host::mode(), "record") == 0 && !b->saveHelperOutput(helper, out))
        return refuse(3, "cannot record the output into the bundle");
    return out;
}

} // namespace report

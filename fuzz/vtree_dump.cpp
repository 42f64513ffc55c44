// Dump reader: any input parses without fault, and what parses survives a round
// trip through the writer (parse, write, parse again, compare).
#include "invscan/VtStream.h"
#include "invscan/vtree.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::string realText(double f) {
    char buf[512];
    std::snprintf(buf, sizeof buf, "%f", f);
    return buf;
}

// What a Unicode value reads back as after one write: the writer emits as many
// UTF-8 bytes as the text has characters.
std::wstring unicodeAfterWrite(const wchar_t* w) {
    size_t n = std::wcslen(w);
    std::vector<unsigned char> bytes(6 * n + 1);
    int count = stringToUTF8(bytes.data(), bytes.size(), w);
    bytes[static_cast<size_t>(count)] = 0;
    std::vector<wchar_t> wide(static_cast<size_t>(count) + 1);
    utf8ToWideChar(wide.data(), wide.size(), bytes.data());
    return wide.data();
}

bool sameAfterWrite(const VtVariant* a, const VtVariant* b) {
    if (std::strcmp(a->name, b->name) != 0 || a->type != b->type) return false;
    switch (a->type) {
    case VT_INTEGER:
        return a->value.i == b->value.i;
    case VT_STRING:
        return std::strcmp(a->value.s, b->value.s) == 0;
    case VT_REAL:
        return realText(a->value.f) == realText(b->value.f);
    case VT_UNICODE:
        return unicodeAfterWrite(a->value.u) == b->value.u;
    case VT_DATA:
        return a->length == b->length &&
               (a->length == 0 || std::memcmp(a->value.d, b->value.d, a->length) == 0);
    default:
        return false;
    }
}

bool sameTree(const VtNode* a, const VtNode* b) {
    if (std::strcmp(a->name, b->name) != 0) return false;
    const VtVariant* va = a->values;
    const VtVariant* vb = b->values;
    for (; va && vb; va = va->next, vb = vb->next)
        if (!sameAfterWrite(va, vb)) return false;
    if (va || vb) return false;
    const VtNode* ca = a->children;
    const VtNode* cb = b->children;
    for (; ca && cb; ca = ca->next, cb = cb->next)
        if (!sameTree(ca, cb)) return false;
    return !ca && !cb;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Deeper indentation can lengthen a line on the way back; stay clear of the
    // reader's line limit.
    if (size > 65536) return 0;
    // The first byte picks the read size, so lines straddle short reads.
    size_t chunk = size ? data[0] % 17 : 0;
    VtIStream_Memory mem(reinterpret_cast<const char*>(data), size, chunk);
    VtILineStream lines(&mem);
    VtNode* first = vtParseNodeDump(&lines);
    if (!first) return 0;

    char* text = nullptr;
    size_t textSize = 0;
    std::FILE* out = open_memstream(&text, &textSize);
    if (!out) std::abort();
    vtDumpTree(out, first);
    std::fclose(out);

    int err = 0;
    VtNode* second = vtParseDumpBuffer(text, textSize, &err);
    if (!second) {
        std::fprintf(stderr, "written dump does not read back (%d):\n%s\n", err, text);
        std::abort();
    }
    if (!sameTree(first, second)) {
        std::fprintf(stderr, "round trip changed the tree:\n%s\n", text);
        std::abort();
    }
    std::free(text);
    delete first;
    delete second;
    return 0;
}

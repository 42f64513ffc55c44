// Variant tree: building, lookup, the dump writer and reader, and the UTF-8 helpers
// that the 'u' values go through.
#include "invscan/vtree.h"
#include "invscan/VtStream.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

const char* const VT_SOURCE = "./../../../src/common/vartree/vtree";

} // namespace

#define VT_ASSERT(expr)                                                                            \
    do {                                                                                           \
        if (!(expr)) vtAssertFail(VT_SOURCE, __LINE__, #expr);                                     \
    } while (0)

void vtAssertFail(const char* file, unsigned line, const char* expr) {
    std::fprintf(stderr, "%s:%u: failed assertion `%s'\n", file, line, expr);
    std::fflush(stderr);
    std::abort();
}

// ---------------------------------------------------------------------------------
// Copies

char* vtStrDup(const char* s) {
    if (!s) return nullptr;
    size_t n = std::strlen(s) + 1;
    char* p = static_cast<char*>(std::malloc(n));
    if (p) std::memcpy(p, s, n);
    return p;
}

wchar_t* vtStrDup(const wchar_t* s) {
    if (!s) return nullptr;
    size_t n = std::wcslen(s) + 1;
    wchar_t* p = static_cast<wchar_t*>(std::malloc(n * sizeof(wchar_t)));
    if (p) std::memcpy(p, s, n * sizeof(wchar_t));
    return p;
}

unsigned char* vtBufDup(const unsigned char* buf, size_t size) {
    if (!buf) return nullptr;
    unsigned char* p = static_cast<unsigned char*>(std::malloc(size ? size : 1));
    if (p && size) std::memcpy(p, buf, size);
    return p;
}

void vtFree(void* p) {
    std::free(p);
}

// ---------------------------------------------------------------------------------
// Values and nodes

VtVariant::~VtVariant() {
    std::free(name);
    switch (type) {
    case VT_STRING:
        std::free(value.s);
        break;
    case VT_UNICODE:
        std::free(value.u);
        break;
    case VT_DATA:
        std::free(value.d);
        break;
    default:
        break;
    }
}

VtVariant* VtVariant::newInt(const char* name, int v) {
    VtVariant* var = new VtVariant;
    var->name = vtStrDup(name);
    var->type = VT_INTEGER;
    var->value.i = v;
    return var;
}

VtVariant* VtVariant::newString(const char* name, const char* v) {
    VtVariant* var = new VtVariant;
    var->name = vtStrDup(name);
    var->type = VT_STRING;
    var->value.s = vtStrDup(v ? v : "");
    return var;
}

VtVariant* VtVariant::newReal(const char* name, double v) {
    VtVariant* var = new VtVariant;
    var->name = vtStrDup(name);
    var->type = VT_REAL;
    var->value.f = v;
    return var;
}

VtVariant* VtVariant::newUnicode(const char* name, const wchar_t* v) {
    VtVariant* var = new VtVariant;
    var->name = vtStrDup(name);
    var->type = VT_UNICODE;
    var->value.u = vtStrDup(v ? v : L"");
    return var;
}

VtVariant* VtVariant::newData(const char* name, const unsigned char* v, unsigned int length) {
    static const unsigned char empty = 0;
    VtVariant* var = new VtVariant;
    var->name = vtStrDup(name);
    var->type = VT_DATA;
    var->value.d = vtBufDup(v ? v : &empty, v ? length : 0);
    var->length = v ? length : 0;
    return var;
}

VtNode::VtNode(const char* nodeName) : name(vtStrDup(nodeName ? nodeName : "")) {}

VtNode::~VtNode() {
    std::free(name);
    for (VtVariant* v = values; v;) {
        VtVariant* next = v->next;
        delete v;
        v = next;
    }
    for (VtNode* c = children; c;) {
        VtNode* next = c->next;
        delete c;
        c = next;
    }
}

int VtNode::addValue(VtVariant* v) {
    VT_ASSERT(v != 0);
    VT_ASSERT(v->name != 0);
    v->next = nullptr;
    if (!values) {
        values = v;
    } else {
        VtVariant* last = m_lastValue ? m_lastValue : values;
        while (last->next)
            last = last->next;
        last->next = v;
    }
    m_lastValue = v;
    return 1;
}

int VtNode::addChild(VtNode* n) {
    VT_ASSERT(n != 0);
    VT_ASSERT(n->name != 0);
    n->next = nullptr;
    if (!children) {
        children = n;
    } else {
        VtNode* last = m_lastChild ? m_lastChild : children;
        while (last->next)
            last = last->next;
        last->next = n;
    }
    m_lastChild = n;
    return 1;
}

VtVariant* VtNode::addInt(const char* valueName, int v) {
    VtVariant* var = VtVariant::newInt(valueName, v);
    addValue(var);
    return var;
}

VtVariant* VtNode::addString(const char* valueName, const char* v) {
    VtVariant* var = VtVariant::newString(valueName, v);
    addValue(var);
    return var;
}

VtVariant* VtNode::addReal(const char* valueName, double v) {
    VtVariant* var = VtVariant::newReal(valueName, v);
    addValue(var);
    return var;
}

VtVariant* VtNode::addUnicode(const char* valueName, const wchar_t* v) {
    VtVariant* var = VtVariant::newUnicode(valueName, v);
    addValue(var);
    return var;
}

VtVariant* VtNode::addData(const char* valueName, const unsigned char* v, unsigned int length) {
    VtVariant* var = VtVariant::newData(valueName, v, length);
    addValue(var);
    return var;
}

VtNode* VtNode::addNode(const char* childName) {
    VtNode* n = new VtNode(childName);
    addChild(n);
    return n;
}

VtNode* VtNode::getChild(const char* childName, int index) const {
    if (!childName) {
        // Walks by index go forward one step at a time: start where the last one
        // ended, so a loop over all children stays linear.
        if (index < 0) return nullptr;
        VtNode* c = children;
        int at = 0;
        if (m_cursor && m_cursorIndex <= index) {
            c = m_cursor;
            at = m_cursorIndex;
        }
        for (; c && at < index; ++at)
            c = c->next;
        if (c) {
            m_cursor = c;
            m_cursorIndex = at;
        }
        return c;
    }
    for (VtNode* c = children; c; c = c->next) {
        if (childName && std::strcmp(c->name, childName) != 0) continue;
        if (index == 0) return c;
        --index;
    }
    return nullptr;
}

VtVariant* VtNode::getValue(const char* name) const {
    VT_ASSERT(name != 0);
    for (VtVariant* v = values; v; v = v->next)
        if (std::strcmp(v->name, name) == 0) return v;
    return nullptr;
}

VtNode* VtNode::getNode(const char* path) const {
    const VtNode* node = this;
    if (!path) return const_cast<VtNode*>(node);
    const char* p = path;
    while (*p) {
        const char* dot = std::strchr(p, '.');
        size_t n = dot ? static_cast<size_t>(dot - p) : std::strlen(p);
        // The first child whose name is exactly this component.
        const VtNode* next = nullptr;
        for (VtNode* c = node->children; c; c = c->next) {
            if (std::strncmp(c->name, p, n) == 0 && c->name[n] == '\0') {
                next = c;
                break;
            }
        }
        if (!next) return nullptr;
        node = next;
        if (!dot) break;
        p = dot + 1; // a trailing '.' ends the walk here
    }
    return const_cast<VtNode*>(node);
}

VtVariant* VtNode::getValue(const char* path, const char* name) const {
    VT_ASSERT(name != 0);
    VtNode* node = getNode(path);
    return node ? node->getValue(name) : nullptr;
}

const char* VtNode::getValue(const char* path, const char* valueName, const char* dflt) const {
    return vtGetValue(getValue(path, valueName), dflt);
}

int VtNode::getValue(const char* path, const char* valueName, int dflt) const {
    return vtGetValue(getValue(path, valueName), dflt);
}

VtExecInfo::~VtExecInfo() {
    std::free(message);
    delete tree;
}

// ---------------------------------------------------------------------------------
// Lookups over a helper's result

VtVariant* vtGetValue(const VtExecInfo* info, const char* path, const char* name) {
    if (!info || !info->tree) return nullptr;
    return info->tree->getValue(path, name);
}

int vtGetValue(const VtVariant* v, int dflt) {
    return (v && v->type == VT_INTEGER) ? v->value.i : dflt;
}

const char* vtGetValue(const VtVariant* v, const char* dflt) {
    return (v && v->type == VT_STRING) ? v->value.s : dflt;
}

int vtGetValue(const VtExecInfo* info, const char* path, const char* name, int dflt) {
    return vtGetValue(vtGetValue(info, path, name), dflt);
}

const char* vtGetValue(const VtExecInfo* info, const char* path, const char* name,
                       const char* dflt) {
    return vtGetValue(vtGetValue(info, path, name), dflt);
}

VtNode* vtGetNode(const VtExecInfo* info, const char* name, int index) {
    if (!info || !info->tree) return nullptr;
    if (!name) return info->tree;
    return info->tree->getChild(name, index < 0 ? 0 : index);
}

// ---------------------------------------------------------------------------------
// Writer

const char* vtGetIndentString() {
    static char unit[4];
    if (!unit[0]) std::memcpy(unit, "   ", 4);
    return unit;
}

void vtIndent(std::FILE* out, int level) {
    const char* unit = vtGetIndentString();
    for (int i = 0; i < level; ++i)
        std::fputs(unit, out);
}

void vtIndent(int level) {
    vtIndent(stdout, level);
}

namespace {

const char HEX[] = "0123456789abcdef";

// Prints bytes as lower-case hex pairs, in blocks to keep stdio calls few.
void writeHex(std::FILE* out, const unsigned char* p, size_t n) {
    char block[512];
    size_t k = 0;
    for (size_t i = 0; i < n; ++i) {
        block[k++] = HEX[p[i] >> 4];
        block[k++] = HEX[p[i] & 15];
        if (k == sizeof block) {
            std::fwrite(block, 1, k, out);
            k = 0;
        }
    }
    if (k) std::fwrite(block, 1, k, out);
}

} // namespace

void vtDumpValue(std::FILE* out, const VtVariant* value, int level) {
    VT_ASSERT(value != 0);
    VT_ASSERT(value->name != 0);
    vtIndent(out, level);
    switch (value->type) {
    case VT_INTEGER:
        std::fprintf(out, "%s:%c=%d\n", value->name, 'i', value->value.i);
        break;
    case VT_STRING:
        std::fprintf(out, "%s:%c=%s\n", value->name, 's', value->value.s ? value->value.s : "");
        break;
    case VT_REAL:
        std::fprintf(out, "%s:%c=%f\n", value->name, 'f', value->value.f);
        break;
    case VT_UNICODE: {
        // The count written is the number of characters, and only that many bytes
        // follow: readers of this format expect exactly that, so non-ASCII text
        // loses its tail bytes.
        const wchar_t* w = value->value.u ? value->value.u : L"";
        size_t size = 6 * std::wcslen(w) + 1;
        unsigned char small[256];
        unsigned char* buf =
            size <= sizeof small ? small : static_cast<unsigned char*>(std::malloc(size));
        int count = buf ? stringToUTF8(buf, size, w) : 0;
        std::fprintf(out, "%s:%c=%u,", value->name, 'u', static_cast<unsigned>(count));
        writeHex(out, buf, static_cast<size_t>(count));
        std::fputc('\n', out);
        if (buf != small) std::free(buf);
        break;
    }
    case VT_DATA:
        std::fprintf(out, "%s:%c=%u,", value->name, 'd', value->length);
        if (value->value.d) writeHex(out, value->value.d, value->length);
        std::fputc('\n', out);
        break;
    default:
        std::fprintf(out, "%s:?=%p\n", value->name, static_cast<const void*>(value));
        break;
    }
}

void vtDumpValue(const VtVariant* v, int level) {
    vtDumpValue(stdout, v, level);
}

void vtDumpNode(std::FILE* out, const VtNode* node, int level) {
    // A null node fails the name check too: that is the one invariant the node writer
    // states.
    if (!node || !node->name) vtAssertFail(VT_SOURCE, __LINE__, "node->name != 0");
    vtIndent(out, level);
    std::fprintf(out, "%c%s\n", '(', node->name);
    for (const VtVariant* v = node->values; v; v = v->next)
        vtDumpValue(out, v, level + 1);
    for (const VtNode* c = node->children; c; c = c->next)
        vtDumpNode(out, c, level + 1);
    vtIndent(out, level);
    std::fprintf(out, "%c\n", ')');
}

void vtDumpNode(const VtNode* n, int level) {
    vtDumpNode(stdout, n, level);
}

void vtDumpTree(std::FILE* out, const VtNode* root) {
    VT_ASSERT(root != 0);
    for (const VtVariant* v = root->values; v; v = v->next)
        vtDumpValue(out, v, 0);
    for (const VtNode* c = root->children; c; c = c->next)
        vtDumpNode(out, c, 0);
}

void vtDumpResponse(std::FILE* out, int result, const char* message) {
    std::fprintf(out, "%d.%d %d", 1, 0, result);
    if (message) std::fprintf(out, " %s", message);
    std::fputc('\n', out);
}

void vtDumpResponse(int result, const char* message) {
    vtDumpResponse(stdout, result, message);
}

// ---------------------------------------------------------------------------------
// Reader

namespace {

inline bool isCSpace(unsigned char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}
inline bool isDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}
inline bool isAlpha(unsigned char c) {
    return ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
}

// atoi, but saturating instead of undefined on overflow.
int parseInt(const char* p) {
    while (isCSpace(static_cast<unsigned char>(*p)))
        ++p;
    bool neg = false;
    if (*p == '+' || *p == '-') neg = *p++ == '-';
    long long v = 0;
    while (isDigit(static_cast<unsigned char>(*p))) {
        v = v * 10 + (*p++ - '0');
        if (v > 2147483648LL) v = 2147483648LL;
    }
    if (neg) v = -v;
    if (v > INT_MAX) v = INT_MAX;
    return static_cast<int>(v);
}

// No validation: anything outside the hex letters counts as its distance from '0'.
inline unsigned nibble(unsigned char c) {
    if (c >= 'a' && c <= 'f') return c - 'a' + 10u;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10u;
    return static_cast<unsigned>(c - '0');
}

char* dupN(const char* p, size_t n) {
    char* d = static_cast<char*>(std::malloc(n + 1));
    if (d) {
        std::memcpy(d, p, n);
        d[n] = '\0';
    }
    return d;
}

// Parses one value line (first character a letter or digit); returns the new value
// or sets *err.
VtVariant* parseValue(char* line, size_t lineLen, int* err) {
    char* colon = std::strchr(line, ':');
    if (!colon) {
        *err = VT_PARSE_BAD_VALUE;
        return nullptr;
    }
    char* eq = std::strchr(line, '=');
    if (eq != colon + 2) {
        *err = VT_PARSE_BAD_VALUE;
        return nullptr;
    }
    char letter = colon[1];
    char* text = eq + 1;
    if (letter < 'd' || letter > 'u') {
        *err = VT_PARSE_BAD_TYPE;
        return nullptr;
    }
    VtVariant* v = nullptr;
    switch (letter) {
    case 'i':
        v = new VtVariant;
        v->type = VT_INTEGER;
        v->value.i = parseInt(text);
        break;
    case 's':
        v = new VtVariant;
        v->type = VT_STRING;
        v->value.s = dupN(text, lineLen - static_cast<size_t>(text - line));
        break;
    case 'f':
        v = new VtVariant;
        v->type = VT_REAL;
        v->value.f = std::atof(text);
        break;
    case 'd':
    case 'u': {
        char* comma = std::strchr(text, ',');
        if (!comma) {
            *err = VT_PARSE_BAD_HEX;
            return nullptr;
        }
        int count = parseInt(text);
        size_t n = count > 0 ? static_cast<size_t>(count) : 0;
        const char* hex = comma + 1;
        size_t hexAvail = lineLen - static_cast<size_t>(hex - line);
        if (n > hexAvail / 2) {
            *err = VT_PARSE_BAD_HEX;
            return nullptr;
        }
        unsigned char* bytes = static_cast<unsigned char*>(std::malloc(n + 1));
        if (!bytes) {
            *err = VT_PARSE_BAD_HEX;
            return nullptr;
        }
        const unsigned char* h = reinterpret_cast<const unsigned char*>(hex);
        for (size_t i = 0; i < n; ++i)
            bytes[i] = static_cast<unsigned char>((nibble(h[2 * i]) << 4) + nibble(h[2 * i + 1]));
        bytes[n] = 0;
        v = new VtVariant;
        if (letter == 'd') {
            v->type = VT_DATA;
            v->value.d = bytes;
            v->length = static_cast<unsigned int>(n);
        } else {
            wchar_t small[128];
            wchar_t* wide = n + 1 <= 128
                                ? small
                                : static_cast<wchar_t*>(std::malloc((n + 1) * sizeof(wchar_t)));
            if (wide) utf8ToWideChar(wide, n + 1, bytes);
            v->type = VT_UNICODE;
            v->value.u = vtStrDup(wide ? wide : L"");
            if (wide != small) std::free(wide);
            std::free(bytes);
        }
        break;
    }
    default:
        *err = VT_PARSE_BAD_TYPE;
        return nullptr;
    }
    v->name = dupN(line, static_cast<size_t>(colon - line));
    return v;
}

} // namespace

int vtParseNodeDump(VtILineStream* in, VtNode* root) {
    VT_ASSERT(root != 0);
    if (!in) return VT_PARSE_OK;
    std::vector<VtNode*> stack; // parents of the open nodes
    VtNode* current = root;
    int rc = VT_PARSE_OK;
    // Lines are taken in place from the stream's buffer, cut like a copy into a
    // buffer of VT_DUMP_LINE_MAX bytes would be.
    size_t len = 0;
    unsigned long long bytes = 0, items = 0;
    while (const char* raw = in->nextLine(&len)) {
        char* line = const_cast<char*>(raw);
        bytes += len + 1;
        if (len > VT_DUMP_LINE_MAX - 1) {
            len = VT_DUMP_LINE_MAX - 1;
            line[len] = '\0';
        }
        char* p = line;
        while (isCSpace(static_cast<unsigned char>(*p)))
            ++p;
        size_t restLen = len - static_cast<size_t>(p - line);
        unsigned char c = static_cast<unsigned char>(*p);
        if (c == ')') {
            if (stack.empty()) {
                rc = VT_PARSE_UNBALANCED;
                break;
            }
            VtNode* parent = stack.back();
            stack.pop_back();
            parent->addChild(current);
            current = parent;
        } else if (c == ';') {
            // comment
        } else if (c == '(') {
            if (stack.size() >= static_cast<size_t>(VT_MAX_DEPTH)) {
                rc = VT_PARSE_TOO_DEEP;
                break;
            }
            if (++items > VT_FREE_ITEMS && items * VT_MIN_ITEM_BYTES > bytes) {
                rc = VT_PARSE_TOO_DENSE;
                break;
            }
            stack.push_back(current);
            current = new VtNode(p + 1);
        } else if (isAlpha(c) || isDigit(c)) {
            if (++items > VT_FREE_ITEMS && items * VT_MIN_ITEM_BYTES > bytes) {
                rc = VT_PARSE_TOO_DENSE;
                break;
            }
            int err = VT_PARSE_OK;
            VtVariant* v = parseValue(p, restLen, &err);
            if (!v) {
                rc = err;
                break;
            }
            current->addValue(v);
        } else if (c == '\0') {
            // blank line
        } else {
            rc = VT_PARSE_BAD_LINE;
            break;
        }
    }
    // Nodes still open were never attached: free them (innermost first).
    while (!stack.empty()) {
        delete current;
        current = stack.back();
        stack.pop_back();
    }
    return rc;
}

VtNode* vtParseNodeDump(VtILineStream* in) {
    VtNode* root = new VtNode("");
    if (vtParseNodeDump(in, root) != VT_PARSE_OK) {
        delete root;
        return nullptr;
    }
    return root;
}

VtNode* vtParseDumpBuffer(const char* data, size_t size, int* error) {
    VtIStream_Memory mem(data, size);
    VtILineStream lines(&mem);
    VtNode* root = new VtNode("");
    int rc = vtParseNodeDump(&lines, root);
    if (error) *error = rc;
    if (rc != VT_PARSE_OK) {
        delete root;
        return nullptr;
    }
    return root;
}

// ---------------------------------------------------------------------------------
// Comparison

namespace {

bool sameValue(const VtVariant* a, const VtVariant* b) {
    if (std::strcmp(a->name, b->name) != 0 || a->type != b->type) return false;
    switch (a->type) {
    case VT_INTEGER:
        return a->value.i == b->value.i;
    case VT_STRING:
        return std::strcmp(a->value.s ? a->value.s : "", b->value.s ? b->value.s : "") == 0;
    case VT_REAL:
        return a->value.f == b->value.f || (std::isnan(a->value.f) && std::isnan(b->value.f));
    case VT_UNICODE:
        return std::wcscmp(a->value.u ? a->value.u : L"", b->value.u ? b->value.u : L"") == 0;
    case VT_DATA:
        return a->length == b->length &&
               (a->length == 0 || std::memcmp(a->value.d, b->value.d, a->length) == 0);
    default:
        return a == b;
    }
}

} // namespace

bool vtNodeEquals(const VtNode* a, const VtNode* b) {
    if (!a || !b) return a == b;
    if (std::strcmp(a->name, b->name) != 0) return false;
    const VtVariant* va = a->values;
    const VtVariant* vb = b->values;
    for (; va && vb; va = va->next, vb = vb->next)
        if (!sameValue(va, vb)) return false;
    if (va || vb) return false;
    const VtNode* ca = a->children;
    const VtNode* cb = b->children;
    for (; ca && cb; ca = ca->next, cb = cb->next)
        if (!vtNodeEquals(ca, cb)) return false;
    return !ca && !cb;
}

// ---------------------------------------------------------------------------------
// Text conversion

int stringToUTF8(unsigned char* dst, size_t size, const wchar_t* str) {
    VT_ASSERT(str != 0);
    const wchar_t* src = str;
    if (!dst || size == 0) return 0;
    size_t cap = size - 1;
    size_t used = 0;
    int count = 0;
    for (; *src && used < cap; ++src) {
        uint32_t c = static_cast<uint32_t>(*src);
        if (c < 0x80) {
            dst[used++] = static_cast<unsigned char>(c);
            ++count;
            continue;
        }
        size_t n; // sequence length
        if (c < 0x800)
            n = 2;
        else if (c < 0x10000)
            n = 3;
        else if (c < 0x200000)
            n = 4;
        else if (c < 0x4000000)
            n = 5;
        else if (c < 0x80000000u)
            n = 6;
        else
            continue; // beyond 31 bits: no encoding exists
        if (n > cap - used) continue;
        for (size_t k = n - 1; k > 0; --k) {
            dst[used + k] = static_cast<unsigned char>(0x80 | (c & 0x3F));
            c >>= 6;
        }
        static const unsigned char lead[7] = {0, 0, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC};
        dst[used] = static_cast<unsigned char>(lead[n] | c);
        used += n;
        ++count;
    }
    dst[used] = 0;
    return count;
}

int utf8ToWideChar(wchar_t* dst, size_t size, const unsigned char* str) {
    VT_ASSERT(str != 0);
    const unsigned char* src = str;
    if (!dst || size == 0) return 0;
    size_t cap = size - 1;
    size_t count = 0;
    while (*src && count < cap) {
        unsigned char b = *src++;
        uint32_t c;
        if (b < 0x80) {
            c = b;
        } else if (!(b & 0x40)) {
            c = b & 0x3Fu; // stray continuation byte
        } else {
            int more = 0;
            for (unsigned char m = 0x20; m && (b & m); m >>= 1)
                ++more;
            ++more;
            c = b & (0x3Fu >> more);
            // Missing continuation bytes at the end of the text count as zero bits.
            for (int k = 0; k < more; ++k) {
                c <<= 6;
                if (*src) c |= (*src++ & 0x3Fu);
            }
        }
        dst[count++] = static_cast<wchar_t>(c);
    }
    dst[count] = L'\0';
    return static_cast<int>(count);
}

char* removeEndOfLine(char* str) {
    VT_ASSERT(str != 0);
    std::mbstate_t state{};
    char* p = str;
    size_t left = std::strlen(str);
    while (*p) {
        if (*p == '\n' || *p == '\r') break;
        size_t n = std::mbrlen(p, left, &state);
        if (n == 0) break;
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) break;
        p += n;
        left -= n;
    }
    *p = '\0';
    return str;
}

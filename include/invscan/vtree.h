// Variant trees: the in-memory form of a helper program's output. A tree is made of
// named nodes, each with an ordered list of named, typed values. Helpers print a tree
// in the line-oriented dump format written by vtDumpNode; vtParseNodeDump reads it
// back. Groups look values up by a dotted node path and a value name.
//
// Ownership: a node owns its values and its children, a value owns its name and its
// payload. Deleting a node frees its whole subtree (not its siblings).
#ifndef INVSCAN_VTREE_H
#define INVSCAN_VTREE_H

#include "invscan_export.h"

#include <cstddef>
#include <cstdio>
#include <cwchar>

class VtILineStream;

// Value types; the letter is the one used in the dump.
enum VtType {
    VT_INTEGER = 0, // 'i'
    VT_STRING = 1,  // 's'
    VT_REAL = 2,    // 'f'
    VT_UNICODE = 3, // 'u'
    VT_DATA = 4     // 'd'
};

// Parse results of vtParseNodeDump.
enum VtParseError {
    VT_PARSE_OK = 0,
    VT_PARSE_BAD_LINE = -1,   // line starts with an unexpected character
    VT_PARSE_TOO_DEEP = -2,   // nesting deeper than VT_MAX_DEPTH
    VT_PARSE_UNBALANCED = -4, // ")" with no open node
    VT_PARSE_BAD_VALUE = -5,  // value line without ':' or '=' right after the letter
    VT_PARSE_BAD_TYPE = -6,   // unknown type letter
    VT_PARSE_BAD_HEX = -9,    // 'd' or 'u' without ',' or with too few hex digits
    VT_PARSE_TOO_DENSE = -10  // more nodes and values than the text can hold (below)
};

// A node or value costs about 100 bytes of memory whatever its text, so a dump of
// tiny lines would cost 20 times its size. Past the first VT_FREE_ITEMS, the reader
// wants VT_MIN_ITEM_BYTES of text per node or value (real dumps have about 60), which
// keeps a tree within 8 times its dump plus 16 MiB.
const unsigned long VT_FREE_ITEMS = 100000;
const unsigned long VT_MIN_ITEM_BYTES = 20;

// Deepest nesting the reader accepts. The writer, comparison and destruction recurse
// once per level, so this keeps them well inside a thread's stack.
const int VT_MAX_DEPTH = 4096;

// Line buffer of the dump reader; longer lines are cut to this size less one byte.
const size_t VT_DUMP_LINE_MAX = 102400;

// Heap copies; null in gives null out. vtBufDup copies exactly `size` bytes.
// Release with vtFree.
INVSCAN_API char* vtStrDup(const char* s);
INVSCAN_API wchar_t* vtStrDup(const wchar_t* s);
INVSCAN_API unsigned char* vtBufDup(const unsigned char* buf, size_t size);
INVSCAN_API void vtFree(void* p);

struct INVSCAN_API VtVariant {
    char* name = nullptr;
    int type = VT_INTEGER;
    VtVariant* next = nullptr;
    union {
        int i;
        char* s;
        double f;
        wchar_t* u;
        unsigned char* d;
    } value;
    unsigned int length = 0; // byte count of VT_DATA

    VtVariant() { value.d = nullptr; }
    ~VtVariant(); // frees name and payload, not `next`
    VtVariant(const VtVariant&) = delete;
    VtVariant& operator=(const VtVariant&) = delete;

    // Factories: copy the name and payload.
    static VtVariant* newInt(const char* name, int v);
    static VtVariant* newString(const char* name, const char* v);
    static VtVariant* newReal(const char* name, double v);
    static VtVariant* newUnicode(const char* name, const wchar_t* v);
    static VtVariant* newData(const char* name, const unsigned char* v, unsigned int length);
};

struct INVSCAN_API VtNode {
    char* name = nullptr;
    VtNode* next = nullptr;
    VtVariant* values = nullptr;
    VtNode* children = nullptr;

    VtNode() = default;
    explicit VtNode(const char* nodeName); // copies the name; null gives ""
    ~VtNode();                             // frees values and children, not `next`
    VtNode(const VtNode&) = delete;
    VtNode& operator=(const VtNode&) = delete;

    // Append at the end of the list (the appended item's `next` is cleared); return 1.
    // The lists must only grow through these two calls.
    int addValue(VtVariant* v);
    int addChild(VtNode* n);

    // Convenience builders: create, append and return the new item.
    VtVariant* addInt(const char* valueName, int v);
    VtVariant* addString(const char* valueName, const char* v);
    VtVariant* addReal(const char* valueName, double v);
    VtVariant* addUnicode(const char* valueName, const wchar_t* v);
    VtVariant* addData(const char* valueName, const unsigned char* v, unsigned int length);
    VtNode* addNode(const char* childName);

    // The index-th child (0 = first) whose name equals `childName`; a null name
    // matches every child.
    VtNode* getChild(const char* childName, int index) const;
    // The first value named `valueName`, or null.
    VtVariant* getValue(const char* valueName) const;
    // The node at the dotted `path` below this one (null or "" = this node), or null.
    // Each component takes the first child of that name.
    VtNode* getNode(const char* path) const;
    VtVariant* getValue(const char* path, const char* valueName) const;
    // Typed lookups: the tree's own string resp. the integer when the value exists and
    // has that type, otherwise `dflt`.
    const char* getValue(const char* path, const char* valueName, const char* dflt) const;
    int getValue(const char* path, const char* valueName, int dflt) const;

private:
    // Ends of the lists, so that building a node of n entries costs O(n).
    VtVariant* m_lastValue = nullptr;
    VtNode* m_lastChild = nullptr;
    // Where the last getChild(nullptr, i) ended. Children are only ever appended,
    // so the cursor stays valid for the life of the node.
    mutable VtNode* m_cursor = nullptr;
    mutable int m_cursorIndex = 0;
};

// The result of running a helper program (see VtProcess.h).
struct INVSCAN_API VtExecInfo {
    int result = -1; // helper's result code; -1 until a valid header was read
    int major = 0;   // response format version
    int minor = 0;
    char* message = nullptr; // rest of the header line
    VtNode* tree = nullptr;  // root of the dump, or null

    VtExecInfo() = default;
    ~VtExecInfo(); // frees message and tree
    VtExecInfo(const VtExecInfo&) = delete;
    VtExecInfo& operator=(const VtExecInfo&) = delete;
};

// Lookups over a helper's result; these are what the inventory groups use.
INVSCAN_API VtVariant* vtGetValue(const VtExecInfo* info, const char* path, const char* name);
INVSCAN_API int vtGetValue(const VtVariant* v, int dflt);
INVSCAN_API const char* vtGetValue(const VtVariant* v, const char* dflt);
INVSCAN_API int vtGetValue(const VtExecInfo* info, const char* path, const char* name, int dflt);
INVSCAN_API const char* vtGetValue(const VtExecInfo* info, const char* path, const char* name,
                                   const char* dflt);
// The root when `name` is null, else the index-th direct child of the root named
// `name` (a negative index counts as 0), or null.
INVSCAN_API VtNode* vtGetNode(const VtExecInfo* info, const char* name, int index);

// Dump writer. The plain forms print to standard output.
INVSCAN_API const char* vtGetIndentString();
INVSCAN_API void vtIndent(int level);
INVSCAN_API void vtIndent(std::FILE* out, int level);
INVSCAN_API void vtDumpValue(const VtVariant* v, int level);
INVSCAN_API void vtDumpValue(std::FILE* out, const VtVariant* v, int level);
INVSCAN_API void vtDumpNode(const VtNode* n, int level);
INVSCAN_API void vtDumpNode(std::FILE* out, const VtNode* n, int level);
// The contents of a root (its values, then its children) at level 0: what a helper
// prints after the response header, and what vtParseNodeDump reads back into an
// equal root.
INVSCAN_API void vtDumpTree(std::FILE* out, const VtNode* root);
// The helper side of the protocol: "1.0 <result>[ <message>]\n".
INVSCAN_API void vtDumpResponse(int result, const char* message);
INVSCAN_API void vtDumpResponse(std::FILE* out, int result, const char* message);

// Dump reader: reads lines into `root` until end of input. Returns VT_PARSE_OK (also
// when input ends inside open nodes, which are then dropped) or a negative
// VtParseError.
INVSCAN_API int vtParseNodeDump(VtILineStream* in, VtNode* root);
// Parses into a new root named ""; null on any error.
INVSCAN_API VtNode* vtParseNodeDump(VtILineStream* in);
// The same over a buffer in memory; `error` (optional) receives the parse result.
INVSCAN_API VtNode* vtParseDumpBuffer(const char* data, size_t size, int* error = nullptr);

// Structural equality: names, value order, types and payloads, child order. Reals
// compare by value (NaN equals NaN).
INVSCAN_API bool vtNodeEquals(const VtNode* a, const VtNode* b);

// UTF-8 encoding into at most size-1 bytes plus NUL; a character that no longer fits
// is skipped. Returns the number of characters encoded (not bytes).
INVSCAN_API int stringToUTF8(unsigned char* dst, size_t size, const wchar_t* src);
// UTF-8 decoding, unvalidated, into at most size-1 characters plus NUL. Returns the
// number of characters written.
INVSCAN_API int utf8ToWideChar(wchar_t* dst, size_t size, const unsigned char* src);
// Cuts `s` at its first LF or CR, stepping over multibyte characters of the current
// locale; an invalid sequence cuts there. Returns `s`.
INVSCAN_API char* removeEndOfLine(char* s);

// Broken invariants of the tree code: prints "<file>:<line>: failed assertion `<expr>'"
// on standard error and aborts.
[[noreturn]] INVSCAN_API void vtAssertFail(const char* file, unsigned line, const char* expr);

#endif

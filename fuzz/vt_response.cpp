// Response header parser: any helper output gives a consistent record, and a valid
// response written back by the helper side reads the same.
#include "invscan/VtProcess.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 65536) return 0;
    size_t chunk = size ? data[0] % 7 : 0;
    VtIStream_Memory mem(reinterpret_cast<const char*>(data), size, chunk);
    VtExecInfo* info = vtParseProgramOutput(&mem);
    if (!info) std::abort();
    if (info->result < 0) {
        if (info->message || info->tree) std::abort();
        delete info;
        return 0;
    }
    if (info->major <= 0 || info->minor < 0 || !info->message) std::abort();
    if (std::strlen(info->message) > 255) std::abort();

    char* text = nullptr;
    size_t textSize = 0;
    std::FILE* out = open_memstream(&text, &textSize);
    if (!out) std::abort();
    vtDumpResponse(out, info->result, info->message);
    if (info->tree) vtDumpTree(out, info->tree);
    std::fclose(out);

    VtIStream_Memory again(text, textSize);
    VtExecInfo* back = vtParseProgramOutput(&again);
    if (back->result != info->result || back->major != 1 || back->minor != 0) std::abort();
    // The rewritten header may be a byte longer ("1.0 0ok" becomes "1.0 0 ok"), so a
    // message that filled the line can lose its last byte.
    size_t a = std::strlen(info->message), b = std::strlen(back->message);
    if (b > a || a - b > 1 || std::strncmp(info->message, back->message, b) != 0) std::abort();
    // A tree that was read is written and read again; without one, the rewritten
    // response has an empty dump, which reads as an empty root.
    if (!back->tree || (!info->tree && (back->tree->values || back->tree->children))) std::abort();
    std::free(text);
    delete back;
    delete info;
    return 0;
}

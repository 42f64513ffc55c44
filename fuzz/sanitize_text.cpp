// The sanitiser over any bundle text: learning values from it and rewriting it
// never reads out of bounds or throws.
#include "cli/Sanitize.h"

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 16)) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    Sanitizer s("fuzz");
    // The first line is a value of each kind, the rest the text to rewrite.
    std::size_t nl = text.find('\n');
    std::string value = text.substr(0, nl);
    s.learn(Sanitizer::SERIAL, value);
    s.learn(Sanitizer::HEX, value);
    s.learn(Sanitizer::HOST, value);
    s.rewrite(text);
    s.address(value);
    return 0;
}

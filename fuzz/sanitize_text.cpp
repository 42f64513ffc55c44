// The sanitiser over any bundle text: learning values from it (by kind and by the
// keys, registry names, property lists and syslog lines it holds) and rewriting it
// never reads out of bounds or throws, and rewriting is stable for one sanitiser.
#include "cli/Sanitize.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 16)) return 0;
    std::string text(reinterpret_cast<const char*>(data), size);
    Sanitizer s("fuzz");
    // The first line is a value of each kind, the rest the text to rewrite.
    std::size_t nl = text.find('\n');
    std::string value = text.substr(0, nl);
    for (Sanitizer::Kind k :
         {Sanitizer::SERIAL, Sanitizer::HEX, Sanitizer::HOST, Sanitizer::COMPUTER, Sanitizer::USER})
        s.learn(k, value);
    s.learnText(text);
    const std::string once = s.rewrite(text);
    if (s.rewrite(text) != once) std::abort();
    s.address(value);
    return 0;
}

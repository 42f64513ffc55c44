// Toolbox::match and the token and version helpers over arbitrary text: the
// input is split at its first NUL byte into a text and a pattern.
#include "invscan/Toolbox.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    size_t nul = input.find('\0');
    std::string text = input.substr(0, nul);
    std::string pattern = nul == std::string::npos ? std::string("%a %b") : input.substr(nul + 1);
    pattern = pattern.substr(0, pattern.find('\0'));

    std::map<std::string, std::string> fields;
    bool matched = Toolbox::match(text.c_str(), pattern.c_str(), fields);
    if (matched && fields["rest"].find_first_not_of(" \t\n\v\f\r") != std::string::npos)
        __builtin_trap(); // a whole match leaves nothing behind
    Toolbox::compareVersions(text.c_str(), pattern.c_str());
    Toolbox::strcasestr(text.c_str(), pattern.c_str());
    Toolbox::trim(text.c_str());
    int pos = 0;
    while (!Toolbox::get_token(text.c_str(), pos).empty()) {
    }
    return 0;
}

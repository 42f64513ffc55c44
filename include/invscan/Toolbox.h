// Static text utilities shared by the scanners.
#ifndef INVSCAN_TOOLBOX_H
#define INVSCAN_TOOLBOX_H

#include "invscan_export.h"

#include <cstdio>
#include <map>
#include <string>

class INVSCAN_API Toolbox {
public:
    static bool str2ulong(const char* s, unsigned long& out, int base);
    static bool str2long(const char* s, long& out, int base);

    // Next white-space separated token of the stream, in a static buffer valid
    // until the next call; null at end of input. A last token that no white space
    // follows is not returned, and a token over 99 characters is refused.
    static const char* get_token(std::FILE* f);
    static std::string get_token(const char* s, int& pos);

    static std::string trim(const char* s);
    static const char* strcasestr(const char* hay, const char* needle);

    // 1, 0 or -1. Components are read with strtol base 0, so "010" is octal.
    static int compareVersions(const char* a, const char* b);

    // Token pattern match: "%name" captures a text token into fields[name];
    // fields["matched"] and fields["rest"] tell how far the text matched.
    static bool match(const char* text, const char* pattern,
                      std::map<std::string, std::string>& fields);
};

#endif

// Wide-character string of the platform base library. Conversion to and from
// multibyte text follows the current C locale (LC_CTYPE).
#ifndef INVSCAN_STRING_H
#define INVSCAN_STRING_H

#include "invscan_export.h"

#include <cstddef>
#include <string>

class INVSCAN_API String {
public:
    String() = default;
    String(const char* text);    // multibyte text; null gives the empty string
    String(const wchar_t* text); // null gives the empty string
    String(const std::wstring& text) : m_text(text) {}

    String& concat(const String& other);
    String operator+(const String& other) const;
    String& operator+=(const String& other) { return concat(other); }

    // 0 when equal, negative or positive like wcscmp.
    int compareTo(const String& other) const;
    bool operator==(const String& other) const { return m_text == other.m_text; }
    bool operator!=(const String& other) const { return m_text != other.m_text; }
    bool operator<(const String& other) const { return m_text < other.m_text; }

    String trim() const;
    String toLowerCase() const;
    size_t length() const { return m_text.size(); }
    bool isEmpty() const { return m_text.empty(); }

    const wchar_t* c_str() const { return m_text.c_str(); }
    const std::wstring& wstr() const { return m_text; }

    // Multibyte form in the current locale; a character that cannot be converted
    // becomes its own byte when below 0x100 (the inverse of the constructor), else
    // '?'.
    std::string toMultiByte() const;

private:
    std::wstring m_text;
};

#endif

#include "invscan/String.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

String::String(const char* text) {
    if (!text || !*text) return;
    std::mbstate_t state{};
    const char* p = text;
    size_t left = std::strlen(text);
    while (left > 0) {
        wchar_t wc = 0;
        size_t n = std::mbrtowc(&wc, p, left, &state);
        if (n == static_cast<size_t>(-1) || n == static_cast<size_t>(-2)) {
            // Undecodable byte: keep it as its own code so that nothing is lost.
            m_text.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
            state = std::mbstate_t{};
            ++p;
            --left;
            continue;
        }
        if (n == 0) break;
        m_text.push_back(wc);
        p += n;
        left -= n;
    }
}

String::String(const wchar_t* text) {
    if (text) m_text = text;
}

String& String::concat(const String& other) {
    m_text += other.m_text;
    return *this;
}

String String::operator+(const String& other) const {
    String r(*this);
    r.concat(other);
    return r;
}

int String::compareTo(const String& other) const {
    return m_text.compare(other.m_text);
}

String String::trim() const {
    size_t b = 0, e = m_text.size();
    while (b < e && std::iswspace(static_cast<wint_t>(m_text[b])))
        ++b;
    while (e > b && std::iswspace(static_cast<wint_t>(m_text[e - 1])))
        --e;
    return String(m_text.substr(b, e - b));
}

String String::toLowerCase() const {
    std::wstring r(m_text);
    for (auto& c : r)
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return String(r);
}

std::string String::toMultiByte() const {
    std::string out;
    out.reserve(m_text.size());
    std::mbstate_t state{};
    char buf[MB_LEN_MAX];
    for (wchar_t wc : m_text) {
        size_t n = std::wcrtomb(buf, wc, &state);
        if (n == static_cast<size_t>(-1)) {
            // Codes up to 0xFF are bytes the constructor could not decode (any
            // non-ASCII byte in the C locale): give the byte back, so that a path
            // survives the round trip.
            out.push_back(wc >= 0 && wc <= 0xFF ? static_cast<char>(wc) : '?');
            state = std::mbstate_t{};
        } else {
            out.append(buf, n);
        }
    }
    return out;
}

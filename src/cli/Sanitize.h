// Sanitised sharing: serial numbers, UUIDs, hardware and IP addresses, host and
// domain names replaced by pseudonyms of the same shape. A pseudonym is a keyed
// hash of the original, so one value always gets the same one and scans still diff.
#ifndef INVSCAN_CLI_SANITIZE_H
#define INVSCAN_CLI_SANITIZE_H

#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

class Sanitizer {
public:
    // SERIAL keeps each character's class (digit, upper, lower), HEX keeps hexadecimal
    // digits hexadecimal (UUIDs, row ids), HOST changes every label but the top one.
    enum Kind { SERIAL, HEX, HOST };

    explicit Sanitizer(const std::string& key);

    // Notes an original value and returns its pseudonym. Addresses need no noting:
    // every IPv4, IPv6 and hardware address in a text is replaced wherever it appears.
    std::string learn(Kind kind, const std::string& value);

    // The kind of a table's attribute, by the names the catalogue gives; false when
    // the attribute holds nothing to hide.
    static bool attributeKind(const std::string& table, const std::string& attribute, Kind* kind);

    // Notes the values a JSON table holds (before any of them is rewritten).
    void learnTable(const nlohmann::ordered_json& table);
    // Rewrites every text value of a JSON table.
    void sanitizeTable(nlohmann::ordered_json& table) const;

    // The text with every address and every noted value in any of their forms
    // (as written, hexadecimal of their bytes, a UUID's SMBIOS byte order) replaced.
    std::string rewrite(const std::string& text) const;

    // Notes the names a recorded bundle keeps beside the tables (node name, looked-up
    // names, resolver domains, the helpers' serial and name keys), then rewrites
    // every file of the bundle in place. False with the reason on a failure.
    bool sanitizeBundle(const std::string& dir, std::string* why);

    // The pseudonym of an address token, or the token itself when it is none.
    std::string address(const std::string& token) const;

private:
    std::string stream(const std::string& tag, std::size_t n) const;
    // Each character replaced from the keyed stream of `tag` by one of its own class:
    // digits by digits, letters by letters of the same case (hexadecimal digits by
    // hexadecimal digits when `hex`); anything else kept.
    std::string shaped(const std::string& tag, const std::string& value, bool hex) const;
    // How a form must stand in a text to be replaced.
    enum Match { ANYWHERE, WORD, NAME };
    void addForm(const std::string& from, const std::string& to, Match match);
    void learnHelperKeys(const std::string& dump);

    std::string m_key;
    // Original form -> pseudonym form. Hexadecimal forms match anywhere; others only
    // as whole words; a one-label host name only where no name character touches it
    // (so that "vm" is not taken out of "vm.swapusage").
    struct Form {
        std::string from, to;
        Match match;
    };
    std::vector<Form> m_forms;
};

// The key of this installation: read from `path`, made there (mode 0600) on first use.
// Empty with the reason in `why` when it can be neither read nor made.
std::string sanitizeKeyFromFile(const std::string& path, std::string* why);

#endif

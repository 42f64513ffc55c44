// Sanitised sharing: serial numbers, UUIDs, hardware and IP addresses, host, domain,
// computer and user names replaced by pseudonyms of the same shape. A pseudonym is a
// keyed hash of the original, so one value always gets the same one and scans still diff.
#ifndef INVSCAN_CLI_SANITIZE_H
#define INVSCAN_CLI_SANITIZE_H

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class Sanitizer {
public:
    // SERIAL keeps each character's class (digit, upper, lower), HEX keeps hexadecimal
    // digits hexadecimal (UUIDs, row ids), HOST changes every label but the top one,
    // COMPUTER is a name people give a machine ("MacBook de Ana", spaces and all), USER
    // a login with its owner's full name ("Ana Lima (ana)").
    enum Kind { SERIAL, HEX, HOST, COMPUTER, USER };

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

    // Notes what a text names by its keys, in whichever of the forms a bundle holds:
    // the helpers' dumps ("serial_number:s=..."), registry listings ("IOPlatformUUID" =
    // "..."), property lists, syslog lines, mount sources ("//ana@nas/share"); and the
    // forms of its addresses that carry no separator (bare MACs, hexadecimal IPv4).
    void learnText(const std::string& text);

    // The text with every address and every noted value in any of their forms
    // (as written, hexadecimal of their bytes, a UUID's SMBIOS byte order) replaced.
    // One pass over the text, whatever the number of values noted.
    std::string rewrite(const std::string& text) const;

    // Marks the bundle incomplete, notes the names it keeps beside the tables (node
    // name, looked-up names, resolver domains, mounts, the helpers' keys), rewrites
    // every file in place and only then removes the mark. The folder is walked and its
    // files opened on descriptors: a link, FIFO or device in it is refused, and so is a
    // bundle whose noted values (with their forms) would take more than 12 MiB. False
    // with the reason (naming the file) on a failure, the bundle then left incomplete.
    bool sanitizeBundle(const std::string& dir, std::string* why);

    // The pseudonym of an address token, or the token itself when it is none.
    std::string address(const std::string& token) const;

    // The original values noted so far, as written (for checks that none survives).
    std::vector<std::string> originals() const;

private:
    std::string stream(const std::string& tag, std::size_t n) const;
    // Each character replaced from the keyed stream of `tag` by one of its own class:
    // digits by digits, letters by letters of the same case (hexadecimal digits by
    // hexadecimal digits when `hex`); anything else kept.
    std::string shaped(const std::string& tag, const std::string& value, bool hex) const;
    std::string learnHost(const std::string& value);
    std::string learnComputer(const std::string& value);
    std::string learnUser(const std::string& value);
    void learnDumpKey(const std::string& key, const std::string& parent, const std::string& value);
    void learnMountSource(const std::string& source);
    std::string macBytes(const std::string& bytes) const;
    void ipv4Bytes(unsigned char b[4]) const;
    // The pseudonym of the address starting at text[i], its length in `len`; empty
    // when none starts there.
    std::string addressAt(const std::string& text, std::size_t i, std::size_t* len) const;

    // How a form must stand in a text to be replaced: hexadecimal forms anywhere;
    // others as whole words; a one-label host name only where no name character
    // touches it (so that "vm" is not taken out of "vm.swapusage").
    enum Match { ANYWHERE, WORD, NAME };
    void addForm(const std::string& from, const std::string& to, Match match);

    // A byte trie: edges keyed by (node << 8 | byte); a node's form, or -1.
    struct Trie {
        std::unordered_map<std::uint64_t, std::uint32_t> next;
        std::vector<std::int32_t> form{-1};
        std::uint32_t step(std::uint32_t node, unsigned char c) const;
        std::uint32_t add(const std::string& s);
    };
    struct Form {
        std::string from, to;
        Match match;
    };

    std::string m_key;
    std::vector<Form> m_forms;
    Trie m_words;             // WORD and NAME forms as written
    Trie m_hex;               // the bytes the hexadecimal forms spell, matched in either case
    std::size_t m_learnt = 0; // bytes the forms and tries take, about
    bool m_full = false;      // a form was dropped: past the cap
};

// The key of this installation: read from `path`, made there (mode 0600) on first use.
// A key others could change (a link of another user, a group- or world-writable file,
// anything but a regular file) is refused. Empty with the reason in `why`.
std::string sanitizeKeyFromFile(const std::string& path, std::string* why);

#endif

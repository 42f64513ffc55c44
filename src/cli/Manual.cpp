#include "cli/Manual.h"

#include "cli/View.h"
#include "invscan/ZelDefs.h"
#include "invscan/ZelTableRow.h"

#include <cstdio>

namespace {

// Text for roff: backslashes and hyphens escaped, no line starting with a control
// character.
std::string roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    std::string safe;
    bool lineStart = true;
    for (char c : out) {
        if (lineStart && (c == '.' || c == '\'')) safe += "\\&";
        safe += c;
        lineStart = c == '\n';
    }
    return safe;
}

void options(const CLI::App& app, std::string* page) {
    for (const CLI::Option* o : app.get_options()) {
        if (o->get_group().empty()) continue; // hidden
        std::string names = o->get_name(false, true);
        if (names.empty() || names[0] != '-') continue; // positional: in the synopsis
        std::string shown;
        std::size_t p = 0;
        for (;;) {
            std::size_t comma = names.find(',', p);
            if (!shown.empty()) shown += ", ";
            shown += "\\fB" +
                     roff(names.substr(p, comma == std::string::npos ? comma : comma - p)) + "\\fR";
            if (comma == std::string::npos) break;
            p = comma + 1;
        }
        if (o->get_type_size() != 0 && !o->get_type_name().empty())
            shown += " \\fI" + roff(o->get_type_name()) + "\\fR";
        *page += ".TP\n" + shown + "\n" + roff(o->get_description()) + "\n";
    }
}

// Enumerations this short are spelt out in full in the manual.
const unsigned long SHORT_ENUM = 8;

// What a value of `a` in group `groupId` is, in words.
std::string attributeText(unsigned long groupId, const zelAttribDef& a) {
    std::string what;
    switch (a.type) {
    case ZEL_UCHAR:
    case ZEL_USHORT:
    case ZEL_ULONG:
    case ZEL_ULONGLONG:
        what = "unsigned number";
        break;
    case ZEL_LONGLONG:
        what = "signed number";
        break;
    case ZEL_FLOAT:
    case ZEL_DOUBLE:
        what = "real number";
        break;
    case ZEL_UQUAD:
        what = "two 32-bit words";
        break;
    case ZEL_STRING:
        what = "text";
        if (a.maxLength) what += " of at most " + std::to_string(a.maxLength) + " characters";
        break;
    case ZEL_OCTETSTRING:
        what = "bytes, in hexadecimal";
        break;
    case ZEL_DATETIME:
        what = "date and time";
        break;
    default:
        what = "value";
        break;
    }
    if (const char* unit = attributeUnit(groupId, a.id)) what += std::string(", in ") + unit;
    if (groupId == ZEL_GROUP_STORAGE && a.id == 10) // how each platform reports a disk
        what += " (of 10^6 bytes from a Linux host, of 2^20 bytes from a Mac)";
    if (a.enumDef) {
        const unsigned long n = zelEnumCount(a.enumDef);
        if (n <= SHORT_ENUM) {
            what += "; one of";
            for (unsigned long i = 0; i < n; ++i)
                what += (i ? ", " : " ") + std::to_string(a.enumDef[i].value) + " = " +
                        a.enumDef[i].name;
        } else {
            what += "; one of " + std::to_string(n) + " named codes, shown by name";
        }
    }
    return std::string(getZelAttribTypeAsString(a.type)) + ": " + what + ".";
}

void groupsSection(std::string* page) {
    *page += ".SH GROUPS\n" +
             roff("Each group is shown with its id and name (either selects it with --group), "
                  "then its attributes, each with its type as the JSON output names it, what its "
                  "values are, and their unit. The readable view leaves out empty values and the "
                  "running Index; the other formats keep every attribute.") +
             "\n";
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        *page += ".SS \"" + std::to_string(g->id) + "  " + roff(g->name) + "\"\n";
        for (const zelAttribDef* a = g->attribs; a && a->id != ZEL_DEF_END; ++a)
            *page += ".TP\n\\fB" + roff(a->name) + "\\fR\n" + roff(attributeText(g->id, *a)) + "\n";
    }
}

} // namespace

std::string groupsHelp() {
    const std::size_t width = 80, indent = 6;
    std::string out = "Groups (id, name: attributes):\n";
    for (const zelGroupDef* g = GROUPS_DEF; g->id != ZEL_DEF_END; ++g) {
        char head[80];
        std::snprintf(head, sizeof head, "%4lu  %s:", static_cast<unsigned long>(g->id), g->name);
        std::string line = head;
        for (const zelAttribDef* a = g->attribs; a && a->id != ZEL_DEF_END; ++a) {
            const bool last = a[1].id == ZEL_DEF_END;
            std::string word = std::string(" ") + a->name + (last ? "" : ",");
            if (line.size() + word.size() > width) {
                out += line + "\n";
                line = std::string(indent - 1, ' ');
            }
            line += word;
        }
        out += line + "\n";
    }
    return out;
}

std::string manualPage(const CLI::App& app, const std::string& version) {
    std::string page = ".TH INVSCAN 1 \"\" \"invscan " + roff(version) + "\" \"User Commands\"\n";
    page += ".SH NAME\ninvscan \\- hardware and software inventory scanner\n";
    page += ".SH SYNOPSIS\n.B invscan\n[\\fIoptions\\fR]\n.br\n";
    for (const CLI::App* sub : app.get_subcommands({})) {
        page += ".B invscan " + roff(sub->get_name()) + "\n[\\fIoptions\\fR]";
        for (const CLI::Option* o : sub->get_options())
            if (o->get_name().empty() || o->get_name()[0] != '-')
                page += " \\fI" + roff(o->get_name(true)) + "\\fR";
        page += "\n.br\n";
    }
    page += ".SH DESCRIPTION\n" +
            roff("invscan scans the inventory groups of this machine, or of a host recorded "
                 "in a bundle, and prints their tables. Without --group it scans every group.") +
            "\n";
    page += ".SH OPTIONS\n";
    options(app, &page);
    for (const CLI::App* sub : app.get_subcommands({})) {
        page += ".SS \"" + roff(sub->get_name()) + "\"\n" + roff(sub->get_description()) + "\n";
        options(*sub, &page);
    }
    page += ".SH FORMATS\n";
    const char* const formats[][2] = {
        {"text", "The default: a view to read. A header names the host, its operating system and "
                 "the time of the scan; then each group under its name. A group of one row is "
                 "shown as aligned Attribute: value lines; a group of several rows as a table of "
                 "columns when that fits 100 columns, else as one block of Attribute: value lines "
                 "a row. A group the host does not have says \"no table\" or \"not available\", "
                 "one without rows \"none\". Enumerated values are shown by name, sizes with their "
                 "unit (and in KiB, MiB, GiB... when large), blanks around a value trimmed, "
                 "control characters escaped and "
                 "invalid UTF-8 replaced."},
        {"dump", "The tables' own block dump: every attribute with its id, type code and value."},
        {"json", "One JSON document: the tool, its version, the format number, the kernel, the "
                 "host name and the time of the scan, then every table with its id, name, "
                 "version, status and rows of attributes (id, name, type, value, and the text of "
                 "an enumerated value)."},
        {"glpi", "A GLPI native inventory made from the same tables."},
    };
    for (const auto& f : formats)
        page += ".TP\n\\fB" + roff(f[0]) + "\\fR\n" + roff(f[1]) + "\n";
    groupsSection(&page);
    // The footer of --help may carry the group list as well: that has its own section.
    std::string exits = app.get_footer();
    const std::string groups = groupsHelp();
    const std::size_t at = exits.find(groups);
    if (at != std::string::npos) exits.erase(at, groups.size());
    while (!exits.empty() && (exits.back() == '\n' || exits.back() == ' '))
        exits.pop_back();
    while (!exits.empty() && exits.front() == '\n')
        exits.erase(0, 1);
    page += ".SH \"EXIT STATUS\"\n" + roff(exits) + "\n";
    page += ".SH ENVIRONMENT\n";
    const char* const env[][2] = {
        {"KOR_HOMEDIR", "The folder whose bin holds the helper programs; set from the "
                        "installation when unset."},
        {"INVSCAN_TRACE", "stderr or a file: the trace channel, as --trace."},
        {"INVSCAN_CONFIG_DIR, INVSCAN_CONFIG_FILE",
         "The hardware configuration file when --config is not given."},
        {"INVSCAN_REPLAY, INVSCAN_RECORD", "Set by --replay and --record for the helpers."},
    };
    for (const auto& e : env)
        page += ".TP\n\\fB" + roff(e[0]) + "\\fR\n" + roff(e[1]) + "\n";
    page += ".SH FILES\n.TP\n\\fI~/.config/invscan/sanitize.key\\fR\n" +
            roff("The key of --sanitize, made on first use when the installation keeps none.") +
            "\n";
    page += ".SH EXAMPLES\n.nf\n" +
            roff("invscan --format json > monday.json\n"
                 "invscan --format json | invscan diff monday.json -\n"
                 "invscan --record /tmp/host --sanitize\n") +
            ".fi\n";
    return page;
}

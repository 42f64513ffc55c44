#include "cli/Manual.h"

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

} // namespace

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
                 "in a bundle, and prints their tables as the tables' own text dump, as JSON, "
                 "or as a GLPI native inventory. Without --group it scans every group.") +
            "\n";
    page += ".SH OPTIONS\n";
    options(app, &page);
    for (const CLI::App* sub : app.get_subcommands({})) {
        page += ".SS \"" + roff(sub->get_name()) + "\"\n" + roff(sub->get_description()) + "\n";
        options(*sub, &page);
    }
    page += ".SH \"EXIT STATUS\"\n" + roff(app.get_footer()) + "\n";
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

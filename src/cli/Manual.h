// The manual page invscan(1), made from the same option table as --help, so that the
// two never disagree.
#ifndef INVSCAN_CLI_MANUAL_H
#define INVSCAN_CLI_MANUAL_H

#include <CLI/CLI.hpp>

#include <string>

// Roff text of the page: the options and subcommands of `app`, the output formats, its
// footer as the exit statuses, and the environment and files the program reads.
// The GROUPS section lists every group of the catalogue with its attributes. A copy of
// groupsHelp() in the footer is left out of the exit statuses.
std::string manualPage(const CLI::App& app, const std::string& version);

// Every group's id, name and attribute names, wrapped to 80 columns, for the footer
// of --help.
std::string groupsHelp();

#endif

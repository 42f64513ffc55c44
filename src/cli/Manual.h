// The manual page invscan(1), made from the same option table as --help, so that the
// two never disagree.
#ifndef INVSCAN_CLI_MANUAL_H
#define INVSCAN_CLI_MANUAL_H

#include <CLI/CLI.hpp>

#include <string>

// Roff text of the page: the options and subcommands of `app`, its footer as the exit
// statuses, and the environment and files the program reads.
std::string manualPage(const CLI::App& app, const std::string& version);

#endif

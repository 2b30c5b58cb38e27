// What several commands take on their command lines, and how its texts become values.
#ifndef KESTOVA_TOOLS_SHELL_OPTIONS_H
#define KESTOVA_TOOLS_SHELL_OPTIONS_H

#include <CLI/CLI.hpp>
#include <exception>
#include <string>
#include <vector>

#include "sessions/radarchoice.h"

namespace tool
{
// Turns a parser that throws std::invalid_argument into a check of the command line, so that a wrong text is wrong
// usage and its message is the parser's.
template <typename tParser>
CLI::Validator checkedBy(tParser parse)
{
    return CLI::Validator(
        [parse](std::string& text) -> std::string {
            try
            {
                parse(text);
                return {};
            }
            catch (const std::exception& error)
            {
                return error.what();
            }
        },
        "");
}

// --streams, repeatable and with commas; the texts go to parseStreams.
CLI::Option* addStreams(CLI::App& command, std::vector<std::string>& texts);

// Adds --radars, --radar and --id; returns --radars.
CLI::Option* addRadar(CLI::App& command, tRadarChoice& radar);
}  // namespace tool

#endif

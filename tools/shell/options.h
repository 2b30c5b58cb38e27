// Options that several commands share, and the checks of their texts.
#ifndef KESTOVA_TOOLS_SHELL_OPTIONS_H
#define KESTOVA_TOOLS_SHELL_OPTIONS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "sessions/radarchoice.h"
#include "tools/shell/console.h"

namespace tool
{
// Returns a check of the command line from a parser that throws std::invalid_argument: an error is wrong usage,
// reported with the message of the parser.
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

// What every command that reads recordings takes.
struct tRecordingOptions
{
    std::vector<std::string> paths;
    std::string suffix = ".data";
    bool json = false;
};

// Adds the arguments PATH...: files, recording folders or storage roots.
void addPaths(CLI::App& command, std::vector<std::string>& paths);
// Adds --suffix.
void addSuffix(CLI::App& command, std::string& suffix);

// Adds --streams, repeatable and with commas; the texts go to recordings::parseStreams.
CLI::Option* addStreams(CLI::App& command, std::vector<std::string>& texts);

// Adds --radars, --radar and --id; returns --radars.
CLI::Option* addRadar(CLI::App& command, session::tRadarChoice& radar);

// Adds --duration.
void addDuration(CLI::App& command, std::string& text);

// Return checks of a number's text for an option: the errors are sentences in plain words.
CLI::Validator wholeNumber(std::uint64_t least = 0, std::uint64_t greatest = UINT64_MAX);
CLI::Validator decimalNumber(double least, double greatest);

// What every command takes.
struct tVolumeOptions
{
    bool verbose = false;
    bool quiet = false;

    eVolume chosen() const;
};
// Adds --verbose and --quiet.
void addVolume(CLI::App& command, tVolumeOptions& volume);

// Adds --json for results as one object.
void addJson(CLI::App& command, bool& json);

// Adds --utc, which acts at once.
void addUtc(CLI::App& command);
}  // namespace tool

#endif

// What several commands take on their command lines, and how its texts become values.
#ifndef KESTOVA_TOOLS_OPTIONS_H
#define KESTOVA_TOOLS_OPTIONS_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "KestovaUtils/multiradarclient.h"

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

// A radar of a directory file.
struct tRadarOptions
{
    std::string directory;
    std::string serial;
    unsigned short id = 0;

    // Adds --radars, --radar and --id; returns --radars.
    CLI::Option* addTo(CLI::App& command);
    // Loads the directory and looks the radar up. Throws tFailure.
    const RadarAddress& find() const;
};

// The address of a local interface given by its address or name ("127.0.0.1", "eth0"), as net::transAddr returns it.
// Throws tFailure where this machine has no such interface.
std::uint32_t localAddress(const std::string& nameOrAddress);
}  // namespace tool

#endif

// The options that name what to receive, the same for record, check and monitor.
#ifndef KESTOVA_TOOLS_COMMANDS_RECORDSOURCE_H
#define KESTOVA_TOOLS_COMMANDS_RECORDSOURCE_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "sessions/record/recordsession.h"

namespace tool
{
struct tSourceOptions
{
    session::tRecordOptions record;
    std::vector<std::string> streams;  // as texts
    std::vector<std::string> groups;   // as texts

    session::tRecordOptions parsed() const;  // with the streams and groups of the texts
};

// Adds --radars, --radar, --id, --streams, --group and --local-ip.
void addSource(CLI::App& command, tSourceOptions& options);

// Throws CLI::RequiredError unless a radar or a group is given.
void requireSource(const CLI::App& command);
}  // namespace tool

#endif

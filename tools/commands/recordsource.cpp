#include "tools/commands/recordsource.h"

#include "KestovaRecordings/groupaddress.h"
#include "tools/shell/options.h"

namespace tool
{
using namespace recordings;

session::tRecordOptions tSourceOptions::parsed() const
{
    session::tRecordOptions options = record;
    options.streams = parseStreams(streams);
    for (const std::string& group : groups)
        options.groups.push_back(parseGroup(group));
    return options;
}

void addSource(CLI::App& command, tSourceOptions& options)
{
    CLI::Option* const directory = addRadar(command, options.record.radar);
    CLI::Option* const radar = command.get_option("--radar")->needs(directory);
    directory->needs(radar);
    command.get_option("--id")->needs(radar);
    CLI::Option* const streams = addStreams(command, options.streams)->needs(radar);
    command.add_option("--group", options.groups, "A group to receive, repeatable")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->excludes(radar)
        ->excludes(streams);
    command.add_option("--local-ip", options.record.localIp, "Interface to receive on, by address or name")
        ->type_name("ADDRESS");
}

void requireSource(const CLI::App& command)
{
    if (command.get_option("--radar")->empty() && command.get_option("--group")->empty())
        throw CLI::RequiredError("--radar or --group");
}
}  // namespace tool

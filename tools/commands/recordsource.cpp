#include "tools/commands/recordsource.h"

#include <fmt/format.h>
#include <utility>

#include "KestovaRecordings/groupaddress.h"
#include "tools/shell/options.h"

namespace tool
{
using namespace recordings;

namespace
{
// Quoted where a shell would split or change it.
std::string quoted(const std::string& text)
{
    constexpr char cPlain[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./:,@%+=";
    if (!text.empty() && text.find_first_not_of(cPlain) == std::string::npos)
        return text;
    std::string out = "'";
    for (const char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}
}  // namespace

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

std::string sourceText(const tSourceOptions& options)
{
    std::string text;
    const auto add = [&text](const char* option, const std::string& value) {
        text += fmt::format("{}{} {}", text.empty() ? "" : " ", option, quoted(value));
    };
    const session::tRadarChoice& radar = options.record.radar;
    if (options.groups.empty())
    {
        add("--radars", radar.directory);
        add("--radar", radar.serial);
        add("--id", std::to_string(radar.id));
    }
    for (const std::string& streams : options.streams)
        add("--streams", streams);
    for (const std::string& group : options.groups)
        add("--group", group);
    if (!options.record.localIp.empty())
        add("--local-ip", options.record.localIp);
    return text;
}
}  // namespace tool

// kestova replay: plays a recording, counting its records at the terminal or sending them onto the network.
#include <memory>
#include <stdexcept>

#include "tools/commands/commands.h"
#include "tools/commands/replayrun.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
struct tOptions
{
    session::tReplayOptions replay;
    std::vector<std::string> streams;
    std::string start;
    std::vector<std::string> maps;
    bool json = false;
};

int replay(const tOptions& given, tConsole& console)
{
    session::tReplayOptions options = given.replay;
    options.streams = recordings::parseStreams(given.streams);
    if (!given.start.empty())
        options.start = parseMoment(given.start);
    for (const std::string& rule : given.maps)
        options.map.add(rule);
    return tReplayRun(options, given.start, given.json, console).run();
}

// Reports a wrong rule, or rules that contradict each other, as wrong usage.
void checkMaps(const std::vector<std::string>& rules)
try
{
    session::tAddressMap map;
    for (const std::string& rule : rules)
        map.add(rule);
}
catch (const std::invalid_argument& error)
{
    throw CLI::ValidationError("--map", error.what());
}

void addPlaying(CLI::App& command, tOptions& options)
{
    addPath(command, options.replay.path);
    addSuffix(command, options.replay.suffix);
    command.add_option("--speed", options.replay.speed, "2 to 10 fast; 0.5 plays a third, 0.1 an eleventh of the pace")
        ->check(CLI::Range(0.1, 10.0))
        ->capture_default_str();
    command.add_option("--start", options.start, "Where to begin: 0.5, 90s, 00:01:30 or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    addStreams(command, options.streams);
    addJson(command, options.json);
}

void addNetwork(CLI::App& command, tOptions& options)
{
    CLI::Option* const net = command.add_flag("--net", options.replay.net, "Send onto the groups that were recorded");
    command.add_option("--local-ip", options.replay.localIp, "Interface to send on, by address or name")
        ->type_name("ADDRESS")
        ->needs(net);
    command
        .add_option("--map", options.maps, "Send elsewhere: ADDRESS:PORT=ADDRESS:PORT or ADDRESS=ADDRESS, repeatable")
        ->type_name("FROM=TO")
        ->allow_extra_args(false)
        ->needs(net);
}
}  // namespace

void addReplay(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("replay", "Play a recording to the terminal or onto the network");
    command.footer(
        "Plays at the recorded pace and ends with a table of what was played. At a terminal, keys steer it: space\n"
        "pauses, left and right jump 10 s, up and down a minute, + and - change the speed, q ends.\n"
        "Examples: kestova replay recordings --start 00:10:00 --speed 4 --streams imageStream,arpaStream\n"
        "          kestova replay recordings --net --local-ip eth0 --map 239.17.0.1:6001=239.99.0.1:6001");
    addPlaying(command, *options);
    addNetwork(command, *options);
    CLI::Option* const loop =
        command.add_option("--loop", options->replay.passes, "Play so many times; until Ctrl-C without a number")
            ->type_name("[N]")
            ->expected(0, 1)
            ->check(CLI::PositiveNumber);
    command.callback([options, loop, &chosen] {
        checkMaps(options->maps);
        if (!loop->empty() && loop->results().front().empty())
            options->replay.passes = 0;
        chosen = [options](tConsole& console) { return replay(*options, console); };
    });
}
}  // namespace tool

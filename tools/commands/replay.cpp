// kestova replay: plays a recording to the terminal, as a summary of what passes, or back onto the network.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"
#include "tools/shell/command.h"
#include "tools/shell/console.h"

#include "KestovaRecordings/archive.h"
#include "tools/commands/replaying.h"
#include "tools/shell/options.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
// The files to be played. Refuses what would end at once without a word.
std::vector<std::string> playableFiles(const tReplayOptions& options)
{
    std::string reason = "it holds no records";
    const std::vector<std::string> files = findRecordings(options.path, options.suffix);
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        if (!file.open(path, &reason))
            continue;
        if (isReadable(file))
            return files;
        reason = path + " holds no records";
    }
    throw tFailure(fmt::format("nothing to play in {}: {}", options.path, reason));
}

int replay(const tReplayOptions& given, tConsole& console)
{
    tReplayOptions options = given;
    if (!options.localIp.empty())
        options.localIp = net::transAddr(localAddress(options.localIp));
    return tReplay(options, playableFiles(options), console).run();
}

// Rules that are wrong, or do not go together, are wrong usage.
void checkMaps(const std::vector<std::string>& rules)
try
{
    tAddressMap map;
    for (const std::string& rule : rules)
        map.add(rule);
}
catch (const std::invalid_argument& error)
{
    throw CLI::ValidationError("--map", error.what());
}

void addPlaying(CLI::App& command, tReplayOptions& options)
{
    command.add_option("path", options.path, "Data file, or folder with data files")
        ->type_name("FILE|FOLDER")
        ->required();
    command.add_option("--suffix", options.suffix, "What names of data files in a folder end in")
        ->capture_default_str();
    command.add_option("--speed", options.speed, "2 to 10 fast; 0.5 plays a third, 0.1 an eleventh of the pace")
        ->check(CLI::Range(0.1, 10.0))
        ->capture_default_str();
    command.add_option("--start", options.start, "Where to begin: 0.5, 90s, 00:01:30 or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    addStreams(command, options.streams);
    command.add_flag("--json", options.json, "Results as one JSON object");
}

void addNetwork(CLI::App& command, tReplayOptions& options)
{
    CLI::Option* const net = command.add_flag("--net", options.net, "Send onto the groups that were recorded");
    command.add_option("--local-ip", options.localIp, "Interface to send on, by address or name")
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
    auto options = std::make_shared<tReplayOptions>();
    CLI::App& command = *app.add_subcommand("replay", "Play a recording to the terminal or onto the network");
    command.footer(
        "Plays at the recorded pace and ends with a table of what was played. At a terminal, keys steer it: space\n"
        "pauses, left and right jump 10 s, up and down a minute, + and - change the speed, q ends.\n"
        "Examples: kestova replay recordings --start 00:10:00 --speed 4 --streams imageStream,arpaStream\n"
        "          kestova replay recordings --net --local-ip eth0 --map 239.17.0.1:6001=239.99.0.1:6001");
    addPlaying(command, *options);
    addNetwork(command, *options);
    CLI::Option* const loop =
        command.add_option("--loop", options->passes, "Play so many times; until Ctrl-C without a number")
            ->type_name("[N]")
            ->expected(0, 1)
            ->check(CLI::PositiveNumber);
    command.callback([options, loop, &chosen] {
        checkMaps(options->maps);
        if (!loop->empty() && loop->results().front().empty())
            options->passes = 0;
        chosen = [options](tConsole& console) { return replay(*options, console); };
    });
}
}  // namespace tool

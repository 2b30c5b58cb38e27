// kestova replay: plays recordings, counting its records at the terminal or sending them onto the network.
#include <charconv>
#include <memory>
#include <stdexcept>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/groupaddress.h"
#include "tools/commands/commands.h"
#include "tools/commands/replayrun.h"
#include "tools/commands/spokelayouts.h"
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
    std::string start, end;
    std::string skipSilence;
    std::vector<std::string> maps;
    std::vector<std::string> as;  // a format and its group
    std::string layout;
    bool json = false;
};

double parseSpeed(const std::string& text)
{
    using session::tPace;
    const auto speed = plainNumber(text);
    if (!speed || *speed < tPace::cSlowest || *speed > tPace::cFastest)
        throw std::invalid_argument("'" + text +
                                    "' is no speed: write a number from 0.001 to 1000000, such as 0.5 or 4");
    return *speed;
}

std::uint64_t parsePasses(const std::string& text)
{
    std::uint64_t passes = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), passes);
    if (error != std::errc() || end != text.data() + text.size() || passes == 0)
        throw std::invalid_argument("'" + text +
                                    "' is no number of times: write 1 or more, or --loop alone behind the paths");
    return passes;
}

std::uint64_t parseSilence(const std::string& text)
{
    const std::uint64_t ms = parseDuration(text);
    if (ms == 0)
        throw std::invalid_argument("'" + text + "' is no silence: write 1 ms or more");
    return ms;
}

int replay(const tOptions& given, tConsole& console)
{
    session::tReplayOptions options = given.replay;
    options.streams = recordings::parseStreams(given.streams);
    if (!given.start.empty())
        options.start = parseMoment(given.start);
    if (!given.end.empty())
        options.end = parseMoment(given.end);
    if (!given.skipSilence.empty())
        options.skippedSilenceMs = parseSilence(given.skipSilence);
    for (const std::string& rule : given.maps)
        options.map.add(rule);
    if (!given.as.empty())
        options.cat240 = session::tReplayedCat240{
            recordings::parseGroup(given.as.back()),
            spokeLayoutsFor(recordings::findAllRecordings(options.paths, options.suffix).files, given.layout)};
    return tReplayRun(options, given.start, given.end, given.json, console).run();
}

// Reports a wrong format or group as wrong usage.
void checkFormat(const std::vector<std::string>& as)
try
{
    if (!as.empty() && as.front() != "cat240")
        throw CLI::ValidationError("--as", "'" + as.front() + "' is no format that spokes can be sent in: cat240 is");
    if (!as.empty())
        recordings::parseGroup(as.back());
}
catch (const std::invalid_argument& error)
{
    throw CLI::ValidationError("--as", error.what());
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

void addPace(CLI::App& command, tOptions& options)
{
    CLI::Option* const speed =
        command.add_option("--speed", options.replay.speed, "Recorded time over playing time, 0.001 to 1000000")
            ->type_name("N")
            ->check(checkedBy(parseSpeed))
            ->capture_default_str();
    command.add_flag("--top-speed", options.replay.topSpeed, "As fast as it goes: every record, in order")
        ->excludes(speed);
}

void addPlaying(CLI::App& command, tOptions& options)
{
    addPaths(command, options.replay.paths);
    addSuffix(command, options.replay.suffix);
    addPace(command, options);
    command.add_option("--start", options.start, "Where to begin: +90s, -90s, 50% or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    command.add_option("--end", options.end, "Where to end, before what is recorded there")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    command.add_flag("--follow", options.replay.follow, "Play on while it is being recorded, until its recorder ends");
    command
        .add_option("--skip-silence", options.skipSilence,
                    "Skip times longer than this when nothing was recorded (10 s)")
        ->type_name("[DUR]")
        ->expected(0, 1)
        ->check(checkedBy(parseSilence));
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
    CLI::Option* const as =
        command
            .add_option("--as", options.as,
                        "cat240 GROUP: send spokes in the public standard for radar video, ASTERIX CAT240, to this "
                        "group")
            ->type_name("FORMAT GROUP:PORT")
            ->expected(2)
            ->needs(net);
    addLayout(command, options.layout);
    command.get_option("--layout")->needs(as);
}
}  // namespace

void addReplay(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("replay", "Play recordings to the terminal or onto the network");
    command.footer(
        "Plays at the recorded pace and ends with a table of what was played; several paths are played as one\n"
        "recording. At a terminal, keys steer it: space pauses, left and right jump 10 s, up and down a minute, + and "
        "-\n"
        "change the speed, g skips a time when nothing was recorded, n notes the place, q ends. With --start, --end\n"
        "and --loop it plays a part again and again.\n"
        "Examples: kestova replay recordings --start +00:10:00 --speed 4 --streams imageStream,arpaStream\n"
        "          kestova replay recordings --net --local-ip eth0 --map 239.17.0.1:6001=239.99.0.1:6001\n"
        "          kestova replay recordings --net --local-ip eth0 --as cat240 239.99.0.5:8600");
    addPlaying(command, *options);
    addNetwork(command, *options);
    CLI::Option* const loop =
        command.add_option("--loop", options->replay.passes, "Play so many times; until Ctrl-C without a number")
            ->type_name("[N]")
            ->expected(0, 1)
            ->check(checkedBy(parsePasses))
            ->excludes(command.get_option("--follow"));
    CLI::Option* const silence = command.get_option("--skip-silence");
    command.callback([options, loop, silence, &chosen] {
        checkMaps(options->maps);
        checkFormat(options->as);
        if (!loop->empty() && loop->results().front().empty())
            options->replay.passes = 0;
        if (!silence->empty() && options->skipSilence.empty())
            options->skipSilence = std::to_string(recordings::cSilenceMs) + "ms";
        chosen = [options](tConsole& console) { return replay(*options, console); };
    });
}
}  // namespace tool

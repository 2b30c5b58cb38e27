// kestova diff: what differs between two recordings.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <set>

#include "KestovaRecordings/comparison.h"
#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/replay/addressmap.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
constexpr double cUsPerMs = 1000.0;

struct tOptions
{
    tCompareOptions compare;
    std::vector<std::string> streams, maps;
    std::string tolerance;
    bool json = false;
};

std::uint64_t millisecondsOf(std::int64_t us)
{
    return static_cast<std::uint64_t>(us / 1000);
}

// Returns whole milliseconds as a whole number.
tJson durationJson(double us)
{
    const double rounded = std::round(us);
    if (std::fmod(rounded, cUsPerMs) == 0.0)
        return static_cast<std::int64_t>(rounded / cUsPerMs);
    return rounded / cUsPerMs;
}

tJson placeJson(const std::optional<tDifferencePlace>& place)
{
    if (!place)
        return nullptr;
    const auto timeJson = [](const std::optional<std::int64_t>& us) -> tJson {
        return us ? tJson(millisecondsOf(*us)) : tJson(nullptr);
    };
    return {{"a_ms", timeJson(place->aUs)}, {"b_ms", timeJson(place->bUs)}};
}

tJson clockJson(const std::optional<tClockDifference>& clock)
{
    if (!clock)
        return nullptr;
    return {{"offset_ms", durationJson(clock->offsetUs)},
            {"deviation_p50_ms", durationJson(clock->deviationP50Us)},
            {"deviation_p99_ms", durationJson(clock->deviationP99Us)},
            {"deviation_max_ms", durationJson(clock->deviationMaxUs)}};
}

tJson diffJson(const tOptions& options, const tRecordingComparison& found)
{
    tJson rows = tJson::array();
    for (const tStreamDifference& row : found.streams)
        rows.push_back({{"stream", row.named ? row.key.name() : ""},
                        {"address", row.key.address()},
                        {"same", row.same},
                        {"only_a", row.onlyA},
                        {"only_b", row.onlyB},
                        {"changed", row.changed},
                        {"moved", row.moved},
                        {"late", row.late},
                        {"first", placeJson(row.first)}});
    return {{"schema", "kestova/diff/1"},      {"a", options.compare.a},
            {"b", options.compare.b},          {"equal", found.equal()},
            {"clock", clockJson(found.clock)}, {"damaged_a", found.damagedA},
            {"damaged_b", found.damagedB},     {"skipped", leftOutJson(found.leftOut)},
            {"streams", std::move(rows)}};
}

std::string placeText(const std::optional<tDifferencePlace>& place)
{
    if (!place)
        return "";
    if (place->aUs)
        return "A " + timeText(millisecondsOf(*place->aUs));
    return "B " + timeText(millisecondsOf(place->bUs.value_or(0)));
}

std::string clockText(const tClockDifference& clock)
{
    const auto text = [](double us) { return fmt::format("{:.3f} ms", us / cUsPerMs); };
    const double offsetUs = std::abs(clock.offsetUs);
    const std::string offset = offsetUs < 1000 * cUsPerMs
                                   ? text(offsetUs)
                                   : durationText(static_cast<std::uint64_t>(std::llround(offsetUs / cUsPerMs)));
    return fmt::format("B is {} {} than A; deviation p50 {}, p99 {}, greatest {}\n", offset,
                       clock.offsetUs < 0 ? "earlier" : "later", text(clock.deviationP50Us), text(clock.deviationP99Us),
                       text(clock.deviationMaxUs));
}

std::string diffText(const tRecordingComparison& found)
{
    std::string text = fmt::format("{:<18}{:<23}{:>10}{:>9}{:>9}{:>9}{:>8}{:>8}  {}\n", "stream", "address", "same",
                                   "only A", "only B", "changed", "moved", "late", "first difference");
    std::uint64_t same = 0;
    for (const tStreamDifference& row : found.streams)
    {
        const std::string line = fmt::format("{:<18}{:<23}{:>10}{:>9}{:>9}{:>9}{:>8}{:>8}  {}",
                                             row.named ? row.key.name() : "-", row.key.address(), row.same, row.onlyA,
                                             row.onlyB, row.changed, row.moved, row.late, placeText(row.first));
        text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
        same += row.same;
    }
    if (found.clock)
        text += clockText(*found.clock);
    const auto different = std::ranges::count_if(found.streams, &tStreamDifference::differs);
    if (different > 0)
        return text + fmt::format("{} of {} streams differ\n", different, found.streams.size());
    return text + fmt::format("{}: {} messages in {} streams\n",
                              found.equal() ? "equal" : "no difference in what could be read", same,
                              found.streams.size());
}

int report(const tOptions& options, const tRecordingComparison& found, tConsole& console)
{
    if (options.json)
        printJson(console, diffJson(options, found));
    else
        console.print(diffText(found));
    const auto noteDamaged = [&](const std::string& path, std::uint64_t count) {
        if (count != 0)
            console.note(fmt::format("kestova diff: {}: {} messages could not be read whole", path, count));
    };
    noteDamaged(options.compare.a, found.damagedA);
    noteDamaged(options.compare.b, found.damagedB);
    return worseStatus(found.equal() ? eDone : eDamaged, reportLeftOut(console, "diff", found.leftOut));
}

session::tAddressMap parseMaps(const std::vector<std::string>& rules)
{
    session::tAddressMap map;
    for (const std::string& rule : rules)
        map.add(rule);
    return map;
}

// Throws for rules of groups that A does not have: what they were to compare was not compared.
void requireMatched(const session::tAddressMap& map, const std::set<session::tAddressMap::tGroup>& groups)
{
    if (const auto unmatched = map.unmatched(groups); !unmatched.empty())
        throw tFailure(fmt::format("--map: A has no messages of {}", unmatched.front()));
}

int diff(const tOptions& given, tConsole& console)
{
    tOptions options = given;
    tCompareOptions& compare = options.compare;
    compare.streams = parseStreams(options.streams);
    if (!options.tolerance.empty())
        compare.toleranceMs = parseDuration(options.tolerance);
    const session::tAddressMap map = parseMaps(options.maps);
    std::set<session::tAddressMap::tGroup> groups;  // of A
    compare.mapGroup = [&](const NetAddress& group) {
        std::uint32_t ip = group.ip;
        std::uint16_t port = net::NtoHs(group.port);
        groups.emplace(ip, port);
        map.apply(ip, port);
        return NetAddress{ip, net::HtoNs(port)};
    };
    const tStopSignal stop;
    const tRecordingComparison found = compareRecordings(compare, [&](const tCompareProgress& at) {
        if (console.progressDue())
            console.progress(fmt::format("{:>7}{}", percentText(at.fraction),
                                         at.searching ? "  looking for where both begin to agree" : ""));
        return !stop.requested();
    });
    if (!found.complete)
        throw tFailure("diff was ended before everything was compared");
    requireMatched(map, groups);
    if (!compare.streams.includesAll() && found.streams.empty())
        throw tFailure("none of the chosen streams is in A or B");
    return report(options, found, console);
}

// Throws what the parser throws for a wrong command line.
void requireSense(const tOptions& options)
try
{
    parseMaps(options.maps);
}
catch (const std::invalid_argument& error)
{
    throw CLI::ValidationError("--map", error.what());
}
}  // namespace

void addDiff(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("diff", "Show what differs between two recordings or captures");
    command.footer(
        "Compares the messages of each stream, aligned by their contents: one lost message is one difference.\n"
        "Exit status 0 if both are equal, 3 if not, or if files were skipped.\n"
        "Examples: kestova diff before after\n"
        "          kestova diff radar.pcap recordings --tolerance 5ms");
    command.add_option("A", options->compare.a, "A: a data file, recording folder, storage root or capture")
        ->type_name("PATH")
        ->required();
    command.add_option("B", options->compare.b, "B: what A is compared with")->type_name("PATH")->required();
    addSuffix(command, options->compare.suffix);
    CLI::Option* const ignore =
        command.add_flag("--ignore-time", options->compare.ignoreTime,
                         "Compare no time, that which a replay puts into image state messages included");
    command
        .add_option("--tolerance", options->tolerance,
                    "Messages farther than this from the median difference of time are late")
        ->type_name("DUR")
        ->check(checkedBy(parseDuration))
        ->excludes(ignore);
    addStreams(command, options->streams);
    command
        .add_option("--map", options->maps,
                    "A group of A is this one in B: ADDRESS:PORT=ADDRESS:PORT or ADDRESS=ADDRESS")
        ->type_name("FROM=TO")
        ->allow_extra_args(false);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        requireSense(*options);
        chosen = [options](tConsole& console) { return diff(*options, console); };
    });
}
}  // namespace tool

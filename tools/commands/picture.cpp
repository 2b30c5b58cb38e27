// kestova picture: what the radar showed at a moment of a recording.
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/picture.h"
#include "KestovaRecordings/turnat.h"
#include "tools/commands/commands.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::string at, range, palette = "day", layout, output;
    std::uint64_t size = 900;
    bool northUp = false, targets = false, rings = false;
};

ePalette parsePalette(const std::string& name)
{
    if (const auto palette = paletteNamed(name))
        return *palette;
    throw std::invalid_argument(name + " is none of day, dusk, night, grey");
}

tPictureOptions pictureOptions(const tOptions& options)
{
    tPictureOptions picture;
    picture.size = options.size;
    picture.rangeM = options.range.empty() ? 0 : parseDistance(options.range);
    picture.northUp = options.northUp;
    picture.rings = options.rings;
    picture.targets = options.targets;
    picture.palette = parsePalette(options.palette);
    return picture;
}

class tPictureRun
{
public:
    tPictureRun(const tOptions& options, tConsole& console) : m_options(options), m_console(console) {}

    int run()
    {
        tFoundFiles found = findAllRecordings(m_options.paths, m_options.suffix);
        const auto layouts = spokeLayoutsFor(found.files, m_options.layout);
        const tTimeRange recording(found.files, m_options.suffix);
        if (recording.firstMs() == 0)
            throw nothingLeft(found.leftOut);
        const std::uint64_t atMs = placeIn(recording);
        const tTurnAt moment = turnAt(recording, layouts, atMs, m_options.northUp ? eUp::eNorth : eUp::eAsReceived);
        if (moment.turn.spokes() == 0)
            throw tFailure(fmt::format("{}: no spokes up to {}", m_options.paths.front(), timeText(atMs)));
        const tNavigation navigation = navigationAt(recording, atMs);
        tPicture picture(pictureOptions(m_options));
        picture.draw(moment.turn, factsOf(moment, navigation));
        picture.writePng(m_options.output);
        report(moment);
        return reportLeftOut(m_console, "picture", found.leftOut);
    }

private:
    std::uint64_t placeIn(const tTimeRange& recording) const
    {
        if (m_options.at.empty())
            return recording.lastMs();
        const double at = parseMoment(m_options.at).resolve(recording.firstMs(), recording.lastMs());
        if (at < static_cast<double>(recording.firstMs()) || at > static_cast<double>(recording.lastMs()))
            throw tFailure(fmt::format("--at {} is outside the recording, which lasts from {} to {}", m_options.at,
                                       timeText(recording.firstMs()), timeText(recording.lastMs())));
        return static_cast<std::uint64_t>(at);
    }

    tPictureFacts factsOf(const tTurnAt& moment, const tNavigation& navigation) const
    {
        tPictureFacts facts;
        facts.timeMs = moment.turn.lastMs();
        facts.timeText = timeText(facts.timeMs);
        facts.missing = moment.missing;
        facts.headingDeg = navigation.own().headingDeg.value;
        facts.own = navigation.own();
        facts.targets = navigation.targets(facts.timeMs);
        if (m_options.northUp && !moment.turnedNorth)
            facts.remark = moment.reference == utils::eReferenceUnknown
                               ? "north not known: the layout says no reference"
                               : "north not known: no heading";
        return facts;
    }

    void report(const tTurnAt& moment)
    {
        const tTurn& turn = moment.turn;
        const bool isNorth = m_options.northUp && moment.turnedNorth;
        if (m_options.northUp && !isNorth)
            m_console.note("kestova picture: north is not known: no heading, or the layout gives no reference");
        if (m_options.json)
            printJson(m_console, {{"schema", "kestova/picture/1"},
                                  {"paths", m_options.paths},
                                  {"output", m_options.output},
                                  {"first_ms", turn.firstMs()},
                                  {"last_ms", turn.lastMs()},
                                  {"spokes", turn.spokes()},
                                  {"covered_deg", turn.covered() * 360},
                                  {"missing_on_wire", moment.missing},
                                  {"range_m", turn.rangeM()},
                                  {"north_up", isNorth}});
        else
            m_console.print(
                fmt::format("{}: {} spokes until {}\n", m_options.output, turn.spokes(), timeText(turn.lastMs())));
    }

    const tOptions& m_options;
    tConsole& m_console;
};
}  // namespace

void addPicture(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("picture", "Draw what the radar showed at a moment");
    command.footer(
        "The picture holds the last 360 degrees received up to the place, own ship in its middle. A pixel shows the\n"
        "brightest cell that touches it, so that no small target is lost.\n"
        "Example: kestova picture recordings --at +00:05:00 --range 6nm --rings --targets -o radar.png");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_option("--at", options->at, "The place (the end): +90s, -90s, 50% or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    command.add_option("--range", options->range, "From own ship to the edge (what the spokes have): 6nm, 11112m, 3km")
        ->type_name("DIST")
        ->check(checkedBy(parseDistance));
    command.add_option("--size", options->size, "Of the sides in pixels (900)")
        ->type_name("N")
        ->check(wholeNumber(64, 8192));
    command.add_flag("--north-up", options->northUp,
                     "North is up; otherwise up is where bearings begin, the bow mostly");
    command.add_option("--palette", options->palette, "day (default), dusk, night or grey")
        ->type_name("NAME")
        ->check(checkedBy(parsePalette));
    command.add_flag("--targets", options->targets, "Draw tracked and AIS targets");
    command.add_flag("--rings", options->rings, "Draw four range rings and the heading line");
    addLayout(command, options->layout);
    command.add_option("-o,--output", options->output, "The PNG file to write")->type_name("FILE")->required();
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return tPictureRun(*options, console).run(); }; });
}
}  // namespace tool

// kestova picture: what the radar showed at a moment of a recording.
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "KestovaRecordings/archive.h"
#include "sessions/picture/picturesession.h"
#include "tools/commands/commands.h"
#include "tools/commands/spokelayouts.h"
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
constexpr char cStandardStream[] = "-";

struct tOptions : tRecordingOptions
{
    std::string at, range, palette = "day", layout, output, every, folder, video;
    std::uint64_t size = 900;
    bool northUp = false, targets = false, rings = false;
};

ePalette parsePalette(const std::string& name)
{
    if (const auto palette = paletteNamed(name))
        return *palette;
    throw std::invalid_argument(name + " is none of day, dusk, night, grey");
}

std::string parseEvery(const std::string& what)
{
    if (what == "revolution")
        return what;
    throw std::invalid_argument("'" + what + "' is not drawn: write --every revolution");
}

std::string parseVideo(const std::string& place)
{
    if (place == cStandardStream)
        return place;
    throw std::invalid_argument("the video goes to standard output: write --y4m - > " + place);
}

tPictureOptions pictureOptions(const tOptions& options)
{
    tPictureOptions picture;
    picture.size = options.size;
    picture.rangeM = options.range.empty() ? 0 : parseDistance(options.range);
    picture.rings = options.rings;
    picture.targets = options.targets;
    picture.palette = parsePalette(options.palette);
    return picture;
}

// Throws tFailure where the place is not in the recording.
std::uint64_t placeIn(const tTimeRange& recording, const std::string& at)
{
    if (at.empty())
        return recording.lastMs();
    const double place = parseMoment(at).resolve(recording.firstMs(), recording.lastMs());
    if (place < static_cast<double>(recording.firstMs()) || place > static_cast<double>(recording.lastMs()))
        throw tFailure(fmt::format("--at {} is outside the recording, which lasts from {} to {}", at,
                                   timeText(recording.firstMs()), timeText(recording.lastMs())));
    return static_cast<std::uint64_t>(place);
}

class tPictureRun
{
public:
    tPictureRun(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_found(findAllRecordings(options.paths, options.suffix))
    {}

    int run()
    {
        const tTimeRange recording(m_found.files, m_options.suffix);
        if (recording.firstMs() == 0)
            throw nothingLeft(m_found.leftOut);
        const std::uint64_t atMs = placeIn(recording, m_options.at);
        session::tPictureSession session({m_options.paths.front(), m_found.files, m_options.suffix,
                                          layouts(recording, atMs), m_options.northUp, pictureOptions(m_options),
                                          timeText});
        report(draw(session, atMs));
        return reportLeftOut(m_console, "picture", m_found.leftOut);
    }

private:
    // A sheet holds much else: of a long recording the one at the place is enough.
    tSpokeLayouts layouts(const tTimeRange& recording, std::uint64_t atMs) const
    {
        tSpokeLayouts near = knownSpokeLayouts({recording.fileAt(atMs)}, m_options.layout);
        return near.empty() || !m_options.every.empty() ? spokeLayoutsFor(m_found.files, m_options.layout) : near;
    }

    session::tDrawn draw(session::tPictureSession& session, std::uint64_t atMs)
    {
        if (m_options.every.empty())
            return session.drawMoment(atMs, m_options.output);
        const tStopSignal stop;
        const auto goOn = [&](double fraction, const session::tDrawn& drawn) {
            if (m_console.progressDue())
                m_console.progress(fmt::format("{:>7}  {} pictures", percentText(fraction), drawn.pictures));
            return !stop.requested();
        };
        return m_options.video.empty() ? session.drawTurns(m_options.folder, goOn)
                                       : session.streamTurns(m_console.results(), goOn);
    }

    void report(const session::tDrawn& drawn)
    {
        if (m_options.northUp && !drawn.isNorthUp)
            m_console.note(drawn.reference == utils::eReferenceUnknown
                               ? "kestova picture: north is not known: the layout gives no reference of bearings"
                               : "kestova picture: north is not known: the recording has no heading");
        if (!m_options.video.empty())
            return m_console.inform(summary(drawn, "standard output"));
        const std::string& output = m_options.every.empty() ? m_options.output : m_options.folder;
        if (!m_options.json)
            return m_console.print(summary(drawn, output) + "\n");
        printJson(m_console, {{"schema", "kestova/picture/1"},
                              {"paths", m_options.paths},
                              {"output", output},
                              {"pictures", drawn.pictures},
                              {"complete", drawn.isComplete},
                              {"first_ms", drawn.firstMs},
                              {"last_ms", drawn.lastMs},
                              {"spokes", drawn.spokes},
                              {"covered_deg", drawn.covered * 360},
                              {"missing_on_wire", drawn.missing},
                              {"range_m", drawn.rangeM},
                              {"north_up", drawn.isNorthUp},
                              {"skipped", leftOutJson(m_found.leftOut)}});
    }

    std::string summary(const session::tDrawn& drawn, const std::string& output) const
    {
        const std::string lost = drawn.missing == 0 ? "" : fmt::format(", {} never came", drawn.missing);
        if (m_options.every.empty())
            return fmt::format("{}: {} spokes from {} to {}{}", output, drawn.spokes, timeText(drawn.firstMs),
                               timeText(drawn.lastMs), lost);
        return fmt::format("{}: {} turns, {} spokes from {} to {}{}", output, drawn.pictures, drawn.spokes,
                           timeText(drawn.firstMs), timeText(drawn.lastMs), lost);
    }

    const tOptions& m_options;
    tConsole& m_console;
    const tFoundFiles m_found;
};

int drawPictures(const tOptions& options, tConsole& console)
try
{
    if (!options.video.empty() && isatty(console.results()) == 1)
        throw tFailure("standard output is a terminal: send the video into a file or a pipe");
    return tPictureRun(options, console).run();
}
catch (const tPipeClosed&)
{
    throw tReaderGone();
}

// Throws what the parser throws for a wrong command line.
void requireSense(tOptions& options)
{
    const auto outputs = !options.output.empty() + !options.folder.empty() + !options.video.empty();
    if (outputs != 1)
        throw CLI::ValidationError("picture", "one of -o FILE, --every revolution --to DIR and --y4m - is needed");
    if (!options.video.empty())
        options.every = "revolution";
    if (!options.every.empty() && !options.output.empty())
        throw CLI::ValidationError("--every", "one picture has no room for every revolution: --to DIR takes them");
    if (!options.folder.empty() && options.every.empty())
        throw CLI::ValidationError("--to", "is for --every revolution; one picture goes to -o FILE");
    if (!options.every.empty() && !options.at.empty())
        throw CLI::ValidationError("--at", "is the place of one picture, not of every revolution");
    if (!options.video.empty() && options.json)
        throw CLI::ValidationError("--json", "standard output holds the video, as --y4m - asks");
}

void addLooks(CLI::App& command, tOptions& options)
{
    command.add_option("--range", options.range, "From own ship to the edge (what the spokes have): 6nm, 11112m, 3km")
        ->type_name("DIST")
        ->check(checkedBy(parseDistance));
    command.add_option("--size", options.size, "Of the sides in pixels (900)")
        ->type_name("N")
        ->check(wholeNumber(64, 8192));
    command.add_flag("--north-up", options.northUp,
                     "North is up; otherwise up is where bearings begin, the bow mostly");
    command.add_option("--palette", options.palette, "day (default), dusk, night or grey")
        ->type_name("NAME")
        ->check(checkedBy(parsePalette));
    command.add_flag("--targets", options.targets, "Draw tracked and AIS targets, with where they are in 6 minutes");
    command.add_flag("--rings", options.rings, "Draw four range rings, the heading line and a scale of bearings");
}

void addOutputs(CLI::App& command, tOptions& options)
{
    command.add_option("-o,--output", options.output, "The PNG file to write")->type_name("FILE");
    command
        .add_option("--every", options.every,
                    "revolution: a picture of each turn that is finished, from 0 to 0 degrees")
        ->type_name("WHAT")
        ->check(checkedBy(parseEvery));
    command.add_option("--to", options.folder, "The folder of these pictures, empty or not there yet")
        ->type_name("DIR");
    command.add_option("--y4m", options.video, "-: every revolution as a frame of a video on standard output")
        ->type_name("-")
        ->check(checkedBy(parseVideo));
}
}  // namespace

void addPicture(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("picture", "Draw what the radar showed at a moment, or turn by turn");
    command.footer(
        "The picture holds the last 360 degrees received up to the place, own ship in its middle. A pixel shows the\n"
        "brightest cell that touches it, so that no small target is lost.\n"
        "Examples: kestova picture recordings --at +00:05:00 --range 6nm --rings --targets -o radar.png\n"
        "          kestova picture recordings --every revolution --to turns\n"
        "          kestova picture recordings --y4m - | ffmpeg -i - -pix_fmt yuv420p radar.mp4");
    addPaths(command, options->paths);
    addSuffix(command, options->suffix);
    command.add_option("--at", options->at, "The place (the end): +90s, -90s, 50% or \"2024-05-17 08:30:00\"")
        ->type_name("PLACE")
        ->check(checkedBy(parseMoment));
    addLooks(command, *options);
    addLayout(command, options->layout);
    addOutputs(command, *options);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        requireSense(*options);
        chosen = [options](tConsole& console) { return drawPictures(*options, console); };
    });
}
}  // namespace tool

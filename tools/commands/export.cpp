// kestova export: writes recordings in the formats of other programs.
#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "KestovaRecordings/exporter.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/groupaddress.h"
#include "sessions/export/captureexporter.h"
#include "sessions/export/exportsession.h"
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
    std::vector<std::string> streams;
    std::string start, end;
    std::string pcap, cat240, mcap, csv, gpx, geoJson, polar;  // one of them
    std::vector<std::string> topics;
    bool noRaw = false;
    double threshold = 50;
    std::string compression = "zstd";
    std::string source = "192.0.2.1:6000";  // an address for documentation: recordings do not hold the sender
    std::string to = "239.99.0.5:8600";
    std::string layout;

    std::array<const std::string*, 7> outputs() const { return {&pcap, &cat240, &mcap, &csv, &gpx, &geoJson, &polar}; }
    const std::string& output() const
    {
        const auto all = outputs();
        return **std::find_if(all.begin(), all.end(), [](const auto* name) { return !name->empty(); });
    }
    bool isCapture() const { return !pcap.empty() || !cat240.empty(); }
    bool toStandardOutput() const { return isCapture() && output() == cStandardStream; }
};

constexpr std::pair<const char*, bool tMcapTopics::*> cTopics[] = {
    {"raw", &tMcapTopics::raw},         {"sentences", &tMcapTopics::sentences}, {"own", &tMcapTopics::own},
    {"targets", &tMcapTopics::targets}, {"sector", &tMcapTopics::sector},       {"picture", &tMcapTopics::picture},
    {"echoes", &tMcapTopics::echoes}};

// Takes texts with names, separated by commas in each; none are all topics.
tMcapTopics parseTopics(const std::vector<std::string>& texts)
{
    tMcapTopics chosen;
    if (texts.empty())
        return chosen;
    for (const auto& [name, topic] : cTopics)
        chosen.*topic = false;
    for (const std::string& text : texts)
        for (std::size_t at = 0; at <= text.size();)
        {
            const std::size_t comma = std::min(text.find(',', at), text.size());
            const std::string wanted = text.substr(at, comma - at);
            const auto known = std::find_if(std::begin(cTopics), std::end(cTopics),
                                            [&](const auto& topic) { return wanted == topic.first; });
            if (known == std::end(cTopics))
                throw std::invalid_argument("'" + wanted + "' is no topic: see --topics in kestova export --help");
            chosen.*known->second = true;
            at = comma + 1;
        }
    return chosen;
}

class tExportRun
{
public:
    tExportRun(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_session(sessionOptions())
    {}

    int run()
    {
        const tStopSignal stop;
        m_session.run([&](double fraction) {
            if (m_console.progressDue())
                m_console.progress(fmt::format("{:>7}  {} datagrams", percentText(fraction), m_session.packages()));
            return !stop.requested();
        });
        print();
        return report();
    }

private:
    session::tExportOptions sessionOptions()
    {
        session::tExportOptions wanted;
        wanted.paths = m_options.paths;
        wanted.suffix = m_options.suffix;
        wanted.streams = parseStreams(m_options.streams);
        if (!m_options.start.empty())
            wanted.start = parseMoment(m_options.start);
        if (!m_options.end.empty())
            wanted.end = parseMoment(m_options.end);
        wanted.isStream = m_options.toStandardOutput();
        wanted.output = wanted.isStream ? "standard output" : m_options.output();
        wanted.open = [this](const std::vector<std::string>& files) { return open(files); };
        return wanted;
    }

    tExporter open(const std::vector<std::string>& files)
    {
        if (m_options.isCapture())
            return openCapture(files);
        if (!m_options.mcap.empty())
            return mcapExporter(mcapOptions(files));
        if (!m_options.csv.empty())
            return csvExporter(m_options.csv);
        if (!m_options.polar.empty())
            return polarExporter(m_options.polar, spokeLayoutsFor(files, m_options.layout));
        return m_options.gpx.empty() ? geoJsonExporter(m_options.geoJson) : gpxExporter(m_options.gpx);
    }
    tMcapOptions mcapOptions(const std::vector<std::string>& files)
    {
        tMcapOptions wanted;
        wanted.path = m_options.mcap;
        wanted.topics = parseTopics(m_options.topics);
        wanted.topics.raw = wanted.topics.raw && !m_options.noRaw;
        const bool asksForSpokes = !m_options.topics.empty() && wanted.topics.needSpokes();
        wanted.layouts =
            asksForSpokes ? spokeLayoutsFor(files, m_options.layout) : knownSpokeLayouts(files, m_options.layout);
        if (wanted.layouts.empty() && wanted.topics.needSpokes())
            m_console.note("kestova export: no sheet says how spokes are laid out: there are no topics of the radar "
                           "without --layout FILE");
        wanted.files = files;
        wanted.threshold = m_options.threshold / 100;
        wanted.compress = m_options.compression == "zstd";
        return wanted;
    }
    tExporter openCapture(const std::vector<std::string>& files)
    {
        session::tCaptureOptions wanted;
        wanted.capture = m_options.output();
        wanted.source = parseGroup(m_options.source);
        if (!m_options.cat240.empty())
            wanted.cat240 =
                session::tExportedCat240{parseGroup(m_options.to), spokeLayoutsFor(files, m_options.layout)};
        if (m_options.toStandardOutput())
        {
            if (isatty(m_console.results()) == 1)
                throw tFailure("standard output is a terminal: send the capture into a file or a pipe");
            wanted.capture = "standard output";
            wanted.output = m_console.results();
        }
        auto capture = std::make_unique<session::tCaptureExporter>(std::move(wanted));
        m_capture = capture.get();
        return capture;
    }

    // The capture has standard output for itself.
    void print()
    {
        if (m_options.toStandardOutput())
            return;
        if (m_options.json)
            return printJson(m_console, json());
        std::string text;
        if (m_capture != nullptr)
            text = streamsText(m_capture->counts(), "datagrams") +
                   fmt::format("{}  {} frames\n", m_options.output(), m_capture->frames());
        else
            for (const tExportedPart& part : m_session.exporter().written())
                text += fmt::format("{:<48} {:>12}\n", part.name, part.count);
        m_console.print(text);
    }
    tJson json() const
    {
        tJson json = {{"schema", "kestova/export/2"}, {"paths", m_options.paths}};
        if (m_capture != nullptr)
        {
            json["capture"] = m_options.output();
            json["datagrams"] = total(m_capture->counts()).messages;
            json["frames"] = m_capture->frames();
            json["no_datagrams"] = m_session.withoutPlace();
        }
        else
        {
            json["output"] = m_options.output();
            json["written"] = tJson::array();
            for (const tExportedPart& part : m_session.exporter().written())
                json["written"].push_back({{"name", part.name}, {"count", part.count}});
            json["no_packages"] = m_session.withoutPlace();
        }
        json["damaged"] = m_session.damaged();
        json["skipped"] = leftOutJson(m_session.leftOut());
        if (m_capture != nullptr)
            json["streams"] = streamsJson(m_capture->counts(), "datagrams");
        return json;
    }

    int report()
    {
        int status = reportLeftOut(m_console, "export", m_session.leftOut());
        const auto noteLeftOut = [&](std::uint64_t count, const char* what) {
            if (count == 0)
                return;
            m_console.note(fmt::format("kestova export: {} {}", count, what));
            status = worseStatus(status, eDamaged);
        };
        noteLeftOut(m_session.withoutPlace(), m_capture != nullptr ? "records are no datagrams and were left out"
                                                                   : "records are no packages and were left out");
        noteLeftOut(m_session.damaged(), "damaged records were left out; see kestova info");
        const tCat240Tally cat240 = m_capture != nullptr ? m_capture->cat240() : tCat240Tally();
        noteLeftOut(cat240.refused, "spokes have cells that are too long for CAT240 and were left out");
        if (cat240.lengthless != 0)
            m_console.note(fmt::format("kestova export: {} spokes have cells of length 0: their layout gives no range",
                                       cat240.lengthless));
        return status;
    }

    const tOptions& m_options;
    tConsole& m_console;
    const session::tCaptureExporter* m_capture = nullptr;  // the session's exporter, if it writes a capture
    session::tExportSession m_session;
};

int exportRecordings(const tOptions& options, tConsole& console)
try
{
    return tExportRun(options, console).run();
}
catch (const tPipeClosed&)
{
    throw tReaderGone();
}

// Throws what the parser throws for a wrong command line.
void requireSense(const tOptions& options)
{
    const auto outputs = options.outputs();
    const auto wanted = std::count_if(outputs.begin(), outputs.end(), [](const auto* name) { return !name->empty(); });
    if (wanted == 0)
        throw CLI::RequiredError("--pcap, --cat240, --mcap, --csv, --gpx, --geojson or --polar");
    if (wanted > 1)
        throw CLI::ValidationError("export", "writes one format at a time");
    if (options.json && options.toStandardOutput())
        throw CLI::ValidationError("--json", "standard output holds the capture, as - asks");
    if (std::count(options.paths.begin(), options.paths.end(), cStandardStream) != 0)
        throw CLI::ValidationError("-", "a recording is read from its files, not from standard input");
}

// The options that say what is written; the output must not exist.
void addFormats(CLI::App& command, tOptions& options)
{
    command.add_option("--pcap", options.pcap, "A capture for Wireshark and tcpdump. - is standard output")
        ->type_name("FILE");
    command
        .add_option("--cat240", options.cat240,
                    "A capture of spokes alone, in the public standard for radar video, ASTERIX CAT240")
        ->type_name("FILE");
    command
        .add_option("--mcap", options.mcap,
                    "Messages of ROS 2 for Foxglove, Lichtblick and ros2 bag. With / at its end a folder, a bag")
        ->type_name("FILE");
    command
        .add_option("--csv", options.csv,
                    "Tables of what sentences say: own.csv, ais.csv, arpa.csv, sentences.csv in a new folder")
        ->type_name("DIR");
    command.add_option("--gpx", options.gpx, "Own ship's track, GPX 1.1")->type_name("FILE");
    command.add_option("--geojson", options.geoJson, "The tracks of own ship and targets, RFC 7946")->type_name("FILE");
    command
        .add_option("--polar", options.polar,
                    "A grey PNG a turn, a row a bearing, as radar research has them, and the AIS stations around")
        ->type_name("DIR");
}

void addSpan(CLI::App& command, tOptions& options)
{
    for (const auto& [name, text, help] :
         {std::tuple{"--start", &options.start,
                     "The first time: +90s, -10m (from the end), 50% or \"2024-05-17 08:30:00\""},
          std::tuple{"--end", &options.end, "The time to end before; to the last record without it"}})
        command.add_option(name, *text, help)->type_name("PLACE")->check(checkedBy(parseMoment));
}

void addMcapOptions(CLI::App& command, tOptions& options)
{
    command
        .add_option("--topics", options.topics,
                    "What --mcap writes, separated by commas (everything): raw (datagrams), sentences, own, targets, "
                    "sector, picture, echoes")
        ->type_name("NAME,...")
        ->allow_extra_args(false)
        ->check(checkedBy([](const std::string& text) { parseTopics({text}); }))
        ->needs("--mcap");
    command.add_flag("--no-raw", options.noRaw, "--mcap without the datagrams")->needs("--mcap");
    command
        .add_option("--threshold", options.threshold,
                    "Cells from this percentage of full scale on are in the echoes of --mcap (50)")
        ->type_name("PERCENT")
        ->check(decimalNumber(0, 100))
        ->needs("--mcap");
    command.add_option("--compression", options.compression, "Of the chunks of --mcap: zstd (default) or none")
        ->type_name("NAME")
        ->check(CLI::IsMember({"zstd", "none"}).description(""))
        ->needs("--mcap");
}

void addCaptureOptions(CLI::App& command, tOptions& options)
{
    command.add_option("--source", options.source, "Sender of every datagram of a capture: recordings do not hold it")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str();
    command.add_option("--to", options.to, "Where the datagrams of --cat240 go")
        ->type_name("GROUP:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str()
        ->needs("--cat240");
    addLayout(command, options.layout);
}
}  // namespace

void addExport(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("export", "Write recordings in the formats of other programs");
    command.footer(
        "One of --pcap, --cat240, --mcap, --csv, --gpx, --geojson and --polar; what it names must not exist.\n"
        "Captures hold every datagram in order of time, as Ethernet frames with right checksums; datagrams\n"
        "larger than a frame in fragments. Exit status 3 if records or files were left out.\n"
        "Examples: kestova export recordings --pcap radar.pcap\n"
        "          kestova export recordings --pcap - | tshark -r -\n"
        "          kestova export recordings --cat240 radar.pcap --to 239.99.0.5:8600\n"
        "          kestova export recordings --gpx track.gpx --start -1h");
    addPaths(command, options->paths);
    addFormats(command, *options);
    addSuffix(command, options->suffix);
    addStreams(command, options->streams);
    addSpan(command, *options);
    addMcapOptions(command, *options);
    addCaptureOptions(command, *options);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        requireSense(*options);
        chosen = [options](tConsole& console) { return exportRecordings(*options, console); };
    });
}
}  // namespace tool

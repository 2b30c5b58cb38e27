// kestova export: writes recordings as a capture for Wireshark and tcpdump.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/groupaddress.h"
#include "sessions/export/exportsession.h"
#include "tools/commands/commands.h"
#include "tools/commands/spokelayouts.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
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
    std::string pcap, cat240;               // one of them
    std::string source = "192.0.2.1:6000";  // an address for documentation: recordings do not hold the sender
    std::string to = "239.99.0.5:8600";
    std::string layout;

    const std::string& capture() const { return cat240.empty() ? pcap : cat240; }
    bool toStandardOutput() const { return capture() == cStandardStream; }
};

// The capture has standard output for itself.
void printResult(const tOptions& options, const session::tExportSession& session, tConsole& console)
{
    if (options.toStandardOutput())
        return;
    if (!options.json)
        return console.print(streamsText(session.counts(), "datagrams") +
                             fmt::format("{}  {} frames\n", options.capture(), session.frames()));
    printJson(console, {{"schema", "kestova/export/2"},
                        {"paths", options.paths},
                        {"capture", options.capture()},
                        {"datagrams", total(session.counts()).messages},
                        {"frames", session.frames()},
                        {"no_datagrams", session.withoutDatagram()},
                        {"damaged", session.damaged()},
                        {"skipped", leftOutJson(session.leftOut())},
                        {"streams", streamsJson(session.counts(), "datagrams")}});
}

int report(const tOptions& options, const session::tExportSession& session, tConsole& console)
{
    printResult(options, session, console);
    int status = reportLeftOut(console, "export", session.leftOut());
    const auto noteLeftOut = [&](std::uint64_t count, const char* what) {
        if (count == 0)
            return;
        console.note(fmt::format("kestova export: {} {}", count, what));
        status = worseStatus(status, eDamaged);
    };
    noteLeftOut(session.withoutDatagram(), "records are no datagrams and were left out");
    noteLeftOut(session.damaged(), "damaged records were left out; see kestova info");
    noteLeftOut(session.cat240().refused, "spokes have cells that are too long for CAT240 and were left out");
    if (session.cat240().lengthless != 0)
        console.note(fmt::format("kestova export: {} spokes have cells of length 0: their layout gives no range",
                                 session.cat240().lengthless));
    return status;
}

session::tExportOptions exportOptions(const tOptions& options, const tConsole& console)
{
    session::tExportOptions wanted;
    wanted.paths = options.paths;
    wanted.suffix = options.suffix;
    wanted.streams = parseStreams(options.streams);
    wanted.source = parseGroup(options.source);
    wanted.capture = options.capture();
    if (!options.cat240.empty())
        wanted.cat240 = session::tExportedCat240{
            parseGroup(options.to),
            spokeLayoutsFor(findAllRecordings(options.paths, options.suffix).files, options.layout)};
    if (!options.toStandardOutput())
        return wanted;
    if (isatty(console.results()) == 1)
        throw tFailure("standard output is a terminal: send the capture into a file or a pipe");
    wanted.capture = "standard output";
    wanted.output = console.results();
    return wanted;
}

int exportRecordings(const tOptions& options, tConsole& console)
try
{
    const tStopSignal stop;
    session::tExportSession session(exportOptions(options, console));
    session.run([&](double fraction) {
        if (console.progressDue())
            console.progress(fmt::format("{:>7}  {} frames", percentText(fraction), session.frames()));
        return !stop.requested();
    });
    return report(options, session, console);
}
catch (const tPipeClosed&)
{
    throw tReaderGone();
}

// Throws what the parser throws for a wrong command line.
void requireSense(const tOptions& options)
{
    if (options.json && options.toStandardOutput())
        throw CLI::ValidationError("--json", "standard output holds the capture, as - asks");
    if (options.pcap.empty() && options.cat240.empty())
        throw CLI::RequiredError("--pcap or --cat240");
    if (std::count(options.paths.begin(), options.paths.end(), cStandardStream) != 0)
        throw CLI::ValidationError("-", "a recording is read from its files, not from standard input");
}

void addCat240(CLI::App& command, tOptions& options, CLI::Option* pcap)
{
    CLI::Option* const cat240 =
        command
            .add_option("--cat240", options.cat240,
                        "In place of --pcap: spokes alone, in the public standard for radar video, ASTERIX CAT240")
            ->type_name("FILE")
            ->excludes(pcap);
    command.add_option("--to", options.to, "Where the datagrams of --cat240 go")
        ->type_name("GROUP:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str()
        ->needs(cat240);
    addLayout(command, options.layout);
    command.get_option("--layout")->needs(cat240);
}
}  // namespace

void addExport(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("export", "Write recordings as a capture for Wireshark and tcpdump");
    command.footer("Every datagram in order of time, as Ethernet frames with right checksums; datagrams larger than a\n"
                   "frame in fragments. Exit status 3 if records or files were left out.\n"
                   "Examples: kestova export recordings --pcap radar.pcap\n"
                   "          kestova export recordings --pcap - | tshark -r -\n"
                   "          kestova export recordings --cat240 radar.pcap --to 239.99.0.5:8600");
    addPaths(command, options->paths);
    CLI::Option* const pcap =
        command.add_option("--pcap", options->pcap, "The capture to write; must not exist. - is standard output")
            ->type_name("FILE");
    addSuffix(command, options->suffix);
    command.add_option("--source", options->source, "Sender of every datagram: recordings do not hold it")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str();
    addStreams(command, options->streams);
    addCat240(command, *options, pcap);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        requireSense(*options);
        chosen = [options](tConsole& console) { return exportRecordings(*options, console); };
    });
}
}  // namespace tool

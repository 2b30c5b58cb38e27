// kestova export: writes recordings as a capture for Wireshark and tcpdump.
#include <algorithm>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/groupaddress.h"
#include "sessions/export/exportsession.h"
#include "tools/commands/commands.h"
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
    std::string capture;
    std::string source = "192.0.2.1:6000";  // an address for documentation: recordings do not hold the sender

    bool toStandardOutput() const { return capture == cStandardStream; }
};

// The capture has standard output for itself.
void printResult(const tOptions& options, const session::tExportSession& session, tConsole& console)
{
    if (options.toStandardOutput())
        return;
    if (!options.json)
        return console.print(streamsText(session.counts(), "datagrams") +
                             fmt::format("{}  {} frames\n", options.capture, session.frames()));
    printJson(console, {{"schema", "kestova/export/2"},
                        {"paths", options.paths},
                        {"capture", options.capture},
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
    return status;
}

session::tExportOptions exportOptions(const tOptions& options, const tConsole& console)
{
    session::tExportOptions wanted;
    wanted.paths = options.paths;
    wanted.suffix = options.suffix;
    wanted.streams = parseStreams(options.streams);
    wanted.source = parseGroup(options.source);
    wanted.capture = options.capture;
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
        throw CLI::ValidationError("--json", "standard output holds the capture, as --pcap - asks");
    if (std::count(options.paths.begin(), options.paths.end(), cStandardStream) != 0)
        throw CLI::ValidationError("-", "a recording is read from its files, not from standard input");
}
}  // namespace

void addExport(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("export", "Write recordings as a capture for Wireshark and tcpdump");
    command.footer("Every datagram in order of time, as Ethernet frames with right checksums; datagrams larger than a\n"
                   "frame in fragments. Exit status 3 if records or files were left out.\n"
                   "Examples: kestova export recordings --pcap radar.pcap\n"
                   "          kestova export recordings --pcap - | tshark -r -");
    addPaths(command, options->paths);
    command.add_option("--pcap", options->capture, "The capture to write; must not exist. - is standard output")
        ->type_name("FILE")
        ->required();
    addSuffix(command, options->suffix);
    command.add_option("--source", options->source, "Sender of every datagram: recordings do not hold it")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str();
    addStreams(command, options->streams);
    addJson(command, options->json);
    command.callback([options, &chosen] {
        requireSense(*options);
        chosen = [options](tConsole& console) { return exportRecordings(*options, console); };
    });
}
}  // namespace tool

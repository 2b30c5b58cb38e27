// kestova export: writes a recording as a capture for Wireshark and tcpdump.
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/groupaddress.h"
#include "sessions/export/exportsession.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using namespace recordings;

namespace
{
struct tOptions : tRecordingOptions
{
    std::vector<std::string> streams;
    std::string capture;
    std::string source = "192.0.2.1:6000";  // an address for documentation: recordings do not hold the sender
};

int report(const tOptions& options, const session::tExportSession& session, tConsole& console)
{
    const std::uint64_t damaged = session.countDamaged();
    const std::uint64_t noDatagrams = session.withoutDatagram();
    const tStreamCounts counts = session.counts();
    if (options.json)
        printJson(console, {{"schema", "kestova/export/2"},
                            {"path", options.path},
                            {"capture", options.capture},
                            {"datagrams", total(counts).messages},
                            {"frames", session.frames()},
                            {"no_datagrams", noDatagrams},
                            {"damaged", damaged},
                            {"streams", streamsJson(counts, "datagrams")}});
    else
        console.print(streamsText(counts, "datagrams") +
                      fmt::format("{}  {} frames\n", options.capture, session.frames()));
    if (noDatagrams != 0)
        console.note(fmt::format("kestova export: {} records are no datagrams and were left out", noDatagrams));
    if (damaged != 0)
        console.note(fmt::format("kestova export: {} damaged records were left out; see kestova info", damaged));
    return noDatagrams == 0 && damaged == 0 ? eDone : eDamaged;
}

int exportRecording(const tOptions& options, tConsole& console)
{
    const tStopSignal stop;
    session::tExportSession session(
        {options.path, options.suffix, parseStreams(options.streams), parseGroup(options.source), options.capture});
    session.run([&] {
        if (console.progressDue())
            console.progress(
                fmt::format("{:>7}  {} datagrams", percentText(session.state().fraction), session.state().records));
        return !stop.requested();
    });
    return report(options, session, console);
}
}  // namespace

void addExport(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("export", "Write a recording as a capture for Wireshark and tcpdump");
    command.footer("Every datagram in order of time, as Ethernet frames with right checksums; datagrams larger than a\n"
                   "frame in fragments. Exit status 3 if records were left out.\n"
                   "Example: kestova export recordings --pcap radar.pcap");
    addPath(command, options->path);
    command.add_option("--pcap", options->capture, "The capture to write; must not exist")
        ->type_name("FILE")
        ->required();
    addSuffix(command, options->suffix);
    command.add_option("--source", options->source, "Sender of every datagram: recordings do not hold it")
        ->type_name("ADDRESS:PORT")
        ->check(checkedBy(parseGroup))
        ->capture_default_str();
    addStreams(command, options->streams);
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return exportRecording(*options, console); }; });
}
}  // namespace tool

// kestova pcap: shows the streams of captures and records the selected ones.
#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/groupaddress.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/import/importsession.h"
#include "tools/commands/commands.h"
#include "tools/commands/pcapreport.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/leftout.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
constexpr char cAll[] = "all";

struct tOptions
{
    std::vector<std::string> paths;
    std::vector<std::string> select;
    session::tRadarChoice radar;
    std::string to;
    bool json = false;
};

// Everything but the path. Selects the groups of the radar unless the command line selects streams.
session::tImportOptions importOptions(const tOptions& given)
{
    session::tImportOptions options;
    options.root = given.to;
    options.all = false;
    if (!given.radar.directory.empty())
        options.streams = session::radarStreams(given.radar);
    for (const std::string& text : given.select)
    {
        if (text == cAll)
        {
            options.all = true;
            continue;
        }
        const NetAddress group = recordings::parseGroup(text);
        options.selection.emplace(net::transAddr(group.ip), net::NtoHs(group.port));
    }
    if (given.select.empty() && options.streams.empty())
        options.all = true;
    if (given.select.empty())
        for (const auto& [group, info] : options.streams)
            options.selection.insert(group);
    return options;
}

class tPcap
{
public:
    tPcap(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_import(importOptions(options))
    {}

    // Reads one capture after the other; one that cannot be read does not keep the others from being read.
    int run()
    {
        int status = eDone;
        for (const std::string& path : m_options.paths)
        {
            if (!m_stop.requested())
                status = worseStatus(status, read(path));
        }
        if (m_options.json)
            printJson(m_console, {{"schema", "kestova/pcap/2"}, {"captures", m_captures}});
        return status;
    }

private:
    int read(const std::string& path)
    try
    {
        m_import.path = path;
        session::tImportSession session(m_import, [this](const auto& progress) { return goOn(progress); });
        session.run();
        return report(path, session);
    }
    catch (const recordings::tFailure& failure)
    {
        if (m_options.paths.size() == 1)
            throw;
        m_console.note(fmt::format("kestova pcap: {}", failure.what()));
        m_captures.push_back({{"path", path}, {"error", failure.what()}});
        return eFailed;
    }

    bool goOn(const session::tImportProgress& at)
    {
        if (m_console.progressDue())
            m_console.progress(fmt::format("{:>7}  {}  {} streams",
                                           at.fraction < 0 ? sizeText(at.bytes) : percentText(at.fraction),
                                           timeText(at.timeMs), at.streams));
        return !m_stop.requested();
    }

    int report(const std::string& path, const session::tImportSession& session)
    {
        const bool several = m_options.paths.size() > 1;
        const tPcapReport report(session, m_import.streams, !m_options.select.empty());
        if (m_options.json)
            m_captures.push_back(report.json(path));
        else
            m_console.print((several ? path + "\n" : std::string()) + report.text());
        const std::vector<std::string> losses = report.losses();
        for (const std::string& loss : losses)
            m_console.note(fmt::format("kestova pcap: {}{}", several ? path + ": " : "", loss));
        return losses.empty() ? eDone : eDamaged;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    session::tImportOptions m_import;  // path: of the present capture
    tJson m_captures = tJson::array();
};

void parseSelection(const std::string& text)
{
    if (text != cAll)
        recordings::parseGroup(text);
}

void addStreamOptions(CLI::App& command, tOptions& options)
{
    command.add_option("--select", options.select, "Only this stream, repeatable; or all of them")
        ->type_name("ADDRESS:PORT|all")
        ->allow_extra_args(false)
        ->check(checkedBy(parseSelection));
    CLI::Option* const directory = addRadar(command, options.radar);
    CLI::Option* const radar = command.get_option("--radar")->needs(directory);
    directory->needs(radar);
    command.get_option("--id")->needs(radar);
    command
        .add_option(
            "--to", options.to,
            "Record the selected streams, or those of the radar, below this storage root, as they were captured")
        ->type_name("FOLDER");
}

// Throws what the parser throws for a wrong command line.
void requireSense(const CLI::App& command, const tOptions& options)
{
    if (!options.to.empty() && options.select.empty() && command.get_option("--radar")->empty())
        throw CLI::RequiredError("--to records what is selected: --select or --radar");
    if (std::count(options.paths.begin(), options.paths.end(), recordings::cStandardInput) > 1)
        throw CLI::ValidationError("-", "standard input can be read once only");
}
}  // namespace

void addPcap(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("pcap", "Show what is in captures, and make recordings of them");
    command.footer(
        "Reads pcap and pcapng, with VLAN tags and IP options, captured on an interface or on \"any\". Of a radar's\n"
        "groups --radars and --radar say which stream they are; without them each is recorded by what its messages "
        "are.\n"
        "Exit status 3 if datagrams are incomplete, or a selected stream is not in a capture.\n"
        "Examples: kestova pcap radar.pcap\n"
        "          kestova pcap radar.pcap --select 239.17.0.1:6001 --select 239.17.0.4:6004 --to recordings\n"
        "          tcpdump -i eth0 -U -w - udp | kestova pcap - --radars radars.json --radar A1:2 --id 1 --to "
        "recordings");
    command.add_option("captures", options->paths, "Captures of tcpdump, dumpcap or Wireshark; - is standard input")
        ->type_name("FILE...")
        ->required();
    addStreamOptions(command, *options);
    addJson(command, options->json);
    command.callback([options, &command, &chosen] {
        requireSense(command, *options);
        chosen = [options](tConsole& console) { return tPcap(*options, console).run(); };
    });
}
}  // namespace tool

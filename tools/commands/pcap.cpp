// kestova pcap: shows the streams of a capture and records the selected ones.
#include <algorithm>
#include <fmt/format.h>
#include <memory>

#include "KestovaRecordings/groupaddress.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/import/importsession.h"
#include "tools/commands/commands.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"
#include "tools/shell/options.h"
#include "tools/shell/places.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
using session::tCaptureSpan;

namespace
{
constexpr char cAll[] = "all";
constexpr std::size_t cLengthsShown = 3;

struct tOptions
{
    std::string path;
    std::vector<std::string> select;
    std::string to;
    bool json = false;
};

session::tImportOptions captureOptions(const tOptions& given)
{
    session::tImportOptions options{given.path, {}, given.select.empty(), given.to};
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
    return options;
}

class tPcap
{
public:
    tPcap(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_session(captureOptions(options)), m_result(m_session.result())
    {}

    int run()
    {
        m_session.run([this](const session::tImportProgress& progress) {
            if (m_console.progressDue())
                m_console.progress(fmt::format("{:>7}  {}  {} streams", percentText(progress.fraction),
                                               timeText(progress.timeMs), progress.streams));
            return !m_stop.requested();
        });
        if (m_options.json)
            printJson(m_console, json());
        else
            m_console.print(text());
        const std::vector<std::string> losses = lossesOf();
        for (const std::string& loss : losses)
            m_console.note("kestova pcap: " + loss);
        return losses.empty() ? eDone : eDamaged;
    }

private:
    std::vector<std::string> lossesOf() const
    {
        std::vector<std::string> losses;
        const auto add = [&](std::uint64_t count, const char* what) {
            if (count != 0)
                losses.push_back(fmt::format("{} {}", count, what));
        };
        if (m_result.stopped)
            losses.push_back("interrupted");
        if (m_result.cut)
            losses.push_back("the capture ends within a record");
        else if (!m_result.finished && !m_result.stopped)
            losses.push_back("the capture could not be read to its end");
        add(m_result.droppedRecords, "records of UDP are neither a datagram nor a fragment that can be used");
        add(m_result.emptyBeginnings, "datagrams had an empty first fragment");
        add(m_session.recorder() ? m_session.recorder()->tooLong() : 0,
            "datagrams are longer than a datagram can be, left out");
        add(m_result.orphans, "fragments without the beginning of their datagram");
        add(m_result.pending, "datagrams never became whole");
        add(m_result.padded, "datagrams were captured only in part, the rest reads as zeros");
        for (const auto& [address, port] : m_session.silent())
            losses.push_back(fmt::format("no datagram to {}:{}", address, port));
        return losses;
    }

    // Returns the lengths, the most frequent first.
    static std::vector<std::pair<int, int>> lengthsOf(const pcap::tUdpMulticast& row)
    {
        return {row.lengths.rbegin(), row.lengths.rend()};
    }

    static std::string lengthsText(const pcap::tUdpMulticast& row)
    {
        std::string text;
        std::size_t shown = 0;
        for (const auto& [count, length] : lengthsOf(row))
        {
            if (shown++ == cLengthsShown)
                return text + " ...";
            text += fmt::format("{}{} ({:.0f}%)", text.empty() ? "" : ", ", length, count * 100.0 / row.count);
        }
        return text;
    }

    static std::string kindsText(const pcap::tUdpMulticast& row)
    {
        std::string text;
        for (const std::string& kind : row.types)
            text += (text.empty() ? "" : ", ") + (kind == "Unknow" ? "unknown" : kind);  // the library's spelling
        return text;
    }

    // Returns one over the mean interval, as info does.
    static double ratePerSecond(std::uint64_t count, const tCaptureSpan& span)
    {
        const std::uint64_t us = span.lastUs - span.firstUs;
        return us == 0 ? 0.0 : static_cast<double>(count - 1) * 1e6 / static_cast<double>(us);
    }

    std::string text() const
    {
        std::string out = fmt::format("{:<22} {:>10} {:>15} {:>12}  {:<38} {}\n", "address", "datagrams", "bytes",
                                      "per second", "lengths", "kinds");
        for (const pcap::tUdpMulticast& row : m_session.streams())
        {
            const tCaptureSpan span = m_session.spanOf(row);
            out +=
                fmt::format("{:<22} {:>10} {:>15} {:>12.1f}  {:<38} {}\n",
                            row.address.empty() ? "(beginning missing)" : fmt::format("{}:{}", row.address, row.port),
                            row.count, span.bytes, ratePerSecond(row.count, span), lengthsText(row), kindsText(row));
        }
        out += fmt::format("{} records, {} of them no UDP or too short to tell", m_result.records,
                           m_result.skippedRecords);
        if (m_result.firstTime_us != 0)
            out += fmt::format("; {} to {}", timeText(m_result.firstTime_us / 1000),
                               timeText(m_result.lastTime_us / 1000));
        out += '\n';
        if (const auto* const recorder = m_session.recorder())
        {
            for (const std::string& file : recorder->files())
                out += file + '\n';
            out += fmt::format("{} datagrams recorded\n", recorder->recorded());
        }
        return out;
    }

    tJson streamJson(const pcap::tUdpMulticast& row) const
    {
        const tCaptureSpan span = m_session.spanOf(row);
        tJson lengths = tJson::array();
        for (const auto& [count, length] : lengthsOf(row))
            lengths.push_back({{"length", length}, {"datagrams", count}});
        return {{"address", row.address.empty() ? "" : fmt::format("{}:{}", row.address, row.port)},
                {"datagrams", row.count},
                {"bytes", span.bytes},
                {"first_ms", span.firstUs / 1000},
                {"last_ms", span.lastUs / 1000},
                {"datagrams_per_second", ratePerSecond(row.count, span)},
                {"lengths", lengths},
                {"kinds", row.types}};
    }

    tJson json() const
    {
        tJson streams = tJson::array();
        for (const pcap::tUdpMulticast& row : m_session.streams())
            streams.push_back(streamJson(row));
        tJson result = {{"schema", "kestova/pcap/2"},
                        {"path", m_options.path},
                        {"records", m_result.records},
                        {"skipped", m_result.skippedRecords},
                        {"dropped", m_result.droppedRecords},
                        {"datagrams", m_result.datagrams},
                        {"orphans", m_result.orphans},
                        {"pending", m_result.pending},
                        {"padded", m_result.padded},
                        {"empty_beginnings", m_result.emptyBeginnings},
                        {"finished", m_result.finished},
                        {"cut", m_result.cut},
                        {"first_ms", m_result.firstTime_us / 1000},
                        {"last_ms", m_result.lastTime_us / 1000}};
        if (const auto* const recorder = m_session.recorder())
            result["recorded"] = {{"files", recorder->files()}, {"datagrams", recorder->recorded()}};
        result["streams"] = streams;
        return result;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    session::tImportSession m_session;
    const pcap::tPcapReadResult& m_result;  // of m_session
};

void parseSelection(const std::string& text)
{
    if (text != cAll)
        recordings::parseGroup(text);
}
}  // namespace

void addPcap(CLI::App& app, tRun& chosen)
{
    auto options = std::make_shared<tOptions>();
    CLI::App& command = *app.add_subcommand("pcap", "Show what is in a capture, and make a recording of it");
    command.footer(
        "Exit status 3 if datagrams are incomplete, or a selected stream is not in the capture.\n"
        "Examples: kestova pcap radar.pcap\n"
        "          kestova pcap radar.pcap --select 239.17.0.1:6001 --select 239.17.0.4:6004 --to recordings");
    command.add_option("file", options->path, "Capture of tcpdump or dumpcap -P")->type_name("FILE")->required();
    CLI::Option* const select =
        command.add_option("--select", options->select, "Only this stream, repeatable; or all of them")
            ->type_name("ADDRESS:PORT|all")
            ->allow_extra_args(false)
            ->check(checkedBy(parseSelection));
    command
        .add_option("--to", options->to, "Record the selected streams below this storage root, as they were captured")
        ->type_name("FOLDER")
        ->needs(select);
    addJson(command, options->json);
    command.callback(
        [options, &chosen] { chosen = [options](tConsole& console) { return tPcap(*options, console).run(); }; });
}
}  // namespace tool

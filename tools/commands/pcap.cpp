// kestova pcap: what is in a capture, and the selected streams out of it.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <set>

#include "KestovaRecordings/capturekind.h"
#include "KestovaStorage/pcapreader.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/import/captureimport.h"
#include "tools/shell/command.h"
#include "tools/shell/console.h"
#include "tools/shell/exitstatus.h"

#include "KestovaRecordings/groupaddress.h"
#include "tools/shell/options.h"
#include "tools/shell/report.h"
#include "tools/shell/stopsignal.h"
#include "tools/shell/units.h"

namespace tool
{
namespace
{
using tGroup = std::pair<std::string, int>;

constexpr char cAll[] = "all";
constexpr std::size_t cLengthsShown = 3;

struct tOptions
{
    std::string path;
    std::vector<std::string> select;
    std::string to;
    bool json = false;
};

std::set<tGroup> selectionOf(const std::vector<std::string>& texts)
{
    std::set<tGroup> groups;
    for (const std::string& text : texts)
    {
        if (text == cAll)
            continue;
        const NetAddress group = parseGroup(text);
        groups.emplace(net::transAddr(group.ip), net::NtoHs(group.port));
    }
    return groups;
}

struct tSpan
{
    std::uint64_t first_us = 0, last_us = 0;
    std::uint64_t bytes = 0;
};

class tPcapSession : private pcap::iPcapDataReadObserver, private pcap::iPcapDatagramObserver
{
public:
    tPcapSession(const tOptions& options, tConsole& console)
        : m_options(options), m_console(console), m_selection(selectionOf(options.select)),
          m_all(options.select.empty() || std::count(options.select.begin(), options.select.end(), cAll) != 0),
          m_reader(options.path, this)
    {
        if (!options.to.empty())
            m_import =
                std::make_unique<tCaptureImport>(options.to, std::filesystem::path(options.path).stem().string());
    }

    int run()
    {
        m_reader.SetDatagramObserver(this);
        m_reader.ReportAtEndOnly(true);
        m_reader.KeepReading(true);
        m_reader.Read({});
        m_result = m_reader.GetReadResult();
        for (const pcap::tUdpMulticast& row : m_reader.GetUdpMulticast())
            if (isSelected({row.address, row.port}) || (m_all && row.address.empty()))
                m_rows.push_back(row);
        if (m_import && m_import->recorded() != 0)
            m_import->finish();
        return report();
    }

private:
    bool isSelected(const tGroup& group) const { return m_all || m_selection.count(group) != 0; }

    void UpdatePcapReadData(tTimes_ms, double, const char*, int, const char*, int) override {}
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>&) override {}
    void UpdatePcapReadProgress(double percent, tTimes_ms time) override
    {
        if (m_stop.requested())
            m_reader.StopRead();
        if (m_console.progressDue())
            m_console.progress(
                fmt::format("{:>7}  {}  {} streams", percentText(percent / 100), localTimeText(time), m_spans.size()));
    }
    void UpdatePcapDatagram(const pcap::tPcapDatagram& datagram) override
    {
        const tGroup group(datagram.address, datagram.port);
        if (!isSelected(group))
            return;
        tSpan& span = m_spans[group];
        if (span.first_us == 0)
            span.first_us = datagram.time_us;
        span.last_us = datagram.time_us;
        span.bytes += static_cast<std::uint64_t>(datagram.len);
        if (m_import)
            m_import->add(datagram);
    }

    int report()
    {
        if (m_options.json)
            printJson(m_console, json());
        else
            m_console.print(text());
        const std::vector<std::string> losses = lossesOf();
        for (const std::string& loss : losses)
            m_console.note("kestova pcap: " + loss);
        return losses.empty() ? eDone : eDamaged;
    }

    std::vector<std::string> lossesOf() const
    {
        std::vector<std::string> losses;
        const auto say = [&](std::uint64_t count, const char* what) {
            if (count != 0)
                losses.push_back(fmt::format("{} {}", count, what));
        };
        if (m_result.stopped)
            losses.push_back("interrupted");
        if (m_result.cut)
            losses.push_back("the capture ends within a record");
        else if (!m_result.finished && !m_result.stopped)
            losses.push_back("the capture could not be read to its end");
        say(m_result.droppedRecords, "records of UDP are neither a datagram nor a fragment that can be used");
        say(m_result.emptyBeginnings, "datagrams had an empty first fragment");
        say(m_import ? m_import->tooLong() : 0, "datagrams are longer than a datagram can be, left out");
        say(m_result.orphans, "fragments without the beginning of their datagram");
        say(m_result.pending, "datagrams never became whole");
        say(m_result.padded, "datagrams were captured only in part, the rest reads as zeros");
        for (const auto& [address, port] : m_selection)
            if (m_spans.count({address, port}) == 0)
                losses.push_back(fmt::format("no datagram to {}:{}", address, port));
        return losses;
    }

    // The lengths, the most frequent first.
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
            text += (text.empty() ? "" : ", ") + (kind == "Unknow" ? "unknown" : kind);  // as the library spells it
        return text;
    }

    tSpan spanOf(const pcap::tUdpMulticast& row) const
    {
        const auto span = m_spans.find({row.address, row.port});
        return span != m_spans.end() ? span->second : tSpan();
    }

    // One over the mean interval, as in info.
    static double ratePerSecond(std::uint64_t count, const tSpan& span)
    {
        const std::uint64_t us = span.last_us - span.first_us;
        return us == 0 ? 0.0 : static_cast<double>(count - 1) * 1e6 / static_cast<double>(us);
    }

    std::string text() const
    {
        std::string out = fmt::format("{:<22} {:>10} {:>15} {:>12}  {:<38} {}\n", "address", "datagrams", "bytes",
                                      "per second", "lengths", "kinds");
        for (const pcap::tUdpMulticast& row : m_rows)
        {
            const tSpan span = spanOf(row);
            out +=
                fmt::format("{:<22} {:>10} {:>15} {:>12.1f}  {:<38} {}\n",
                            row.address.empty() ? "(beginning missing)" : fmt::format("{}:{}", row.address, row.port),
                            row.count, span.bytes, ratePerSecond(row.count, span), lengthsText(row), kindsText(row));
        }
        out += fmt::format("{} records, {} of them no UDP or too short to tell", m_result.records,
                           m_result.skippedRecords);
        if (m_result.firstTime_us != 0)
            out += fmt::format("; {} to {}", localTimeText(m_result.firstTime_us / 1000),
                               localTimeText(m_result.lastTime_us / 1000));
        out += '\n';
        if (m_import)
        {
            for (const std::string& file : m_import->files())
                out += file + '\n';
            out += fmt::format("{} datagrams recorded\n", m_import->recorded());
        }
        return out;
    }

    tJson streamJson(const pcap::tUdpMulticast& row) const
    {
        const tSpan span = spanOf(row);
        tJson lengths = tJson::array();
        for (const auto& [count, length] : lengthsOf(row))
            lengths.push_back({{"length", length}, {"datagrams", count}});
        return {{"address", row.address.empty() ? "" : fmt::format("{}:{}", row.address, row.port)},
                {"datagrams", row.count},
                {"bytes", span.bytes},
                {"first_ms", span.first_us / 1000},
                {"last_ms", span.last_us / 1000},
                {"datagramsPerSecond", ratePerSecond(row.count, span)},
                {"lengths", lengths},
                {"kinds", row.types}};
    }

    tJson json() const
    {
        tJson streams = tJson::array();
        for (const pcap::tUdpMulticast& row : m_rows)
            streams.push_back(streamJson(row));
        tJson result = {{"schema", "kestova/pcap/1"},
                        {"path", m_options.path},
                        {"records", m_result.records},
                        {"skipped", m_result.skippedRecords},
                        {"dropped", m_result.droppedRecords},
                        {"datagrams", m_result.datagrams},
                        {"orphans", m_result.orphans},
                        {"pending", m_result.pending},
                        {"padded", m_result.padded},
                        {"emptyBeginnings", m_result.emptyBeginnings},
                        {"finished", m_result.finished},
                        {"cut", m_result.cut},
                        {"first_ms", m_result.firstTime_us / 1000},
                        {"last_ms", m_result.lastTime_us / 1000}};
        if (m_import)
            result["recorded"] = {{"files", m_import->files()}, {"datagrams", m_import->recorded()}};
        result["streams"] = streams;
        return result;
    }

    const tOptions& m_options;
    tConsole& m_console;
    tStopSignal m_stop;
    const std::set<tGroup> m_selection;
    const bool m_all;
    std::map<tGroup, tSpan> m_spans;
    std::vector<pcap::tUdpMulticast> m_rows;
    pcap::tPcapReadResult m_result{};
    std::unique_ptr<tCaptureImport> m_import;
    pcap::tPcapReader m_reader;
};

void parseSelection(const std::string& text)
{
    if (text != cAll)
        parseGroup(text);
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
    command.add_flag("--json", options->json, "Results as one JSON object");
    command.callback([options, &chosen] {
        chosen = [options](tConsole& console) {
            requireReadableCapture(options->path);
            return tPcapSession(*options, console).run();
        };
    });
}
}  // namespace tool

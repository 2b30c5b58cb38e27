#include "tools/commands/pcapreport.h"

#include <fmt/format.h>

#include "KestovaRecordings/streamchoice.h"
#include "tools/shell/places.h"
#include "tools/shell/units.h"

namespace tool
{
using session::tCaptureSpan;

namespace
{
constexpr std::size_t cLengthsShown = 3;

void addCount(std::vector<std::string>& losses, std::uint64_t count, const char* what)
{
    if (count != 0)
        losses.push_back(fmt::format("{} {}", count, what));
}

// Returns the lengths, the most frequent first.
std::vector<std::pair<int, int>> lengthsOf(const pcap::tUdpMulticast& row)
{
    return {row.lengths.rbegin(), row.lengths.rend()};
}

std::string lengthsText(const pcap::tUdpMulticast& row)
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

std::string kindsText(const pcap::tUdpMulticast& row)
{
    std::string text;
    for (const std::string& kind : row.types)
        text += (text.empty() ? "" : ", ") + (kind == "Unknow" ? "unknown" : kind);  // the library's spelling
    return text;
}

// Returns one over the mean interval, as info does.
double ratePerSecond(std::uint64_t count, const tCaptureSpan& span)
{
    const std::uint64_t us = span.lastUs - span.firstUs;
    return us == 0 ? 0.0 : static_cast<double>(count - 1) * 1e6 / static_cast<double>(us);
}

std::string addressText(const pcap::tUdpMulticast& row)
{
    return row.address.empty() ? "" : fmt::format("{}:{}", row.address, row.port);
}
}  // namespace

std::vector<std::string> tPcapReport::losses() const
{
    std::vector<std::string> losses;
    addReaderLosses(losses);
    if (m_session.recorder() != nullptr)
        addCount(losses, m_session.recorder()->tooLong(), "datagrams are longer than a datagram can be, left out");
    if (m_asked)
        for (const auto& [address, port] : m_session.silent())
            losses.push_back(fmt::format("no datagram to {}:{}", address, port));
    else if (!m_radar.empty() && m_session.streams().empty())
        losses.emplace_back("no datagram to any group of the radar");
    return losses;
}

void tPcapReport::addReaderLosses(std::vector<std::string>& losses) const
{
    if (m_result.stopped)
        losses.emplace_back("interrupted");
    else if (m_result.cut)
        losses.emplace_back("the capture ends within a record");
    else if (!m_result.finished)
        losses.push_back("the capture could not be read to its end" +
                         (m_session.failure().empty() ? std::string() : ": " + m_session.failure()));
    addCount(losses, m_result.droppedRecords, "records of UDP are neither a datagram nor a fragment that can be used");
    addCount(losses, m_result.emptyBeginnings, "datagrams had an empty first fragment");
    addCount(losses, m_result.orphans, "fragments without the beginning of their datagram");
    addCount(losses, m_result.pending, "datagrams never became whole");
    addCount(losses, m_result.padded, "datagrams were captured only in part, the rest reads as zeros");
}

// Empty for a group that is not the radar's.
std::string tPcapReport::streamName(const pcap::tUdpMulticast& row) const
{
    const auto stream = m_radar.find({row.address, row.port});
    return stream != m_radar.end() ? recordings::streamTitle(stream->second.rwType) : std::string();
}

std::string tPcapReport::rowText(const pcap::tUdpMulticast& row) const
{
    const tCaptureSpan span = m_session.spanOf(row);
    return (m_radar.empty() ? std::string() : fmt::format("{:<18}", streamName(row))) +
           fmt::format("{:<22} {:>10} {:>15} {:>12.1f}  {:<38} {}\n",
                       row.address.empty() ? "(beginning missing)" : addressText(row), row.count, span.bytes,
                       ratePerSecond(row.count, span), lengthsText(row), kindsText(row));
}

std::string tPcapReport::text() const
{
    std::string out = (m_radar.empty() ? std::string() : fmt::format("{:<18}", "stream")) +
                      fmt::format("{:<22} {:>10} {:>15} {:>12}  {:<38} {}\n", "address", "datagrams", "bytes",
                                  "per second", "lengths", "kinds");
    for (const pcap::tUdpMulticast& row : m_session.streams())
        out += rowText(row);
    out += fmt::format("{} records, {} of them no UDP or too short to tell", m_result.records, m_result.skippedRecords);
    if (m_result.firstTime_us != 0)
        out += fmt::format("; {} to {}", timeText(m_result.firstTime_us / 1000), timeText(m_result.lastTime_us / 1000));
    out += '\n';
    if (const auto* const recorder = m_session.recorder())
    {
        for (const std::string& file : recorder->files())
            out += file + '\n';
        out += fmt::format("{} datagrams recorded\n", recorder->recorded());
    }
    return out;
}

tJson tPcapReport::rowJson(const pcap::tUdpMulticast& row) const
{
    const tCaptureSpan span = m_session.spanOf(row);
    tJson lengths = tJson::array();
    for (const auto& [count, length] : lengthsOf(row))
        lengths.push_back({{"length", length}, {"datagrams", count}});
    tJson json = tJson::object();
    if (!m_radar.empty())
        json["stream"] = streamName(row);
    json.update({{"address", addressText(row)},
                 {"datagrams", row.count},
                 {"bytes", span.bytes},
                 {"first_ms", span.firstUs / 1000},
                 {"last_ms", span.lastUs / 1000},
                 {"datagrams_per_second", ratePerSecond(row.count, span)},
                 {"lengths", lengths},
                 {"kinds", row.types}});
    return json;
}

tJson tPcapReport::json(const std::string& path) const
{
    tJson streams = tJson::array();
    for (const pcap::tUdpMulticast& row : m_session.streams())
        streams.push_back(rowJson(row));
    tJson result = {{"path", path},
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
}  // namespace tool

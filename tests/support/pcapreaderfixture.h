// tPcapReaderTest: captures, a reader for them, and tCaptureLog, which notes what it tells, a line a call.
#ifndef KESTOVA_TESTS_PCAPREADERFIXTURE_H
#define KESTOVA_TESTS_PCAPREADERFIXTURE_H

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/pcapreader.h"
#include "support/capturefile.h"
#include "support/tempdir.h"

using tSelection = std::set<std::pair<std::string, int>>;
using tLines = std::vector<std::string>;

// "239.1.1.1:5000 3x 7*2,4*1 Unknow": three datagrams, two of 7 bytes and one of 4.
inline std::string rowText(const pcap::tUdpMulticast& row)
{
    std::ostringstream text;
    text << row.address << ':' << row.port << ' ' << row.count << 'x';
    for (auto entry = row.lengths.rbegin(); entry != row.lengths.rend(); ++entry)
        text << (entry == row.lengths.rbegin() ? ' ' : ',') << entry->second << '*' << entry->first;
    for (const std::string& type : row.types)
        text << ' ' << type;
    return text.str();
}

inline tLines rowTexts(const std::vector<pcap::tUdpMulticast>& rows)
{
    tLines texts(rows.size());
    std::transform(rows.begin(), rows.end(), texts.begin(), rowText);
    return texts;
}

class tCaptureLog final : public pcap::iPcapDataReadObserver, public pcap::iPcapDatagramObserver
{
public:
    void UpdatePcapReadData(tTimes_ms time, double progress, const char* address, int port, const char* payload,
                            int len) override
    {
        EXPECT_TRUE(payload == nullptr || payload[len] == '\0');
        payloads.emplace_back(payload != nullptr ? std::string(payload, static_cast<std::size_t>(len)) : "null");
        std::ostringstream line;
        line << "data " << time << ' ' << progress << ' ' << (address != nullptr ? address : "null") << ':' << port
             << ' ' << payloads.back();
        note(line.str());
    }
    void UpdatePcapReadProgress(double percent, tTimes_ms time) override
    {
        std::ostringstream line;
        line << "progress " << percent << ' ' << time;
        note(line.str());
    }
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>& rows) override
    {
        reports.push_back(rowTexts(rows));
        note("rows " + std::to_string(rows.size()));
    }
    void UpdatePcapDatagram(const pcap::tPcapDatagram& told) override
    {
        std::ostringstream line;
        line << told.record << ' ' << told.time_us << ' ' << told.sourceAddress << ':' << told.sourcePort << ' '
             << told.address << ':' << told.port << ' ' << told.kind << ' '
             << std::string(told.payload, static_cast<std::size_t>(told.len));
        datagrams.push_back(line.str());
    }

    tLines lines, payloads, datagrams;
    std::vector<tLines> reports;
    std::function<void(const std::string&)> onLine;

private:
    void note(const std::string& line)
    {
        lines.push_back(line);
        if (onLine)
            onLine(line);
    }
};

inline constexpr std::uint64_t cTime = 1'715'934'600'000;
inline const tSelection cSelected = {{"239.1.1.1", 5000}};

class tPcapReaderTest : public testing::Test
{
protected:
    std::string write() { return capture.writeTo(dir.file("a.pcap")); }
    // Reads what was added with a new reader; its console text.
    std::string read(const tSelection& selection = cSelected)
    {
        log = {};
        pcap::tPcapReader reader(write(), &log);
        reader.SetDatagramObserver(&log);
        return read(reader, selection);
    }
    std::string read(pcap::tPcapReader& reader, const tSelection& selection)
    {
        testing::internal::CaptureStdout();
        try
        {
            reader.Read(selection);
        }
        catch (...)
        {
            testing::internal::GetCapturedStdout();
            throw;
        }
        rows = rowTexts(reader.GetUdpMulticast());
        result = reader.GetReadResult();
        return testing::internal::GetCapturedStdout();
    }
    tFrame to(const std::string& address, unsigned port, std::string payload)
    {
        return {.payload = std::move(payload), .to = address, .port = port};
    }
    // The beginning, or with an offset a continuation, of a fragmented datagram.
    tFrame fragment(unsigned offset, bool more, std::string payload, unsigned id = 1)
    {
        return {.payload = std::move(payload), .flags = more ? 1u : 0u, .offset = offset, .id = id};
    }
    tLines payloads(const tSelection& selection = cSelected)
    {
        read(selection);
        EXPECT_EQ(log.payloads.empty() ? "" : log.payloads.back(), "null") << "no end mark";
        log.payloads.pop_back();
        return log.payloads;
    }

    tTempDir dir;
    tCapture capture;
    tCaptureLog log;
    tLines rows;
    pcap::tPcapReadResult result{};
};

#endif

// How long a capture takes to read, beside a loop over its records alone, and what it costs in memory.
//
//   pcap_bench [--tshark] [FOLDER]
//
// A capture of 1.5 million records, 1 GiB: spokes, sentences and other datagrams of 20 streams, one datagram in 20 in
// fragments. It is read for statistics (an observer gets every report), with four streams selected, and by a
// pcap_next_ex loop that only adds the lengths up, one after the other in every run. --tshark also times
// `tshark -q -z io,phs`, once. Memory is the highest resident set of the process up to the end of our runs.
// Then 60,000 datagrams to 20,000 streams against the same number to 20, three ways. Medians of five runs; files go to
// FOLDER, by default the system's temporary folder, and are read from the page cache.
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <set>
#include <sys/resource.h>

#include "KestovaStorage/internal/capture/captureformat.h"
#include "KestovaStorage/pcapreader.h"
#include "bench/measure.h"
#include "bench/pcap_peer.h"
#include "common/byteorder.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
constexpr unsigned cRecords = 1'500'000, cDatagramsOfStreams = 60'000;
constexpr std::uint32_t cFirstSecond = 1'715'934'600;

// A capture that is written as it grows.
class tCaptureWriter
{
public:
    explicit tCaptureWriter(const std::string& path) : m_out(path, std::ios::binary)
    {
        const pcap::tPcapFileHeader head{0xA1B2C3D4, 2, 4, 0, 0, 65535, 1};
        m_out.write(reinterpret_cast<const char*>(&head), sizeof head);
    }
    // Sends `length` bytes, in fragments if they do not fit into one frame.
    void send(std::uint32_t address, std::uint16_t port, std::size_t length)
    {
        ++m_id;
        const std::size_t total = length + sizeof(pcap::tUDPHeader);
        for (std::size_t offset = 0; offset < total; offset += cFragment)
        {
            const std::size_t part = std::min(cFragment, total - offset);
            const unsigned more = offset + part < total ? 0x2000 : 0;
            addRecord(address, offset == 0 ? port : 0, part, static_cast<std::uint16_t>(more | offset / 8));
        }
    }
    unsigned records() const { return m_records; }
    std::uint64_t bytes() { return static_cast<std::uint64_t>(m_out.tellp()); }

private:
    static constexpr std::size_t cFragment = 1480;

    void addRecord(std::uint32_t address, std::uint16_t port, std::size_t part, std::uint16_t flagSegment)
    {
        char record[2048];
        std::memset(record, 'k', sizeof record);
        const auto len = static_cast<std::uint32_t>(pcap::cIpPayloadPos + part);
        const pcap::tPcapPckHeader head{cFirstSecond + m_records / 5000, m_records % 5000 * 200, len, len};
        std::memcpy(record, &head, sizeof head);
        char* const frame = record + sizeof head;
        be::store(frame + offsetof(pcap::tFrameHeader, frame_type), pcap::cIpv4FrameType);
        char* const ip = frame + pcap::cIpPos;
        ip[0] = 0x45;
        ip[offsetof(pcap::tIPHeader, protocol)] = static_cast<char>(pcap::cUdpProtocol);
        be::store(ip + offsetof(pcap::tIPHeader, total_len), static_cast<std::uint16_t>(20 + part));
        be::store(ip + offsetof(pcap::tIPHeader, id), m_id);
        be::store(ip + offsetof(pcap::tIPHeader, flag_segment), flagSegment);
        be::store(ip + offsetof(pcap::tIPHeader, dst_ip), address);
        if (port != 0)
            be::store(frame + pcap::cIpPayloadPos + offsetof(pcap::tUDPHeader, dst_port), port);
        m_out.write(record, static_cast<std::streamsize>(sizeof head + len));
        ++m_records;
    }

    std::ofstream m_out;
    unsigned m_records = 0;
    std::uint16_t m_id = 0;
};

constexpr std::uint32_t cGroups = 0xEF110000;  // 239.17.0.0

std::uint64_t makeCapture(const std::string& path)
{
    constexpr std::size_t cLengths[20] = {542, 542,  542, 542, 542, 542, 542, 542, 82,   82,
                                          60,  1400, 300, 700, 542, 542, 542, 542, 1472, 4000};
    tCaptureWriter writer(path);
    for (std::uint32_t i = 0; writer.records() < cRecords; ++i)
        writer.send(cGroups + i % 20, static_cast<std::uint16_t>(6000 + i % 20), cLengths[i % 20]);
    return writer.bytes();
}

void makeStreams(const std::string& path, unsigned streams)
{
    tCaptureWriter writer(path);
    for (unsigned i = 0; i < cDatagramsOfStreams; ++i)
        writer.send(cGroups + i % streams, 6000, 542);
}

// Adds up every report, so that the compiler removes none.
class tObserver final : public pcap::iPcapDataReadObserver
{
public:
    void UpdatePcapReadData(tTimes_ms, double, const char*, int, const char*, int len) override
    {
        m_bytes += static_cast<unsigned>(len);
    }
    void UpdatePcapReadProgress(double, tTimes_ms) override {}
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>& rows) override { m_bytes += rows.size(); }
    std::uint64_t bytes() const { return m_bytes; }

private:
    std::uint64_t m_bytes = 0;
};

// The reader's own lines do not belong among the figures.
class tQuiet
{
public:
    tQuiet() : m_kept(::dup(STDOUT_FILENO))
    {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~tQuiet()
    {
        std::fflush(stdout);
        ::dup2(m_kept, STDOUT_FILENO);
        ::close(m_kept);
    }
    tQuiet(const tQuiet&) = delete;
    tQuiet& operator=(const tQuiet&) = delete;

private:
    const int m_kept;
};

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "%s\n", what);
    std::exit(1);
}

double readOurs(const std::string& path, const std::set<std::pair<std::string, int>>& selection, bool observed = true,
                bool atEndOnly = false)
{
    const tQuiet quiet;
    tObserver observer;
    pcap::tPcapReader reader(path, observed ? &observer : nullptr);
    reader.ReportAtEndOnly(atEndOnly);
    const auto start = tClock::now();
    reader.Read(selection);
    const double seconds = bench::secondsSince(start);
    require(reader.GetReadResult().finished && reader.GetReadResult().datagrams > 0, "nothing was read");
    require(!observed || observer.bytes() > 0, "nothing was reported");
    return seconds;
}

double readPeer(const std::string& path, std::uint64_t size)
{
    const auto start = tClock::now();
    require(addUpWithLibpcap(path) == size, "pcap_next_ex read something else");
    return bench::secondsSince(start);
}

void print(const char* name, std::vector<double> seconds, std::uint64_t size, double peer, double wanted)
{
    const bench::tFigures figures = bench::figuresOf(std::move(seconds));
    std::printf("  %-22s %.3f s (%.3f to %.3f), %.2f GB/s, %.0f ns a record; %.2f x pcap_next_ex (wanted: %.2f)\n",
                name, figures.median, figures.low, figures.high, static_cast<double>(size) / figures.median / 1e9,
                figures.median / cRecords * 1e9, peer / figures.median, wanted);
}

double timeTshark(const std::string& path)
{
    const std::string command = "tshark -q -z io,phs -r '" + path + "' >/dev/null 2>&1";
    const auto start = tClock::now();
    require(std::system(command.c_str()) == 0, "tshark failed");
    return bench::secondsSince(start);
}

void measureCapture(const std::string& path, bool tshark)
{
    const std::uint64_t size = makeCapture(path);
    std::set<std::pair<std::string, int>> four;
    for (const int stream : {0, 9, 14, 19})
        four.emplace("239.17.0." + std::to_string(stream), 6000 + stream);
    std::vector<double> statistics, selected, peer;
    for (int run = 0; run <= cRuns; ++run)  // the first warms up
    {
        const double times[] = {readOurs(path, {}), readOurs(path, four), readPeer(path, size)};
        if (run == 0)
            continue;
        statistics.push_back(times[0]);
        selected.push_back(times[1]);
        peer.push_back(times[2]);
    }
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const double yardstick = bench::figuresOf(peer).median;
    std::printf(" a capture of %.2f GiB\n", static_cast<double>(size) / (1 << 30));
    print("statistics", statistics, size, yardstick, 0.85);
    print("four streams selected", selected, size, yardstick, 0.85);
    print("pcap_next_ex", peer, size, yardstick, 1);
    std::printf("  memory %.1f MiB (wanted: 64)\n", static_cast<double>(usage.ru_maxrss) / 1024);
    if (!tshark)
        return;
    const double other = timeTshark(path);
    std::printf("  tshark -q -z io,phs %.1f s, %.0f x our statistics (wanted: 25)\n", other,
                other / bench::figuresOf(statistics).median);
}

void measureStreams(const std::string& folder)
{
    const std::string many = folder + "many.pcap", few = folder + "few.pcap";
    makeStreams(many, 20'000);
    makeStreams(few, 20);
    const struct
    {
        const char* name;
        bool observed, atEndOnly;
    } ways[] = {{"no observer", false, false}, {"one report", true, true}, {"a report a step", true, false}};
    std::printf(" 60,000 datagrams to 20,000 streams, and to 20\n");
    for (const auto& way : ways)
    {
        std::vector<double> ours, yardstick;
        for (int run = 0; run <= cRuns; ++run)
        {
            ours.push_back(readOurs(many, {}, way.observed, way.atEndOnly));
            yardstick.push_back(readOurs(few, {}, way.observed, way.atEndOnly));
        }
        const double mine = bench::figuresOf(ours).median, base = bench::figuresOf(yardstick).median;
        std::printf("  %-22s %.0f ns and %.0f ns a datagram; ratio %.2f (wanted: 3)\n", way.name,
                    mine / cDatagramsOfStreams * 1e9, base / cDatagramsOfStreams * 1e9, mine / base);
    }
}
}  // namespace

int main(int argc, char** argv)
{
    const bool tshark = argc > 1 && std::strcmp(argv[1], "--tshark") == 0;
    const char* const folder = argc > (tshark ? 2 : 1) ? argv[tshark ? 2 : 1] : nullptr;
    bench::announce("pcap_bench: captures read from the page cache");
    const bench::tScratch scratch(folder);
    measureCapture(scratch.path() + "capture.pcap", tshark);
    std::filesystem::remove(scratch.path() + "capture.pcap");
    measureStreams(scratch.path());
    return 0;
}

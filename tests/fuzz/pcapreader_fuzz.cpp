// A capture out of any bytes: it reads to its end, delivers what the statistics count, and ends with the final calls.
#include <cstdint>
#include <cstdio>
#include <string>

#include "KestovaStorage/pcapreader.h"
#include "tests/fuzz/fuzz.h"

namespace
{
using tSelection = std::set<std::pair<std::string, int>>;

class tObserver final : public pcap::iPcapDataReadObserver, public pcap::iPcapDatagramObserver
{
public:
    void UpdatePcapReadData(tTimes_ms, double place, const char* address, int, const char* payload, int len) override
    {
        if (address == nullptr)
            return void(++ends);
        require(place >= 0 && place <= 1 && len > 0 && payload[len] == '\0');
        ++delivered;
    }
    void UpdatePcapReadProgress(double percent, tTimes_ms) override
    {
        require(percent >= progress && percent <= 100);
        progress = percent;
    }
    void UpdatePcapUdpMulticast(const std::vector<pcap::tUdpMulticast>& rows) override
    {
        counted = 0;
        selection.clear();
        for (std::size_t i = 0; i < rows.size(); ++i)
            take(rows[i], i == 0 ? UINT32_MAX : rows[i - 1].count);
    }
    void UpdatePcapDatagram(const pcap::tPcapDatagram& told) override
    {
        std::uint64_t sum = 0;
        for (int i = 0; i < told.len; ++i)  // every byte must be there to be read
            sum += static_cast<unsigned char>(told.payload[i]);
        require(told.payload[told.len] == '\0' && sum <= 255ULL * static_cast<unsigned>(told.len));
        watched += told.len > 0;
    }

    double progress = 0;
    std::uint64_t delivered = 0, watched = 0, counted = 0, ends = 0;
    tSelection selection;

private:
    void take(const pcap::tUdpMulticast& row, std::uint32_t before)
    {
        require(row.count <= before && !row.types.empty());
        std::uint64_t datagrams = 0;
        for (const auto& [occurrences, length] : row.lengths)
            datagrams += static_cast<unsigned>(occurrences);
        require(datagrams == row.count);
        counted += row.count;
        if (!row.address.empty())
            selection.emplace(row.address, row.port);
    }
};

void readAll(const std::string& path, bool tagsAndOptions)
{
    tObserver statistics, data;
    pcap::tPcapReader reader(path, &statistics);
    reader.KeepReading(true);
    reader.ReadTagsAndOptions(tagsAndOptions);
    reader.Read({});
    const pcap::tPcapReadResult found = reader.GetReadResult();
    require(found.finished && statistics.progress == 100 && statistics.counted == found.datagrams);
    pcap::tPcapReader again(path, &data);
    again.KeepReading(true);
    again.ReadTagsAndOptions(tagsAndOptions);
    again.SetDatagramObserver(&data);
    again.Read(statistics.selection);
    require(data.watched == found.datagrams - found.orphans || statistics.selection.empty());
    require(data.delivered <= data.watched && data.ends == !statistics.selection.empty());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    [[maybe_unused]] static const bool s_quiet = std::freopen("/dev/null", "w", stdout) != nullptr;
    const tMemoryFile file;
    file.put(0, data, size);
    readAll(file.path(), false);
    readAll(file.path(), true);
    return 0;
}

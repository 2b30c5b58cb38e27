// How fast a replay that waits for nothing delivers its records, beside reading the same files record by record.
//
//   replay_fast_bench [FOLDER]
//
// Four files of 238,000 records of 542 bytes, recorded one after the other, and interleaved record by record. Playing
// is a jump behind the end, from the call to the last record; the observer looks at the first byte of each, as the
// reading through storage::tDataFile does, which opens the files before it is timed. Both deliver the same bytes: the
// sums must agree, or status 1. Medians of five runs in turn; 516 MB of files go to FOLDER, by default the system's
// temporary folder, and are read from the page cache.
#include <atomic>
#include <cstring>
#include <fstream>
#include <memory>

#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/datastorageio.h"
#include "bench/measure.h"

namespace
{
using bench::tClock;

constexpr int cRuns = 5;
constexpr std::size_t cFiles = 4;
constexpr std::size_t cRecords = 238'000;
constexpr std::uint32_t cLen = 542;
constexpr std::uint64_t cFirstTime = 1'700'000'000'000;
constexpr double cWithoutWaiting = 2.0;

std::string fileName(const std::string& folder, std::size_t file)
{
    return folder + "000" + std::to_string(file) + "_2024-05-17_08-30-00_bench.data";
}

void makeFiles(const std::string& folder, bool interleaved)
{
    std::vector<storage::tIndexSlot> index(cRecords);
    std::vector<char> payload(cRecords * cLen);
    for (std::size_t i = 0; i < payload.size(); ++i)
        payload[i] = static_cast<char>(i * 2654435761u >> 13);
    for (std::size_t file = 0; file < cFiles; ++file)
    {
        for (std::size_t i = 0; i < cRecords; ++i)
        {
            const std::uint64_t place = interleaved ? i * cFiles + file : file * cRecords + i;
            index[i] =
                storage::encode(storage::tNormalIndexTable{cFirstTime + place, storage::cPayloadPos + i * cLen, cLen});
        }
        std::ofstream out(fileName(folder, file), std::ios::binary);
        const std::uint32_t magic = storage::cDataFileHead;
        const storage::tIndexHead head{cRecords, cLen};
        out.write(reinterpret_cast<const char*>(&magic), sizeof magic);
        out.seekp(storage::cIndexHeadPos).write(reinterpret_cast<const char*>(&head), sizeof head);
        out.seekp(storage::cIndexPos)
            .write(reinterpret_cast<const char*>(index.data()),
                   static_cast<std::streamsize>(cRecords * storage::cIndexSlotSize));
        out.seekp(storage::cPayloadPos).write(payload.data(), static_cast<std::streamsize>(payload.size()));
    }
}

std::uint64_t summed(std::uint64_t sum, const char* data, std::size_t len)
{
    return sum * 31 + static_cast<unsigned char>(*data) + len;
}

struct tResult
{
    double seconds = 0.0;
    std::uint64_t sum = 0;  // over the records in order of time; of each file by itself when they are interleaved
};

tResult readAll(const std::string& folder)
{
    std::vector<storage::tDataFile> files(cFiles);
    for (std::size_t file = 0; file < cFiles; ++file)
    {
        if (!files[file].open(fileName(folder, file)) || files[file].recordCount() != cRecords)
            std::exit(1);
    }
    tResult result;
    std::string bytes;
    const auto start = tClock::now();
    for (storage::tDataFile& file : files)
    {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < cRecords && file.read(i, bytes); ++i)
            sum = summed(sum, bytes.data(), bytes.size());
        result.sum += sum;
    }
    result.seconds = bench::secondsSince(start);
    return result;
}

class tObserver final : public storage::iDataReadReplayObserver
{
public:
    void UpdateReplayStatus(uint8_t) override {}
    void UpdateDataTimeSpan(uint64_t, uint64_t) override {}
    void UpdateReplayData(uint64_t, double, const char* data, unsigned int len, std::string fileName) override
    {
        if (!m_counting)
            return;
        std::uint64_t& sum = m_sums[static_cast<std::size_t>(fileName[m_digit] - '0')];
        sum = summed(sum, data, len);
        if (++m_count != cFiles * cRecords)
            return;
        m_done = true;
        m_done.notify_all();
    }
    void begin(const std::string& folder)
    {
        m_digit = folder.size() + 3;
        m_counting = true;
    }
    std::uint64_t wait() const
    {
        m_done.wait(false);
        std::uint64_t total = 0;
        for (const std::uint64_t sum : m_sums)
            total += sum;
        return total;
    }

private:
    std::atomic<bool> m_counting{false}, m_done{false};
    std::size_t m_digit = 0;  // place of the file's number in its name
    std::uint64_t m_sums[cFiles] = {};
    std::size_t m_count = 0;
};

tResult playAll(const std::string& folder)
{
    tObserver observer;
    storage::tDataStorageIO storage("", ".data");
    storage.OpenReadDataFileorFolder(folder, &observer);
    while (!storage.Stop())  // fails until playing has begun
    {}
    observer.begin(folder);
    tResult result;
    const auto start = tClock::now();
    storage.Jump(cWithoutWaiting);
    result.sum = observer.wait();
    result.seconds = bench::secondsSince(start);
    storage.CloseReadingFile();
    return result;
}

bool measure(const char* name, const std::string& folder)
{
    std::vector<double> played, read;
    for (int run = 0; run <= cRuns; ++run)  // the first warms up
    {
        const tResult reading = readAll(folder), playing = playAll(folder);
        if (reading.sum != playing.sum)
            return std::printf("  %s: what was played is not what was read\n", name), false;
        if (run == 0)
            continue;
        played.push_back(playing.seconds / (cFiles * cRecords) * 1e9);
        read.push_back(reading.seconds / (cFiles * cRecords) * 1e9);
    }
    const auto mine = bench::figuresOf(played), peer = bench::figuresOf(read);
    std::printf(
        "  %-12s played %.0f ns a record (%.0f to %.0f), read record by record %.0f ns (%.0f to %.0f); ratio %.2f\n",
        name, mine.median, mine.low, mine.high, peer.median, peer.low, peer.high, mine.median / peer.median);
    return true;
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("replay_fast_bench: 4 files of 238,000 records of 542 bytes");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    makeFiles(scratch.path(), false);
    if (!measure("in sequence", scratch.path()))
        return 1;
    makeFiles(scratch.path(), true);
    return measure("interleaved", scratch.path()) ? 0 : 1;
}

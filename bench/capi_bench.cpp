// What the C library costs: the records of a recording, 256 at a time, beside the cursor that stands behind it.
//
//   capi_bench [FOLDER]
//
// Two files of 476,000 packages of 583 bytes, as long as the simulated radar's. The cursor's next() alone, next() with
// a look into each package, and kestova_records_read(), in turn; each adds a byte of every record. Medians of eleven
// runs; the files go to FOLDER, by default the system's temporary folder, and are in the page cache.
#include <cstdint>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/recordcursor.h"
#include "bench/measure.h"
#include "bench/recordedfiles.h"
#include "bindings/c/kestova.h"

namespace
{
constexpr int cRuns = 11;
constexpr std::size_t cRecords = 476'000, cFiles = 2, cLength = 583, cTogether = 256;

std::uint64_t s_sum = 0;

void require(bool isTrue)
{
    if (!isTrue)
    {
        std::fprintf(stderr, "reading failed: %s\n", kestova_error());
        std::exit(1);
    }
}

void readWithCursor(const std::string& folder, bool looks)
{
    recordings::tRecordCursor cursor(recordings::findAllRecordings({folder}, ".data").files, ".data");
    recordings::tRecordingRecord record{};
    std::size_t count = 0;
    for (; cursor.next(record); ++count)
    {
        if (looks)
            s_sum += static_cast<unsigned char>(recordings::viewPackage(record.bytes)->payload[0]);
        else
            s_sum += static_cast<unsigned char>(record.bytes[40]);
    }
    require(count == cFiles * cRecords);
}

void readWithC(const std::string& folder)
{
    kestova_recording* recording = nullptr;
    kestova_records* records = nullptr;
    require(kestova_open(folder.c_str(), nullptr, &recording) == KESTOVA_OK);
    require(kestova_records_open(recording, KESTOVA_BEGINNING, KESTOVA_TO_END, nullptr, nullptr, &records) ==
            KESTOVA_OK);
    std::vector<kestova_record> batch(cTogether);
    std::size_t count = 0, all = 0;
    for (; kestova_records_read(records, batch.data(), cTogether, &count, -1) == KESTOVA_OK; all += count)
        for (std::size_t i = 0; i < count; ++i)
            s_sum += batch[i].data[0];
    require(all == cFiles * cRecords);
    kestova_records_close(records);
    kestova_close(recording);
}

template <typename tWork>
void run(std::vector<double>& times, tWork work)
{
    const auto start = bench::tClock::now();
    work();
    times.push_back(bench::secondsSince(start));
}

void print(const char* what, const bench::tFigures& figures, double yardstick)
{
    const double each = 1e9 / static_cast<double>(cFiles * cRecords);
    std::printf("%-34s %6.1f ns a record (%.1f to %.1f), ratio %.2f\n", what, figures.median * each, figures.low * each,
                figures.high * each, figures.median / yardstick);
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("capi_bench");
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    for (std::size_t i = 0; i < cFiles; ++i)
        bench::recordFile(scratch.path() + std::to_string(i) + ".data", cRecords, cLength,
                          1'700'000'000'000 + i * cRecords);
    std::vector<double> plain, looking, throughC;
    for (int i = 0; i < cRuns; ++i)
    {
        run(plain, [&] { readWithCursor(scratch.path(), false); });
        run(looking, [&] { readWithCursor(scratch.path(), true); });
        run(throughC, [&] { readWithC(scratch.path()); });
    }
    const bench::tFigures yardstick = bench::figuresOf(plain);
    print("the cursor", yardstick, yardstick.median);
    print("the cursor, looking into packages", bench::figuresOf(looking), yardstick.median);
    print("kestova_records_read, 256 at once", bench::figuresOf(throughC), yardstick.median);
    std::printf("sum %llu\n", static_cast<unsigned long long>(s_sum));
}

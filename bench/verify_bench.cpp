// Verifying a recording of 1 GB with its sheet, beside reading it and beside decoding it.
//
//   verify_bench [FOLDER]
//
// A recording of simulated spokes is made in FOLDER (the system's temporary folder; better one in memory), which needs
// 1.5 GB, plain and compressed. Five times each, in turn, from the page cache: read(2) of the plain file in blocks of
// 1 MiB by one thread; recordings::verifyRecordings of the plain file; the Huffman code of 16 MiB of its segments
// decoded from one position by one thread; verifyRecordings of the compressed file. Verifying uses all cores, each run
// in a process of its own; shown are medians, and the most memory of the process, shared libraries included.
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaRecordings/verify.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/codec/symboldecoder.h"
#include "bench/measure.h"
#include "bench/simulatedspokes.h"
#include "tests/support/radarpackages.h"

namespace
{
namespace fs = std::filesystem;

constexpr std::size_t cSpokeLen = 542;
constexpr std::size_t cSpokes = 1 << 15;  // different ones
constexpr std::uint64_t cSpokesEach = 4;
constexpr std::uint64_t cSegments = 450'000;  // of 2,209 bytes
constexpr std::uint64_t cPerSecond = 410;
constexpr int cRounds = 5;
constexpr std::size_t cDecoded = 16 << 20;

void require(bool done, const std::string& what)
{
    if (done)
        return;
    std::fprintf(stderr, "verify_bench: %s\n", what.c_str());
    std::exit(1);
}

void writeSheet(const std::string& path)
{
    recordings::tSheetBuilder builder;
    storage::tDataFile file;
    require(file.open(path), path);
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        std::size_t len = 0;
        const char* const bytes = file.view(i, len);
        require(bytes != nullptr, path);
        builder.add(file.record(i).timeMs, storage::cNoFineTime, {bytes, len}, file.record(i).pos);
    }
    recordings::tSheet sheet;
    builder.fill(sheet);
    recordings::sealSheet(sheet, path);
    recordings::writeSheet(path, sheet);
}

void record(const std::string& folder)
{
    const std::string spokes = bench::spokes(cSpokes * cSpokeLen);
    storage::tDataStorageIO storage("", ".data");
    require(storage.CreateNewWritingFile(folder, "", false), "no recording");
    const std::string path = storage.GetCurrentWriteDataFileName();
    for (std::uint64_t i = 0; i < cSegments; ++i)
    {
        const std::string package =
            makePackage(static_cast<std::uint32_t>(i),
                        spokes.substr(cSpokesEach * i % cSpokes * cSpokeLen, cSpokesEach * cSpokeLen));
        storage.WriteData(package.data(), package.size(), 1'700'000'000'000 + i * 1000 / cPerSecond);
        if (i % 10'000 == 0)
            require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    }
    require(storage.WaitWriteIdle(60'000), "the disk does not follow");
    storage.FinishWrite();
    writeSheet(path);
}

// Puts a compressed copy, with its sheet, into a folder of its own; returns its path.
std::string compressed(const std::string& plain, const std::string& folder)
{
    fs::create_directory(folder);
    for (const std::string& file : {plain, plain.substr(0, plain.rfind('.')) + ".json"})
        fs::copy_file(file, folder + fs::path(file).filename().string());
    std::string result, error;
    require(storage::tDataFileConverter::Compress(folder + fs::path(plain).filename().string(), ".data", nullptr,
                                                  &result, &error),
            error);
    recordings::refreshSheet(result);
    return result;
}

double secondsToRead(const std::string& path)
{
    static std::vector<char> s_block(1 << 20);
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const auto start = bench::tClock::now();
    ssize_t got = 0;
    while ((got = ::read(file, s_block.data(), s_block.size())) > 0)
    {}
    const double seconds = bench::secondsSince(start);
    require(got == 0, path);
    ::close(file);
    return seconds;
}

// The code of some segments, to be decoded from one position.
class tOnePosition
{
public:
    explicit tOnePosition(const std::string& path)
    {
        storage::tDataFile file;
        require(file.open(path), path);
        std::string segment;
        for (std::size_t i = 0; m_bytes.size() < cDecoded && file.read(i, segment); ++i)
            m_bytes += segment;
        m_bytes.resize(cDecoded);
        huffman::tSegmentEncoder encoder;
        const auto len = static_cast<std::uint32_t>(m_bytes.size());
        encoder.count(m_bytes.data(), len);
        require(encoder.makeCodes(), "no code");
        m_head = encoder.head();
        m_packed.resize(encoder.room(len) + 8);
        const huffman::tEncodedBits codes = encoder.encode(m_bytes.data(), len, m_packed.data());
        const huffman::tEncodedRest rest = encoder.rest();
        std::memcpy(m_packed.data() + codes.stored, rest.bytes, rest.size);
        m_bits = codes.bits;
        m_out.resize(m_bytes.size() + 1024);
    }
    double seconds()
    {
        const auto start = bench::tClock::now();
        huffman::tFreqTable freqs;
        require(huffman::readFileHead(m_head.data(), freqs), "no head");
        huffman::tSymbolTable table;
        table.build(freqs, UINT64_MAX);
        huffman::tBitRange range{reinterpret_cast<const unsigned char*>(m_packed.data()), 0, m_bits};
        huffman::tSymbolDecoder(table).decode(range, m_out.data(), m_out.data() + m_out.size());
        const double seconds = bench::secondsSince(start);
        require(std::memcmp(m_out.data(), m_bytes.data(), m_bytes.size()) == 0, "decoded bytes differ");
        return seconds;
    }

private:
    std::string m_bytes, m_head;
    std::vector<char> m_packed;
    std::vector<unsigned char> m_out;
    std::uint64_t m_bits = 0;
};

struct tRun
{
    double seconds, mebibytes;
};

// Runs `work`, which returns seconds, in a process of its own.
template <typename tWork>
tRun inChild(tWork work)
{
    int report[2];
    require(::pipe(report) == 0, "pipe");
    const pid_t child = ::fork();
    require(child >= 0, "fork");
    if (child == 0)
    {
        const double seconds = work();
        ::_exit(::write(report[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    }
    ::close(report[1]);
    tRun run{};
    rusage usage{};
    int status = 0;
    require(::read(report[0], &run.seconds, sizeof run.seconds) == sizeof run.seconds, "a run failed");
    ::wait4(child, &status, 0, &usage);
    ::close(report[0]);
    run.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;
    return run;
}

tRun verify(const std::string& path)
{
    return inChild([&] {
        const auto start = bench::tClock::now();
        const auto found = recordings::verifyRecordings({path}, {}, [](const auto&) { return true; });
        const double seconds = bench::secondsSince(start);
        require(found.sound == 1 && found.files.at(0).findings.empty() && found.files.at(0).hasSheet,
                path + " is not sound");
        return seconds;
    });
}

// Rates in GB/s, a value a round.
struct tRates
{
    std::vector<double> reading, verifying, decoding, verifyingPacked, memory;
};

tRates measure(const std::string& plain, const std::string& packed)
{
    tRates rates;
    const auto size = static_cast<double>(fs::file_size(plain));
    const double payload = size - 10'000'000;
    for (int round = 0; round < cRounds; ++round)
    {
        rates.reading.push_back(size / secondsToRead(plain) / 1e9);
        const tRun ofPlain = verify(plain), ofPacked = verify(packed);
        rates.verifying.push_back(size / ofPlain.seconds / 1e9);
        rates.verifyingPacked.push_back(payload / ofPacked.seconds / 1e9);
        rates.memory.push_back(std::max(ofPlain.mebibytes, ofPacked.mebibytes));
        const tRun decoding = inChild([&] { return tOnePosition(plain).seconds(); });
        rates.decoding.push_back(static_cast<double>(cDecoded) / decoding.seconds / 1e9);
    }
    return rates;
}

double show(const char* name, const std::vector<double>& rates)
{
    const bench::tFigures figures = bench::figuresOf(rates);
    std::printf("  %-34s %6.2f GB/s (%.2f to %.2f)\n", name, figures.median, figures.low, figures.high);
    return figures.median;
}

// Returns the path of the recording that is made, in a process whose memory is not ours.
std::string made(const std::string& folder)
{
    if (const pid_t child = ::fork(); child == 0)
    {
        record(folder);
        ::_exit(0);
    }
    else
        ::waitpid(child, nullptr, 0);
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.path().extension() == ".data")
            return entry.path().string();
    require(false, "no recording");
    return {};
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("verify_bench: a recording of 1 GB with its sheet, from the page cache");
    std::fflush(stdout);
    const bench::tScratch scratch(argc > 1 ? argv[1] : nullptr);
    const std::string plain = made(scratch.path());
    const std::string packed = scratch.path() + "packed/" + fs::path(plain).stem().string() + ".tar.data";
    inChild([&] { return compressed(plain, scratch.path() + "packed/") == packed ? 0.0 : 1.0; });
    const tRates rates = measure(plain, packed);
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const double read = show("read(2), 1 MiB blocks, one thread", rates.reading);
    const double verified = show("verify, plain", rates.verifying);
    const double decoded = show("decoding from one position", rates.decoding);
    const double unpacked = show("verify, compressed", rates.verifyingPacked);
    std::printf("  plain: %.2f x reading (wanted: 0.4)\n", verified / read);
    std::printf("  compressed: %.2f x decoding a core, %u cores (wanted: 0.8)\n", unpacked / decoded / cores, cores);
    std::printf("  %.0f MiB at most\n", bench::figuresOf(rates.memory).high);
    return 0;
}

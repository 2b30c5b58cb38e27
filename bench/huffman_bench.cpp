// How fast the Huffman codec is, beside zlib and beside the plain codec of the tests.
//
//   huffman_bench [MEBIBYTES]
//
// Four kinds of data, 16 MiB each by default: spokes as the simulated radar sends them; a mix, in which
// every other byte of the spokes is one of 16 values at random; sensor sentences; and skewed data, 95 % zeros.
//   whole buffer   encode: count, tree, tables and bits of one segment into a ready buffer, and zlib's deflate with
//                  Z_HUFFMAN_ONLY, no checksum, of the same bytes. Decode: head, tables and bits, from one position of
//                  the stream and from several, and zlib inflating what it deflated.
//   in pages       the same encoding of 1, 16 and 64 MiB in pages of 4 KiB and in huge ones; source, result and what
//   zlib
//                  writes are touched first. Of 16 MiB in pages of 4 KiB also without AVX-512
//   records        the same bytes as records of 542, 47 and 16 bytes, one table for all
//   byte arrays    sentences of 100 B to 10 KB, tables included, beside the plain codec
//   counting       what PreReadBytes costs a record of 542 bytes, beside copying it
//   size           of what was stored, beside what the plain codec makes of the first 256 KiB
// Every figure is the median of seven runs, in turn with what it is compared with, all on one core; seconds are those
// of the processor, so that other work on the machine counts less. The library's own console lines go to /dev/null.
#include <cstring>
#include <functional>
#include <memory>
#include <random>

#include <ctime>
#include <sched.h>
#include <sys/mman.h>
#include <zlib.h>

#include "KestovaStorage/huffmandecode.h"
#include "KestovaStorage/huffmanencode.h"
#include "KestovaStorage/internal/codec/huffmanformat.h"
#include "KestovaStorage/internal/codec/segmentdecoder.h"
#include "KestovaStorage/internal/codec/segmentencoder.h"
#include "KestovaStorage/internal/codec/symboldecoder.h"
#include "bench/measure.h"
#include "bench/simulatedspokes.h"
#include "sessions/simulate/nmea.h"
#include "sessions/simulate/scene.h"
#include "tests/support/plainhuffman.h"

namespace
{
using namespace huffman;

// By the plain codec, of counts that fit in 16 bits.
std::string fromByteArray(const std::string& array)
{
    const auto at = [&](std::size_t i) { return std::uint64_t{static_cast<std::uint8_t>(array[i])}; };
    const std::size_t variety = at(4) | at(5) << 8;
    plain::tFreqs freqs;
    for (std::size_t i = 7; i < 7 + 3 * variety; i += 3)
        freqs[static_cast<std::uint8_t>(at(i))] = at(i + 1) | at(i + 2) << 8;
    const std::string bits = plain::unpack(array.substr(7 + 3 * variety));
    return plain::decode(bits.substr(0, bits.size() - 8 + at(6)), plain::treeOf(freqs));
}

constexpr int cRuns = 7;
constexpr std::size_t cSpokeLen = 542;
FILE* s_out;

// ---- data ----

std::string mixed(std::string bytes)
{
    std::mt19937 random(1);
    for (std::size_t i = 0; i < bytes.size(); i += 2)
        bytes[i] = static_cast<char>(random() % 16 * 16);
    return bytes;
}

std::string sentences(std::size_t size)
{
    const session::tScene scene(1);
    std::string all;
    for (std::uint64_t second = 0; all.size() < size; ++second)
    {
        const auto time = static_cast<double>(second);
        const std::uint64_t timeMs = 1'700'000'000'000 + second * 1000;
        const session::tMotion ship = scene.ownShip(time);
        all += session::positionSentence(ship, timeMs) + session::fixSentence(ship, timeMs) +
               session::depthSentence(scene.depthMetres(time)) + session::headingSentence(ship.headingDeg);
        for (std::size_t i = 0; i < scene.targetCount(); ++i)
            all += session::trackedTargetSentence(static_cast<unsigned>(i), ship, scene.target(i, time), timeMs);
    }
    all.resize(size);
    return all;
}

std::string skewed(std::size_t size)
{
    std::mt19937 random(2);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = random() % 100 < 95 ? '\0' : static_cast<char>(random());
    return bytes;
}

// ---- measuring ----

using tWork = std::function<void()>;

double processorSeconds()
{
    timespec time;
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The median seconds of each, run in turn; the first round warms up.
std::vector<double> inTurn(const std::vector<tWork>& works)
{
    std::vector<std::vector<double>> seconds(works.size());
    for (int run = 0; run <= cRuns; ++run)
    {
        for (std::size_t i = 0; i < works.size(); ++i)
        {
            const double start = processorSeconds();
            works[i]();
            if (run > 0)
                seconds[i].push_back(processorSeconds() - start);
        }
    }
    std::vector<double> medians;
    for (const auto& each : seconds)
        medians.push_back(bench::figuresOf(each).median);
    return medians;
}

void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "huffman_bench: %s\n", what);
    std::exit(1);
}

// ---- whole buffers ----

class tZlib
{
public:
    // `packed`: room for twice as many bytes.
    tZlib(std::string_view bytes, char* packed) : m_bytes(bytes), m_packed(reinterpret_cast<Bytef*>(packed)) {}

    void deflate()
    {
        z_stream stream{};
        deflateInit2(&stream, 6, Z_DEFLATED, -15, 9, Z_HUFFMAN_ONLY);
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(m_bytes.data()));
        stream.avail_in = static_cast<uInt>(m_bytes.size());
        stream.next_out = m_packed;
        stream.avail_out = static_cast<uInt>(2 * m_bytes.size());
        require(::deflate(&stream, Z_FINISH) == Z_STREAM_END, "deflate failed");
        m_packedLen = stream.total_out;
        deflateEnd(&stream);
    }
    void inflate()
    {
        m_out.resize(m_bytes.size());
        z_stream stream{};
        inflateInit2(&stream, -15);
        stream.next_in = m_packed;
        stream.avail_in = static_cast<uInt>(m_packedLen);
        stream.next_out = m_out.data();
        stream.avail_out = static_cast<uInt>(m_out.size());
        require(::inflate(&stream, Z_FINISH) == Z_STREAM_END, "inflate failed");
        inflateEnd(&stream);
    }
    std::size_t packedLen() const { return m_packedLen; }

private:
    const std::string_view m_bytes;
    Bytef* const m_packed;
    std::vector<Bytef> m_out;
    std::size_t m_packedLen = 0;
};

struct tRecordPlace
{
    std::uint64_t firstBit, bits;
};

// One pass over the data as records of `recordLen` bytes.
class tCoder
{
public:
    tCoder(const std::string& bytes, std::size_t recordLen)
        : m_bytes(bytes), m_recordLen(recordLen), m_packed(bytes.size() * 4 + 1024), m_out(bytes.size() * 12 + 1024)
    {}

    void encode()
    {
        prepare();
        emit();
    }
    void prepare()
    {
        m_encoder.clear();
        each([&](const char* record, std::uint32_t len) { m_encoder.count(record, len); });
        require(m_encoder.makeCodes(), "nothing to encode");
        m_head = m_encoder.head();
    }
    void emit()
    {
        m_places.clear();
        std::size_t stored = 0;
        each([&](const char* record, std::uint32_t len) {
            require(stored + m_encoder.room(len) <= m_packed.size(), "no room");
            const tEncodedBits encoded = m_encoder.encode(record, len, m_packed.data() + stored);
            m_places.push_back({stored * 8 + encoded.firstBit, encoded.bits});
            stored += encoded.stored;
        });
        const tEncodedRest rest = m_encoder.rest();
        std::memcpy(m_packed.data() + stored, rest.bytes, rest.size);
        m_packedLen = stored + rest.size;
    }
    void makeTables() { require(m_decoder.setHead(m_head.data()), "no head"); }
    void decodeOnePosition()
    {
        tFreqTable freqs;
        require(readFileHead(m_head.data(), freqs), "no head");
        tSymbolTable table;
        table.build(freqs, UINT64_MAX);
        auto* const out = reinterpret_cast<unsigned char*>(m_out.data());
        tBitRange range{reinterpret_cast<const unsigned char*>(m_packed.data()), 0, m_places[0].bits};
        m_outLen = static_cast<std::size_t>(tSymbolDecoder(table).decode(range, out, out + m_out.size()) - out);
    }
    void decode()
    {
        makeTables();
        decodeRecords();
    }
    void decodeRecords()
    {
        m_outLen = 0;
        for (const tRecordPlace& place : m_places)
            m_outLen += m_decoder.decode(m_packed.data(), place.firstBit, place.bits, m_out.data() + m_outLen,
                                         m_out.size() - m_outLen);
    }
    void check() const
    {
        require(m_outLen == m_bytes.size() && std::memcmp(m_out.data(), m_bytes.data(), m_outLen) == 0,
                "decoded bytes differ");
    }
    std::size_t packedLen() const { return m_packedLen; }
    std::size_t records() const { return m_places.size(); }

private:
    template <typename tUse>
    void each(tUse use)
    {
        for (std::size_t at = 0; at < m_bytes.size(); at += m_recordLen)
            use(m_bytes.data() + at, static_cast<std::uint32_t>(std::min(m_recordLen, m_bytes.size() - at)));
    }

    const std::string& m_bytes;
    std::size_t m_recordLen;
    std::vector<char> m_packed, m_out;
    std::size_t m_packedLen = 0, m_outLen = 0;
    tSegmentEncoder m_encoder;
    tSegmentDecoder m_decoder;
    std::string m_head;
    std::vector<tRecordPlace> m_places;
};

struct tData
{
    const char* name;
    std::string bytes;
    double encode, decode, decodeSeveral;  // wanted, times zlib
};

void wholeBuffer(const tData& data)
{
    std::vector<char> packed(2 * data.bytes.size());
    tZlib zlib(data.bytes, packed.data());
    tCoder coder(data.bytes, data.bytes.size());
    const auto took = inTurn({[&] { zlib.deflate(); }, [&] { coder.encode(); }, [&] { zlib.inflate(); },
                              [&] { coder.decodeOnePosition(); }, [&] { coder.decode(); }});
    coder.check();
    const auto rate = [&](double seconds) { return static_cast<double>(data.bytes.size()) / seconds / 1e9; };
    const auto print = [&](const char* what, double mine, double theirs, double wanted) {
        std::fprintf(s_out, "%-10s %-26s %6.2f GB/s, zlib %5.3f GB/s, ratio %5.2f (wanted: %.1f)\n", data.name, what,
                     rate(mine), rate(theirs), theirs / mine, wanted);
    };
    print("encode", took[1], took[0], data.encode);
    print("decode, one position", took[3], took[2], data.decode);
    print("decode, several positions", took[4], took[2], data.decodeSeveral);
    std::fprintf(s_out, "%-10s size %.3f of the data, zlib's %.3f\n", data.name,
                 static_cast<double>(coder.packedLen()) / static_cast<double>(data.bytes.size()),
                 static_cast<double>(zlib.packedLen()) / static_cast<double>(data.bytes.size()));
}

// ---- in pages of one kind ----

// Memory in pages of 4 KiB or of 2 MiB, touched.
class tPages
{
public:
    tPages(std::size_t size, bool huge) : m_mapped(size + 2 * cHuge)
    {
        m_map =
            static_cast<char*>(::mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        require(m_map != MAP_FAILED, "no memory");
        m_bytes = m_map + (cHuge - reinterpret_cast<std::uintptr_t>(m_map) % cHuge);
        require(::madvise(m_bytes, size / cHuge * cHuge + cHuge, huge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE) == 0,
                "no such pages");
        std::memset(m_bytes, 1, size);
    }
    ~tPages() { ::munmap(m_map, m_mapped); }
    tPages(const tPages&) = delete;
    tPages& operator=(const tPages&) = delete;

    char* bytes() const { return m_bytes; }

private:
    static constexpr std::size_t cHuge = 2 << 20;
    std::size_t m_mapped;
    char *m_map, *m_bytes;
};

// Encodes one buffer as a whole, with some extensions of the processor.
struct tWhole
{
    std::string_view from;
    char* to;
    tSegmentEncoder encoder;

    void encode()
    {
        encoder.clear();
        encoder.count(from.data(), from.size());
        require(!encoder.begin().empty(), "nothing to encode");
        encoder.encode(from.data(), static_cast<std::uint32_t>(from.size()), to);
        encoder.rest();
    }
};

void inPages(const tData& data, std::size_t mebibytes, bool huge)
{
    const std::size_t size = mebibytes << 20;
    const tPages source(size, huge), result(size * 2 + 1024, huge), packed(size * 2, huge);
    for (std::size_t at = 0; at < size; at += data.bytes.size())
        data.bytes.copy(source.bytes() + at, std::min(size - at, data.bytes.size()));
    const std::string_view from(source.bytes(), size);
    tZlib zlib(from, packed.bytes());
    tWhole best{from, result.bytes(), tSegmentEncoder()};
    tWhole scalar{from, result.bytes(), tSegmentEncoder(eInstructions::eScalar)};
    tWhole portable{from, result.bytes(), tSegmentEncoder(eInstructions::ePortable)};
    std::vector<tWork> works{[&] { zlib.deflate(); }, [&] { best.encode(); }};
    const bool all = mebibytes == 16 && !huge;
    if (all)
        works.insert(works.end(), {[&] { scalar.encode(); }, [&] { portable.encode(); }});
    const auto took = inTurn(works);
    const auto print = [&](const char* how, double seconds) {
        std::fprintf(s_out, "%-10s encode %2zu MiB, pages of %s%s: %.2f GB/s, ratio to zlib %.2f (wanted: 10)\n",
                     data.name, mebibytes, huge ? "2 MiB" : "4 KiB", how, static_cast<double>(size) / seconds / 1e9,
                     took[0] / seconds);
    };
    print("", took[1]);
    if (!all)
        return;
    print(", without AVX-512", took[2]);
    print(", without any extension", took[3]);
}

// ---- records ----

void records(const tData& data)
{
    tCoder whole(data.bytes, data.bytes.size()), spoke(data.bytes, cSpokeLen), small(data.bytes, 16);
    tCoder sentence(data.bytes, 47);
    const auto took = inTurn({[&] { whole.encode(); }, [&] { whole.decodeOnePosition(); }, [&] { spoke.prepare(); },
                              [&] { spoke.emit(); }, [&] { spoke.decode(); }, [&] { small.prepare(); },
                              [&] { small.emit(); }, [&] { small.decode(); }, [&] { sentence.prepare(); },
                              [&] { sentence.emit(); }, [&] { sentence.decode(); }});
    spoke.check();
    sentence.check();
    small.check();
    const auto each = [&](double seconds, const tCoder& c) { return seconds / static_cast<double>(c.records()) * 1e9; };
    std::fprintf(s_out,
                 "%-10s records of 542 B: encode %.0f ns (wanted: 240), ratio to whole buffer %.2f (wanted: 1.2); "
                 "decode %.0f ns, "
                 "ratio %.2f (wanted: 0.85)\n",
                 data.name, each(took[3], spoke), took[0] / took[3], each(took[4], spoke), took[1] / took[4]);
    std::fprintf(s_out, "%-10s records of 47 B: encode %.1f ns (wanted: 32), decode %.1f ns\n", data.name,
                 each(took[9], sentence), each(took[10], sentence));
    std::fprintf(s_out, "%-10s records of 16 B: encode %.1f ns (wanted: 20), decode %.1f ns (wanted: 50)\n", data.name,
                 each(took[6], small), each(took[7], small));
}

// ---- byte arrays ----

void byteArrays(const std::string& text, std::size_t len, double wanted)
{
    constexpr std::size_t cTimes = 200;
    tHuffmanEncode encoder(eByteArrayMode);
    tHuffmanDecode decoder(eByteArrayMode);
    std::vector<char> packed(len * 2 + 1024);
    std::string plainly, back;
    const auto at = [&](std::size_t i) { return text.data() + i * 977 % (text.size() - len); };
    const auto encode = [&](std::size_t i) {
        return encoder.EncodeByteArray(at(i), static_cast<std::uint32_t>(len), packed.data(),
                                       static_cast<std::uint32_t>(packed.size()));
    };
    const auto took =
        inTurn({[&] {
                    for (std::size_t i = 0; i < cTimes; ++i)
                        encode(i);
                },
                [&] {
                    for (std::size_t i = 0; i < cTimes; ++i)
                        plainly = plain::byteArray(std::string(at(i), len));
                },
                [&] {
                    for (std::size_t i = 0; i < cTimes; ++i)
                        back = decoder.DecodeByteArray(plainly.data(), static_cast<std::uint32_t>(plainly.size()));
                },
                [&] {
                    for (std::size_t i = 0; i < cTimes; ++i)
                        back = fromByteArray(plainly);
                }});
    const auto last = encode(cTimes - 1);
    require(plainly == std::string(last.first.first, last.first.second), "byte arrays differ");
    std::fprintf(
        s_out,
        "byte array %5zu B: encode %.2f us, plain %.2f us; decode %.2f us, plain %.2f us; both: ratio to plain "
        "%.1f (wanted: %.0f)\n",
        len, took[0] / cTimes * 1e6, took[1] / cTimes * 1e6, took[2] / cTimes * 1e6, took[3] / cTimes * 1e6,
        (took[1] + took[3]) / (took[0] + took[2]), wanted);
}

// ---- counting and size ----

void counting(const tData& data)
{
    tHuffmanEncode encoder(eSegmentMode);
    std::vector<char> copy(cSpokeLen);
    constexpr std::size_t number = 200, cTimes = 100;  // as they come: still in the cache
    const auto took = inTurn({[&] {
                                  for (std::size_t i = 0; i < number * cTimes; ++i)
                                      encoder.PreReadBytes(data.bytes.data() + i % number * cSpokeLen, cSpokeLen);
                              },
                              [&] {
                                  for (std::size_t i = 0; i < number * cTimes; ++i)
                                  {
                                      std::memcpy(copy.data(), data.bytes.data() + i % number * cSpokeLen, cSpokeLen);
                                      asm volatile("" : : "r"(copy.data()) : "memory");
                                  }
                              }});
    const auto each = [&](double seconds) { return seconds / (number * cTimes) * 1e9; };
    std::fprintf(s_out, "%-10s counting 542 B: %.0f ns (wanted: 150), memcpy %.0f ns\n", data.name, each(took[0]),
                 each(took[1]));
}

void size(const tData& data)
{
    const std::string bytes = data.bytes.substr(0, 256 * 1024);
    tCoder coder(bytes, cSpokeLen);
    coder.encode();
    const std::size_t plainly = plain::pack(plain::encode(bytes, plain::codesOf(plain::freqsOf(bytes)))).size();
    std::fprintf(s_out, "%-10s size of 256 KiB: %zu, plain %zu\n", data.name, coder.packedLen(), plainly);
}

void pinToOneCore()
{
    cpu_set_t core;
    CPU_ZERO(&core);
    CPU_SET(static_cast<unsigned>(::sched_getcpu()), &core);
    require(::sched_setaffinity(0, sizeof core, &core) == 0, "cannot stay on one core");
}
}  // namespace

int main(int argc, char** argv)
{
    bench::announce("huffman_bench: the Huffman codec beside zlib");
    std::fflush(stdout);
    s_out = ::fdopen(::dup(STDOUT_FILENO), "w");
    require(s_out != nullptr && std::freopen("/dev/null", "w", stdout) != nullptr, "no output");
    std::setvbuf(s_out, nullptr, _IOLBF, 0);
    pinToOneCore();
    const std::size_t bytes = (argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 16) << 20;
    const tData all[] = {{"spokes", bench::spokes(bytes), 10, 4, 7},
                         {"mix", mixed(bench::spokes(bytes)), 10, 3.2, 5.5},
                         {"sentences", sentences(bytes), 10, 2.7, 5.5},
                         {"skewed", skewed(bytes), 10, 6, 12}};
    for (const tData& data : all)
        wholeBuffer(data);
    for (const std::size_t mebibytes : {1U, 16U, 64U})
        for (const bool huge : {false, true})
            for (const tData& data : all)
                inPages(data, mebibytes, huge);
    for (const tData& data : all)
        records(data);
    for (const auto& [len, wanted] : {std::pair(100, 5.0), std::pair(1000, 12.0), std::pair(10'000, 20.0)})
        byteArrays(all[2].bytes, static_cast<std::size_t>(len), wanted);
    for (const tData& data : all)
        counting(data);
    for (const tData& data : all)
        size(data);
    return 0;
}

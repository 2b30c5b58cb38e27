#include "KestovaStorage/internal/codec/codeemitter_avx512.h"

#include <algorithm>
#include <cstring>

#include "KestovaStorage/internal/codec/vectorintrinsics.h"

namespace huffman
{
void tVectorTables::set(const tCodeTable& codes)
{
    std::memset(length, cNotHere, sizeof length);
    for (std::size_t i = 0; i < codes.variety; ++i)
    {
        const std::uint8_t value = codes.values[i];
        const tCode& code = codes.codes[value];
        low[value] = static_cast<std::uint8_t>(code.bits);
        high[value] = static_cast<std::uint8_t>(code.bits >> 8);
        if (code.length <= cLongest)
            length[value] = static_cast<std::uint8_t>(code.length);
    }
}

#if KESTOVA_HAS_BMI2_BUILD
namespace
{
#define KESTOVA_VECTORS __attribute__((target("avx512f,avx512bw,avx512vbmi,bmi,bmi2")))
#define KESTOVA_VECTORS_INLINE KESTOVA_VECTORS inline __attribute__((always_inline))

constexpr std::size_t cPrefetchDistance = 2048;  // bytes
constexpr std::size_t cStep = 64;
constexpr std::size_t cQuads = cStep / 4;

struct tByteTable
{
    __m512i parts[4];
};

KESTOVA_VECTORS_INLINE tByteTable tableOf(const std::uint8_t* bytes)
{
    return {{_mm512_load_si512(bytes), _mm512_load_si512(bytes + 64), _mm512_load_si512(bytes + 128),
             _mm512_load_si512(bytes + 192)}};
}

struct tByteTables
{
    tByteTable low, high, length;
};

// For every byte of `there` its entry in the table; 0 for the others.
KESTOVA_VECTORS_INLINE __m512i look(const tByteTable& table, __mmask64 there, __m512i bytes)
{
    const __m512i lower = _mm512_permutex2var_epi8(table.parts[0], bytes, table.parts[1]);
    const __m512i upper = _mm512_permutex2var_epi8(table.parts[2], bytes, table.parts[3]);
    return _mm512_maskz_mov_epi8(there, _mm512_mask_blend_epi8(_mm512_movepi8_mask(bytes), lower, upper));
}

// The codes of 64 bytes, joined four by four.
struct tJoined
{
    __m512i even, odd;  // 64-bit words: quads 0, 2, 4 ... and 1, 3, 5 ...
    __m512i lengths;    // 32-bit words: of quads 0, 1, 2 ...
};

// Bytes outside `there` have codes of no bits.
KESTOVA_VECTORS_INLINE tJoined joinQuads(const tByteTables& tables, __mmask64 there, __m512i bytes)
{
    constexpr __mmask64 cOddBytes = 0xAAAAAAAAAAAAAAAA;
    const __m512i low16 = _mm512_set1_epi32(0xffff), low32 = _mm512_set1_epi64(0xffffffff);
    const __m512i lowBits = look(tables.low, there, bytes), highBits = look(tables.high, there, bytes);
    const __m512i lengths = look(tables.length, there, bytes);
    // 16-bit words: codes and lengths of the even bytes and of the odd ones.
    const __m512i evenCodes = _mm512_mask_blend_epi8(cOddBytes, lowBits, _mm512_slli_epi16(highBits, 8));
    const __m512i oddCodes = _mm512_mask_blend_epi8(cOddBytes, _mm512_srli_epi16(lowBits, 8), highBits);
    const __m512i evenLengths = _mm512_and_si512(lengths, _mm512_set1_epi16(0xff));
    const __m512i pairLengths = _mm512_add_epi16(evenLengths, _mm512_srli_epi16(lengths, 8));
    // 32-bit words: the first and the second pair of each four bytes.
    const __m512i first =
        _mm512_or_si512(_mm512_and_si512(evenCodes, low16),
                        _mm512_sllv_epi32(_mm512_and_si512(oddCodes, low16), _mm512_and_si512(evenLengths, low16)));
    const __m512i second =
        _mm512_or_si512(_mm512_srli_epi32(evenCodes, 16),
                        _mm512_sllv_epi32(_mm512_srli_epi32(oddCodes, 16), _mm512_srli_epi32(evenLengths, 16)));
    const __m512i firstLength = _mm512_and_si512(pairLengths, low16);
    // 64-bit words: both pairs.
    return {_mm512_or_si512(_mm512_and_si512(first, low32),
                            _mm512_sllv_epi64(_mm512_and_si512(second, low32), _mm512_and_si512(firstLength, low32))),
            _mm512_or_si512(_mm512_srli_epi64(first, 32),
                            _mm512_sllv_epi64(_mm512_srli_epi64(second, 32), _mm512_srli_epi64(firstLength, 32))),
            _mm512_add_epi32(firstLength, _mm512_srli_epi32(pairLengths, 16))};
}

struct alignas(64) tQuads
{
    std::uint64_t even[cQuads / 2], odd[cQuads / 2];
    std::uint32_t lengths[cQuads];

    std::uint64_t codes(std::size_t quad) const { return quad % 2 == 0 ? even[quad / 2] : odd[quad / 2]; }
};

KESTOVA_VECTORS_INLINE void store(const tJoined& joined, tQuads& quads)
{
    _mm512_store_si512(quads.even, joined.even);
    _mm512_store_si512(quads.odd, joined.odd);
    _mm512_store_si512(quads.lengths, joined.lengths);
}

// Returns the number of the first `count` bytes that were emitted.
template <typename tEnd>
KESTOVA_VECTORS_INLINE std::size_t emitQuads(const tJoined& joined, const std::uint64_t* singles,
                                             const unsigned char* data, std::size_t count, tEnd& end)
{
    tQuads quads;
    store(joined, quads);
    const std::size_t number = (count + 3) / 4;
    if (_mm512_cmpgt_epu32_mask(joined.lengths, _mm512_set1_epi32(cMostBitsJoined)) == 0)
    {
        for (std::size_t quad = 0; quad < number; ++quad)
            end.join(quads.codes(quad), quads.lengths[quad]);
        return count;
    }
    for (std::size_t quad = 0; quad < number; ++quad)
    {
        const std::size_t until = std::min(quad * 4 + 4, count);
        if (quads.lengths[quad] <= cMostBitsJoined)
            end.join(quads.codes(quad), quads.lengths[quad]);
        else if (const std::size_t i = joinSingles(singles, data, quad * 4, until, end); i != until)
            return i;
    }
    return count;
}

// Joins quads two by two; returns false, and emits nothing, if two do not fit in a word.
template <typename tEnd>
KESTOVA_VECTORS_INLINE bool emitOcts(const tJoined& joined, std::size_t count, tEnd& end)
{
    const __m512i evenLengths = _mm512_and_si512(joined.lengths, _mm512_set1_epi64(0xffffffff));
    const __m512i lengths = _mm512_add_epi64(evenLengths, _mm512_srli_epi64(joined.lengths, 32));
    if (_mm512_cmpgt_epu64_mask(lengths, _mm512_set1_epi64(cMostBitsJoined)) != 0)
        return false;
    alignas(64) std::uint64_t codes[8], bits[8];
    _mm512_store_si512(codes, _mm512_or_si512(joined.even, _mm512_sllv_epi64(joined.odd, evenLengths)));
    _mm512_store_si512(bits, lengths);
    for (std::size_t oct = 0; oct < (count + 7) / 8; ++oct)
        end.join(codes[oct], static_cast<unsigned>(bits[oct]));
    return true;
}

// Emits the first `count` bytes of a vector; returns the number emitted.
template <typename tEnd>
KESTOVA_VECTORS_INLINE std::size_t emitStep(const tByteTables& tables, bool longGroups, const std::uint64_t* singles,
                                            const unsigned char* data, std::size_t count, tEnd& end)
{
    const __mmask64 there = count == cStep ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
    const tJoined joined = joinQuads(tables, there, _mm512_maskz_loadu_epi8(there, data));
    if (longGroups && emitOcts(joined, count, end))
        return count;
    return emitQuads(joined, singles, data, count, end);
}

template <typename tEnd>
KESTOVA_VECTORS_INLINE std::size_t emitSteps(const tVectorTables& stored, bool longGroups, const std::uint64_t* singles,
                                             const unsigned char* data, std::size_t len, tEnd& end)
{
    const tByteTables tables{tableOf(stored.low), tableOf(stored.high), tableOf(stored.length)};
    tEnd stream = end;  // a copy of its own stays in registers
    std::size_t i = 0, done = cStep;
    while (len - i >= cStep && done == cStep)
    {
        // Each line is read once, faster than the processor's own prefetching crosses pages.
        _mm_prefetch(reinterpret_cast<const char*>(data + i) + cPrefetchDistance, _MM_HINT_T0);
        done = emitStep(tables, longGroups, singles, data + i, cStep, stream);
        i += done;
    }
    if (i < len && done == cStep)
        i += emitStep(tables, longGroups, singles, data + i, len - i, stream);
    end = stream;
    return i;
}
}  // namespace

bool hasVectorEmitter()
{
    static const bool s_has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                              __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("bmi2");
    return s_has;
}

KESTOVA_VECTORS std::size_t emitVectors(const tVectorTables& tables, bool longGroups, const std::uint64_t* singles,
                                        const unsigned char* data, std::size_t len, tByteAppender& end)
{
    return emitSteps(tables, longGroups, singles, data, len, end);
}

KESTOVA_VECTORS std::size_t emitVectors(const tVectorTables& tables, bool longGroups, const std::uint64_t* singles,
                                        const unsigned char* data, std::size_t len, tUnitAppender& end)
{
    return emitSteps(tables, longGroups, singles, data, len, end);
}
#else
bool hasVectorEmitter()
{
    return false;
}

std::size_t emitVectors(const tVectorTables&, bool, const std::uint64_t*, const unsigned char*, std::size_t,
                        tByteAppender&)
{
    return 0;
}

std::size_t emitVectors(const tVectorTables&, bool, const std::uint64_t*, const unsigned char*, std::size_t,
                        tUnitAppender&)
{
    return 0;
}
#endif
}  // namespace huffman

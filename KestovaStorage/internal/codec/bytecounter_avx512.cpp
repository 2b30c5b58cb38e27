#include "KestovaStorage/internal/codec/bytecounter_avx512.h"

#include "KestovaStorage/internal/codec/processor.h"
#include "KestovaStorage/internal/codec/vectorintrinsics.h"

namespace huffman
{
#if KESTOVA_HAS_BMI2_BUILD
namespace
{
#define KESTOVA_VECTORS __attribute__((target("avx512f,avx512bw,avx512vbmi,avx512vpopcntdq,gfni")))
#define KESTOVA_VECTORS_INLINE KESTOVA_VECTORS inline __attribute__((always_inline))

constexpr std::size_t cBlock = 64;       // bytes that a vector holds
constexpr std::size_t cHalfValues = 16;  // values of half a byte

// One mask for each value of half a byte: a bit for every byte of the block, set where that half has the value. Which
// bit is which byte's does not matter, as long as it is the same in all masks.
struct tMasks
{
    __m512i lower, upper;  // of the values 0 to 7 and 8 to 15
};

// The masks of a half of which the bits are words `first` to `first` + 3 of `planes`.
KESTOVA_VECTORS_INLINE tMasks masksOf(__m512i planes, int first)
{
    constexpr int cOrDiffering = 0xF6;  // a | (b ^ c)
    constexpr int cNeither = 0x05;      // ~(a | c)
    const auto plane = [&](int bit)
                           KESTOVA_VECTORS { return _mm512_permutexvar_epi64(_mm512_set1_epi64(first + bit), planes); };
    // What bits 0 to 2 of the values 0 to 7 are, one value a word.
    const __m512i bit0 = _mm512_set_epi64(-1, 0, -1, 0, -1, 0, -1, 0);
    const __m512i bit1 = _mm512_set_epi64(-1, -1, 0, 0, -1, -1, 0, 0);
    const __m512i bit2 = _mm512_set_epi64(-1, -1, -1, -1, 0, 0, 0, 0);
    __m512i differing = _mm512_xor_si512(bit0, plane(0));
    differing = _mm512_ternarylogic_epi64(differing, bit1, plane(1), cOrDiffering);
    differing = _mm512_ternarylogic_epi64(differing, bit2, plane(2), cOrDiffering);
    const __m512i bit3 = plane(3);
    return {_mm512_ternarylogic_epi64(differing, differing, bit3, cNeither), _mm512_andnot_si512(differing, bit3)};
}

// Word i: bit i of the block's bytes, in the same order in every word.
KESTOVA_VECTORS_INLINE __m512i planesOf(const unsigned char* block)
{
    alignas(64) static constexpr unsigned char cGather[cBlock] = {
        0,  8,  16, 24, 32, 40, 48, 56, 1,  9,  17, 25, 33, 41, 49, 57, 2,  10, 18, 26, 34, 42,
        50, 58, 3,  11, 19, 27, 35, 43, 51, 59, 4,  12, 20, 28, 36, 44, 52, 60, 5,  13, 21, 29,
        37, 45, 53, 61, 6,  14, 22, 30, 38, 46, 54, 62, 7,  15, 23, 31, 39, 47, 55, 63};
    const __m512i identity = _mm512_set1_epi64(static_cast<long long>(0x8040201008040201));
    const __m512i transposed = _mm512_gf2p8affine_epi64_epi8(identity, _mm512_loadu_si512(block), 0);
    return _mm512_permutexvar_epi8(_mm512_load_si512(cGather), transposed);
}

// One stride: `cBlocks` blocks in vectors, and after them 16 times `cSingles` bytes in memory. Each of these has a lane
// of its own: where a counter was met twice in a turn, runs of one value took between 1 and 1.6 times as long,
// depending on the address of this code alone.
template <std::size_t cBlocks, std::size_t cSingles>
struct tStride
{
    static constexpr std::size_t cSize = cBlocks * cBlock + cHalfValues * cSingles;

    static_assert(cSingles <= tCounterLanes::cCount);

    KESTOVA_VECTORS static void count(const unsigned char* bytes, tByteCounts& counts, tCounterLanes& lanes)
    {
        tMasks low[cBlocks];
        alignas(64) std::uint64_t high[cBlocks][cHalfValues];
        for (std::size_t block = 0; block < cBlocks; ++block)
        {
            const __m512i planes = planesOf(bytes + block * cBlock);
            low[block] = masksOf(planes, 0);
            const tMasks masks = masksOf(planes, 4);
            _mm512_store_si512(high[block], masks.lower);
            _mm512_store_si512(high[block] + 8, masks.upper);
        }
        const unsigned char* single = bytes + cBlocks * cBlock;
        for (std::size_t value = 0; value < cHalfValues; ++value)
        {
            std::uint64_t* const here = &counts[value * cHalfValues];
            __m512i lower = _mm512_loadu_si512(here);
            __m512i upper = _mm512_loadu_si512(here + 8);
            for (std::size_t block = 0; block < cBlocks; ++block)
            {
                const __m512i mask = _mm512_set1_epi64(static_cast<long long>(high[block][value]));
                lower = _mm512_add_epi64(lower, _mm512_popcnt_epi64(_mm512_and_si512(low[block].lower, mask)));
                upper = _mm512_add_epi64(upper, _mm512_popcnt_epi64(_mm512_and_si512(low[block].upper, mask)));
            }
            for (std::size_t i = 0; i < cSingles; ++i)
                ++lanes.of[i][single[i]];
            single += cSingles;
            _mm512_storeu_si512(here, lower);
            _mm512_storeu_si512(here + 8, upper);
        }
    }
};
}  // namespace

bool hasVectorCounter()
{
    static const bool s_has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                              __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vpopcntdq") &&
                              __builtin_cpu_supports("gfni");
    return s_has;
}

KESTOVA_VECTORS std::size_t countVectors(const unsigned char* bytes, std::size_t len, tByteCounts& counts,
                                         tCounterLanes& lanes)
{
    using tLong = tStride<6, 8>;   // 512 bytes
    using tShort = tStride<2, 5>;  // 208 bytes
    std::size_t i = 0;
    for (; len - i >= tLong::cSize; i += tLong::cSize)
        tLong::count(bytes + i, counts, lanes);
    for (; len - i >= tShort::cSize; i += tShort::cSize)
        tShort::count(bytes + i, counts, lanes);
    return i;
}
#else
bool hasVectorCounter()
{
    return false;
}

std::size_t countVectors(const unsigned char*, std::size_t, tByteCounts&, tCounterLanes&)
{
    return 0;
}
#endif
}  // namespace huffman

// Extensions of the processor that the program runs on.
//
// A loop that gains from an extension is written once, as an inline function, and compiled twice: as it stands, and
// inside a function marked KESTOVA_WITH_BMI2. Shifts by a variable number of bits and counting bits gain from it.
#ifndef KESTOVA_STORAGE_CODEC_PROCESSOR_H
#define KESTOVA_STORAGE_CODEC_PROCESSOR_H

#if defined(__x86_64__)
#define KESTOVA_HAS_BMI2_BUILD 1
#define KESTOVA_WITH_BMI2 __attribute__((target("bmi,bmi2,popcnt")))
#else
#define KESTOVA_HAS_BMI2_BUILD 0
#define KESTOVA_WITH_BMI2
#endif
#define KESTOVA_INLINE inline __attribute__((always_inline))

namespace huffman
{
enum class eInstructions : unsigned char
{
    ePortable,
    eScalar,  // those that work on single words
    eBest     // all extensions of this processor
};

inline bool usesBmi2([[maybe_unused]] eInstructions wanted)
{
#if KESTOVA_HAS_BMI2_BUILD
    static const bool s_bmi2 = __builtin_cpu_supports("bmi") != 0 && __builtin_cpu_supports("bmi2") != 0 &&
                               __builtin_cpu_supports("popcnt") != 0;
    return s_bmi2 && wanted != eInstructions::ePortable;
#else
    return false;
#endif
}
}  // namespace huffman

#endif

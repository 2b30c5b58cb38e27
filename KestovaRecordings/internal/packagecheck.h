// lookAtPackage: whether a segment is a package, damaged or not, or anything else.
#ifndef KESTOVA_RECORDINGS_PACKAGECHECK_H
#define KESTOVA_RECORDINGS_PACKAGECHECK_H

#include <cstdint>
#include <string_view>

namespace recordings
{
enum class ePackageLook : std::uint8_t
{
    eWhole,
    eRaw,  // no package, or a stretch of a byte stream with several
    eWrongHeadMark,
    eWrongEndMark,
    eWrongLength
};

// A segment that has two of head mark, end mark and a length that fits was a package.
ePackageLook lookAtPackage(std::string_view segment);

// Returns what is wrong in a few words; null for eWhole and eRaw.
const char* faultOf(ePackageLook look);
}  // namespace recordings

#endif

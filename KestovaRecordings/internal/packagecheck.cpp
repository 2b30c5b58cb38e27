#include "KestovaRecordings/internal/packagecheck.h"

#include <cstring>

#include "KestovaStorage/packageview.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
bool hasMark(std::string_view segment, std::size_t at, const char* mark)
{
    return std::memcmp(segment.data() + at, mark, cPackageMarkSize) == 0;
}
}  // namespace

ePackageLook lookAtPackage(std::string_view segment)
{
    if (segment.size() < cPackageOverhead)
        return ePackageLook::eRaw;
    const auto messageSize = le::load<std::uint16_t>(segment.data() + offsetof(tRadarMsgPackage, msgLen));
    // A message of 64 KiB or more has the low 16 bits of its length there.
    const bool fits = static_cast<std::uint16_t>(segment.size() - cPackageOverhead) == messageSize;
    const bool hasHead = hasMark(segment, 0, cPackageHeadMark);
    const bool hasEnd = hasMark(segment, segment.size() - cPackageMarkSize, cPackageEndMark);
    if (hasHead && hasEnd && fits)
        return ePackageLook::eWhole;
    if (hasHead && hasEnd)
    {
        const std::size_t size = packageSize(messageSize);
        const bool isStream = size < segment.size() && hasMark(segment, size - cPackageMarkSize, cPackageEndMark);
        return isStream ? ePackageLook::eRaw : ePackageLook::eWrongLength;
    }
    if (hasHead && fits)
        return ePackageLook::eWrongEndMark;
    return hasEnd && fits ? ePackageLook::eWrongHeadMark : ePackageLook::eRaw;
}

const char* faultOf(ePackageLook look)
{
    switch (look)
    {
    case ePackageLook::eWrongHeadMark:
        return "a package without its head mark";
    case ePackageLook::eWrongEndMark:
        return "a package without its end mark";
    case ePackageLook::eWrongLength:
        return "a package whose length is not that of its record";
    default:
        return nullptr;
    }
}
}  // namespace recordings

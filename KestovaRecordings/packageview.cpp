#include "KestovaRecordings/packageview.h"

#include <cstddef>
#include <cstring>

namespace tool
{
namespace
{
constexpr std::string_view cHead = "Quorvale";
constexpr std::string_view cEnd = "ZQ_Radar";

template <typename tNumber>
tNumber littleEndian(std::string_view segment, std::size_t offset)
{
    tNumber value = 0;
    for (std::size_t i = sizeof(tNumber); i-- > 0;)
        value = static_cast<tNumber>((static_cast<std::uint64_t>(value) << 8) |
                                     static_cast<unsigned char>(segment[offset + i]));
    return value;
}
}  // namespace

std::optional<tPackageView> viewPackage(std::string_view segment)
{
    if (segment.size() < sizeof(tRadarMsgPackage) + cEnd.size() || !segment.starts_with(cHead) ||
        !segment.ends_with(cEnd))
        return std::nullopt;
    const auto msgLen = littleEndian<std::uint16_t>(segment, offsetof(tRadarMsgPackage, msgLen));
    if (segment.size() != sizeof(tRadarMsgPackage) + msgLen + cEnd.size())
        return std::nullopt;
    tPackageView view{};
    std::memcpy(&view.info, segment.data() + offsetof(tRadarMsgPackage, msgInfo), sizeof(view.info));
    view.sequence = littleEndian<std::uint32_t>(segment, offsetof(tRadarMsgPackage, packCnt));
    std::memcpy(&view.ip, segment.data() + offsetof(tRadarMsgPackage, udpAddr), sizeof(view.ip));
    view.port = littleEndian<std::uint16_t>(segment, offsetof(tRadarMsgPackage, udpPort));
    view.timeMs = littleEndian<std::uint64_t>(segment, offsetof(tRadarMsgPackage, timestamp_ms));
    view.payload = segment.substr(sizeof(tRadarMsgPackage), msgLen);
    return view;
}
}  // namespace tool

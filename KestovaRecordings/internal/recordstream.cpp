#include "KestovaRecordings/internal/recordstream.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
constexpr std::uint32_t cLongSegment = 4096;  // reading two parts of it is faster than reading it

std::optional<tStreamKey> streamByParts(storage::tDataFile& file, std::size_t record, std::uint32_t len)
{
    std::array<char, cPackageHeadSize> head;
    if (!file.readPart(record, 0, head.size(), head.data()))
        return std::nullopt;
    tRadarMsgPackage package;
    std::memcpy(&package, head.data(), sizeof package);
    if (len != packageSize(package.msgLen) || std::memcmp(head.data(), cPackageHeadMark, cPackageMarkSize) != 0)
        return tStreamKey::raw();
    std::array<char, cPackageMarkSize> end;
    if (!file.readPart(record, len - end.size(), end.size(), end.data()))
        return std::nullopt;
    return std::memcmp(end.data(), cPackageEndMark, end.size()) == 0
               ? tStreamKey::of(package.msgInfo.rwType, package.udpAddr, package.udpPort)
               : tStreamKey::raw();
}
}  // namespace

std::optional<tStreamKey> streamOf(storage::tDataFile& file, std::size_t record)
{
    const std::uint32_t stored = file.record(record).len;
    if (!file.isCompressed() && stored >= cLongSegment)
        return streamByParts(file, record, stored);
    std::size_t len = 0;
    const char* const bytes = file.view(record, len);
    if (bytes == nullptr)
        return std::nullopt;
    const auto package = viewPackage(std::string_view(bytes, len));
    return package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
}
}  // namespace recordings

#include "KestovaRecordings/streamcounts.h"

#include <fmt/format.h>
#include <tuple>
#ifdef KESTOVA_XXH_DISPATCHES
#include <xxh_x86dispatch.h>
#else
#include <xxhash.h>
#endif

#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
auto ordered(const tStreamKey& key)
{
    return std::tie(key.package, key.kind, key.addressOrder, key.port);
}
}  // namespace

void tDigest::add(std::string_view message)
{
    hash = XXH3_64bits_withSeed(message.data(), message.size(), hash);
}

std::string tDigest::text() const
{
    return fmt::format("{:016x}", hash);
}

tStreamKey tStreamKey::of(tReadWriteType kind, std::uint32_t ip, std::uint16_t port)
{
    return {true, kind, be::load<std::uint32_t>(&ip), port};
}

tStreamKey tStreamKey::raw()
{
    return {false, eOtherType, 0, 0};
}

std::string tStreamKey::name() const
{
    return package ? streamTitle(kind) : "raw";
}

std::string tStreamKey::address() const
{
    std::uint32_t ip = 0;
    be::store(&ip, addressOrder);
    return package ? fmt::format("{}:{}", net::transAddr(ip), port) : "";
}

bool operator<(const tStreamKey& a, const tStreamKey& b)
{
    return ordered(a) < ordered(b);
}

bool operator==(const tStreamKey& a, const tStreamKey& b)
{
    return ordered(a) == ordered(b);
}

void tStreamCount::add(std::string_view message)
{
    ++messages;
    bytes += message.size();
    digest.add(message);
}

tStreamCount total(const tStreamCounts& counts)
{
    tStreamCount sum;
    for (const auto& [key, count] : counts)
    {
        sum.messages += count.messages;
        sum.bytes += count.bytes;
    }
    return sum;
}
}  // namespace recordings

#include "KestovaRecordings/streamcounts.h"

#include <fmt/format.h>
#include <tuple>

#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/udpsocket.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
constexpr std::uint64_t cPrime = 1099511628211u;

auto ordered(const tStreamKey& key)
{
    return std::tie(key.package, key.kind, key.addressOrder, key.port);
}
}  // namespace

void tDigest::add(std::string_view message)
{
    std::uint64_t value = hash;
    for (unsigned int shift = 0; shift < 32; shift += 8)
        value = (value ^ (message.size() >> shift & 0xff)) * cPrime;
    for (const char byte : message)
        value = (value ^ static_cast<unsigned char>(byte)) * cPrime;
    hash = value;
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

#include "KestovaRecordings/streamcounts.h"

#include <bit>
#include <fmt/format.h>

#include "KestovaRecordings/streamchoice.h"
#include "UdpSocket/udpsocket.h"

namespace tool
{
namespace
{
constexpr std::uint64_t cPrime = 1099511628211u;

// Network order in memory to a number that sorts like the dotted text, and back (the same operation).
std::uint32_t swapped(std::uint32_t ip)
{
    if constexpr (std::endian::native == std::endian::big)
        return ip;
    return ip << 24 | (ip & 0xff00u) << 8 | (ip >> 8 & 0xff00u) | ip >> 24;
}
}  // namespace

void tDigest::add(std::string_view message)
{
    std::uint64_t hash = m_hash;
    for (unsigned int shift = 0; shift < 32; shift += 8)
        hash = (hash ^ (message.size() >> shift & 0xff)) * cPrime;
    for (const char byte : message)
        hash = (hash ^ static_cast<unsigned char>(byte)) * cPrime;
    m_hash = hash;
}

std::string tDigest::text() const
{
    return fmt::format("{:016x}", m_hash);
}

tStreamKey tStreamKey::of(tReadWriteType kind, std::uint32_t ip, std::uint16_t port)
{
    return {true, kind, swapped(ip), port};
}

tStreamKey tStreamKey::raw()
{
    return {false, eOtherType, 0, 0};
}

std::string tStreamKey::name() const
{
    return package ? streamName(kind) : "raw";
}

std::string tStreamKey::address() const
{
    return package ? fmt::format("{}:{}", net::transAddr(swapped(addressOrder)), port) : "";
}

void tStreamCount::add(std::string_view message)
{
    ++messages;
    bytes += message.size();
    digest.add(message);
}

tStreamCount total(const tStreamCounts& table)
{
    tStreamCount sum;
    for (const auto& [key, count] : table)
    {
        sum.messages += count.messages;
        sum.bytes += count.bytes;
    }
    return sum;
}
}  // namespace tool

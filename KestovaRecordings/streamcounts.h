// Counts of what went through, stream by stream: what every command's closing table is made of.
#ifndef KESTOVA_RECORDINGS_STREAMCOUNTS_H
#define KESTOVA_RECORDINGS_STREAMCOUNTS_H

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "KestovaStorage/radarmsgpackage.h"

namespace tool
{
// 64-bit FNV-1a over each message's length (four bytes, little-endian) and bytes, in order: two streams with the same
// digest carried the same datagrams in the same order.
class tDigest
{
public:
    void add(std::string_view message);
    std::string text() const;  // 16 hex digits

private:
    std::uint64_t m_hash = 14695981039346656037u;
};

// A stream is a kind on a group: service messages of one kind come on two groups.
struct tStreamKey
{
    bool package = true;  // false: segments that are no radar message packages
    tReadWriteType kind = eOtherType;
    std::uint32_t addressOrder = 0;  // the group address as a number in host order, so that tables sort by it
    std::uint16_t port = 0;

    static tStreamKey of(tReadWriteType kind, std::uint32_t ip, std::uint16_t port);  // ip as net::transAddr returns it
    static tStreamKey raw();
    auto operator<=>(const tStreamKey&) const = default;

    std::string name() const;     // "imageStream", "raw"
    std::string address() const;  // "239.17.0.1:6001"; empty for raw segments
};

struct tStreamCount
{
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    tDigest digest;

    void add(std::string_view message);
};

using tStreamCounts = std::map<tStreamKey, tStreamCount>;

tStreamCount total(const tStreamCounts& table);  // without a digest of its own
}  // namespace tool

#endif

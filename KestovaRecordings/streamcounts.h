// Counts of messages, stream by stream.
#ifndef KESTOVA_RECORDINGS_STREAMCOUNTS_H
#define KESTOVA_RECORDINGS_STREAMCOUNTS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// The digest of no messages is 0; each message replaces it by the message's XXH3 hash of 64 bits with the digest before
// it as the seed. Equal digests mean equal messages in equal order.
struct KESTOVA_API tDigest
{
    std::uint64_t hash = 0;

    void add(std::string_view message);
    std::string text() const;  // 16 hex digits
};

// A stream is a kind on a group: service messages of one kind use two groups. The order is that of tables.
struct KESTOVA_API tStreamKey
{
    bool package = true;  // false for segments that are no packages
    tReadWriteType kind = eOtherType;
    std::uint32_t addressOrder = 0;  // the group's address in host byte order, for the order of tables
    std::uint16_t port = 0;

    static tStreamKey of(tReadWriteType kind, std::uint32_t ip, std::uint16_t port);  // ip as net::transAddr returns it
    static tStreamKey raw();

    std::string name() const;     // returns "imageStream", or "raw"
    std::string address() const;  // returns "239.17.0.1:6001"; empty for raw segments
};
KESTOVA_API bool operator<(const tStreamKey& a, const tStreamKey& b);
KESTOVA_API bool operator==(const tStreamKey& a, const tStreamKey& b);

struct KESTOVA_API tStreamCount
{
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    tDigest digest;

    void add(std::string_view message);
};

using tStreamCounts = std::map<tStreamKey, tStreamCount>;

// Returns the sums of messages and bytes; the digest of the result has no meaning.
KESTOVA_API tStreamCount total(const tStreamCounts& counts);
}  // namespace recordings

#endif

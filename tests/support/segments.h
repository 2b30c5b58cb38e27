// tSegment: what is recorded, and what a data file is found to hold. Numbered segments carry their number and have
// contents that no other segment has, so that what was shifted, mixed or cut shows.
#ifndef KESTOVA_TESTS_SEGMENTS_H
#define KESTOVA_TESTS_SEGMENTS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

struct tSegment
{
    std::uint64_t time;
    std::string bytes;
    bool operator==(const tSegment&) const = default;
};
using tSegments = std::vector<tSegment>;

// Noise, the same in every process.
inline const std::string& noise()
{
    static const std::string s_noise = [] {
        std::string bytes(std::size_t{1} << 20, '\0');
        std::uint32_t state = 1;
        for (char& byte : bytes)
            byte = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
        return bytes;
    }();
    return s_noise;
}

// Of `len` bytes: the number, then noise from a place that depends on it. From 8 bytes to a MiB less 64 KiB.
inline std::string numberedSegment(std::uint64_t number, std::size_t len)
{
    std::string bytes(len, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    std::memcpy(&bytes[sizeof number], &noise()[number * 31 % 65'536], len - sizeof number);
    return bytes;
}
inline std::uint64_t numberOf(const std::string& segment)
{
    std::uint64_t number = ~std::uint64_t{0};
    if (segment.size() >= sizeof number)
        std::memcpy(&number, segment.data(), sizeof number);
    return number;
}

#endif

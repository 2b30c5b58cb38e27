// tDestination: the destination of a datagram as one number, and the texts of addresses. What belongs to no address is
// a stream apart from 0.0.0.0.
#ifndef KESTOVA_STORAGE_CAPTURE_DESTINATION_H
#define KESTOVA_STORAGE_CAPTURE_DESTINATION_H

#include <array>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <string>

namespace pcap
{
using tDestination = std::uint64_t;

constexpr tDestination cNoAddress = std::uint64_t{1} << 48;

// `address` as a number: 127.0.0.1 is 0x7F000001.
constexpr tDestination destination(std::uint32_t address, std::uint16_t port)
{
    return std::uint64_t{address} << 16 | port;
}

constexpr tDestination destination(unsigned a, unsigned b, unsigned c, unsigned d, std::uint16_t port)
{
    return destination(a << 24 | b << 16 | c << 8 | d, port);
}

constexpr std::uint32_t addressOf(tDestination key)
{
    return static_cast<std::uint32_t>(key >> 16);
}

constexpr int portOf(tDestination key)
{
    return static_cast<int>(key & 0xFFFF);
}

// Returns the same text as net::transAddr without calling the C library: statistics have a text for every stream.
inline std::string addressText(std::uint32_t address)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        char digits[3];
        text.append(digits, std::to_chars(digits, std::end(digits), address >> shift & 0xFF).ptr);
        if (shift > 0)
            text += '.';
    }
    return text;
}

inline std::string addressTextOf(tDestination key)
{
    return (key & cNoAddress) != 0 ? std::string() : addressText(addressOf(key));
}

// Caches the texts of addresses that occur often.
class tAddressTexts
{
public:
    // Valid until the next call.
    const char* of(std::uint32_t address)
    {
        tAddressText& entry = m_entries[address * 0x9E3779B1U >> 24];
        if (entry.address != address || entry.text.empty())
            entry = {address, addressText(address)};
        return entry.text.c_str();
    }

private:
    struct tAddressText
    {
        std::uint32_t address = 0;
        std::string text;
    };
    std::array<tAddressText, 256> m_entries;
};
}  // namespace pcap

#endif

#include "KestovaRecordings/frames.h"

#include <algorithm>
#include <cstring>

namespace recordings
{
namespace
{
constexpr std::size_t cIpHeadSize = 20;
constexpr std::size_t cFragmentSize = (cMtu - cIpHeadSize) / 8 * 8;  // fragments begin at multiples of 8 bytes
constexpr std::uint16_t cMoreFragments = 0x2000;
constexpr char cUdp = 17;
constexpr char cTtl = 1;

void put16(std::string& to, std::size_t value)  // network order
{
    to += static_cast<char>(value >> 8);
    to += static_cast<char>(value);
}

// Returns the bytes of a field of NetAddress, which are in network order.
template <typename tNumber>
std::string_view wire(const tNumber& number)
{
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

std::uint32_t sum(std::string_view bytes, std::uint32_t start)
{
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        start += static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i]) << 8 |
                                            static_cast<unsigned char>(bytes[i + 1]));
    if (bytes.size() % 2 != 0)
        start += static_cast<std::uint32_t>(static_cast<unsigned char>(bytes.back()) << 8);
    return start;
}

std::uint16_t folded(std::uint32_t value)
{
    while (value > 0xFFFF)
        value = (value & 0xFFFF) + (value >> 16);
    return static_cast<std::uint16_t>(~value);
}

std::string ethernetHead(const NetAddress& to)
{
    const std::string_view ip = wire(to.ip);
    std::string head;
    if ((static_cast<unsigned char>(ip[0]) & 0xF0) == 0xE0)
        head = {'\x01', '\x00', '\x5E', static_cast<char>(ip[1] & 0x7F), ip[2], ip[3]};
    else
        head = std::string("\x02\x00\x00\x00\x00\x02", 6);
    return head + std::string("\x02\x00\x00\x00\x00\x01\x08\x00", 8);
}

std::string ipHead(const NetAddress& from, const NetAddress& to, std::size_t len, std::uint16_t id,
                   std::uint16_t fragment)
{
    std::string head("\x45\x00", 2);
    put16(head, cIpHeadSize + len);
    put16(head, id);
    put16(head, fragment);
    head += {cTtl, cUdp, '\0', '\0'};
    head.append(wire(from.ip)).append(wire(to.ip));
    std::string check;
    put16(check, folded(sum(head, 0)));
    return head.replace(10, 2, check);
}

// Writes a checksum of 0 as FFFF: 0 on the wire means no checksum.
std::string udpMessage(const NetAddress& from, const NetAddress& to, std::string_view payload)
{
    std::string message;
    message.append(wire(from.port)).append(wire(to.port));
    put16(message, 8 + payload.size());
    message.append(2, '\0').append(payload);
    std::string pseudo;
    pseudo.append(wire(from.ip)).append(wire(to.ip)).append({'\0', cUdp});
    put16(pseudo, message.size());
    const std::uint16_t check = folded(sum(message, sum(pseudo, 0)));
    std::string bytes;
    put16(bytes, check != 0 ? check : 0xFFFF);
    return message.replace(6, 2, bytes);
}
}  // namespace

std::vector<std::string> framesOf(const NetAddress& from, const NetAddress& to, std::string_view payload,
                                  std::uint16_t id)
{
    const std::string head = ethernetHead(to);
    const std::string message = udpMessage(from, to, payload);
    const bool whole = cIpHeadSize + message.size() <= cMtu;
    const std::size_t size = whole ? message.size() : cFragmentSize;
    std::vector<std::string> frames;
    for (std::size_t pos = 0; pos < message.size(); pos += size)
    {
        const std::size_t len = std::min(size, message.size() - pos);
        const bool more = pos + len < message.size();
        const auto fragment = static_cast<std::uint16_t>(pos / 8 | (more ? cMoreFragments : 0u));
        frames.push_back(head + ipHead(from, to, len, id, fragment) + message.substr(pos, len));
    }
    return frames;
}
}  // namespace recordings

// Captures made by hand, byte by byte.
#ifndef KESTOVA_TESTS_CAPTUREFILE_H
#define KESTOVA_TESTS_CAPTUREFILE_H

#include <cstdint>
#include <fstream>
#include <string>

#include "UdpSocket/udpsocket.h"
#include "support/recording.h"

inline std::string bigEndian16(unsigned value)
{
    return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

// One Ethernet frame; what a test does not set is an ordinary whole datagram.
struct tFrame
{
    std::string payload = "payload";  // behind the UDP header, or behind the IP header of a continuation
    std::string to = "239.1.1.1";
    unsigned port = 5000;
    unsigned flags = 0, offset = 0;  // 1: more fragments; offset in units of 8 bytes
    unsigned id = 1;
    int totalLen = -1;  // -1: what the frame holds
    unsigned protocol = 17, type = 0x0800;

    std::string bytes() const
    {
        const std::string udp =
            offset != 0 ? "" : bigEndian16(4000) + bigEndian16(port) + bigEndian16(0) + bigEndian16(0);
        const auto held = static_cast<unsigned>(20 + udp.size() + payload.size());
        return std::string(12, '\x02') + bigEndian16(type) + "\x45" + '\0' +
               bigEndian16(totalLen < 0 ? held : static_cast<unsigned>(totalLen)) + bigEndian16(id) +
               bigEndian16(flags << 13 | offset) + '\x40' + static_cast<char>(protocol) + bigEndian16(0) +
               littleEndian(net::transAddr("10.0.0.1"), 4) + littleEndian(net::transAddr(to.c_str()), 4) + udp +
               payload;
    }
};

// The bytes of a capture; records get times 1 ms apart unless told otherwise.
class tCapture
{
public:
    static constexpr std::uint32_t cSeconds = 1'715'934'600;

    tCapture& add(const std::string& frame, std::uint32_t seconds, std::uint32_t microseconds, std::uint32_t capLen)
    {
        bytes += littleEndian(seconds, 4) + littleEndian(microseconds, 4) + littleEndian(capLen, 4) +
                 littleEndian(capLen, 4) + frame;
        ++m_records;
        return *this;
    }
    tCapture& add(const std::string& frame)
    {
        return add(frame, cSeconds, 1000 * m_records, static_cast<std::uint32_t>(frame.size()));
    }
    tCapture& add(const tFrame& frame) { return add(frame.bytes()); }
    std::string writeTo(const std::string& path) const
    {
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return path;
    }

    std::string bytes = littleEndian(0xA1B2C3D4, 4) + littleEndian(0x40002, 4) + std::string(8, '\0') +
                        littleEndian(65535, 4) + littleEndian(1, 4);

private:
    std::uint32_t m_records = 0;
};

#endif

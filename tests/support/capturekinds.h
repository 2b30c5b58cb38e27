// The same frames as captures of other kinds than tCapture makes, byte by byte.
#ifndef KESTOVA_TESTS_CAPTUREKINDS_H
#define KESTOVA_TESTS_CAPTUREKINDS_H

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "support/capturefile.h"

// Numbers of a capture's own heads, in its byte order.
struct tNumbers
{
    bool bigEndian = false;

    std::string operator()(std::uint64_t value, std::size_t bytes) const
    {
        std::string text = littleEndian(value, bytes);
        if (bigEndian)
            std::reverse(text.begin(), text.end());
        return text;
    }
};

struct tTimedFrame
{
    std::uint64_t ns;
    std::string bytes;
};
using tTimedFrames = std::vector<tTimedFrame>;

// A pcap file: `magic` A1B2C3D4 has microseconds, A1B23C4D nanoseconds.
inline std::string pcapOf(const tTimedFrames& frames, std::uint32_t magic, std::uint32_t linkType, tNumbers number = {})
{
    const std::uint64_t unit = magic == 0xA1B23C4D ? 1 : 1000;
    std::string bytes =
        number(magic, 4) + number(2, 2) + number(4, 2) + std::string(8, '\0') + number(65535, 4) + number(linkType, 4);
    for (const tTimedFrame& frame : frames)
        bytes += number(frame.ns / 1'000'000'000, 4) + number(frame.ns % 1'000'000'000 / unit, 4) +
                 number(frame.bytes.size(), 4) + number(frame.bytes.size(), 4) + frame.bytes;
    return bytes;
}

inline std::string pcapngBlock(std::uint32_t type, std::string body, tNumbers number)
{
    body.resize((body.size() + 3) / 4 * 4);
    const std::string len = number(body.size() + 12, 4);
    return number(type, 4) + len + body + len;
}

// An interface of a pcapng file; its times are in microseconds.
inline std::string pcapngInterface(std::uint16_t linkType, tNumbers number = {})
{
    return pcapngBlock(1, number(linkType, 2) + number(0, 2) + number(65535, 4), number);
}

inline std::string pcapngFrame(std::uint32_t interface, const tTimedFrame& frame, tNumbers number = {})
{
    const std::uint64_t us = frame.ns / 1000;
    return pcapngBlock(6,
                       number(interface, 4) + number(us >> 32, 4) + number(us, 4) + number(frame.bytes.size(), 4) +
                           number(frame.bytes.size(), 4) + frame.bytes,
                       number);
}

// A pcapng file with one interface, and a block that readers pass over.
inline std::string pcapngOf(const tTimedFrames& frames, std::uint16_t linkType, tNumbers number = {})
{
    std::string bytes =
        pcapngBlock(0x0A0D0D0A, number(0x1A2B3C4D, 4) + number(1, 2) + number(0, 2) + number(~0ull, 8), number) +
        pcapngInterface(linkType, number) + pcapngBlock(4, number(0, 4), number);
    for (const tTimedFrame& frame : frames)
        bytes += pcapngFrame(0, frame, number);
    return bytes;
}

// An Ethernet frame with a VLAN tag.
inline std::string tagged(const std::string& frame, unsigned tag = 0x8100)
{
    return frame.substr(0, 12) + bigEndian16(tag) + bigEndian16(5) + frame.substr(12);
}

// An Ethernet frame whose IP header has 4 bytes of options for each of `words`.
inline std::string withOptions(std::string frame, unsigned words)
{
    const auto total = static_cast<unsigned>(frame.size() - 14 + 4 * words);
    frame[14] = static_cast<char>(0x45 + words);
    frame.replace(16, 2, bigEndian16(total));
    return frame.insert(34, std::string(4 * words, '\x01'));
}

// An Ethernet frame as a capture on "any" has it: behind a head of 16 bytes, or of 20 (version 2).
inline std::string cooked(const std::string& frame)
{
    return std::string(14, '\x03') + frame.substr(12);
}
inline std::string cooked2(const std::string& frame)
{
    return frame.substr(12, 2) + std::string(18, '\x03') + frame.substr(14);
}

inline tTimedFrames each(tTimedFrames frames, const std::function<std::string(const std::string&)>& change)
{
    for (tTimedFrame& frame : frames)
        frame.bytes = change(frame.bytes);
    return frames;
}

#endif

// tMessageContent: when two messages are equal, and the hash that stands for a message.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MESSAGECONTENT_H
#define KESTOVA_RECORDINGS_INTERNAL_MESSAGECONTENT_H

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <xxhash.h>

#include "KestovaStorage/imagestate.h"
#include "common/byteorder.h"

namespace recordings
{
class tMessageContent
{
public:
    // With `withTime` off, the time that a replay puts into image state messages does not count.
    explicit tMessageContent(bool withTime) : m_withTime(withTime) {}

    bool equal(std::string_view a, std::string_view b) const
    {
        return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0 ||
                                        (!m_withTime && timeless(a) && hash(a) == hash(b)));
    }
    std::uint64_t hash(std::string_view message, std::uint64_t seed = 0) const
    {
        if (m_withTime || !timeless(message))
            return XXH3_64bits_withSeed(message.data(), message.size(), seed);
        std::array<char, cImageStateSize> bytes;
        std::memcpy(bytes.data(), message.data(), bytes.size());
        std::memset(&bytes[cImageStateTimePos], 0, sizeof(std::uint64_t));
        return XXH3_64bits_withSeed(bytes.data(), bytes.size(), seed);
    }
    // Returns a number made of some bytes of a message, never 0.
    static std::uint64_t looks(std::string_view message)
    {
        constexpr std::uint64_t cFactor = 0x9E3779B97F4A7C15;
        constexpr std::size_t cSamples = 8, cSample = sizeof(std::uint64_t);
        if (message.size() < cSamples * cSample)
            return XXH3_64bits(message.data(), message.size()) | 1;
        std::uint64_t mixed = message.size();
        const std::size_t step = (message.size() - cSample) / (cSamples - 1);
        for (std::size_t i = 0; i < cSamples; ++i)
            mixed = (mixed ^ le::load<std::uint64_t>(message.data() + i * step)) * cFactor;
        return mixed | 1;
    }

private:
    static bool timeless(std::string_view message) { return isImageState(message.data(), message.size()); }

    const bool m_withTime;
};
}  // namespace recordings

#endif

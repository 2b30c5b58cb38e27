// tCdrWriter: a message in the form of ROS 2, CDR: numbers little-endian and aligned to their size.
//
// Shapes   alignment counts from behind the head of 4 bytes, of which the first two say what follows.
// Threads  one at a time.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MCAP_CDRWRITER_H
#define KESTOVA_RECORDINGS_INTERNAL_MCAP_CDRWRITER_H

#include <bit>
#include <cstdint>
#include <string>
#include <string_view>

#include "common/byteorder.h"

namespace recordings::mcap
{
class tCdrWriter
{
public:
    tCdrWriter() { clear(); }
    void clear() { m_bytes.assign("\0\1\0\0", cHead); }
    const std::string& bytes() const { return m_bytes; }

    // A whole number.
    template <typename tNumber>
    tCdrWriter& number(tNumber value)
    {
        align(sizeof value);
        char stored[sizeof value];
        le::store(stored, static_cast<std::make_unsigned_t<tNumber>>(value));
        m_bytes.append(stored, sizeof stored);
        return *this;
    }
    tCdrWriter& number(float value) { return number(std::bit_cast<std::uint32_t>(value)); }
    tCdrWriter& number(double value) { return number(std::bit_cast<std::uint64_t>(value)); }

    tCdrWriter& text(std::string_view text)
    {
        number(static_cast<std::uint32_t>(text.size() + 1));  // its final zero counts
        m_bytes.append(text) += '\0';
        return *this;
    }
    // The length of a sequence; its elements follow.
    tCdrWriter& count(std::size_t elements) { return number(static_cast<std::uint32_t>(elements)); }
    tCdrWriter& bytes(std::string_view bytes)
    {
        count(bytes.size());
        m_bytes.append(bytes);
        return *this;
    }
    // Room for elements of 4 bytes, little-endian, which the caller writes.
    char* room(std::size_t elements)
    {
        const std::size_t at = m_bytes.size();
        m_bytes.resize(at + 4 * elements);
        return m_bytes.data() + at;
    }
    // A time or a duration: seconds, and nanoseconds from there on.
    tCdrWriter& time(std::int64_t ns)
    {
        constexpr std::int64_t cSecond = 1'000'000'000;
        const std::int64_t seconds = ns >= 0 ? ns / cSecond : -((cSecond - 1 - ns) / cSecond);
        return number(static_cast<std::int32_t>(seconds)).number(static_cast<std::uint32_t>(ns - seconds * cSecond));
    }
    tCdrWriter& header(std::uint64_t ns, std::string_view frame)
    {
        return time(static_cast<std::int64_t>(ns)).text(frame);
    }

private:
    static constexpr std::size_t cHead = 4;

    void align(std::size_t size)
    {
        const std::size_t behind = (m_bytes.size() - cHead) & (size - 1);
        if (behind != 0)
            m_bytes.append(size - behind, '\0');
    }

    std::string m_bytes;
};
}  // namespace recordings::mcap

#endif

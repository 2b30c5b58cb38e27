// The records of an MCAP file: an opcode, a length of 64 bits, and fields, all of them little-endian.
#ifndef KESTOVA_RECORDINGS_INTERNAL_MCAP_MCAPRECORD_H
#define KESTOVA_RECORDINGS_INTERNAL_MCAP_MCAPRECORD_H

#include <cstdint>
#include <string>
#include <string_view>

#include "common/byteorder.h"

namespace recordings::mcap
{
constexpr std::string_view cMagic("\x89MCAP0\r\n", 8);  // at both ends of a file

enum eOpcode : std::uint8_t
{
    eHeader = 0x01,
    eFooter = 0x02,
    eSchema = 0x03,
    eChannel = 0x04,
    eMessage = 0x05,
    eChunk = 0x06,
    eMessageIndex = 0x07,
    eChunkIndex = 0x08,
    eStatistics = 0x0B,
    eSummaryOffset = 0x0E,
    eDataEnd = 0x0F
};
constexpr std::size_t cRecordHead = 9;  // opcode and length

template <typename tNumber>
void put(std::string& to, tNumber value)
{
    char bytes[sizeof value];
    le::store(bytes, value);
    to.append(bytes, sizeof bytes);
}

// A string, or bytes of any kind, behind their length of 32 bits.
inline void putText(std::string& to, std::string_view text)
{
    put(to, static_cast<std::uint32_t>(text.size()));
    to.append(text);
}

// A record that is appended to a text: its length is put in when it ends.
class tRecord
{
public:
    tRecord(std::string& to, eOpcode opcode) : m_to(to), m_begin(to.size())
    {
        put(m_to, static_cast<std::uint8_t>(opcode));
        put(m_to, std::uint64_t{0});
    }
    ~tRecord() { le::store(&m_to[m_begin + 1], std::uint64_t{m_to.size() - m_begin - cRecordHead}); }
    tRecord(const tRecord&) = delete;
    tRecord& operator=(const tRecord&) = delete;

private:
    std::string& m_to;
    const std::size_t m_begin;
};
}  // namespace recordings::mcap

#endif

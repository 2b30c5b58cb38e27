// tEditableRecord: a recorded package on its way through a replay, in a copy of its own that may be edited.
//
// Shapes   the payload is msgLen() bytes at payload(), writable; group and port can be replaced.
// Threads  none; one at a time. The next record reuses the memory.
#ifndef KESTOVA_STORAGE_REPLAY_EDITABLERECORD_H
#define KESTOVA_STORAGE_REPLAY_EDITABLERECORD_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "UdpSocket/netaddress.h"

namespace Kestova
{
class tEditableRecord
{
public:
    // Copies `len` bytes. Returns false, and leaves the record unusable, unless they are exactly one whole package.
    bool load(const char* bytes, std::size_t len);

    const tUdpMsgInfo& msgInfo() const { return m_msgInfo; }
    std::uint64_t timestamp_ms() const { return m_timestamp_ms; }
    char* payload();
    int msgLen() const { return m_msgLen; }
    std::string_view message() { return {payload(), static_cast<std::size_t>(m_msgLen)}; }

    // Its destination; the port is a plain number.
    std::uint32_t udpAddr = 0;
    std::uint16_t udpPort = 0;
    NetAddress destination() const;

    // Replaces the time of sending in an image state message by the time of replay. Other messages stay as they are.
    void stampReplayTime(std::uint64_t replayTime);
    // Marks a service message as repeated by a replay, "_R". Other messages stay as they are.
    void markReplayed();

private:
    std::vector<char> m_bytes;
    tUdpMsgInfo m_msgInfo{};
    std::uint64_t m_timestamp_ms = 0;
    int m_msgLen = 0;
};
}  // namespace Kestova

#endif

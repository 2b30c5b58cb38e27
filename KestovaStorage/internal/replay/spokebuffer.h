// tSpokeBuffer: the last complete revolution of a radar's spokes and the revolution in progress.
//
// Shapes   a falling azimuth begins a new revolution. At the second fall everything before the last but one is dropped,
//          so the buffer never holds more than one complete revolution and the one in progress. If the azimuth never
//          falls, the oldest spokes are dropped beyond cMaxSpokes and cMaxBytes.
// Threads  none; one at a time.
#ifndef KESTOVA_STORAGE_REPLAY_SPOKEBUFFER_H
#define KESTOVA_STORAGE_REPLAY_SPOKEBUFFER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

namespace Kestova
{
struct tSpokeString
{
    std::uint32_t azm;      // azimuth, in the radar's own units
    std::uint32_t address;  // group, as net::transAddr returns it
    std::int32_t port;      // plain number
    std::string spoke;      // the payload
};

class tSpokeBuffer
{
public:
    static constexpr std::size_t cMaxSpokes = 65'536;
    static constexpr std::size_t cMaxBytes = 64 * 1024 * 1024;

    void append(tSpokeString spoke);

    bool empty() const { return m_spokes.empty(); }
    std::size_t size() const { return m_spokes.size(); }
    const tSpokeString& operator[](std::size_t i) const { return m_spokes[i]; }

private:
    void dropFront(std::size_t count);

    std::deque<tSpokeString> m_spokes;
    std::size_t m_revolution = 0;  // first spoke of the revolution in progress; 0 while there is no other
    std::size_t m_bytes = 0;
};
}  // namespace Kestova

#endif

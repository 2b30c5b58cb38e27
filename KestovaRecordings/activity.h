// tActivity: when anything was recorded, and the silences between.
#ifndef KESTOVA_RECORDINGS_ACTIVITY_H
#define KESTOVA_RECORDINGS_ACTIVITY_H

#include <cstdint>
#include <vector>

#include "KestovaRecordings/streamhistory.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
// One thread at a time.
class KESTOVA_API tActivity
{
public:
    explicit tActivity(std::uint64_t silenceMs = cSilenceMs) : m_silenceMs(silenceMs) {}

    // Takes the time of a record, in ms. In any order; its memory grows with the silences, and with how often a time
    // is far from the one before it.
    void add(std::uint64_t timeMs);
    // Takes a stretch of time in which no silence is longer than silenceMs; all those of another one.
    void add(const tGap& stretch);
    void add(const tActivity& other);
    // Returns the silences longer than silenceMs, in order of time.
    std::vector<tGap> silences() const;

private:
    std::uint64_t m_silenceMs;
    std::vector<tGap> m_stretches;  // of records, in the order in which they came; they may overlap
};
}  // namespace recordings

#endif

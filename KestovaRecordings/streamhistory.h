// A stream over time: how much, from when to when, and its longest silences.
#ifndef KESTOVA_RECORDINGS_STREAMHISTORY_H
#define KESTOVA_RECORDINGS_STREAMHISTORY_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "KestovaRecordings/streamcounts.h"

namespace tool
{
struct tGap
{
    std::uint64_t fromMs, toMs;  // the last message before and the first one after the silence
    std::uint64_t length() const { return toMs - fromMs; }
};

class tStreamHistory
{
public:
    // Silences from gapMs on are remembered, the longest of them.
    void add(std::uint64_t timeMs, std::string_view message, std::uint64_t gapMs, bool withDigest);
    void interrupt() { m_previousMs = 0; }  // what follows is another recording: the time between is no silence

    std::uint64_t messages() const { return m_messages; }
    std::uint64_t bytes() const { return m_bytes; }
    std::uint64_t firstMs() const { return m_firstMs; }
    std::uint64_t lastMs() const { return m_lastMs; }
    std::uint64_t spanMs() const { return m_lastMs - m_firstMs; }
    // One over the mean interval, so that a stream of one message a second has exactly 1; 0 below two messages.
    double messagesPerSecond() const;
    double bytesPerSecond() const;
    const tDigest& digest() const { return m_digest; }
    // Silences that stand out: at least three times as long as the stream's mean interval. Longest first.
    std::vector<tGap> gaps() const;

private:
    void remember(tGap gap);

    std::uint64_t m_messages = 0, m_bytes = 0;
    std::uint64_t m_firstMs = 0, m_lastMs = 0, m_previousMs = 0;
    tDigest m_digest;
    std::vector<tGap> m_gaps;  // a heap, the shortest on top
};

using tHistories = std::map<tStreamKey, tStreamHistory>;
}  // namespace tool

#endif

// tStreamHistory: a stream over time: how much, from when to when, and its longest silences.
#ifndef KESTOVA_RECORDINGS_STREAMHISTORY_H
#define KESTOVA_RECORDINGS_STREAMHISTORY_H

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "KestovaRecordings/streamcounts.h"
#include "UdpSocket/kestovaapi.h"

namespace recordings
{
struct tGap
{
    std::uint64_t fromMs, toMs;  // the last message before and the first one after the silence
    std::uint64_t length() const { return toMs - fromMs; }
};

// One thread at a time. What is moved from may only be destroyed or assigned to.
class KESTOVA_API tStreamHistory
{
public:
    tStreamHistory();
    ~tStreamHistory();
    tStreamHistory(tStreamHistory&&) noexcept;
    tStreamHistory& operator=(tStreamHistory&&) noexcept;

    // Silences from gapMs on are remembered, the 16 longest of them.
    void add(std::uint64_t timeMs, std::string_view message, std::uint64_t gapMs, bool withDigest);
    void interrupt();  // what follows is another recording: the time between is no silence

    std::uint64_t messages() const;
    std::uint64_t bytes() const;
    std::uint64_t firstMs() const;
    std::uint64_t lastMs() const;
    // One over the mean interval, so that a stream of one message a second has exactly 1; 0 below two messages.
    double messagesPerSecond() const;
    double bytesPerSecond() const;
    const tDigest& digest() const;
    // Silences that stand out: at least three times as long as the stream's mean interval. Longest first.
    std::vector<tGap> gaps() const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};

using tStreamHistories = std::map<tStreamKey, tStreamHistory>;
}  // namespace recordings

#endif

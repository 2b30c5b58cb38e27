// tStreamHistory: a stream over time: its counts, its span and its longest silences.
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
constexpr std::uint64_t cSilenceMs = 10'000;  // what users call a silence of everything is longer than this

struct tGap
{
    std::uint64_t fromMs, toMs;  // the last message before and the first one after the silence
    std::uint64_t length() const { return toMs - fromMs; }
};

// What is known of a stream whose messages are not at hand, such as from a sheet.
struct tStreamRecollection
{
    std::uint64_t messages = 0, bytes = 0;
    std::uint64_t firstMs = 0, lastMs = 0;
    tDigest digest;
    std::vector<tGap> gaps;       // the 16 longest
    std::vector<tGap> stretches;  // of messages with no silence longer than cSilenceMs between them
};

// One thread at a time. An object that was moved from may only be destroyed or assigned to.
class KESTOVA_API tStreamHistory
{
public:
    tStreamHistory();
    explicit tStreamHistory(const tStreamRecollection& known);
    ~tStreamHistory();
    tStreamHistory(tStreamHistory&&) noexcept;
    tStreamHistory& operator=(tStreamHistory&&) noexcept;

    // Counts a message. Keeps the 16 longest silences of gapMs or more.
    void add(std::uint64_t timeMs, std::string_view message, std::uint64_t gapMs, bool withDigest);
    // The same for a message of so many bytes, without a digest.
    void count(std::uint64_t timeMs, std::uint64_t bytes, std::uint64_t gapMs);
    // Takes the messages of another history as if they came now. Leaves the digest, which needs the messages.
    void append(const tStreamHistory& later, std::uint64_t gapMs);
    void setDigest(const tDigest& digest);
    void interrupt();  // the next message begins another recording: the time until then is no silence

    std::uint64_t messages() const;
    std::uint64_t bytes() const;
    std::uint64_t firstMs() const;
    std::uint64_t lastMs() const;
    // Returns one over the mean interval, exactly 1 for a stream of one message a second; 0 below two messages.
    // Silences of everything, `without`, do not count as time.
    double messagesPerSecond(const std::vector<tGap>& without = {}) const;
    double bytesPerSecond(const std::vector<tGap>& without = {}) const;
    const tDigest& digest() const;
    // Returns the silences of at least three mean intervals of the stream. Longest first.
    std::vector<tGap> gaps(const std::vector<tGap>& without = {}) const;

private:
    class tPrivate;
    std::unique_ptr<tPrivate> d;
};

using tStreamHistories = std::map<tStreamKey, tStreamHistory>;
}  // namespace recordings

#endif

// tStreamMeter: the streams of a picture: rates, jitter, silences.
#ifndef KESTOVA_SERVER_STREAMMETER_H
#define KESTOVA_SERVER_STREAMMETER_H

#include <cstdint>
#include <deque>
#include <map>

#include "KestovaRecordings/navigation.h"
#include "KestovaRecordings/streamcounts.h"
#include "server/answers.h"
#include "sessions/monitor/arrivals.h"

namespace server
{
// By the clock of the recording, or of the network. One thread at a time.
class tStreamMeter
{
public:
    void expect(const recordings::tStreamKey& key) { m_streams.try_emplace(key); }  // a row without messages
    void add(const recordings::tStreamKey& key, std::uint64_t timeUs, std::size_t bytes);
    void clear() { m_streams.clear(); }
    // Returns the rows of a message "streams"; rates are of the last three seconds before `nowMs`.
    tJson rows(std::uint64_t nowMs);

private:
    struct tSample
    {
        std::uint64_t ms, messages, bytes;
    };
    struct tStream
    {
        session::tArrivals arrivals;
        std::uint64_t lastMs = 0;
        std::deque<tSample> samples;
    };
    std::map<recordings::tStreamKey, tStream> m_streams;
};

// Return the members of the messages "own" and "targets".
tJson ownJson(const recordings::tOwnShip& own);
tJson targetsJson(const std::vector<recordings::tTarget>& targets);
}  // namespace server

#endif

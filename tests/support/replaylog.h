// tReplayLog: an observer that keeps what a replay reports, as words: "0 1000-1002 1 a b 4".
//
// Statuses and the span are their numbers, a segment is its bytes. react, set before the replay, is called with each
// word inside the callback that reported it.
#ifndef KESTOVA_TESTS_REPLAYLOG_H
#define KESTOVA_TESTS_REPLAYLOG_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KestovaStorage/replayobserver.h"
#include "support/collector.h"
#include "support/waituntil.h"

class tReplayLog : public storage::iDataReadReplayObserver
{
public:
    struct tSegment
    {
        std::uint64_t time;
        double progress;
        std::string bytes, file;
        std::chrono::steady_clock::time_point arrived;
    };
    std::function<void(const std::string&)> react;

    void UpdateReplayStatus(std::uint8_t status) override { tell(std::to_string(status)); }
    void UpdateDataTimeSpan(std::uint64_t first, std::uint64_t last) override
    {
        tell(std::to_string(first) + "-" + std::to_string(last));
    }
    void UpdateReplayData(std::uint64_t time, double progress, const char* data, unsigned int len,
                          std::string file) override
    {
        const std::string bytes(data, len);
        m_segments.add({time, progress, bytes, file, std::chrono::steady_clock::now()});
        tell(bytes);
    }

    std::vector<tSegment> segments() const { return m_segments.all(); }
    std::string text() const  // what was reported since clear()
    {
        std::string joined;
        for (const std::string& word : m_words.all())
            joined += (joined.empty() ? "" : " ") + word;
        return joined;
    }
    std::size_t count(const std::string& word) const
    {
        const std::vector<std::string> words = m_words.all();
        return static_cast<std::size_t>(std::count(words.begin(), words.end(), word));
    }
    void clear()
    {
        m_words.clear();
        m_segments.clear();
    }
    bool waitFor(const std::string& word, std::size_t times = 1) const
    {
        return waitUntil([&] { return count(word) >= times; }, std::chrono::seconds(30));
    }
    bool waitForText(const std::string& all) const
    {
        return waitUntil([&] { return text() == all; }, std::chrono::seconds(10));
    }

    void tell(const std::string& word)
    {
        m_words.add(word);
        if (react)
            react(word);
    }

private:
    tCollector<std::string> m_words;
    tCollector<tSegment> m_segments;
};

#endif

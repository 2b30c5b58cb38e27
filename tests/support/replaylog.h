// tReplayLog: an observer that keeps what a replay tells, as words: "0 1000-1002 1 a b 4".
//
// Statuses and the span are their numbers, a segment is its bytes. react, set before the replay, is called with each
// word inside the callback that told it.
#ifndef KESTOVA_TESTS_REPLAYLOG_H
#define KESTOVA_TESTS_REPLAYLOG_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "KestovaStorage/datastorageio.h"
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
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_segments.push_back({time, progress, bytes, file, std::chrono::steady_clock::now()});
        }
        tell(bytes);
    }

    std::vector<tSegment> segments() const
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_segments;
    }
    std::string text() const  // what was told since clear()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        std::string joined;
        for (const std::string& word : m_words)
            joined += (joined.empty() ? "" : " ") + word;
        return joined;
    }
    std::size_t count(const std::string& word) const
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return static_cast<std::size_t>(std::count(m_words.begin(), m_words.end(), word));
    }
    void clear()
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
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
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_words.push_back(word);
        }
        if (react)
            react(word);
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_words;  // guarded by m_mutex
    std::vector<tSegment> m_segments;  // guarded by m_mutex
};

#endif

#include <algorithm>
#include <memory>

#include "bindings/c/feed.h"
#include "bindings/c/gatherer.h"
#include "bindings/c/guard.h"

namespace
{
constexpr std::int64_t cBeforeMs = 12'000;  // is read first: the heading, and where the turn began
constexpr std::int64_t cBehindMs = 10'000;  // after which no spoke of the span follows
constexpr unsigned cBetweenLooks = 64;      // messages
constexpr std::size_t cTogether = 256;      // messages

binding::tSpan withBefore(const binding::tSpan& span)
{
    return {std::max(span.startMs, cBeforeMs) - cBeforeMs, span.endMs};
}
}  // namespace

struct kestova_sweeps
{
    kestova_sweeps(binding::tSource& source, std::set<binding::tGroup> groups, const binding::tSpan& span,
                   std::uint32_t every)
        : m_isWhole(span.startMs == KESTOVA_BEGINNING && span.endMs == KESTOVA_TO_END), m_endMs(span.endMs),
          m_path(source.path()), m_gatherer(source.layouts(), std::move(groups), span, every),
          m_feed(binding::openFeed(source, withBefore(span)))
    {}

    // Returns TIMEOUT when the deadline has passed, also between files that are read.
    kestova_result next(kestova_sweep*& out, const binding::tDeadline& deadline)
    {
        for (unsigned passed = 1;; ++passed)
        {
            if (binding::tGatherer::tSweepPtr sweep = m_gatherer.take())
            {
                out = sweep.release();
                return KESTOVA_OK;
            }
            if (m_isFinished)
                return atEnd();
            if (m_gatherer.isOver())
            {
                finish();
                continue;
            }
            if (const kestova_result result = read(deadline); result != KESTOVA_OK)
                return result;
            if (deadline && passed % cBetweenLooks == 0 && binding::tClock::now() >= *deadline)
                return KESTOVA_TIMEOUT;
        }
    }

private:
    // Takes the next message.
    kestova_result read(const binding::tDeadline& deadline)
    {
        if (m_next == m_messages.size())
        {
            m_next = 0;
            m_messages.clear();
            const kestova_result result = m_feed->next(m_messages, cTogether, deadline);
            if (result == KESTOVA_END)
                finish();
            if (result != KESTOVA_OK)
                return result == KESTOVA_END ? KESTOVA_OK : result;
        }
        const binding::tMessage& message = m_messages[m_next++];
        if (isBehind(message))
            finish();
        else if (message.isPackage)
            m_gatherer.read(message.timeMs, message.package);
        return KESTOVA_OK;
    }
    bool isBehind(const binding::tMessage& message) const
    {
        return m_endMs < KESTOVA_TO_END - cBehindMs && static_cast<std::int64_t>(message.timeMs) >= m_endMs + cBehindMs;
    }
    void finish()
    {
        m_gatherer.finish();
        m_isFinished = true;
    }
    kestova_result atEnd() const
    {
        if (m_isWhole && !m_gatherer.hasSpokes())
            throw binding::tError(KESTOVA_NO_SPOKES, m_path + ": no message is a spoke by the layouts that are known");
        return KESTOVA_END;
    }

    const bool m_isWhole;
    const std::int64_t m_endMs;
    const std::string m_path;
    bool m_isFinished = false;
    binding::tGatherer m_gatherer;
    const std::unique_ptr<binding::iFeed> m_feed;
    binding::tMessages m_messages;
    std::size_t m_next = 0;  // of them
};

kestova_result kestova_sweeps_open(kestova_recording* recording, const char* radar, int64_t start_ms, int64_t end_ms,
                                   uint32_t every, kestova_sweeps** out)
{
    return binding::guarded([&] {
        binding::require(recording, "recording");
        binding::require(out, "out");
        binding::tSource& source = *recording->source;
        std::set<binding::tGroup> groups;
        if (radar != nullptr && *radar != '\0')
            groups = source.groupsOf(radar);
        binding::tSpan span{start_ms, end_ms};
        if (source.isLive())
            span = {KESTOVA_BEGINNING, KESTOVA_TO_END};
        *out = new kestova_sweeps(source, std::move(groups), span, every);
        return KESTOVA_OK;
    });
}

kestova_result kestova_sweeps_next(kestova_sweeps* sweeps, kestova_sweep** out, int timeout_ms)
{
    return binding::guarded([&] {
        binding::require(sweeps, "sweeps");
        binding::require(out, "out");
        return sweeps->next(*out, binding::deadlineIn(timeout_ms));
    });
}

void kestova_sweeps_close(kestova_sweeps* sweeps)
{
    delete sweeps;
}

void kestova_sweep_look(const kestova_sweep* sweep, kestova_sweep_view* out)
{
    if (out != nullptr)
        *out = sweep != nullptr ? sweep->view() : kestova_sweep_view{};
}

void kestova_sweep_free(kestova_sweep* sweep)
{
    delete sweep;
}

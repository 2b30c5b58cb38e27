#include "KestovaStorage/internal/radar/servicequery.h"

#include <array>
#include <utility>

namespace Kestova
{
namespace
{
constexpr std::array<char, 2> cQuery{'\x01', '\xB1'};
}

bool tServiceSilence::lasts(tTime now, std::chrono::milliseconds duration) const
{
    const std::int64_t heardAt = m_serviceRecTime;
    return heardAt == cNever || now - tTime(tTime::duration(heardAt)) >= duration;
}

tServiceQuery::tServiceQuery(tTiming timing) : m_timing(timing)
{
    m_multiRadarQueryThread.start([this] {
        while (m_multiRadarQueryThread.sleepFor(m_timing.period))
            queryIfSilent(std::chrono::steady_clock::now());
    });
}

void tServiceQuery::setSink(std::unique_ptr<iDatagramSink> sink)
{
    const std::lock_guard<std::mutex> lock(m_senderMutex);
    m_querySender.swap(sink);
}

bool tServiceQuery::queryIfSilent(tServiceSilence::tTime now)
{
    if (!m_silence.lasts(now, m_timing.silence))
        return false;
    const std::lock_guard<std::mutex> lock(m_senderMutex);
    return m_querySender && m_querySender->send(cQuery.data(), static_cast<int>(cQuery.size()));
}
}  // namespace Kestova

#include "sessions/replay/cat240output.h"

#include <utility>

namespace session
{
using namespace recordings;

tCat240Output::tCat240Output(const tReplayedCat240& how, std::uint32_t localIp,
                             std::function<void(std::string_view)> sent)
    : m_translator(how.layouts), m_sink(net::defaultTransport().openSink(how.group, localIp)), m_sent(std::move(sent)),
      m_send([this](std::string_view datagram, const tMessagePlace&) { send(datagram); })
{}

Kestova::tReplaySending tCat240Output::take(const tPackageContents& message)
{
    const std::lock_guard lock(m_mutex);
    m_isRefused = false;
    if (!m_translator.take(message, {message.timeMs, 0}, m_send))
        return Kestova::eReplaySendAsItIs;
    return m_isRefused ? Kestova::eReplayRefusedOtherwise : Kestova::eReplaySentOtherwise;
}

void tCat240Output::finish()
{
    const std::lock_guard lock(m_mutex);
    m_translator.finish(m_send);
}

tCat240Tally tCat240Output::tally() const
{
    const std::lock_guard lock(m_mutex);
    return m_translator.tally();
}

void tCat240Output::send(std::string_view datagram)
{
    if (m_sink->send(datagram.data(), static_cast<int>(datagram.size())))
        m_sent(datagram);
    else
        m_isRefused = true;
}
}  // namespace session

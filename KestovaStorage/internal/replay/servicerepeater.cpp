#include "KestovaStorage/internal/replay/servicerepeater.h"

#include "KestovaStorage/internal/radar/radarstreams.h"
#include "UdpSocket/consoleprint.h"

namespace Kestova
{
namespace
{
std::chrono::seconds steadySeconds()
{
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch());
}
}  // namespace

std::vector<std::string> tServiceMessages::alive(tTime now)
{
    std::erase_if(m_messages, [&](const auto& message) { return now - message.second > cLifetime; });
    std::vector<std::string> messages;
    messages.reserve(m_messages.size());
    for (const auto& [message, received] : m_messages)
        messages.push_back(message);
    return messages;
}

tServiceRepeater::tServiceRepeater(std::uint32_t localIp, std::chrono::milliseconds period, net::iTransport& transport)
    : m_sink(transport.openSink(multiRadarServiceAddress(), localIp))
{
    m_servicesThread.start([this, period] {
        while (m_servicesThread.sleepFor(period))
            sendAlive();
        Kestova::console::print("Services Thread Exiting\r\n");
    });
}

tServiceRepeater::~tServiceRepeater()
{
    m_servicesThread.stop();
}

void tServiceRepeater::take(std::string_view message)
{
    const std::lock_guard<std::mutex> lock(m_radarServicesMutex);
    m_radarServicesMap.take(message, steadySeconds());
}

void tServiceRepeater::clear()
{
    const std::lock_guard<std::mutex> lock(m_radarServicesMutex);
    m_radarServicesMap.clear();
}

void tServiceRepeater::sendAlive()
{
    std::vector<std::string> messages;
    {
        const std::lock_guard<std::mutex> lock(m_radarServicesMutex);
        messages = m_radarServicesMap.alive(steadySeconds());
    }
    for (const std::string& message : messages)
        m_sink->send(message.data(), static_cast<int>(message.size()));
}
}  // namespace Kestova

// tCat240Output: sends the spokes of a replay as ASTERIX category 240.
#ifndef KESTOVA_SESSIONS_REPLAY_CAT240OUTPUT_H
#define KESTOVA_SESSIONS_REPLAY_CAT240OUTPUT_H

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "KestovaRecordings/cat240translator.h"
#include "KestovaStorage/radarreplayobserver.h"
#include "UdpSocket/transport.h"

namespace session
{
struct tReplayedCat240
{
    NetAddress group{};
    std::vector<utils::tSpokeLayout> layouts;
};

// Any thread.
class tCat240Output
{
public:
    // Calls `sent` with each datagram that went out. `localIp` as net::transAddr returns it.
    tCat240Output(const tReplayedCat240& how, std::uint32_t localIp, std::function<void(std::string_view)> sent);

    // Returns what became of a message that is about to be replayed, as iRadarReplaySender::SendReplayRecord does.
    Kestova::tReplaySending take(const recordings::tPackageContents& message);
    void finish();  // sends the spokes that wait for the next one
    recordings::tCat240Tally tally() const;

private:
    void send(std::string_view datagram);

    mutable std::mutex m_mutex;  // guards everything below
    recordings::tCat240Translator m_translator;
    const std::unique_ptr<net::iDatagramSink> m_sink;
    const std::function<void(std::string_view)> m_sent;
    const recordings::tCat240Translator::tSend m_send;
    bool m_isRefused = false;  // by the network, since the last message
};
}  // namespace session

#endif

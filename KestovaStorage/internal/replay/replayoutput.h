// tReplayOutput: the network side of a replay: replayed records, repeated service messages and circle spoke loops.
//
// Threads  any. Ends with all of its threads: nothing is sent afterwards.
#ifndef KESTOVA_STORAGE_REPLAY_REPLAYOUTPUT_H
#define KESTOVA_STORAGE_REPLAY_REPLAYOUTPUT_H

#include <cstdint>

#include "KestovaStorage/internal/replay/senderpool.h"
#include "KestovaStorage/internal/replay/servicerepeater.h"
#include "KestovaStorage/internal/replay/spokeloop.h"
#include "UdpSocket/udpsocket.h"

namespace Kestova
{
class tReplayOutput : private iCircleSpokeObserver
{
public:
    explicit tReplayOutput(std::uint32_t localIp) : m_senders(localIp), m_services(localIp), m_loops(this) {}

    bool send(const NetAddress& address, std::string_view payload)
    {
        return m_senders.send(address, payload.data(), static_cast<int>(payload.size()));
    }
    void repeat(std::string_view serviceMessage) { m_services.take(serviceMessage); }
    void keepSpoke(int loopNumber, tSpokeString spoke) { m_loops.feed(loopNumber, std::move(spoke)); }
    void runLoops(bool on) { m_loops.run(on); }
    // Closes the sockets and drops the service messages; loops keep their spokes.
    void clear()
    {
        m_senders.clear();
        m_services.clear();
    }

private:
    void UpdateCircleSpokeReplay(const tSpokeString& spoke) override
    {
        send({spoke.address, net::HtoNs(static_cast<std::uint16_t>(spoke.port))}, spoke.spoke);
    }

    tSenderPool m_senders;
    tServiceRepeater m_services;
    tSpokeLoops m_loops;  // ends first: its threads send through the senders
};
}  // namespace Kestova

#endif

// tCaptureNotifier: notifies the observers of a read, in the form that their interfaces promise.
//
// Owner    not of the observers, which may be null.
// Threads  starts none, locks nothing.
#ifndef KESTOVA_STORAGE_CAPTURE_CAPTURENOTIFIER_H
#define KESTOVA_STORAGE_CAPTURE_CAPTURENOTIFIER_H

#include <cstdint>
#include <string>
#include <vector>

#include "KestovaStorage/capturestatistics.h"
#include "KestovaStorage/internal/capture/datagramextractor.h"
#include "KestovaStorage/internal/capture/datagramkind.h"
#include "KestovaStorage/internal/capture/sensorsentence.h"

namespace pcap
{
class tCaptureNotifier
{
public:
    explicit tCaptureNotifier(iPcapDataReadObserver* observer) : m_observer(observer) {}
    void setDatagramObserver(iPcapDatagramObserver* observer) { m_datagramObserver = observer; }

    bool wantsData() const { return m_observer != nullptr; }
    bool wantsDatagrams() const { return m_datagramObserver != nullptr; }

    void progress(double percent, tTimes_ms time)
    {
        if (m_observer != nullptr)
            m_observer->UpdatePcapReadProgress(percent, time);
    }
    void rows(const std::vector<tUdpMulticast>& streams) { m_observer->UpdatePcapUdpMulticast(streams); }
    void datagram(const tDatagram& datagram, eMessageKind kind, std::uint64_t record, std::uint64_t time_us)
    {
        const tZeroBehind zero(datagram);
        tPcapDatagram found{};
        found.time_us = time_us;
        found.record = record;
        found.sourceAddress = m_sources.of(datagram.source);
        found.sourcePort = datagram.sourcePort;
        found.address = m_destinations.of(addressOf(datagram.stream));
        found.port = portOf(datagram.stream);
        found.kind = kindText(kind);
        found.payload = datagram.payload;
        found.len = datagram.length;
        m_datagramObserver->UpdatePcapDatagram(found);
    }
    void data(const tDatagram& datagram, eTraffic traffic, double progress, tTimes_ms time)
    {
        const char* const address = m_destinations.of(addressOf(datagram.stream));
        const int port = portOf(datagram.stream);
        if (traffic == eTraffic::eSensor)
        {
            const std::string& sentence =
                m_sentence.stamped({datagram.payload, static_cast<std::size_t>(datagram.length)}, time);
            m_observer->UpdatePcapReadData(time, progress, address, port, sentence.c_str(),
                                           static_cast<int>(sentence.size()));
            return;
        }
        const tZeroBehind zero(datagram);
        m_observer->UpdatePcapReadData(time, progress, address, port, datagram.payload, datagram.length);
    }
    void endOfData()
    {
        if (m_observer != nullptr)
            m_observer->UpdatePcapReadData(0, -1.0, nullptr, 0, nullptr, 0);
    }

private:
    // The zero byte behind a payload during a call. The next record may begin there: the destructor restores its byte.
    class tZeroBehind
    {
    public:
        explicit tZeroBehind(const tDatagram& datagram) : m_end(datagram.payload + datagram.length), m_kept(*m_end)
        {
            *m_end = '\0';
        }
        ~tZeroBehind() { *m_end = m_kept; }
        tZeroBehind(const tZeroBehind&) = delete;
        tZeroBehind& operator=(const tZeroBehind&) = delete;

    private:
        char* const m_end;
        const char m_kept;
    };

    iPcapDataReadObserver* const m_observer;
    iPcapDatagramObserver* m_datagramObserver = nullptr;
    tAddressTexts m_sources, m_destinations;
    tSensorSentence m_sentence;
};
}  // namespace pcap

#endif

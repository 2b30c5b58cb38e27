// tReplayPipeline: counts, filters, edits, reports and sends the records of a replay.
//
// Owner    observers and network are not owned and outlive it.
// Threads  replay() one at a time, on the replay thread; the rest any.
#ifndef KESTOVA_STORAGE_REPLAY_REPLAYPIPELINE_H
#define KESTOVA_STORAGE_REPLAY_REPLAYPIPELINE_H

#include <atomic>
#include <bitset>
#include <cstdint>
#include <string>

#include "KestovaStorage/internal/replay/editablerecord.h"
#include "KestovaStorage/radarreplayobserver.h"
#include "common/observers.h"

namespace Kestova
{
class tReplayOutput;

class tReplayPipeline
{
public:
    using tTypes = std::bitset<256>;

    // Replays these kinds of stream; `network` is null if nothing is to be sent.
    tReplayPipeline(const tTypes& types, tReplayOutput* network) : m_types(types), m_network(network) {}

    void setModifyObserver(iRadarReplayModifyObserver* observer) { m_dataModifyObserver.set(observer); }
    void setSendObserver(iRadarReplaySendObserver* observer) { m_sendObserver.set(observer); }
    void setSender(iRadarReplaySender* sender) { m_sender.set(sender); }
    std::uint64_t sentCnt() const { return m_sentCnt; }
    std::uint64_t refusedCnt() const { return m_refusedCnt; }
    std::uint64_t damagedCnt() const { return m_damagedCnt; }

    // Processes one record of `len` bytes, recorded at `replayTime` ms, at `progress` of the span; `observer` may be
    // null.
    void replay(tTimes_ms replayTime, double progress, const char* package, std::uint32_t len,
                const std::string& fileName, iRadarDataReplayObserver* observer);

private:
    struct tReplayContext
    {
        tTimes_ms replayTime;
        double progress;
        iRadarDataReplayObserver* observer;
    };

    void switchFile(const std::string& fileName, iRadarDataReplayObserver* observer);
    bool isSelected(double progress) const;
    void process(const tReplayContext& context);
    void modify(iRadarReplayModifyObserver& observer, const tReplayContext& context);
    void keepSpoke(iRadarReplayModifyObserver& observer, const char* group);
    void send(tTimes_ms replayTime);
    void countService(iRadarDataReplayObserver* observer);
    void reportCounters(iRadarDataReplayObserver* observer) const;

    const tTypes m_types;
    tReplayOutput* const m_network;
    tObserverGate<iRadarReplayModifyObserver> m_dataModifyObserver;
    tObserverGate<iRadarReplaySendObserver> m_sendObserver;
    tObserverGate<iRadarReplaySender> m_sender;
    tEditableRecord m_record;
    std::string m_currFileName;
    std::uint32_t m_userCtrlMsgCnt = 0;
    std::uint32_t m_multiServiceMsgCnt = 0;
    std::atomic<std::uint64_t> m_sentCnt{0}, m_refusedCnt{0}, m_damagedCnt{0};
};
}  // namespace Kestova

#endif

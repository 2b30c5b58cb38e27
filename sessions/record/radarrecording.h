// Records the streams of one radar of the directory.
#ifndef KESTOVA_SESSIONS_RECORD_RADARRECORDING_H
#define KESTOVA_SESSIONS_RECORD_RADARRECORDING_H

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KestovaRecordings/streamchoice.h"
#include "KestovaStorage/radardatasaver.h"
#include "sessions/radarchoice.h"
#include "sessions/record/receivedcounts.h"
#include "sessions/record/recording.h"

namespace session
{
class tRadarRecording : public iRecording, private Kestova::iRadarRecDataModifyObserver
{
public:
    // localIp empty: the interface of the default route. Throws tFailure.
    tRadarRecording(const tRadarChoice& radar, const recordings::tStreamChoice& streams, const std::string& localIp,
                    const std::string& folder, bool compress);

    tRecordingState state() override;
    void closeSockets() override;
    bool waitWritten(unsigned int timeoutMs) override;
    void closeFile() override;
    std::uint32_t compressing() const override { return m_saver->GetCompressingCnt(); }
    void giveUpCompressing() override { m_saver->CancelCompressing(); }

private:
    void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) override;

    void chooseGroups(const RadarAddress& address, const recordings::tStreamChoice& streams);
    void waitForSockets();
    std::vector<Kestova::tGroupCounters> groupCounters() const;
    void noteDiscarded();

    std::vector<eReadWriteType> m_kinds;
    std::vector<NetAddress> m_groups;
    tReceivedCounts m_received;
    // Counters of the kernel begin again when the local address changes: `before` keeps what was counted until then.
    struct tDiscarded
    {
        std::uint64_t before = 0, now = 0;
    };
    std::map<recordings::tStreamKey, tDiscarded> m_discarded;
    std::unique_ptr<Kestova::tRadarDataSaver> m_saver;  // last: its threads use the members above
};
}  // namespace session

#endif

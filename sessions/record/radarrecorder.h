// tRadarRecorder: records the streams of one radar of the directory.
#ifndef KESTOVA_SESSIONS_RECORD_RADARRECORDER_H
#define KESTOVA_SESSIONS_RECORD_RADARRECORDER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/streamchoice.h"
#include "KestovaStorage/radardatasaver.h"
#include "KestovaStorage/writeobserver.h"
#include "sessions/radarchoice.h"
#include "sessions/record/addressfollower.h"
#include "sessions/record/receivedcounts.h"
#include "sessions/record/recorder.h"

namespace session
{
class tRadarRecorder : public iRecorder, private Kestova::iRadarRecDataModifyObserver
{
public:
    // localIp empty: the interface of the default route. `written` outlives the recorder. Throws tFailure.
    tRadarRecorder(const tRadarChoice& radar, const recordings::tStreamChoice& streams, const std::string& localIp,
                   const std::string& folder, bool compress, storage::iWriteObserver& written);

    tRecorderState state() override;
    bool startNextFile() override { return m_saver->StartNextFile(); }
    void closeSockets() override;
    bool waitWritten(unsigned int timeoutMs) override;
    void closeFile() override;
    std::uint32_t compressing() const override { return m_saver->GetCompressingCnt(); }
    void cancelCompressing() override { m_saver->CancelCompressing(); }

private:
    void UpdateRecDataModify(const tUdpMsgInfo& info, const char* groupAddr, int port, char* data, int len) override;

    void chooseGroups(const tRadarChoice& radar, const recordings::tStreamChoice& streams);
    void waitForSockets();
    std::vector<Kestova::tGroupCounters> groupCounters() const;
    void updateDiscarded();
    std::vector<std::string> unjoined() const;

    bool m_closed = false;  // the groups were left for good
    std::vector<eReadWriteType> m_kinds;
    std::vector<NetAddress> m_groups;
    tReceivedCounts m_received;
    // The kernel's counters restart when the local address changes: `before` holds their sum until then.
    struct tDiscarded
    {
        std::uint64_t before = 0, now = 0;
    };
    std::map<recordings::tStreamKey, tDiscarded> m_discarded;
    std::unique_ptr<Kestova::tRadarDataSaver> m_saver;  // behind what its threads use
    std::optional<tAddressFollower> m_address;          // registered after the saver, see there
};
}  // namespace session

#endif

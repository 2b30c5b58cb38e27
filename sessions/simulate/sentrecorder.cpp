#include "sessions/simulate/sentrecorder.h"

#include <algorithm>
#include <atomic>
#include <chrono>

#include "KestovaRecordings/failure.h"
#include "sessions/record/recordingchecks.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr unsigned int cDiskTimeout_ms = 60'000;
}

tSentRecorder::tSentRecorder(const std::string& root, const RadarAddress& radar)
    : m_groups(Kestova::recordedGroups(radar)), m_root(prepareRecording({}, 0, root)), m_storage(m_root, ".data")
{
    std::atomic_ref<bool>(storage::tDataStorageIO::DiskCheckThreadEnable).store(false);
    m_storage.SetFineTimes(true);
    if (!m_storage.CreateNewWritingFile(0, "sent", false))
        throw tFailure("cannot record below " + m_root + ": see the line above");
    m_file = m_storage.GetCurrentWriteDataFileName();
    requireFileBelow(m_root, m_file);
}

void tSentRecorder::add(const NetAddress& group, std::string_view message)
{
    const auto known = std::ranges::find(m_groups, group, &Kestova::tRecordedGroup::address);
    const tUdpMsgInfo info = known != m_groups.end() ? known->msgInfo : tUdpMsgInfo{0, 0, eReadType, eOtherType, 0};
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    m_recorder.RecordFine(
        info, group, message.data(), static_cast<int>(message.size()),
        static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
}

void tSentRecorder::finish()
{
    if (!m_storage.WaitWriteIdle(cDiskTimeout_ms))
        throw tFailure(m_root + ": the disk has taken nothing for a minute");
    if (m_storage.GetWriteLostCnt() != 0)
        throw tFailure(m_root + ": messages could not be written: see the line above");
    m_storage.FinishWrite();
}
}  // namespace session

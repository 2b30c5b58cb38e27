#include "sessions/import/importrecorder.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/frames.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/record/recordingchecks.h"
#include "sessions/record/sheetfacts.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cQueueBytes = 32 << 20;  // waits for the disk when so much is queued
constexpr unsigned int cDiskTimeout_ms = 60'000;

// The info block of each kind that the capture reader knows. Other datagrams, control messages included, become
// eOtherType with sender 0, which a replay sends, too.
struct tKindInfo
{
    std::string_view kind;
    tReadWriteType stream;
};
constexpr std::array<tKindInfo, 6> cKinds{{{"Spoke", eImageStream},
                                           {"OriSpoke", eOriginalImage},
                                           {"Spoke OriSpoke", eOriginalImage},
                                           {"RadarState", eImageState},
                                           {"RATTM", eArpaStream},
                                           {"RHTTM", eArpaStream}}};

tUdpMsgInfo infoOf(std::string_view kind)
{
    for (const tKindInfo& known : cKinds)
        if (known.kind == kind)
            return {1, 2, eReadType, known.stream, 0};
    return {0, 0, eReadType, eOtherType, 0};
}

// Never less than a millisecond: 0 means now to a recorder.
std::uint64_t microseconds(std::uint64_t us)
{
    return std::max<std::uint64_t>(1000, us);
}
}  // namespace

tImportRecorder::tImportRecorder(const std::string& root, std::string name)
    : m_root(prepareRecording({}, 0, root)), m_name(std::move(name)), m_sheets(importedSheetFacts()),
      m_storage(m_root, ".data")
{
    m_storage.SetFineTimes(true);
    m_storage.SetWriteObserver(&m_sheets);
    std::atomic_ref<bool>(storage::tDataStorageIO::DiskCheckThreadEnable).store(false);
}

void tImportRecorder::startFile(std::uint64_t timeMs)
{
    if (!m_storage.CreateNewWritingFile(timeMs, m_name, false))
        throw tFailure("cannot record below " + m_root + ": see the line above");
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    m_sheets.start();
    updateFiles();
}

void tImportRecorder::add(const pcap::tPcapDatagram& datagram, const tUdpMsgInfo* info)
{
    if (datagram.len > static_cast<int>(cMaxDatagram))  // false fragment offsets can exceed it
    {
        ++m_tooLong;
        return;
    }
    const std::uint64_t timeUs = microseconds(datagram.time_us);
    if (m_recorded == 0)
        startFile(timeUs / 1000);
    const NetAddress group{net::transAddr(datagram.address), net::HtoNs(static_cast<std::uint16_t>(datagram.port))};
    m_packageRecorder.RecordFine(info != nullptr ? *info : infoOf(datagram.kind), group, datagram.payload, datagram.len,
                                 timeUs);
    ++m_recorded;
    m_queuedBytes += static_cast<std::uint64_t>(datagram.len);
    if (m_queuedBytes >= cQueueBytes)
        waitForDisk();
}

void tImportRecorder::waitForDisk()
{
    m_queuedBytes = 0;
    if (!m_storage.WaitWriteIdle(cDiskTimeout_ms))
        throw tFailure(m_root + ": the disk has taken nothing for a minute");
    updateFiles();
    if (m_storage.GetWriteLostCnt() != 0)
        throw tFailure(m_root + ": messages could not be written: see the line above");
}

void tImportRecorder::updateFiles()
{
    const std::string file = m_storage.GetCurrentWriteDataFileName();
    if (!file.empty() && (m_files.empty() || m_files.back() != file))
        m_files.push_back(file);
}

void tImportRecorder::finish()
{
    waitForDisk();
    m_storage.FinishWrite();
    m_sheets.finish();
    if (const std::string problem = m_sheets.takeProblem(); !problem.empty())
        throw tFailure(problem);
}
}  // namespace session

#include "sessions/record/recordingwriter.h"

#include <atomic>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "sessions/record/recordingchecks.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr std::uint64_t cQueueBytes = 32 << 20;  // waits for the disk when so much is queued
constexpr unsigned int cDiskTimeout_ms = 60'000;
}  // namespace

tRecordingWriter::tRecordingWriter(const std::string& root, std::string name, tSheet facts, bool fineTimes)
    : m_root(prepareRecording({}, 0, root)), m_name(std::move(name)), m_fineTimes(fineTimes),
      m_sheets(std::move(facts)), m_storage(m_root, ".data")
{
    m_storage.SetFineTimes(fineTimes);
    m_storage.SetWriteObserver(&m_sheets);
    std::atomic_ref<bool>(storage::tDataStorageIO::DiskCheckThreadEnable).store(false);
}

void tRecordingWriter::startFile(std::uint64_t timeMs)
{
    if (!m_storage.CreateNewWritingFile(timeMs, m_name, false))
        throw tFailure("cannot record below " + m_root + ": see the line above");
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    m_sheets.start();
    updateFiles();
}

void tRecordingWriter::add(const tUdpMsgInfo& info, const NetAddress& group, std::string_view message,
                           std::uint64_t timeUs)
{
    if (m_recorded == 0)
        startFile(timeUs / 1000);
    const int len = static_cast<int>(message.size());
    if (m_fineTimes)
        m_packageRecorder.RecordFine(info, group, message.data(), len, timeUs);
    else
        m_packageRecorder.Record(info, group, message.data(), len, timeUs / 1000);
    ++m_recorded;
    m_queuedBytes += message.size();
    if (m_queuedBytes >= cQueueBytes)
        waitForDisk();
}

void tRecordingWriter::waitForDisk()
{
    m_queuedBytes = 0;
    if (!m_storage.WaitWriteIdle(cDiskTimeout_ms))
        throw tFailure(m_root + ": the disk has taken nothing for a minute");
    updateFiles();
    if (m_storage.GetWriteLostCnt() != 0)
        throw tFailure(m_root + ": messages could not be written: see the line above");
}

void tRecordingWriter::updateFiles()
{
    const std::string file = m_storage.GetCurrentWriteDataFileName();
    if (!file.empty() && (m_files.empty() || m_files.back() != file))
        m_files.push_back(file);
}

void tRecordingWriter::finish()
{
    waitForDisk();
    m_storage.FinishWrite();
    m_sheets.finish();
    if (const std::string problem = m_sheets.takeProblem(); !problem.empty())
        throw tFailure(problem);
}
}  // namespace session

#include "sessions/record/grouprecording.h"

#include <chrono>

#include "KestovaRecordings/failure.h"

#include "sessions/record/recordingplace.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr int cReceiveBuffer = 4 * 1024 * 1024;
constexpr tUdpMsgInfo cInfo = {0, 0, eReadType, eOtherType, 0};
}  // namespace

tGroupRecording::tGroupRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp,
                                 const std::string& folder, bool compress)
    : m_root(prepareRecording(groups, localIp, folder)), m_storage(m_root, ".data")
{
    for (const NetAddress& group : groups)
        m_received.expect(group, eOtherType);
    m_storage.CreateNewWritingFile(0ul, "groups", compress);
    requireFileBelow(m_root, m_storage.GetCurrentWriteDataFileName());
    m_builder.AddPackageObserer(this);
    net::iUdpDataListener* const listener = this;
    for (const NetAddress& group : groups)
    {
        auto& receiver = m_receivers[group];
        receiver = std::make_unique<net::UdpReceiver>(listener, localIp, group, cReceiveBuffer);
        if (!receiver->valid())
            throw tFailure("a group could not be joined: see the line above");
    }
}

tGroupRecording::~tGroupRecording()
{
    m_receivers.clear();
    m_builder.RemovePackageObserer(this);
}

void tGroupRecording::noteDiscarded()
{
    for (const auto& [group, receiver] : m_receivers)
        m_discarded[m_received.keyOf(group)] = receiver->counters().kernelDropped;
}

tRecordingState tGroupRecording::state()
{
    noteDiscarded();
    tRecordingState state;
    state.streams = m_received.table();
    state.discarded = m_discarded;
    state.backlog = m_storage.GetWriteDataFifoSize();
    state.lost = m_storage.GetWriteLostCnt();
    state.file = m_storage.GetCurrentWriteDataFileName();
    return state;
}

void tGroupRecording::closeSockets()
{
    noteDiscarded();
    m_receivers.clear();
}

bool tGroupRecording::waitWritten(unsigned int timeoutMs)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    if (!m_builder.WaitBuildIdle(timeoutMs))
        return false;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return m_storage.WaitWriteIdle(left.count() > 0 ? static_cast<unsigned int>(left.count()) : 0);
}

void tGroupRecording::closeFile()
{
    m_storage.FinishWrite();
}

void tGroupRecording::OnUdpGroupDataReceived(const char*, int, const char* groupAddr, int groupPort, const char* data,
                                             int len)
{
    m_received.add(groupAddr, groupPort, data, len);
    m_builder.BuildPackage(cInfo, groupAddr, groupPort, data, len, 0);
}

void tGroupRecording::UpdateBuildedPackage(const char* package, unsigned int size, int, unsigned long timestamp)
{
    m_storage.WriteData(package, size, timestamp);
}
}  // namespace session

#include "sessions/record/radarrecorder.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"
#include "sessions/record/recordingchecks.h"
#include "sessions/record/streamgroups.h"

namespace session
{
using namespace recordings;

namespace
{
using namespace std::chrono_literals;
}  // namespace

tRadarRecorder::tRadarRecorder(const tRadarChoice& radar, const tStreamChoice& streams, const std::string& localIp,
                               const std::string& folder, bool compress, storage::iWriteObserver& written)
{
    chooseGroups(radar, streams);
    const std::uint32_t ip = localIp.empty() ? 0 : localAddress(localIp);
    if (ip != 0)
        MultiRadarClient::getInstance()->setLocalInterface(localIp);
    const std::string root = prepareRecording(m_groups, ip, folder);
    m_saver =
        std::make_unique<Kestova::tRadarDataSaver>(m_kinds.data(), static_cast<int>(m_kinds.size()), root, ".data", "");
    m_saver->SetSharedReception(true);
    m_saver->SetFineTimes(true);
    m_saver->SetWriteObserver(&written);
    m_saver->SetRecDataModifyObserver(this);
    m_saver->connect(radar.serial.c_str(), radar.id, compress);
    requireFileBelow(root, m_saver->GetCurrentWriteDataFileName());
    waitForSockets();
    m_address.emplace();
    m_address->waitForFirst(5s);
}

void tRadarRecorder::chooseGroups(const tRadarChoice& radar, const tStreamChoice& streams)
{
    for (const tStreamGroup& group : streamGroups(radar, streams))
    {
        if (!group.isShared)
            m_kinds.push_back(static_cast<eReadWriteType>(group.kind));
        m_groups.push_back(group.address);
        m_received.expect(group.address, group.kind);
    }
    std::sort(m_groups.begin(), m_groups.end(), tNetAddress_less());
    m_groups.erase(std::unique(m_groups.begin(), m_groups.end()), m_groups.end());
}

// The saver opens its sockets when the radar client reports the local address, a moment after connect.
void tRadarRecorder::waitForSockets()
{
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (groupCounters().size() < m_groups.size())
    {
        if (std::chrono::steady_clock::now() > deadline)
            throw tFailure("the local interface has no address yet: connect it, or choose another with --local-ip");
        std::this_thread::sleep_for(5ms);
    }
    for (const auto& group : groupCounters())
    {
        if (!group.joined)
            throw tFailure(
                fmt::format("cannot join {}:{}: --verbose shows the reason", net::transAddr(group.ip), group.port));
    }
}

std::vector<Kestova::tGroupCounters> tRadarRecorder::groupCounters() const
{
    std::vector<Kestova::tGroupCounters> counters(64);
    const int known = m_saver->GetGroupCounters(counters.data(), static_cast<int>(counters.size()));
    counters.resize(std::min(counters.size(), static_cast<std::size_t>(known)));
    return counters;
}

void tRadarRecorder::updateDiscarded()
{
    for (const auto& group : groupCounters())
    {
        tDiscarded& discarded = m_discarded[m_received.keyOf({group.ip, net::HtoNs(group.port)})];
        if (group.kernelDropped < discarded.now)
            discarded.before += discarded.now;
        discarded.now = group.kernelDropped;
    }
}

tRecorderState tRadarRecorder::state()
{
    updateDiscarded();
    tRecorderState state;
    state.streams = m_received.table();
    for (const auto& [key, discarded] : m_discarded)
        state.discarded[key] = discarded.before + discarded.now;
    state.backlog = m_saver->GetWriteDataFifoSize();
    state.lost = m_saver->GetWriteLostCnt();
    state.done = m_saver->GetWriteDoneCnt();
    state.queued = m_saver->GetWriteQueuedCnt();
    state.file = m_saver->GetCurrentWriteDataFileName();
    const tAddressFollower::tReport address = m_address->last();
    state.addressReports = address.count;
    state.localIp = address.localIp;
    for (const auto& group : groupCounters())
        state.notJoined += group.joined ? 0 : 1;
    state.unjoined = unjoined();
    return state;
}

// All of them while the sockets open anew.
std::vector<std::string> tRadarRecorder::unjoined() const
{
    std::vector<std::string> groups;
    if (m_closed)
        return groups;
    const std::vector<Kestova::tGroupCounters> counters = groupCounters();
    for (const NetAddress& group : m_groups)
    {
        const auto joined = [&](const Kestova::tGroupCounters& one) {
            return one.joined && one.ip == group.ip && one.port == net::NtoHs(group.port);
        };
        if (std::none_of(counters.begin(), counters.end(), joined))
            groups.push_back(m_received.keyOf(group).address());
    }
    return groups;
}

void tRadarRecorder::closeSockets()
{
    updateDiscarded();
    m_closed = true;
    m_saver->SocketClear();
}

bool tRadarRecorder::waitWritten(unsigned int timeoutMs)
{
    return m_saver->WaitWriteIdle(timeoutMs);
}

void tRadarRecorder::closeFile()
{
    m_saver->disconnect();
    m_saver->FinishWrite();
}

void tRadarRecorder::UpdateRecDataModify(const tUdpMsgInfo&, const char* groupAddr, int port, char* data, int len)
{
    if (tReceivedCount* const count = m_received.find(groupAddr, port))
        count->add(data, len);
}
}  // namespace session

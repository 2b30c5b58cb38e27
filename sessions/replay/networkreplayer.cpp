#include <filesystem>
#include <utility>

#include "KestovaStorage/radardatareplayer.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/replay/replayer.h"

namespace session
{
using namespace recordings;

namespace
{
// Removes the empty folder that tRadarDataReplayer creates in the working folder; a replay records nothing.
class tNoRecordingFolder
{
public:
    ~tNoRecordingFolder()
    {
        std::error_code ignored;
        if (!m_existed)
            std::filesystem::remove(cFolder, ignored);  // if it is empty
    }

private:
    static constexpr char cFolder[] = "./RadarDataStorage";
    const bool m_existed = std::filesystem::exists(cFolder);
};

std::vector<eReadWriteType> kindsOf(const tStreamChoice& streams)
{
    std::vector<eReadWriteType> kinds;
    for (int kind = 0; kind <= eOtherType; ++kind)
        if (streams.includes(static_cast<tReadWriteType>(kind)))
            kinds.push_back(static_cast<eReadWriteType>(kind));
    return kinds;
}

class tNetworkReplayer : public iReplayer,
                         private Kestova::iRadarDataReplayObserver,
                         private Kestova::iRadarReplayModifyObserver,
                         private Kestova::iRadarReplaySendObserver
{
public:
    tNetworkReplayer(tReplayProgress& progress, tLateness& lateness, const std::vector<eReadWriteType>& kinds,
                     const std::string& suffix, const std::string& localIp, tAddressMap map)
        : m_progress(progress), m_lateness(lateness), m_map(std::move(map)),
          m_replayer(kinds.data(), static_cast<int>(kinds.size()), true, localIp.c_str(), suffix.c_str())
    {
        m_replayer.SetReplaySendObserver(this);
        if (!m_map.empty())
            m_replayer.SetReplayModifyObserver(this);
    }
    ~tNetworkReplayer() override { m_replayer.CloseReadingFile(); }

    void open(const std::vector<std::string>& files) override { m_replayer.OpenReadPaths(files, this); }
    bool pause(bool on) override { return m_replayer.Pause(on); }
    void setSpeed(double factor) override { m_replayer.SetSpeed(factor); }
    bool jump(double fraction) override { return m_replayer.Jump(fraction); }
    void setEnd(std::uint64_t timeMs) override { m_replayer.SetReplayEnd(timeMs); }
    void setTopSpeed(bool on) override { m_replayer.SetTopSpeed(on); }
    void setSource(storage::iReplaySource* source) override { m_replayer.SetReplaySource(source); }
    void close() override { m_replayer.CloseReadingFile(); }
    std::uint64_t sent() const override { return m_replayer.GetSentCnt(); }
    std::uint64_t refused() const override { return m_replayer.GetSendRefusedCnt(); }
    std::uint64_t unplayed() const override { return m_replayer.GetDamagedCnt() + m_replayer.GetUnreadCnt(); }

private:
    void UpdateReplayStatus(tReplayStatus status) override { m_progress.status(status); }
    void UpdateDataTimeSpan(tTimes_ms begin, tTimes_ms end) override { m_progress.span(begin, end); }
    // The path, then counters behind a line end.
    void UpdateFileName(std::string text) override { m_progress.playing(text.substr(0, text.find("\r\n"))); }
    void UpdateReplayData(tTimes_ms replayTime, tTimes_ms, tMsgType, tReadWriteType rwType, double fraction,
                          const char* groupAddr, int port, const char* data, int len) override
    {
        m_timeMs = replayTime;
        m_progress.passed(replayTime, fraction);
        m_progress.count(tStreamKey::of(rwType, net::transAddr(groupAddr), static_cast<std::uint16_t>(port)),
                         {data, static_cast<std::size_t>(len)});
    }

    void UpdateReplayDataModify(tTimes_ms, tTimes_ms, tMsgType, tReadWriteType, double, const char*, int, char*,
                                int) override
    {}
    void UpdateReplayAddrModify(std::uint32_t* udpAddr, std::uint16_t* udpPort) override
    {
        m_map.apply(*udpAddr, *udpPort);
    }
    bool CheckIfNeededCircleLoop(tMsgType, tReadWriteType, const char*, int, char*, int, int&, int&) override
    {
        return false;  // the offset of the azimuth in a spoke is the radar's own format
    }

    // Of the record that was reported last.
    void UpdateReplaySent(bool sent) override
    {
        m_lateness.add(m_timeMs, m_replayer.GetReplayFineTime(), m_replayer.GetReplayDueTime());
        if (!sent)
            m_progress.uncountLast();
    }

    tReplayProgress& m_progress;
    tLateness& m_lateness;
    std::uint64_t m_timeMs = 0;  // of the record reported last
    const tAddressMap m_map;
    const tNoRecordingFolder m_noFolder;
    Kestova::tRadarDataReplayer m_replayer;  // last: its threads call this object
};
}  // namespace

std::unique_ptr<iReplayer> makeNetworkReplayer(tReplayProgress& progress, tLateness& lateness,
                                               const tStreamChoice& streams, const std::string& suffix,
                                               const std::string& localIp, const tAddressMap& map)
{
    return std::make_unique<tNetworkReplayer>(progress, lateness, kindsOf(streams), suffix, localIp, map);
}
}  // namespace session

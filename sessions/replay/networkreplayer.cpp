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
                         private Kestova::iRadarReplaySendObserver,
                         private Kestova::iRadarReplaySender
{
public:
    tNetworkReplayer(tReplayProgress& progress, tLateness& lateness, const std::vector<eReadWriteType>& kinds,
                     const std::string& suffix, const std::string& localIp, tAddressMap map,
                     const std::optional<tReplayedCat240>& cat240)
        : m_progress(progress), m_lateness(lateness), m_map(std::move(map)), m_cat240(outputFor(cat240, localIp)),
          m_replayer(kinds.data(), static_cast<int>(kinds.size()), true, localIp.c_str(), suffix.c_str())
    {
        m_replayer.SetReplaySendObserver(this);
        if (!m_map.empty())
            m_replayer.SetReplayModifyObserver(this);
        if (m_cat240)
            m_replayer.SetReplaySender(this);
    }
    ~tNetworkReplayer() override { m_replayer.CloseReadingFile(); }

    void open(const std::vector<std::string>& files) override { m_replayer.OpenReadPaths(files, this); }
    bool pause(bool on) override { return m_replayer.Pause(on); }
    void setSpeed(double factor) override { m_replayer.SetSpeed(factor); }
    bool jump(double fraction) override { return m_replayer.Jump(fraction); }
    void setEnd(std::uint64_t timeMs) override { m_replayer.SetReplayEnd(timeMs); }
    void setTopSpeed(bool on) override { m_replayer.SetTopSpeed(on); }
    void setSource(storage::iReplaySource* source) override { m_replayer.SetReplaySource(source); }
    void close() override
    {
        m_replayer.CloseReadingFile();
        if (m_cat240)
            m_cat240->finish();
    }
    std::uint64_t sent() const override { return m_replayer.GetSentCnt(); }
    std::uint64_t refused() const override { return m_replayer.GetSendRefusedCnt(); }
    tCat240Tally cat240() const override { return m_cat240 ? m_cat240->tally() : tCat240Tally(); }
    std::uint64_t unplayed() const override { return m_replayer.GetDamagedCnt() + m_replayer.GetUnreadCnt(); }

private:
    std::unique_ptr<tCat240Output> outputFor(const std::optional<tReplayedCat240>& cat240, const std::string& localIp)
    {
        if (!cat240)
            return nullptr;
        const tStreamKey key = tStreamKey::of(eImageStream, cat240->group.ip, net::NtoHs(cat240->group.port));
        return std::make_unique<tCat240Output>(
            *cat240, net::transAddr(localIp.c_str()),
            [this, key](std::string_view datagram) { m_progress.count(key, datagram); });
    }

    void UpdateReplayStatus(tReplayStatus status) override
    {
        if (m_cat240 && status == storage::eReplayEnded)
            m_cat240->finish();
        m_progress.status(status);
    }
    void UpdateDataTimeSpan(tTimes_ms begin, tTimes_ms end) override { m_progress.span(begin, end); }
    // The path, then counters behind a line end.
    void UpdateFileName(std::string text) override { m_progress.playing(text.substr(0, text.find("\r\n"))); }
    void UpdateReplayData(tTimes_ms replayTime, tTimes_ms, tMsgType, tReadWriteType rwType, double fraction,
                          const char* groupAddr, int port, const char* data, int len) override
    {
        m_timeMs = replayTime;
        m_progress.passed(replayTime, fraction);
        m_isCounted = !m_cat240;  // otherwise once it is known in which form it goes out
        if (m_isCounted)
            m_progress.count(tStreamKey::of(rwType, net::transAddr(groupAddr), static_cast<std::uint16_t>(port)),
                             {data, static_cast<std::size_t>(len)});
    }
    Kestova::tReplaySending SendReplayRecord(tTimes_ms replayTime, tMsgType type, tReadWriteType rwType,
                                             std::uint32_t udpAddr, std::uint16_t udpPort, const char* data,
                                             int len) override
    {
        const std::string_view message(data, static_cast<std::size_t>(len));
        const Kestova::tReplaySending sending =
            m_cat240->take({{0, 0, type, rwType, 0}, 0, udpAddr, udpPort, replayTime, message});
        m_isCounted = sending == Kestova::eReplaySendAsItIs;
        if (m_isCounted)
            m_progress.count(tStreamKey::of(rwType, udpAddr, udpPort), message);
        return sending;
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
        if (!sent && m_isCounted)
            m_progress.uncountLast();
    }

    tReplayProgress& m_progress;
    tLateness& m_lateness;
    std::uint64_t m_timeMs = 0;  // of the record reported last
    const tAddressMap m_map;
    bool m_isCounted = false;                       // the record reported last
    const std::unique_ptr<tCat240Output> m_cat240;  // null: everything goes out as it was recorded
    const tNoRecordingFolder m_noFolder;
    Kestova::tRadarDataReplayer m_replayer;  // last: its threads call this object
};
}  // namespace

std::unique_ptr<iReplayer> makeNetworkReplayer(tReplayProgress& progress, tLateness& lateness,
                                               const tStreamChoice& streams, const std::string& suffix,
                                               const std::string& localIp, const tAddressMap& map,
                                               const std::optional<tReplayedCat240>& cat240)
{
    return std::make_unique<tNetworkReplayer>(progress, lateness, kindsOf(streams), suffix, localIp, map, cat240);
}
}  // namespace session

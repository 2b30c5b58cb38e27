#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datastorageio.h"
#include "sessions/replay/replayer.h"

namespace session
{
using namespace recordings;

namespace
{
// Counts records and sends nothing.
class tCountingReplayer : public iReplayer, private storage::iDataReadReplayObserver
{
public:
    tCountingReplayer(tReplayProgress& progress, tLateness& lateness, const tStreamChoice& streams,
                      const std::string& suffix)
        : m_progress(progress), m_lateness(lateness), m_streams(streams), m_storage("", suffix.c_str())
    {}
    ~tCountingReplayer() override { m_storage.CloseReadingFile(); }

    void open(const std::vector<std::string>& files) override { m_storage.OpenReadPaths(files, this); }
    bool pause(bool on) override { return m_storage.Pause(on); }
    void setSpeed(double factor) override { m_storage.SetSpeed(factor); }
    bool jump(double fraction) override { return m_storage.Jump(fraction); }
    void setEnd(std::uint64_t timeMs) override { m_storage.SetReplayEnd(timeMs); }
    void setTopSpeed(bool on) override { m_storage.SetTopSpeed(on); }
    void setSource(storage::iReplaySource* source) override { m_storage.SetReplaySource(source); }
    void close() override { m_storage.CloseReadingFile(); }
    std::uint64_t unplayed() const override { return m_storage.GetUnreadCnt(); }

private:
    void UpdateReplayStatus(std::uint8_t status) override { m_progress.status(status); }
    void UpdateDataTimeSpan(std::uint64_t firstTimeMs, std::uint64_t lastTimeMs) override
    {
        m_progress.span(firstTimeMs, lastTimeMs);
    }
    void UpdateReplayData(std::uint64_t timeMs, double fraction, const char* data, unsigned int len,
                          std::string fileName) override;

    tReplayProgress& m_progress;
    tLateness& m_lateness;
    const tStreamChoice m_streams;
    storage::tDataStorageIO m_storage;  // last: its threads call this object
};

void tCountingReplayer::UpdateReplayData(std::uint64_t timeMs, double fraction, const char* data, unsigned int len,
                                         std::string fileName)
{
    m_lateness.add(timeMs, m_storage.GetReplayFineTime(), m_storage.GetReplayDueTime());
    m_progress.passed(timeMs, fraction);
    m_progress.playing(fileName);
    const std::string_view segment(data, len);
    const auto package = viewPackage(segment);
    if (package && m_streams.includes(package->info.rwType))
        m_progress.count(tStreamKey::of(package->info.rwType, package->ip, package->port), package->payload);
    else if (!package && m_streams.includesAll())
        m_progress.count(tStreamKey::raw(), segment);
}
}  // namespace

std::unique_ptr<iReplayer> makeCountingReplayer(tReplayProgress& progress, tLateness& lateness,
                                                const tStreamChoice& streams, const std::string& suffix)
{
    return std::make_unique<tCountingReplayer>(progress, lateness, streams, suffix);
}
}  // namespace session

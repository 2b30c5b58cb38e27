#include "KestovaStorage/radardatareplayer.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "KestovaStorage/internal/replay/replayoutput.h"
#include "KestovaStorage/internal/replay/replaypipeline.h"

namespace Kestova
{
namespace
{
tReplayPipeline::tTypes setOf(const eReadWriteType* types, int count)
{
    tReplayPipeline::tTypes set;
    for (int i = 0; types != nullptr && i < count; ++i)
        set.set(types[i]);
    return set;
}

// The storage engine's observer for one open call. It keeps the application's observer of that call: a replay that is
// being closed notifies the observer that it was opened with, even if another is opened next. The engine releases it
// after its last call; if CloseReadingFile ended it, its sockets close then and its service messages are forgotten.
// Opening another recording keeps both, so that a playlist keeps its service and its source ports.
class tOpening : public storage::iDataReadReplayObserver
{
public:
    tOpening(tReplayPipeline& records, tReplayOutput* network, iRadarDataReplayObserver* observer)
        : m_records(records), m_network(network), m_observer(observer)
    {}
    ~tOpening() override
    {
        if (m_network != nullptr && m_closed)
            m_network->clear();
    }
    tOpening(const tOpening&) = delete;
    tOpening& operator=(const tOpening&) = delete;

    void close() { m_closed = true; }

    void UpdateReplayStatus(std::uint8_t status) override
    {
        if (m_observer != nullptr)
            m_observer->UpdateReplayStatus(status);
    }
    void UpdateDataTimeSpan(std::uint64_t firstTimeMs, std::uint64_t lastTimeMs) override
    {
        if (m_observer != nullptr)
            m_observer->UpdateDataTimeSpan(firstTimeMs, lastTimeMs);
    }
    void UpdateReplayData(std::uint64_t timeMs, double progress, const char* data, unsigned int len,
                          std::string fileName) override
    {
        m_records.replay(timeMs, progress, data, len, fileName, m_observer);
    }

private:
    tReplayPipeline& m_records;
    tReplayOutput* const m_network;
    iRadarDataReplayObserver* const m_observer;
    std::atomic<bool> m_closed{false};  // by CloseReadingFile
};
}  // namespace

class tRadarDataReplayerPrivate : public storage::tDataStorageIO
{
public:
    tRadarDataReplayerPrivate(const eReadWriteType* types, int count, bool netReplay, const char* localIp,
                              const char* name)
        : storage::tDataStorageIO("./RadarDataStorage", name),
          m_network(netReplay ? std::make_unique<tReplayOutput>(net::transAddr(localIp)) : nullptr),
          m_records(setOf(types, count), m_network.get())
    {
        // Kept: one switch for the whole process, so that what is being replayed is not deleted meanwhile.
        std::atomic_ref<bool>(storage::tDataStorageIO::DiskCheckThreadEnable).store(false);
    }
    // First the callbacks end, then the network with all its threads, then the engine.
    ~tRadarDataReplayerPrivate() override { CloseReadingFile(); }

    bool open(const std::vector<std::string>& paths, iRadarDataReplayObserver* observer)
    {
        const auto opening = std::make_shared<tOpening>(m_records, m_network.get(), observer);
        {
            const std::lock_guard<std::mutex> lock(m_openingMutex);
            m_opening = opening;
        }
        return OpenReadingFor(paths, opening);
    }
    void close()
    {
        markClosed();
        CloseReadingFile();
        if (m_network)
            m_network->clear();  // spoke loops' sockets too, if nothing was open
    }
    void runLoops(bool on)
    {
        if (m_network)
            m_network->runLoops(on);
    }
    tReplayPipeline& records() { return m_records; }

private:
    // From inside a callback closing is deferred: the opening itself has to know.
    void markClosed()
    {
        const std::lock_guard<std::mutex> lock(m_openingMutex);
        if (const auto opening = m_opening.lock())
            opening->close();
    }

    std::mutex m_openingMutex;
    std::weak_ptr<tOpening> m_opening;               // guarded by m_openingMutex: the last one
    const std::unique_ptr<tReplayOutput> m_network;  // null if nothing is to be sent
    tReplayPipeline m_records;
};

tRadarDataReplayer::tRadarDataReplayer(const eReadWriteType* types, int count, bool netReplay, const char* localIp,
                                       const char* name)
    : d(new tRadarDataReplayerPrivate(types, count, netReplay, localIp, name))
{}

tRadarDataReplayer::~tRadarDataReplayer()
{
    delete d;
}

bool tRadarDataReplayer::OpenReadDataFileorFolder(const std::string& path, iRadarDataReplayObserver* observer)
{
    return d->open({path}, observer);
}

bool tRadarDataReplayer::OpenReadPaths(const std::vector<std::string>& paths, iRadarDataReplayObserver* observer)
{
    return !paths.empty() && d->open(paths, observer);
}

bool tRadarDataReplayer::Pause(bool pause)
{
    return d->Pause(pause);
}

void tRadarDataReplayer::FastSlowForward(double rate)
{
    d->FastSlowForward(rate);
}

bool tRadarDataReplayer::SetSpeed(double speed)
{
    return d->SetSpeed(speed);
}

void tRadarDataReplayer::SetReplayEnd(uint64_t timeMs)
{
    d->SetReplayEnd(timeMs);
}

void tRadarDataReplayer::SetTopSpeed(bool on)
{
    d->SetTopSpeed(on);
}

void tRadarDataReplayer::SetReplaySource(storage::iReplaySource* source)
{
    d->SetReplaySource(source);
}

bool tRadarDataReplayer::Stop()
{
    return d->Stop();
}

bool tRadarDataReplayer::Jump(double fraction)
{
    return d->Jump(fraction);
}

void tRadarDataReplayer::CloseReadingFile()
{
    d->close();
}

void tRadarDataReplayer::SetReplayModifyObserver(iRadarReplayModifyObserver* observer)
{
    d->records().setModifyObserver(observer);
}

void tRadarDataReplayer::SetReplaySendObserver(iRadarReplaySendObserver* observer)
{
    d->records().setSendObserver(observer);
}

void tRadarDataReplayer::SetReplaySender(iRadarReplaySender* sender)
{
    d->records().setSender(sender);
}

void tRadarDataReplayer::CircleLoop(bool run)
{
    d->runLoops(run);
}

uint64_t tRadarDataReplayer::GetSentCnt() const
{
    return d->records().sentCnt();
}

uint64_t tRadarDataReplayer::GetSendRefusedCnt() const
{
    return d->records().refusedCnt();
}

uint64_t tRadarDataReplayer::GetUnreadCnt() const
{
    return d->GetUnreadCnt();
}

uint64_t tRadarDataReplayer::GetDamagedCnt() const
{
    return d->records().damagedCnt();
}

int tRadarDataReplayer::GetReplayFineTime() const
{
    return d->GetReplayFineTime();
}

int64_t tRadarDataReplayer::GetReplayDueTime() const
{
    return d->GetReplayDueTime();
}
}  // namespace Kestova

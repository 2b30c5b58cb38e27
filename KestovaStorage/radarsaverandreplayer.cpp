#include "KestovaStorage/radarsaverandreplayer.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/packagerecorder.h"
#include "KestovaStorage/packageview.h"
#include "UdpSocket/consoleprint.h"

namespace Kestova
{
namespace
{
constexpr char cSuffix[] = ".qvdata";
constexpr std::uint8_t cOwnRecords = 15;  // radarMultiNum of what SaveData writes: no radar has this number
constexpr int cMaxLen = static_cast<int>(cMaxStreamPackage - cPackageOverhead);
constexpr unsigned int cEndTimeout_ms = 5000;  // how long ending a recording waits for the writer
constexpr std::chrono::milliseconds cStateGrace{50};

tUdpMsgInfo infoOf(int dataType)
{
    const auto bits = static_cast<unsigned int>(dataType);
    return {1, 2, static_cast<tMsgType>(bits >> 8), static_cast<tReadWriteType>(bits), cOwnRecords};
}
}  // namespace

// Holds the messages of a replay back until the observer has been called with the state. The replay itself opens and
// may be steered meanwhile.
class tMessageGate
{
public:
    void close()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = false;
        m_opensAt = tClock::time_point::max();
    }
    // Opens at the end of `period`, if nobody opens it before: the call of the observer is under way by then, and may
    // last as long as it likes.
    void openWithin(std::chrono::milliseconds period)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_opensAt = tClock::now() + period;
        m_changed.notify_all();
    }
    void open()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    void pass()
    {
        if (m_open)
            return;
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_open && tClock::now() < m_opensAt)
            waitForChange(lock);
        m_open = true;
    }

private:
    using tClock = std::chrono::steady_clock;

    void waitForChange(std::unique_lock<std::mutex>& lock)
    {
        if (m_opensAt == tClock::time_point::max())
            m_changed.wait(lock);
        else
            m_changed.wait_until(lock, m_opensAt);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<bool> m_open{true};                            // changed under m_mutex
    tClock::time_point m_opensAt = tClock::time_point::max();  // guarded by m_mutex
};

class tRadarSaverAndReplayerPrivate : public storage::iDataReadReplayObserver
{
public:
    explicit tRadarSaverAndReplayerPrivate(iSaveReplayObserver* observer) : m_observer(observer) {}
    ~tRadarSaverAndReplayerPrivate() override
    {
        m_replayer.CloseReadingFile();
        finishFile();
    }
    tRadarSaverAndReplayerPrivate(const tRadarSaverAndReplayerPrivate&) = delete;
    tRadarSaverAndReplayerPrivate& operator=(const tRadarSaverAndReplayerPrivate&) = delete;

    void UpdateReplayStatus(std::uint8_t) override {}
    void UpdateDataTimeSpan(std::uint64_t, std::uint64_t) override {}
    void UpdateReplayData(std::uint64_t, double progress, const char* data, unsigned int len, std::string) override;

    bool in(eSaveReplayState state) const { return m_state == state; }
    eSaveReplayState notifyState() const;
    void enter(eSaveReplayState state);
    void save(int dataType, const char* data, int len);
    void finishFile();
    bool startReplaying(const std::string& path);
    void endReplay();

    storage::tDataStorageIO m_saver{"", cSuffix};
    storage::tDataStorageIO m_replayer{"", cSuffix};

private:
    std::atomic<eSaveReplayState> m_state{eIdle};
    std::atomic<bool> m_ending{false};  // no message is delivered any more
    tMessageGate m_messages;
    iSaveReplayObserver* const m_observer;
    tPackageRecorder m_packageRecorder{m_saver};
};

eSaveReplayState tRadarSaverAndReplayerPrivate::notifyState() const
{
    const eSaveReplayState state = m_state;
    if (m_observer != nullptr)
        m_observer->UpdateState(state);
    return state;
}

void tRadarSaverAndReplayerPrivate::enter(eSaveReplayState state)
{
    m_state = state;
    notifyState();
}

void tRadarSaverAndReplayerPrivate::save(int dataType, const char* data, int len)
{
    if (len < 0 || len > cMaxLen || (data == nullptr && len != 0))
    {
        Kestova::console::printError("Radar saver and replayer: a message of %d bytes cannot be saved (0 to %d can)\n",
                                     len, cMaxLen);
        return;
    }
    if (m_saver.IsWriteEnable())
        m_packageRecorder.Record(infoOf(dataType), NetAddress{}, data, len, 0);
}

void tRadarSaverAndReplayerPrivate::finishFile()
{
    const std::string file = m_saver.GetCurrentWriteDataFileName();
    const bool saved = m_saver.WaitWriteIdle(cEndTimeout_ms);
    if (!saved && !file.empty())
        Kestova::console::printError("Radar saver and replayer: not everything saved is in %s\n", file.c_str());
    m_saver.FinishWrite();
}

bool tRadarSaverAndReplayerPrivate::startReplaying(const std::string& path)
{
    m_ending = false;
    m_messages.close();
    if (!m_replayer.OpenReadDataFileorFolder(path, this))
        return false;
    m_messages.openWithin(cStateGrace);
    enter(eReplaying);
    m_messages.open();
    return true;
}

void tRadarSaverAndReplayerPrivate::endReplay()
{
    m_ending = true;
    m_messages.open();  // if the observer ends it from inside UpdateState
    m_replayer.CloseReadingFile();
    enter(eIdle);
}

void tRadarSaverAndReplayerPrivate::UpdateReplayData(std::uint64_t, double progress, const char* data, unsigned int len,
                                                     std::string)
{
    m_messages.pass();
    const tRadarMsgPackage* const package = asPackage(data, len);
    if (package == nullptr || package->msgInfo.radarMultiNum != cOwnRecords || package->udpAddr != 0 ||
        package->udpPort != 0 || m_observer == nullptr || m_ending)
        return;
    m_observer->UpdateReplayData(progress, (package->msgInfo.type << 8) + package->msgInfo.rwType,
                                 data + cPackageHeadSize, package->msgLen);
}

tRadarSaverAndReplayer::tRadarSaverAndReplayer(iSaveReplayObserver* observer)
    : m_p(new tRadarSaverAndReplayerPrivate(observer))
{
    m_p->notifyState();  // the observer may call every operation from inside
}

tRadarSaverAndReplayer::~tRadarSaverAndReplayer()
{
    delete m_p;
}

eSaveReplayState tRadarSaverAndReplayer::State() const
{
    return m_p->notifyState();
}

bool tRadarSaverAndReplayer::StartSaving(const std::string& folder)
{
    if (!m_p->in(eIdle) || !m_p->m_saver.CreateNewWritingFile(folder, "", false))
        return false;
    m_p->enter(eSaving);
    return true;
}

void tRadarSaverAndReplayer::SaveData(int dataType, const char* data, int len)
{
    if (m_p->in(eSaving))
        m_p->save(dataType, data, len);
}

void tRadarSaverAndReplayer::EndSave()
{
    if (!m_p->in(eSaving))
        return;
    m_p->finishFile();
    m_p->enter(eIdle);
}

bool tRadarSaverAndReplayer::StartReplaying(const std::string& path)
{
    return m_p->in(eIdle) && m_p->startReplaying(path);
}

bool tRadarSaverAndReplayer::Pause()
{
    return m_p->in(eReplaying) && m_p->m_replayer.Pause(true);
}

bool tRadarSaverAndReplayer::Resume()
{
    return m_p->in(eReplaying) && m_p->m_replayer.Pause(false);
}

bool tRadarSaverAndReplayer::Jump(double position)
{
    return m_p->in(eReplaying) && m_p->m_replayer.Jump(position);
}

void tRadarSaverAndReplayer::SetSpeed(double speed)
{
    if (m_p->in(eReplaying))
        m_p->m_replayer.FastSlowForward(speed);
}

bool tRadarSaverAndReplayer::SetExactSpeed(double speed)
{
    return m_p->in(eReplaying) && m_p->m_replayer.SetSpeed(speed);
}

void tRadarSaverAndReplayer::EndReplay()
{
    if (m_p->in(eReplaying))
        m_p->endReplay();
}
}  // namespace Kestova

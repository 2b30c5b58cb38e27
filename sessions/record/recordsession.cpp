#include "sessions/record/recordsession.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "KestovaStorage/datafileconverter.h"
#include "sessions/localaddress.h"
#include "sessions/record/grouprecorder.h"
#include "sessions/record/radarrecorder.h"

namespace session
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char cSuffix[] = ".data";

std::unique_ptr<iRecorder> createRecorder(const tRecordOptions& options)
{
    if (options.groups.empty())
        return std::make_unique<tRadarRecorder>(options.radar, options.streams, options.localIp, options.root,
                                                options.compress);
    const std::uint32_t ip = options.localIp.empty() ? 0 : localAddress(options.localIp);
    return std::make_unique<tGroupRecorder>(options.groups, ip, options.root, options.compress);
}

// A file that is gone otherwise, reclaimed for one, keeps its name.
std::string nameNow(const std::string& file)
{
    const std::string compressed = storage::tDataFileConverter::CompressedName(file, cSuffix);
    return !std::filesystem::exists(file) && std::filesystem::exists(compressed) ? compressed : file;
}
}  // namespace

tRecordSession::tRecordSession(const tRecordOptions& options) : m_recorder(createRecorder(options))
{
    updateState();
}

void tRecordSession::updateState()
{
    m_state = m_recorder->state();
    if (!m_state.file.empty() && (m_files.empty() || m_files.back() != m_state.file))
        m_files.push_back(m_state.file);
}

void tRecordSession::finish(const std::function<bool(eFinishing step)>& waiting)
{
    drain(waiting);
    m_recorder->closeSockets();
    write(waiting);
    updateState();
    m_recorder->closeFile();
    const auto discarded = m_state.discarded;  // the counts of closed sockets are lost
    updateState();
    m_state.discarded = discarded;
    compress(waiting);
}

// Returns after a second even if the radar continues to send.
void tRecordSession::drain(const std::function<bool(eFinishing step)>& waiting)
{
    constexpr milliseconds cQuiet{150};
    const auto deadline = tSteady::now() + milliseconds(1000);
    auto lastArrival = tSteady::now();
    std::uint64_t received = total(m_state.streams).messages;
    while (tSteady::now() < deadline && tSteady::now() - lastArrival < cQuiet)
    {
        std::this_thread::sleep_for(milliseconds(10));
        updateState();
        waiting(eFinishing::eReceiving);
        if (total(m_state.streams).messages != received)
            lastArrival = tSteady::now();
        received = total(m_state.streams).messages;
    }
}

void tRecordSession::write(const std::function<bool(eFinishing step)>& waiting)
{
    const auto deadline = tSteady::now() + std::chrono::minutes(5);
    while (!m_recorder->waitWritten(200))
    {
        updateState();
        if (!waiting(eFinishing::eWriting) || tSteady::now() > deadline || m_state.file.empty())
            return;
    }
}

void tRecordSession::compress(const std::function<bool(eFinishing step)>& waiting)
{
    while (m_recorder->compressing() != 0)
    {
        if (!waiting(eFinishing::eCompressing))
            m_recorder->cancelCompressing();
        std::this_thread::sleep_for(milliseconds(20));
    }
    for (std::string& file : m_files)
        file = nameNow(file);
}
}  // namespace session

#include "sessions/record/recordsession.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "KestovaStorage/datafileconverter.h"
#include "sessions/localaddress.h"
#include "sessions/record/grouprecording.h"
#include "sessions/record/radarrecording.h"

namespace session
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char cSuffix[] = ".data";

std::unique_ptr<iRecording> begin(const tRecordOptions& options)
{
    if (options.groups.empty())
        return std::make_unique<tRadarRecording>(options.radar, options.streams, options.localIp, options.root,
                                                 options.compress);
    const std::uint32_t ip = options.localIp.empty() ? 0 : localAddress(options.localIp);
    return std::make_unique<tGroupRecording>(options.groups, ip, options.root, options.compress);
}

// A file that is gone otherwise, reclaimed for one, keeps its name.
std::string nameNow(const std::string& file)
{
    const std::string compressed = storage::tDataFileConverter::CompressedName(file, cSuffix);
    return !std::filesystem::exists(file) && std::filesystem::exists(compressed) ? compressed : file;
}
}  // namespace

tRecordSession::tRecordSession(const tRecordOptions& options) : m_recording(begin(options))
{
    look();
}

void tRecordSession::look()
{
    m_state = m_recording->state();
    if (!m_state.file.empty() && (m_files.empty() || m_files.back() != m_state.file))
        m_files.push_back(m_state.file);
}

void tRecordSession::finish(const std::function<bool(eFinishing step)>& waiting)
{
    drain(waiting);
    m_recording->closeSockets();
    write(waiting);
    look();
    m_recording->closeFile();
    const auto discarded = m_state.discarded;  // closed sockets count no more
    look();
    m_state.discarded = discarded;
    compress(waiting);
}

// Ends after a second even if the radar goes on sending.
void tRecordSession::drain(const std::function<bool(eFinishing step)>& waiting)
{
    constexpr milliseconds quiet{150};
    const auto deadline = tSteady::now() + milliseconds(1000);
    auto lastHeard = tSteady::now();
    std::uint64_t heard = total(m_state.streams).messages;
    while (tSteady::now() < deadline && tSteady::now() - lastHeard < quiet)
    {
        std::this_thread::sleep_for(milliseconds(10));
        look();
        waiting(eFinishing::eReceiving);
        if (total(m_state.streams).messages != heard)
            lastHeard = tSteady::now();
        heard = total(m_state.streams).messages;
    }
}

void tRecordSession::write(const std::function<bool(eFinishing step)>& waiting)
{
    const auto deadline = tSteady::now() + std::chrono::minutes(5);
    while (!m_recording->waitWritten(200))
    {
        look();
        if (!waiting(eFinishing::eWriting) || tSteady::now() > deadline || m_state.file.empty())
            return;
    }
}

void tRecordSession::compress(const std::function<bool(eFinishing step)>& waiting)
{
    while (m_recording->compressing() != 0)
    {
        if (!waiting(eFinishing::eCompressing))
            m_recording->giveUpCompressing();
        std::this_thread::sleep_for(milliseconds(20));
    }
    for (std::string& file : m_files)
        file = nameNow(file);
}
}  // namespace session

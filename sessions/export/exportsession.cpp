#include "sessions/export/exportsession.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/frames.h"
#include "KestovaStorage/datafile.h"
#include "UdpSocket/udpsocket.h"

namespace session
{
using namespace recordings;

namespace
{
// A jump beyond the end plays everything in order of time, without waits.
constexpr double cWithoutWaiting = 2.0;
}  // namespace

tExportSession::tExportSession(const tExportOptions& options)
    : m_options(options), m_files(findRecordings(options.path, options.suffix)),
      m_progress([this](const tReplayState&) {
          m_progress.beginJump();
          m_storage.Jump(cWithoutWaiting);
      }),
      m_storage("", options.suffix.c_str())
{
    if (std::filesystem::exists(options.capture))
        throw tFailure(options.capture + " exists already: remove it, or choose another name");
    m_writer = std::make_unique<tCaptureWriter>(options.capture);
}

void tExportSession::run(const std::function<bool()>& goOn)
{
    m_storage.OpenReadDataFileorFolder(m_options.path, this);
    bool cancelled = false;
    while (!m_progress.state().ended && !cancelled && failure().empty())
    {
        cancelled = !goOn();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    m_storage.CloseReadingFile();
    if (!failure().empty())
        throw tFailure(failure());
    if (cancelled)
        throw tFailure("interrupted; " + m_options.capture + " was not written");
    m_writer->finish();
}

void tExportSession::UpdateReplayData(std::uint64_t timeMs, double fraction, const char* data, unsigned int len,
                                      std::string)
try
{
    m_progress.passed(timeMs, fraction);
    const auto package = viewPackage({data, len});
    if (!package || package->ip == 0 || package->port == 0 || package->payload.size() > cMaxDatagram)
        ++m_noDatagram;
    else if (m_options.streams.includes(package->info.rwType))
        write(timeMs, *package);
}
catch (const tFailure& failure)
{
    const std::lock_guard lock(m_mutex);
    if (m_failure.empty())
        m_failure = failure.what();
}

void tExportSession::write(std::uint64_t timeMs, const tPackageContents& package)
{
    const NetAddress to{package.ip, net::HtoNs(package.port)};
    for (const std::string& frame : framesOf(m_options.source, to, package.payload, m_id++))
    {
        m_writer->add(timeMs, frame);
        ++m_frames;
    }
    m_progress.count(tStreamKey::of(package.info.rwType, package.ip, package.port), package.payload);
}

std::string tExportSession::failure() const
{
    const std::lock_guard lock(m_mutex);
    return m_failure;
}

std::uint64_t tExportSession::countDamaged() const
{
    std::uint64_t damaged = m_storage.GetUnreadCnt();
    for (const std::string& path : m_files)
    {
        storage::tDataFile file;
        damaged += file.open(path) ? file.damagedCount() : 0;
    }
    return damaged;
}
}  // namespace session

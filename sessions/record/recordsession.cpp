#include "sessions/record/recordsession.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/packageview.h"
#include "KestovaStorage/servicegroups.h"
#include "UdpSocket/udpsocket.h"
#include "sessions/localaddress.h"
#include "sessions/record/grouprecorder.h"
#include "sessions/record/radarrecorder.h"
#include "sessions/record/sheetfacts.h"

namespace session
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char cSuffix[] = ".data";

std::unique_ptr<iRecorder> createRecorder(const tRecordOptions& options, storage::iWriteObserver& written)
{
    if (options.groups.empty())
        return std::make_unique<tRadarRecorder>(options.radar, options.streams, options.localIp, options.root,
                                                options.compress, written);
    return std::make_unique<tGroupRecorder>(options.groups, options.localIp, options.root, options.compress, written);
}

// Returns each interface once.
std::vector<tInterface> interfacesOf(const tRecordOptions& options)
{
    std::vector<tInterface> interfaces;
    for (const NetAddress& group : options.groups)
    {
        const std::uint32_t ip = options.localIp.empty() ? net::routeAddress(group) : localAddress(options.localIp);
        const auto known = [ip](const tInterface& one) { return one.ip == ip; };
        if (std::none_of(interfaces.begin(), interfaces.end(), known))
            interfaces.push_back(interfaceWith(ip));
    }
    return interfaces;
}

bool isShared(const tStreamKey& key)
{
    return std::any_of(std::begin(cServiceGroups), std::end(cServiceGroups), [&](const tServiceGroup& group) {
        return key == tStreamKey::of(group.msgInfo.rwType, net::transAddr(group.group), group.port);
    });
}

// A file that is gone otherwise, reclaimed for one, keeps its name.
std::string nameNow(const std::string& file)
{
    const std::string compressed = storage::tDataFileConverter::CompressedName(file, cSuffix);
    return !std::filesystem::exists(file) && std::filesystem::exists(compressed) ? compressed : file;
}
}  // namespace

std::uint64_t bytesInFile(const tStreamCount& datagrams)
{
    return datagrams.bytes + datagrams.messages * (cPackageOverhead + storage::cIndexSlotSize);
}

tRecordSession::tRecordSession(const tRecordOptions& options, iRecordObserver& observer)
    : m_options(options), m_observer(observer), m_reclaimLog(options.reclaim), m_sheets(sheetFacts(options)),
      m_recorder(createRecorder(options, m_sheets)), m_silenceWatch(tSteady::now()),
      m_ring(options.root, options.limits)
{
    m_state = m_recorder->state();
    m_files.push_back(m_state.file);
    m_ring.setFile(m_state.file);
    m_addressReports = m_state.addressReports;
    m_interfaces = options.groups.empty() ? std::vector{interfaceWith(m_state.localIp)} : interfacesOf(options);
    m_sheets.describe(listed(m_interfaces));
    m_sheets.update(m_state);
    m_sheets.start();
}

void tRecordSession::updateState()
{
    m_state = m_recorder->state();
    m_sheets.update(m_state);
    notifyFile();
    notifyAddress();
    for (const tSilence& silence : m_silenceWatch.update(chosenStreams(), tSteady::now()))
        m_observer.onSilence(silence);
    notifyDisk();
    notifyReclaimed();
    notifySheets();
}

tStreamCounts tRecordSession::chosenStreams() const
{
    tStreamCounts chosen = m_state.streams;
    if (m_options.groups.empty())
        std::erase_if(chosen, [](const auto& row) { return isShared(row.first); });
    return chosen;
}

std::vector<tStreamKey> tRecordSession::silent() const
{
    std::vector<tStreamKey> keys;
    for (const auto& [key, count] : chosenStreams())
    {
        if (count.messages == 0)
            keys.push_back(key);
    }
    return keys;
}

void tRecordSession::notifyFile()
{
    if (m_state.file.empty() || m_files.back() == m_state.file)
        return;
    m_files.push_back(m_state.file);
    m_ring.setFile(m_state.file);
    m_observer.onNextFile(m_state.file);
}

void tRecordSession::notifyAddress()
{
    if (m_addressReports == m_state.addressReports)
        return;
    m_addressReports = m_state.addressReports;
    m_interfaces = {interfaceWith(m_state.localIp)};
    m_sheets.describe(listed(m_interfaces));
    m_observer.onAddress(m_interfaces[0], m_state.notJoined);
}

void tRecordSession::notifyDisk()
{
    std::error_code error;
    const auto space = std::filesystem::space(m_options.root, error);
    if (error)
        return;
    m_freeBytes = space.available;
    const std::uint64_t recorded = bytesInFile(total(m_state.streams));
    if (const auto left = m_diskWatch.update(m_freeBytes, recorded, tSteady::now()))
        m_observer.onDiskLeft(*left);
}

void tRecordSession::notifyReclaimed()
{
    std::vector<tReclaimed> files = m_reclaimLog.files();
    files.erase(files.begin(), files.begin() + static_cast<std::ptrdiff_t>(m_reclaimedFiles));
    m_reclaimedFiles += files.size();
    for (const recordings::tPruned& one : m_ring.take())
        files.push_back({one.path, one.bytes, causeName(one.cause)});
    for (tReclaimed& file : files)
    {
        m_observer.onReclaimed(file);
        m_reclaimed.push_back(std::move(file));
    }
}

void tRecordSession::notifySheets()
{
    if (const std::string problem = m_sheets.takeProblem(); !problem.empty())
        m_observer.onSheetProblem(problem);
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
    m_sheets.finish();
    notifySheets();
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
    notifyReclaimed();
    for (std::string& file : m_files)
        file = nameNow(file);
}
}  // namespace session

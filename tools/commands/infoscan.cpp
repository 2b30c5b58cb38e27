#include "tools/commands/infoscan.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

#include "KestovaRecordings/archive.h"
#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packageview.h"
#include "tools/shell/console.h"

namespace tool
{
using namespace recordings;

tScan::tScan(std::uint64_t gapMs, bool withDigest, tConsole& console)
    : m_gapMs(gapMs), m_withDigest(withDigest), m_console(console)
{}

bool tScan::run(const std::string& path, const std::string& suffix)
{
    const auto paths = findRecordings(path, suffix);
    for (std::size_t i = 0; i < paths.size() && !m_stop.requested(); ++i)
    {
        m_position = fmt::format("{} of {} files", i + 1, paths.size());
        enter(std::filesystem::path(paths[i]).parent_path().string());
        add(look(paths[i]));
    }
    if (m_files.size() == 1 && !m_files[0].error.empty() && paths.size() == 1)
        throw tFailure(m_files[0].error);
    return !m_stop.requested();
}

// The time between two recordings is no gap.
void tScan::enter(const std::string& folder)
{
    if (folder == m_folder)
        return;
    for (auto& [key, stream] : m_totals.streams)
        stream.interrupt();
    m_folder = folder;
}

tFileInfo tScan::look(const std::string& path)
{
    tFileInfo info;
    info.path = path;
    storage::tDataFile file;
    if (!file.open(path, &info.error))
        return info;
    info.error.clear();
    info.kind = file.kind();
    info.finished = file.finished();
    info.size = file.size();
    info.records = file.recordCount();
    info.bytes = file.payloadBytes();
    info.damaged = file.damagedCount();
    info.readable = info.records == 0 || isReadable(file) || !file.isCompressed();
    for (std::size_t i = 0; i < file.recordCount() && !m_stop.requested(); ++i)
        lookAt(file, i, info);
    return info;
}

void tScan::lookAt(storage::tDataFile& file, std::size_t i, tFileInfo& info)
{
    const std::uint64_t timeMs = file.record(i).timeMs;
    info.firstMs = info.firstMs == 0 ? timeMs : std::min(info.firstMs, timeMs);
    info.lastMs = std::max(info.lastMs, timeMs);
    if (!info.readable)
        return;
    if (!file.read(i, m_segment))
    {
        ++info.damaged;
        return;
    }
    const auto package = viewPackage(m_segment);
    const tStreamKey key =
        package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
    const std::string_view message = package ? package->payload : std::string_view(m_segment);
    info.streams[key].add(timeMs, message, m_gapMs, m_withDigest);
    m_totals.streams[key].add(timeMs, message, m_gapMs, m_withDigest);
    if (i % 1024 == 0 && m_console.progressDue())
        m_console.progress(fmt::format("{}: {} of {} records", m_position, i, info.records));
}

void tScan::add(tFileInfo info)
{
    m_totals.skipped += info.error.empty() ? 0 : 1;
    m_totals.size += info.size;
    m_totals.records += info.records;
    m_totals.bytes += info.bytes;
    m_totals.damaged += info.damaged;
    if (info.records > 0)
        m_totals.firstMs = m_totals.firstMs == 0 ? info.firstMs : std::min(m_totals.firstMs, info.firstMs);
    m_totals.lastMs = std::max(m_totals.lastMs, info.lastMs);
    m_files.push_back(std::move(info));
}
}  // namespace tool

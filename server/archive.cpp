#include "server/archive.h"

#include <algorithm>
#include <filesystem>

#include "KestovaRecordings/streamcounts.h"
#include "server/answers.h"

namespace server
{
using namespace recordings;

namespace
{
using tSteady = std::chrono::steady_clock;

constexpr std::chrono::seconds cValid{1};
constexpr int cCostFactor = 20;  // what looking took, so that a large archive is not looked at all the time

[[noreturn]] void refuse()
{
    throw tRefusal(404, "no_recording", "there is no such recording");
}
}  // namespace

std::string tArchive::idOf(const std::string& folder)
{
    std::string path = std::filesystem::absolute(folder).lexically_normal().string();
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    tDigest digest;
    digest.add(path);
    return digest.text();
}

tArchiveList tArchive::list()
{
    const std::lock_guard lock(m_mutex);
    const auto begun = tSteady::now();
    if (m_list && begun < m_validUntil)
        return m_list;
    auto found = std::make_shared<std::vector<tArchived>>();
    for (tListedRecording& one : listRecordings(m_roots).recordings)
        found->push_back({idOf(one.path), std::move(one)});
    m_list = std::move(found);
    const auto now = tSteady::now();
    m_validUntil = now + std::max<tSteady::duration>(cValid, cCostFactor * (now - begun));
    return m_list;
}

void tArchive::forget()
{
    const std::lock_guard lock(m_mutex);
    m_validUntil = {};
}

std::string tArchive::folderOf(const std::string& id)
{
    for (int tries = 0; tries < 2; ++tries)
    {
        for (const tArchived& one : *list())
            if (one.id == id && std::filesystem::is_directory(one.recording.path))
                return one.recording.path;
        forget();
    }
    refuse();
}

tArchived tArchive::find(const std::string& id)
{
    const std::string folder = folderOf(id);
    for (tListedRecording& one : listRecordings({folder}).recordings)
        if (idOf(one.path) == id)
            return {id, std::move(one)};
    refuse();
}
}  // namespace server

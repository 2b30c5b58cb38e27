// tArchive: the recordings below the roots, and the names by which pages know them.
#ifndef KESTOVA_SERVER_ARCHIVE_H
#define KESTOVA_SERVER_ARCHIVE_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "KestovaRecordings/recordinglist.h"

namespace server
{
struct tArchived
{
    std::string id;  // 16 hexadecimal digits, of the folder's path
    recordings::tListedRecording recording;
};
using tArchiveList = std::shared_ptr<const std::vector<tArchived>>;

// Any thread.
class tArchive
{
public:
    explicit tArchive(const std::vector<std::string>& roots) : m_roots(roots) {}

    // Returns all recordings, the newest first, as they were a moment ago: a second, or longer where looking takes
    // long.
    tArchiveList list();
    // Returns the folder of a recording. Throws tRefusal (404) if there is none of that name.
    std::string folderOf(const std::string& id);
    // Returns a recording as it is now. Throws tRefusal (404).
    tArchived find(const std::string& id);
    void forget();  // the next look is a new one

    const std::vector<std::string>& roots() const { return m_roots; }
    static std::string idOf(const std::string& folder);

private:
    const std::vector<std::string> m_roots;
    std::mutex m_mutex;
    tArchiveList m_list;                                   // guarded by m_mutex
    std::chrono::steady_clock::time_point m_validUntil{};  // guarded by m_mutex
};
}  // namespace server

#endif

#include "KestovaRecordings/livecursor.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <set>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafiletail.h"

namespace recordings
{
namespace
{
using namespace std::chrono_literals;
using tSteady = std::chrono::steady_clock;

constexpr auto cLook = 50ms;        // how often the lock and the folder are looked at
constexpr auto cPatience = 1000ms;  // without a living writer

std::string folderOf(const std::string& file)
{
    return file.substr(0, file.rfind('/') + 1);
}

// A plain file and its compressed form have one key, in whose order files follow each other.
std::string keyOf(const std::string& file)
{
    return storage::sheetName(file);
}

// Returns the data files in the folder of a file.
std::vector<std::string> listed(const std::string& file, const std::string& suffix)
{
    const std::string folder = folderOf(file);
    std::vector<std::string> files;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, ignored))
    {
        const std::string name = entry.path().filename().native();
        if (name.ends_with(suffix) && !name.starts_with('.'))
            files.push_back(folder + name);
    }
    return files;
}

std::string fileToFollow(const std::vector<std::string>& files)
{
    std::set<std::string> folders;
    std::string living;
    for (const std::string& file : files)
    {
        if (!storage::isBeingWritten(file))
            continue;
        folders.insert(folderOf(file));
        living = file;
    }
    if (folders.size() > 1)
        throw tFailure("several recordings are under way, follow one of them: " + *folders.begin() + " or " +
                       *folders.rbegin());
    if (!living.empty())
        return living;
    if (files.empty())
        throw tFailure("there is no recording to follow");
    return files.back();
}
}  // namespace

class KESTOVA_HIDDEN tLiveCursor::tPrivate
{
public:
    tPrivate(const std::vector<std::string>& files, std::string suffix)
        : m_followed(fileToFollow(files)), m_suffix(std::move(suffix)), m_file(m_followed)
    {
        open(m_followed, 0);
    }

    void begin(std::size_t slot);
    bool next(tLiveRecord& record);
    bool over();
    std::uint64_t damaged() const { return m_damaged + m_tail.damaged(); }
    const std::string& file() const { return m_file; }

private:
    bool open(const std::string& file, std::size_t slot);
    bool openForm(const std::string& key, std::size_t slot);
    bool take(tLiveRecord& record);
    bool goOn();

    const std::string m_followed;
    const std::string m_suffix;
    std::string m_file;
    storage::tDataFileTail m_tail;
    std::uint64_t m_damaged = 0;                        // in earlier files
    tSteady::time_point m_nextListing{}, m_nextLook{};  // at the folder, at the lock
    bool m_over = false;
    std::optional<tSteady::time_point> m_abandoned;  // since when no living writer was seen
};

bool tLiveCursor::tPrivate::open(const std::string& file, std::size_t slot)
{
    const std::uint64_t damaged = m_tail.damaged();
    if (!m_tail.open(file, slot))
        return false;
    m_damaged += damaged;
    m_file = file;
    return true;
}

// Opens whichever form of the file is there.
bool tLiveCursor::tPrivate::openForm(const std::string& key, std::size_t slot)
{
    for (const std::string& path : listed(key, m_suffix))
        if (keyOf(path) == key && open(path, slot))
            return true;
    return false;
}

void tLiveCursor::tPrivate::begin(std::size_t slot)
{
    m_over = false;
    m_abandoned.reset();
    m_nextListing = m_nextLook = {};
    if (m_file == m_followed && m_tail.path() == m_followed)
        return m_tail.seek(slot);
    if (!open(m_followed, slot))
        openForm(keyOf(m_followed), slot);
}

bool tLiveCursor::tPrivate::next(tLiveRecord& record)
{
    do
    {
        if (take(record))
            return true;
        // What was written between the last look and the end of the file.
        if (m_tail.finished() && take(record))
            return true;
    } while (m_tail.finished() && goOn());
    return false;
}

bool tLiveCursor::tPrivate::take(tLiveRecord& record)
{
    storage::tTailRecord found{};
    if (!m_tail.next(found))
        return false;
    record = {found.timeMs, found.us, found.bytes, found.len};
    m_abandoned.reset();
    return true;
}

// Opens the next file; returns false while there is none.
bool tLiveCursor::tPrivate::goOn()
{
    if (tSteady::now() < m_nextListing)
        return false;
    m_nextListing = tSteady::now() + cLook;
    std::set<std::string> later;
    for (const std::string& path : listed(m_file, m_suffix))
        if (keyOf(path) > keyOf(m_file))
            later.insert(keyOf(path));
    if (later.empty() || !openForm(*later.begin(), 0))
        return false;
    m_nextListing = {};
    return true;
}

bool tLiveCursor::tPrivate::over()
{
    if (m_over)
        return true;
    const auto now = tSteady::now();
    if (now < m_nextLook)
        return false;
    m_nextLook = now + cLook;
    if (storage::isBeingWritten(m_file))
    {
        m_abandoned.reset();
        return false;
    }
    m_abandoned = m_abandoned.value_or(now);
    m_over = now - *m_abandoned > cPatience;
    return m_over;
}

tLiveCursor::tLiveCursor(const std::vector<std::string>& files, const std::string& suffix)
    : d(std::make_unique<tPrivate>(files, suffix))
{}

tLiveCursor::~tLiveCursor() = default;

const std::string& tLiveCursor::file() const
{
    return d->file();
}

void tLiveCursor::begin(std::size_t slot)
{
    d->begin(slot);
}

bool tLiveCursor::next(tLiveRecord& record)
{
    return d->next(record);
}

bool tLiveCursor::over()
{
    return d->over();
}

std::uint64_t tLiveCursor::damaged() const
{
    return d->damaged();
}
}  // namespace recordings

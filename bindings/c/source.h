// tSource: what was opened: data files with their spans, or a live group, and what is known of its spokes.
//
// Threads  stop and cancelled() any; everything else one at a time.
#ifndef KESTOVA_C_SOURCE_H
#define KESTOVA_C_SOURCE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/radarmsgpackage.h"
#include "KestovaUtils/spokelayout.h"
#include "UdpSocket/netaddress.h"

namespace binding
{
constexpr char cSuffix[] = ".data";

// Ends calls that wait. Handles of one recording share it, and outlive that.
class tStop
{
public:
    void request()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_requested = true;
        m_changed.notify_all();
    }
    bool requested() const { return m_requested; }

    // What waits for data waits here, so that a request wakes it.
    std::mutex m_mutex;
    std::condition_variable m_changed;

private:
    std::atomic<bool> m_requested{false};
};

using tGroup = std::pair<std::uint32_t, std::uint16_t>;  // address as net::transAddr returns it, and port

struct tSpan
{
    std::int64_t startMs, endMs;  // the end is excluded
    bool includes(std::uint64_t ms) const
    {
        return static_cast<std::int64_t>(ms) >= startMs && static_cast<std::int64_t>(ms) < endMs;
    }
};

class tSource
{
public:
    // As kestova_open() says. Throws tError.
    tSource(const std::string& source, const char* options);

    const std::string& path() const { return m_path; }
    bool isLive() const { return m_live.has_value(); }
    std::uint64_t firstMs() const { return m_firstMs; }  // of all files; 0 without records
    std::uint64_t lastMs() const { return m_lastMs; }
    // Returns the files that may have records of the span in order of time: those that overlap one another together.
    std::vector<std::vector<std::string>> filesIn(const tSpan& span) const;

    struct tLive
    {
        NetAddress group;
        std::uint32_t localIp;
        tUdpMsgInfo info;  // of the packages that a recorder would make
    };
    const tLive& live() const { return *m_live; }

    // Returns the layouts of the options or of the sheets. Throws tError (NO_SPOKES) if there is none.
    const std::vector<utils::tSpokeLayout>& layouts();
    // Returns the groups of a radar by "SERIAL/ID" of a sheet, or the group that the text is. Throws tError.
    std::set<tGroup> groupsOf(const std::string& radar) const;

    const std::shared_ptr<tStop> stop = std::make_shared<tStop>();

private:
    struct tFile
    {
        std::string path;
        std::uint64_t firstMs, lastMs;
    };
    struct tOptions;

    void openFiles();
    void openGroup(const std::string& group, const tOptions& options);
    void readDirectory(const std::string& path);
    void readSheets();

    const std::string m_path;
    std::vector<tFile> m_files;
    std::uint64_t m_firstMs = 0, m_lastMs = 0;
    std::optional<tLive> m_live;
    std::vector<std::string> m_layoutTexts;  // of the options
    std::optional<std::vector<utils::tSpokeLayout>> m_layouts;
};
}  // namespace binding

// What the opaque handle holds: iterators share the source.
struct kestova_recording
{
    std::shared_ptr<binding::tSource> source;
};

#endif

// tControlApi: what pages may change: recordings start, end, are noted and kept.
#ifndef KESTOVA_SERVER_CONTROLAPI_H
#define KESTOVA_SERVER_CONTROLAPI_H

#include <mutex>
#include <string>

#include "server/archive.h"
#include "server/options.h"
#include "server/radars.h"
#include "server/routes.h"

namespace server
{
// Returns how many bytes a second recordings under way below a root take; 0 if there are none.
double writtenPerSecond(const tArchiveList& list, const std::string& root);
std::uint64_t freeBytes(const std::string& root);

// Any thread.
class tControlApi
{
public:
    tControlApi(const tServeOptions& options, tArchive& archive, tRadars& radars)
        : m_options(options), m_archive(archive), m_radars(radars)
    {}
    void addTo(tRoutes& routes);

private:
    void requireAllowed() const;
    tHttpAnswer record(const tCall& call);
    tHttpAnswer stop(const tCall& call);
    tHttpAnswer note(const tCall& call);
    tHttpAnswer keep(const tCall& call);
    tHttpAnswer rowOf(const std::string& id);
    void requireRoom(const tRadarName& radar);
    std::vector<std::string> commandLine(const tRadarName& radar, const tHttpRequest& request) const;

    const tServeOptions& m_options;
    tArchive& m_archive;
    tRadars& m_radars;
    std::mutex m_mutex;  // one recording starts at a time, so that none starts twice
};
}  // namespace server

#endif

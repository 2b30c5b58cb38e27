// tRadars: the radars of the directory, and which of them are being recorded.
#ifndef KESTOVA_SERVER_RADARS_H
#define KESTOVA_SERVER_RADARS_H

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "KestovaUtils/multiradarclient.h"
#include "server/archive.h"
#include "server/options.h"
#include "server/routes.h"

namespace server
{
// Any thread.
class tRadars
{
public:
    // Reads the directory, if the options name one. Throws recordings::tFailure.
    tRadars(const tServeOptions& options, tArchive& archive);
    void addTo(tRoutes& routes);

    const std::vector<tRadarName>& names() const { return m_names; }
    // Returns the radar of "SERIAL/ID". Throws tRefusal (404).
    tRadarName find(const std::string& radar) const;
    // Returns the recording that is being made of the radar.
    std::optional<tArchived> recordingOf(const tRadarName& radar);
    void hear(const tRadarName& radar, std::uint64_t nowMs);

    static std::string textOf(const tRadarName& radar) { return radar.serial + '/' + std::to_string(radar.id); }

private:
    tHttpAnswer list();

    tArchive& m_archive;
    std::vector<tRadarName> m_names;
    std::mutex m_mutex;
    std::map<std::string, std::uint64_t> m_heardMs;  // guarded by m_mutex
};
}  // namespace server

#endif

// tReplayApi: a recording onto the network: one for all pages.
#ifndef KESTOVA_SERVER_REPLAYAPI_H
#define KESTOVA_SERVER_REPLAYAPI_H

#include <memory>
#include <mutex>
#include <string>

#include "server/answers.h"
#include "server/archive.h"
#include "server/options.h"
#include "server/routes.h"
#include "sessions/replay/replaysession.h"

namespace server
{
// Any thread.
class tReplayApi
{
public:
    tReplayApi(const tServeOptions& options, tArchive& archive) : m_options(options), m_archive(archive) {}
    void addTo(tRoutes& routes);
    void end();

private:
    void requireAllowed() const;
    tHttpAnswer start(const tCall& call);
    tHttpAnswer stop();
    tHttpAnswer show();
    tJson stateJson();  // m_mutex is held

    const tServeOptions& m_options;
    tArchive& m_archive;
    std::mutex m_mutex;
    std::string m_id;                                   // guarded by m_mutex
    std::unique_ptr<session::tReplaySession> m_replay;  // guarded by m_mutex
};
}  // namespace server

#endif

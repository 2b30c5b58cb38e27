// tRecordingsApi: what pages ask of recordings: lists, one, timelines.
#ifndef KESTOVA_SERVER_RECORDINGSAPI_H
#define KESTOVA_SERVER_RECORDINGSAPI_H

#include "server/answers.h"
#include "server/archive.h"
#include "server/filefacts.h"
#include "server/routes.h"

namespace server
{
// Returns a row of `kestova ls` with the id in place of the path.
tJson recordingRow(const tArchived& one);

// Any thread.
class tRecordingsApi
{
public:
    explicit tRecordingsApi(tArchive& archive) : m_archive(archive) {}
    void addTo(tRoutes& routes);
    tFactsCache& facts() { return m_facts; }

private:
    tHttpAnswer list(const tCall& call);
    tHttpAnswer one(const tCall& call);
    tHttpAnswer timeline(const tCall& call);
    tHttpAnswer timelineOf(const tCall& call);
    bool matches(const tArchived& one, const std::string& text);

    tArchive& m_archive;
    tFactsCache m_facts;
};
}  // namespace server

#endif

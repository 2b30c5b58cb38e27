// tViewsApi: a recording at a place: its picture, and its records.
#ifndef KESTOVA_SERVER_VIEWSAPI_H
#define KESTOVA_SERVER_VIEWSAPI_H

#include "server/archive.h"
#include "server/options.h"
#include "server/routes.h"

namespace server
{
// Any thread.
class tViewsApi
{
public:
    tViewsApi(const tServeOptions& options, tArchive& archive) : m_options(options), m_archive(archive) {}
    void addTo(tRoutes& routes);

private:
    tHttpAnswer picture(const tCall& call);
    tHttpAnswer records(const tCall& call);

    const tServeOptions& m_options;
    tArchive& m_archive;
};
}  // namespace server

#endif

// tDownloadsApi: files of recordings, and pieces cut from them.
#ifndef KESTOVA_SERVER_DOWNLOADSAPI_H
#define KESTOVA_SERVER_DOWNLOADSAPI_H

#include <atomic>

#include "server/archive.h"
#include "server/bodies.h"
#include "server/routes.h"

namespace server
{
// Any thread.
class tDownloadsApi
{
public:
    explicit tDownloadsApi(tArchive& archive) : m_archive(archive) {}
    void addTo(tRoutes& routes);
    void cancel() { m_cancelled = true; }  // every cut

private:
    tHttpAnswer file(const tCall& call);
    tHttpAnswer tar(const tCall& call);
    tHttpAnswer pcap(const tCall& call);

    tArchive& m_archive;
    std::atomic<int> m_downloads{0};
    std::atomic<bool> m_cancelled{false};
};
}  // namespace server

#endif

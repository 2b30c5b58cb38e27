// tViewer: one page that looks: what it asks goes to its pictures, what they show to its queue.
#ifndef KESTOVA_SERVER_VIEWER_H
#define KESTOVA_SERVER_VIEWER_H

#include <array>
#include <memory>
#include <mutex>

#include "server/http.h"
#include "server/metrics.h"
#include "server/playback.h"
#include "server/reaper.h"

namespace server
{
class tViewer : public iWebSocketSession, public std::enable_shared_from_this<tViewer>, private iPlaybackSink
{
public:
    // Counts itself among the viewers.
    tViewer(const tPlaybackContext& context, tServeMetrics& metrics, tReaper& reaper,
            std::shared_ptr<iWebSocketPeer> peer);
    ~tViewer() override;

    void onText(std::string_view text) override;
    bool next(tFrame& frame) override { return m_queue.next(frame); }
    void onEnd() override;

private:
    void onBatch(std::size_t picture, const tBatch& batch) override;
    void onMessage(std::string text) override;
    tViewerQueue& queue() override { return m_queue; }

    const tPlaybackContext m_context;
    tServeMetrics& m_metrics;
    tReaper& m_reaper;
    const std::shared_ptr<iWebSocketPeer> m_peer;
    tViewerQueue m_queue;
    void end(std::size_t picture);

    std::array<std::shared_ptr<tPlayback>, cPictures> m_pictures;
};
}  // namespace server

#endif

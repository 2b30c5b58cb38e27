#include "server/viewer.h"

#include <nlohmann/json.hpp>

#include "server/answers.h"

namespace server
{
tViewer::tViewer(const tPlaybackContext& context, tServeMetrics& metrics, tReaper& reaper,
                 std::shared_ptr<iWebSocketPeer> peer)
    : m_context(context), m_metrics(metrics), m_reaper(reaper), m_peer(std::move(peer))
{
    ++m_metrics.viewers;
    m_queue.addText(jsonText({{"type", "hello"}, {"version", KESTOVA_VERSION}, {"api", 1}}));
}

tViewer::~tViewer()
{
    --m_metrics.viewers;
}

void tViewer::onText(std::string_view text)
try
{
    const tViewerMessage message = parseViewerMessage(text);
    if (message.type == tViewerMessage::eClose)
        return end(message.picture);
    std::shared_ptr<tPlayback>& picture = m_pictures[message.picture];
    if (!picture && message.type != tViewerMessage::eOpen)
        throw tRefusal(409, "not_open", "this picture is not open");
    if (!picture)
        picture = std::make_shared<tPlayback>(message.picture, m_context, static_cast<iPlaybackSink&>(*this));
    picture->ask(message);
}
catch (const tRefusal& refusal)
{
    onMessage(jsonText({{"type", "error"}, {"code", refusal.code}, {"message", refusal.what()}}));
}

// A picture may be waiting for a disk.
void tViewer::end(std::size_t picture)
{
    if (!m_pictures[picture])
        return;
    m_reaper.post([self = shared_from_this(), ended = std::move(m_pictures[picture])]() mutable { ended.reset(); });
    m_pictures[picture].reset();
    m_queue.clear(picture);
}

void tViewer::onEnd()
{
    for (std::size_t picture = 0; picture < cPictures; ++picture)
        end(picture);
}

void tViewer::onBatch(std::size_t picture, const tBatch& batch)
{
    m_metrics.thinnedSpokes += m_queue.addBatch(picture, batch);
    m_peer->wake();
}

void tViewer::onMessage(std::string text)
{
    m_queue.addText(std::move(text));
    m_peer->wake();
}
}  // namespace server

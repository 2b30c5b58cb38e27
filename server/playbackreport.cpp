// What a playback says of itself: its state, streams, own ship and targets.
#include <nlohmann/json.hpp>

#include "server/answers.h"
#include "server/playback.h"

namespace server
{
using std::chrono::milliseconds;

namespace
{
std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<milliseconds>(now).count());
}

}  // namespace

void tPlayback::report()
{
    m_reported = tSteady::now();
    sendState();
    const char* const picture = m_picture == 0 ? "a" : "b";
    const auto send = [&](const char* type, tJson&& rows) {
        m_sink.onMessage(jsonText({{"type", type}, {"picture", picture}, {type, std::move(rows)}}));
    };
    if (m_live)
    {
        send("streams", m_live->streams());
        send("own", m_live->own());
        return send("targets", m_live->targets());
    }
    send("streams", m_meter.rows(m_timeMs));
    send("own", ownJson(m_feed->navigation().own()));
    send("targets", targetsJson(m_feed->navigation().targets(m_timeMs)));
}

void tPlayback::sendState()
{
    tJson state = {
        {"type", "state"}, {"picture", m_picture == 0 ? "a" : "b"}, {"source", m_source}, {"epoch", m_epoch}};
    const auto number = [](const auto& value) { return value ? tJson(*value) : tJson(); };
    std::optional<std::uint64_t> missing;
    if (m_live)
    {
        const auto live = m_live->state();
        m_isWhole = live.isWhole;
        m_timeMs = live.lastMs;
        missing = live.missing;
    }
    else
        missing = m_feed->missing();
    const bool isBehind = m_walk && m_walk->isRecording();
    const std::uint64_t now = nowMs();
    state["mode"] = m_live ? "live" : "replay";
    state["id"] = m_id.empty() ? tJson() : tJson(m_id);
    state["radar"] = m_radar.empty() ? tJson() : tJson(m_radar);
    state["playing"] = m_playing;
    state["time_ms"] = m_timeMs;
    state["speed"] = m_speed == 0 ? tJson("max") : tJson(m_speed);
    state["behind_ms"] = m_live ? tJson(0) : isBehind ? tJson(now - std::min(now, m_timeMs)) : tJson();
    state["whole"] = m_isWhole;
    state["thinned_spokes"] = m_sink.queue().thinned(m_picture);
    state["missing_on_wire"] = number(missing);
    if (m_walk)
    {
        state["first_ms"] = m_walk->firstMs();
        state["last_ms"] = m_walk->lastMs();
    }
    m_sink.onMessage(jsonText(state));
}

void tPlayback::sendError(const std::string& code, const std::string& text)
{
    m_sink.onMessage(
        jsonText({{"type", "error"}, {"picture", m_picture == 0 ? "a" : "b"}, {"code", code}, {"message", text}}));
}
}  // namespace server

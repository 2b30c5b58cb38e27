#include "server/replayapi.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "KestovaRecordings/failure.h"

namespace server
{
using namespace recordings;

namespace
{
constexpr std::size_t cMostRules = 64;
constexpr double cSlowest = 0.1, cFastest = 10;

session::tReplayOptions optionsOf(const tJson& body)
{
    session::tReplayOptions options;
    options.net = true;
    if (const auto from = optionalNumberIn(body, "from_ms"))
        options.start = tMoment{tMoment::eAbsolute, static_cast<double>(*from)};
    if (const auto to = optionalNumberIn(body, "to_ms"))
        options.end = tMoment{tMoment::eAbsolute, static_cast<double>(*to)};
    if (body.contains("speed"))
        options.speed = body["speed"].is_number() ? body["speed"].get<double>() : 0;
    if (!(options.speed >= cSlowest && options.speed <= cFastest))
        throw tRefusal(400, "bad_value", "speed is no number from 0.1 to 10");
    const tJson rules = body.contains("map") ? body["map"] : tJson::array();
    if (!rules.is_array() || rules.size() > cMostRules)
        throw tRefusal(400, "bad_value", "map is no list of rules");
    for (const tJson& rule : rules)
    {
        if (!rule.is_string())
            throw tRefusal(400, "bad_value", "a rule of map is no text");
        options.map.add(rule.get<std::string>());
    }
    return options;
}
}  // namespace

void tReplayApi::addTo(tRoutes& routes)
{
    routes.add("GET", "/api/v1/replay", [this](const tCall&) { return show(); });
    routes.add("POST", "/api/v1/replay", [this](const tCall& call) { return start(call); });
    routes.add("POST", "/api/v1/replay/stop", [this](const tCall&) { return stop(); });
}

void tReplayApi::requireAllowed() const
{
    if (!m_options.allowReplay)
        throw tRefusal(403, "not_allowed", "this server sends nothing to the network", "start it with --allow-replay");
}

tHttpAnswer tReplayApi::start(const tCall& call)
try
{
    requireAllowed();
    const tJson body = bodyOf(call.request);
    if (!flagIn(body, "confirm"))
        throw tRefusal(400, "not_confirmed", "displays on the network will show the recording as if it were now",
                       "confirm it");
    session::tReplayOptions options = optionsOf(body);
    options.localIp = m_options.localIp;
    const std::string id = textIn(body, "id");
    options.paths = {m_archive.folderOf(id)};
    const std::lock_guard lock(m_mutex);
    if (m_replay && !m_replay->state().ended)
        throw tRefusal(409, "is_playing", "another recording is being sent", "stop it first");
    m_replay.reset();
    auto replay = std::make_unique<session::tReplaySession>(options);
    const auto lastMs = static_cast<double>(replay->survey().lastMs);
    if (replay->startMs() > lastMs || replay->startMs() < static_cast<double>(replay->survey().firstMs) ||
        (replay->endMs() && *replay->endMs() <= replay->startMs()))
        throw tRefusal(400, "bad_value", "the recording has nothing in that time");
    replay->open();
    m_replay = std::move(replay);
    m_id = id;
    return jsonAnswer(stateJson());
}
catch (const std::invalid_argument& error)
{
    throw tRefusal(400, "bad_value", error.what());
}
catch (const tFailure& failure)
{
    throw tRefusal(409, "not_playing", failure.what());
}

tHttpAnswer tReplayApi::stop()
{
    requireAllowed();
    end();
    return show();
}

void tReplayApi::end()
{
    const std::lock_guard lock(m_mutex);
    m_replay.reset();
}

tHttpAnswer tReplayApi::show()
{
    const std::lock_guard lock(m_mutex);
    return jsonAnswer(stateJson());
}

tJson tReplayApi::stateJson()
{
    if (!m_replay)
        return {{"playing", false}};
    const session::tReplayState state = m_replay->state();
    return {{"playing", !state.ended},
            {"id", m_id},
            {"time_ms", state.clockMs},
            {"from_ms", static_cast<std::uint64_t>(m_replay->startMs())},
            {"to_ms", m_replay->endMs() ? static_cast<std::uint64_t>(*m_replay->endMs()) : m_replay->survey().lastMs},
            {"speed", m_replay->pace().factor()},
            {"sent", m_replay->sent()},
            {"refused", m_replay->refused()}};
}
}  // namespace server

#include "server/server.h"

#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "KestovaRecordings/failure.h"
#include "server/access.h"
#include "server/answers.h"
#include "server/archive.h"
#include "server/controlapi.h"
#include "server/downloadsapi.h"
#include "server/metrics.h"
#include "server/pagefiles.h"
#include "server/radars.h"
#include "server/reaper.h"
#include "server/recordingsapi.h"
#include "server/replayapi.h"
#include "server/routes.h"
#include "server/viewer.h"
#include "server/viewsapi.h"

namespace server
{
using recordings::tFailure;

namespace
{
constexpr char cLivePath[] = "/api/v1/live";

// Throws tFailure for options that make no sense together.
const tServeOptions& checked(const tServeOptions& options)
{
    if (!isLoopback(options.address) && options.token.empty())
        throw tFailure("--listen " + options.address +
                       " is open to others: --token-file FILE, too, or listen on 127.0.0.1");
    for (const std::string& root : options.roots)
        if (!std::filesystem::is_directory(root))
            throw tFailure(root + " is no folder");
    return options;
}

std::uint64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

// Returns what the API calls a root: paths stay on this machine.
std::string nameOf(const std::string& root)
{
    const auto path = std::filesystem::weakly_canonical(root);
    return path.filename().string();
}

const char* codeOf(unsigned status)
{
    switch (status)
    {
    case 408:
        return "too_slow";
    case 413:
        return "body_too_long";
    case 431:
        return "head_too_long";
    case 503:
        return "too_many_connections";
    default:
        return "bad_request";
    }
}
}  // namespace

class tServer::tPrivate : public iHttpHandler
{
public:
    tPrivate(const tServeOptions& options, const tHttpLimits& limits)
        : m_options(checked(options)), m_archive(options.roots), m_radars(m_options, m_archive),
          m_recordings(m_archive), m_downloads(m_archive), m_views(m_options, m_archive),
          m_control(m_options, m_archive, m_radars), m_replay(m_options, m_archive), m_hub(m_options, m_radars),
          m_http(options.address, options.port, *this, limits), m_access(options, m_http.port())
    {
        addRoutes();
        m_http.start();
    }
    ~tPrivate() override { stop(std::chrono::hours(1)); }
    tPrivate(const tPrivate&) = delete;
    tPrivate& operator=(const tPrivate&) = delete;

    std::string url() const
    {
        const bool isV6 = m_options.address.find(':') != std::string::npos;
        return "http://" + (isV6 ? '[' + m_options.address + ']' : m_options.address) + ':' +
               std::to_string(m_http.port()) + '/';
    }

    bool stop(std::chrono::milliseconds atMost)
    {
        m_downloads.cancel();
        const bool isIdle = m_http.stop(atMost);
        if (isIdle)
            m_replay.end();
        return isIdle;
    }

    tHttpAnswer answer(const tHttpRequest& request) override
    {
        tHttpAnswer answer = guarded([&] { return respond(request); });
        addCommonHeaders(answer.headers);
        return answer;
    }

    tUpgrade upgrade(const tHttpRequest& request, std::shared_ptr<iWebSocketPeer> peer) override
    {
        tUpgrade granted;
        granted.refusal = guarded([&]() -> tHttpAnswer {
            m_access.checkSender(request);
            const auto target = parseTarget(request.target);
            if (!target || target->path != cLivePath)
                throw tRefusal(404, "not_found", "there is no WebSocket at this address");
            granted.subprotocol = m_access.checkUpgrade(request);
            if (m_metrics.viewers >= m_options.maxViewers)
                throw tRefusal(503, "too_many_viewers", "as many pages look as may", "close another one");
            granted.session =
                std::make_shared<tViewer>(tPlaybackContext{m_options, m_archive, m_radars, m_hub, m_recordings.facts()},
                                          m_metrics, m_reaper, std::move(peer));
            return {};
        });
        addCommonHeaders(granted.refusal.headers);
        return granted;
    }

    tHttpAnswer refuse(unsigned status) override
    {
        tHttpAnswer answer =
            guarded([status]() -> tHttpAnswer { throw tRefusal(status, codeOf(status), "the request was refused"); });
        addCommonHeaders(answer.headers);
        return answer;
    }

private:
    template <typename tWork>
    tHttpAnswer guarded(tWork work)
    try
    {
        return work();
    }
    catch (const tRefusal& refusal)
    {
        m_metrics.countRefused(refusal.code);
        return answerOf(refusal);
    }
    catch (const std::exception& error)
    {
        return answerOf(tRefusal(500, "failed", error.what()));
    }

    tHttpAnswer respond(const tHttpRequest& request)
    {
        m_access.checkSender(request);
        const auto target = parseTarget(request.target);
        if (!target)
            throw tRefusal(400, "bad_target", "this is no address of this server");
        const bool isOurs =
            !target->segments.empty() && (target->segments[0] == "api" || target->segments[0] == "metrics");
        if (!isOurs)
            return page(request, *target);
        m_access.checkToken(request, target->text("ticket"));
        return m_routes.answer(request, *target);
    }

    tHttpAnswer page(const tHttpRequest& request, const tTarget& target) const
    {
        auto answer = pageAnswer(m_options.pageFolder, target.segments);
        if (!answer)
            throw tRefusal(404, "not_found", "there is nothing at this address");
        if (request.method != "GET")
            throw tRefusal(405, "wrong_method", "a file is read with GET");
        return std::move(*answer);
    }

    void addRoutes()
    {
        m_routes.add("GET", "/api/v1/server", [this](const tCall&) { return jsonAnswer(about()); });
        m_routes.add("GET", cLivePath, [](const tCall&) -> tHttpAnswer {
            throw tRefusal(426, "no_upgrade", "this address is a WebSocket");
        });
        m_routes.add("GET", "/metrics", [this](const tCall&) { return metrics(); });
        m_routes.add("POST", "/api/v1/tickets", [this](const tCall& call) { return ticket(call); });
        m_radars.addTo(m_routes);
        m_recordings.addTo(m_routes);
        m_downloads.addTo(m_routes);
        m_views.addTo(m_routes);
        m_control.addTo(m_routes);
        m_replay.addTo(m_routes);
    }

    tJson about()
    {
        const tArchiveList list = m_archive.list();
        tJson roots = tJson::array();
        for (const std::string& root : m_options.roots)
        {
            const std::uint64_t free = freeBytes(root);
            const double rate = writtenPerSecond(list, root);
            roots.push_back({{"name", nameOf(root)},
                             {"free_bytes", free},
                             {"hours_left", rate > 0 ? tJson(static_cast<double>(free) / rate / 3600) : tJson()}});
        }
        return {{"schema", "kestova/serve/1"},
                {"version", KESTOVA_VERSION},
                {"api", 1},
                {"time_ms", nowMs()},
                {"allow", {{"record", m_options.allowRecord}, {"replay", m_options.allowReplay}}},
                {"roots", std::move(roots)},
                {"viewers", m_metrics.viewers.load()}};
    }

    tHttpAnswer metrics() const
    {
        std::vector<std::pair<std::string, std::uint64_t>> free;
        for (const std::string& root : m_options.roots)
            free.emplace_back(nameOf(root), freeBytes(root));
        tHttpAnswer answer;
        answer.headers = {{"Content-Type", "text/plain; version=0.0.4; charset=utf-8"}, {"Cache-Control", "no-store"}};
        answer.body = m_metrics.text(free);
        return answer;
    }

    tHttpAnswer ticket(const tCall& call)
    {
        const tJson body = bodyOf(call.request);
        const std::string path = textIn(body, "path");
        if (!parseTarget(path))
            throw tRefusal(400, "bad_value", "path is no address of this server");
        const std::string issued = m_access.tickets().issue(path, std::chrono::steady_clock::now());
        if (issued.empty())
            throw tRefusal(503, "too_many", "too many tickets are out", "try again in 30 s");
        return jsonAnswer({{"ticket", issued}});
    }

    const tServeOptions m_options;
    tServeMetrics m_metrics;
    tRoutes m_routes;
    tArchive m_archive;
    tRadars m_radars;
    tRecordingsApi m_recordings;
    tDownloadsApi m_downloads;
    tViewsApi m_views;
    tControlApi m_control;
    tReplayApi m_replay;
    tLiveHub m_hub;
    tHttpServer m_http;
    tAccess m_access;
    tReaper m_reaper;  // before m_http goes, which what it ends still wakes
};

tServer::tServer(const tServeOptions& options, const tHttpLimits& limits)
    : d(std::make_unique<tPrivate>(options, limits))
{}

tServer::~tServer() = default;

std::string tServer::url() const
{
    return d->url();
}

bool tServer::stop(std::chrono::milliseconds atMost)
{
    return d->stop(atMost);
}
}  // namespace server

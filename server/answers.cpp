#include "server/answers.h"

#include <nlohmann/json.hpp>

namespace server
{
namespace
{
constexpr int cDeepest = 16;
constexpr double cMostExact = 9007199254740992.0;

tRefusal badValue(const char* key, const char* what)
{
    return tRefusal(400, "bad_value", std::string(key) + " is " + what);
}
}  // namespace

std::string jsonText(const tJson& json)
{
    return json.dump(-1, ' ', false, tJson::error_handler_t::replace);
}

tHttpAnswer jsonAnswer(const tJson& json, unsigned status)
{
    tHttpAnswer answer;
    answer.status = status;
    answer.headers = {{"Content-Type", "application/json"}, {"Cache-Control", "no-store"}};
    answer.body = jsonText(json);
    return answer;
}

tHttpAnswer answerOf(const tRefusal& refusal)
{
    tHttpAnswer answer = jsonAnswer(
        {{"error", {{"code", refusal.code}, {"message", refusal.what()}, {"hint", refusal.hint}}}}, refusal.status);
    if (refusal.status == 401)
        answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    if (refusal.status == 405)
        answer.headers.emplace_back("Allow", "GET, POST");
    return answer;
}

tJson bodyOf(const tHttpRequest& request)
{
    return jsonIn(request.body);
}

tJson jsonIn(std::string_view text)
{
    bool isDeep = false;
    const auto shallow = [&](int depth, tJson::parse_event_t, tJson&) { return !(isDeep |= depth > cDeepest); };
    tJson body = tJson::parse(text, shallow, false);
    if (isDeep || !body.is_object())
        throw tRefusal(400, "bad_body", "this is no JSON object");
    return body;
}

std::string textIn(const tJson& body, const char* key)
{
    const auto found = body.find(key);
    if (found == body.end() || !found->is_string())
        throw badValue(key, "no text");
    return found->get<std::string>();
}

std::optional<std::uint64_t> optionalNumberIn(const tJson& body, const char* key)
{
    const auto found = body.find(key);
    if (found == body.end() || found->is_null())
        return std::nullopt;
    const double value = found->is_number() ? found->get<double>() : -1;
    if (!(value >= 0 && value <= cMostExact))
        throw badValue(key, "no number from 0 on");
    return static_cast<std::uint64_t>(value);
}

std::uint64_t numberIn(const tJson& body, const char* key)
{
    const auto value = optionalNumberIn(body, key);
    if (!value)
        throw badValue(key, "missing");
    return *value;
}

bool flagIn(const tJson& body, const char* key)
{
    const auto found = body.find(key);
    if (found == body.end() || !found->is_boolean())
        throw badValue(key, "neither true nor false");
    return found->get<bool>();
}

void addCommonHeaders(tHeaders& headers)
{
    headers.emplace_back("X-Content-Type-Options", "nosniff");
    headers.emplace_back("Referrer-Policy", "no-referrer");
    headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
}
}  // namespace server

// Answers of the API: JSON, and refusals with a code, a sentence and what to do.
#ifndef KESTOVA_SERVER_ANSWERS_H
#define KESTOVA_SERVER_ANSWERS_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "server/http.h"

namespace server
{
using tJson = nlohmann::ordered_json;

// A request that is refused. `what()` is a sentence for the user.
class tRefusal : public std::runtime_error
{
public:
    tRefusal(unsigned status_, std::string code_, const std::string& message, std::string hint_ = {})
        : std::runtime_error(message), status(status_), code(std::move(code_)), hint(std::move(hint_))
    {}

    unsigned status;
    std::string code, hint;
};

std::string jsonText(const tJson& json);  // bytes that are no UTF-8 are replaced
tHttpAnswer jsonAnswer(const tJson& json, unsigned status = 200);
tHttpAnswer answerOf(const tRefusal& refusal);
// Return what the body of a POST holds; throw tRefusal (400) for a body that is no object of 16 levels at most, a key
// that is missing or of another kind, or a number out of range. `Optional` ones may be missing.
tJson jsonIn(std::string_view text);
tJson bodyOf(const tHttpRequest& request);
std::string textIn(const tJson& body, const char* key);
std::optional<std::uint64_t> optionalNumberIn(const tJson& body, const char* key);
std::uint64_t numberIn(const tJson& body, const char* key);
bool flagIn(const tJson& body, const char* key);
// Adds what every answer carries.
void addCommonHeaders(tHeaders& headers);
}  // namespace server

#endif

#include "server/http.h"

#include <algorithm>

namespace server
{
std::string_view tHttpRequest::header(std::string_view name) const
{
    const auto found = std::ranges::find(headers, name, &std::pair<std::string, std::string>::first);
    return found == headers.end() || count(name) != 1 ? std::string_view() : std::string_view(found->second);
}

std::size_t tHttpRequest::count(std::string_view name) const
{
    return static_cast<std::size_t>(std::ranges::count(headers, name, &std::pair<std::string, std::string>::first));
}
}  // namespace server

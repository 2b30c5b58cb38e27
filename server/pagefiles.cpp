#include "server/pagefiles.h"

#include <algorithm>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>

#include "common/descriptor.h"

namespace server
{
namespace
{
constexpr char cPolicy[] = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
                           "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
constexpr std::size_t cLargest = std::size_t(16) << 20;

struct tKind
{
    std::string_view ending;
    const char* type;
};
constexpr tKind cKinds[] = {{".html", "text/html; charset=utf-8"},
                            {".js", "text/javascript; charset=utf-8"},
                            {".css", "text/css; charset=utf-8"},
                            {".svg", "image/svg+xml"},
                            {".png", "image/png"},
                            {".ico", "image/x-icon"},
                            {".webmanifest", "application/manifest+json"}};

const char* typeOf(const std::string& name)
{
    const auto kind = std::ranges::find_if(cKinds, [&](const tKind& one) { return name.ends_with(one.ending); });
    return kind == std::end(cKinds) ? nullptr : kind->type;
}

std::optional<std::string> builtIn(const std::string& name)
{
    for (std::size_t i = 0; i < cPageFileCount; ++i)
        if (name == cPageFiles[i].name)
            return std::string(reinterpret_cast<const char*>(cPageFiles[i].bytes), cPageFiles[i].size);
    return std::nullopt;
}

std::optional<std::string> onDisk(const std::string& path)
{
    const tDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts
    {};
    if (!file.valid() || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode))
        return std::nullopt;
    std::string bytes(std::min(static_cast<std::size_t>(facts.st_size), cLargest), '\0');
    bytes.resize(file.readAt(bytes.data(), bytes.size(), 0));
    return bytes;
}
}  // namespace

std::optional<tHttpAnswer> pageAnswer(const std::string& folder, const std::vector<std::string>& segments)
{
    std::string name;
    for (const std::string& segment : segments)
    {
        if (segment.starts_with('.'))
            return std::nullopt;
        name += (name.empty() ? "" : "/") + segment;
    }
    name = name.empty() ? "index.html" : name;
    const char* const type = typeOf(name);
    if (type == nullptr)
        return std::nullopt;
    auto bytes = folder.empty() ? builtIn(name) : onDisk(folder + '/' + name);
    if (!bytes)
        return std::nullopt;
    tHttpAnswer answer;
    answer.headers = {{"Content-Type", type}, {"Cache-Control", "no-cache"}, {"Content-Security-Policy", cPolicy}};
    answer.body = std::move(*bytes);
    return answer;
}
}  // namespace server

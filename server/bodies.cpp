#include "server/bodies.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>

#include "KestovaRecordings/failure.h"
#include "server/answers.h"

namespace server
{
namespace
{
constexpr std::size_t cChunk = 256 * 1024;
constexpr int cMostDownloads = 4;

class tFileBody : public iBody
{
public:
    tFileBody(tDescriptor file, std::uint64_t from, std::uint64_t length, tSlot slot)
        : m_file(std::move(file)), m_at(from), m_end(from + length), m_slot(std::move(slot))
    {}

    bool next(std::string& chunk) override
    {
        chunk.resize(std::min<std::uint64_t>(cChunk, m_end - m_at));
        chunk.resize(m_file.readAt(chunk.data(), chunk.size(), m_at));
        m_at += chunk.size();
        return !chunk.empty();
    }

private:
    const tDescriptor m_file;
    std::uint64_t m_at;
    const std::uint64_t m_end;
    const tSlot m_slot;
};

struct tRange
{
    std::uint64_t from, length;
};

std::optional<std::uint64_t> digits(std::string_view text)
{
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && !text.empty() ? std::optional(value)
                                                                                     : std::nullopt;
}

// Returns nothing for a header that asks for no single range of bytes: such are answered with the whole file.
std::optional<tRange> rangeOf(std::string_view header, std::uint64_t size)
{
    constexpr std::string_view cUnit = "bytes=";
    const std::size_t dash = header.find('-');
    if (!header.starts_with(cUnit) || dash == std::string_view::npos || header.find(',') != std::string_view::npos)
        return std::nullopt;
    const std::string_view first = header.substr(cUnit.size(), dash - cUnit.size()), last = header.substr(dash + 1);
    const auto from = digits(first), to = digits(last);
    if ((!first.empty() && !from) || (!last.empty() && !to) || (!from && !to))
        return std::nullopt;
    const auto unsatisfiable = [&] { return tRefusal(416, "bad_range", fmt::format("the file has {} bytes", size)); };
    if (!from)  // the last so many
    {
        const std::uint64_t length = std::min(*to, size);
        if (length == 0)
            throw unsatisfiable();
        return tRange{size - length, length};
    }
    if (*from >= size || (to && *to < *from))
        throw unsatisfiable();
    return tRange{*from, std::min(to.value_or(size - 1), size - 1) - *from + 1};
}
}  // namespace

tDownloadSlot::tDownloadSlot(std::atomic<int>& downloads) : m_downloads(downloads)
{
    if (++m_downloads <= cMostDownloads)
        return;
    --m_downloads;
    throw tRefusal(503, "too_many_downloads", "four downloads are under way", "try again when one has ended");
}

tHeaders downloadHeaders(const std::string& type, const std::string& name)
{
    std::string plain = name;
    for (char& c : plain)
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_' ? c : '_';
    return {{"Content-Type", type},
            {"Cache-Control", "no-store"},
            {"Content-Disposition", "attachment; filename=\"" + plain + "\""}};
}

tHttpAnswer fileAnswer(const tHttpRequest& request, const std::string& path, tSlot slot)
{
    tDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts
    {};
    if (!file.valid() || ::fstat(file.get(), &facts) != 0 || !S_ISREG(facts.st_mode))
        throw tRefusal(404, "no_file", "the file is gone");
    const auto size = static_cast<std::uint64_t>(facts.st_size);
    const auto range = rangeOf(request.header("range"), size);
    const tRange sent = range.value_or(tRange{0, size});
    tHttpAnswer answer;
    answer.status = range ? 206 : 200;
    answer.headers = downloadHeaders("application/octet-stream", std::filesystem::path(path).filename().string());
    answer.headers.emplace_back("Accept-Ranges", "bytes");
    if (range)
        answer.headers.emplace_back("Content-Range",
                                    fmt::format("bytes {}-{}/{}", sent.from, sent.from + sent.length - 1, size));
    answer.length = sent.length;
    answer.stream = std::make_shared<tFileBody>(std::move(file), sent.from, sent.length, std::move(slot));
    return answer;
}

tPipeBody::tPipeBody(tWrite write, tSlot slot) : m_slot(std::move(slot))
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw recordings::tFailure("cannot make a pipe: too many open files");
    m_read = tDescriptor(ends[0]);
    m_write = tDescriptor(ends[1]);
    m_thread = std::thread([this, work = std::move(write)] {
        try
        {
            work(m_write.get(), m_cancelled);
        }
        catch (const std::exception&)
        {
            m_failed = true;
        }
        m_write.reset();
    });
}

tPipeBody::~tPipeBody()
{
    m_cancelled = true;
    m_read.reset();
    m_thread.join();
}

bool tPipeBody::next(std::string& chunk)
{
    chunk.resize(cChunk);
    ssize_t size = 0;
    do
        size = ::read(m_read.get(), chunk.data(), chunk.size());
    while (size < 0 && errno == EINTR);
    chunk.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    if (size > 0)
        return true;
    if (m_failed || size < 0)
        throw std::runtime_error("a part is missing");
    return false;
}
}  // namespace server

#include "server/tar.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <stdexcept>

namespace server
{
namespace
{
constexpr std::size_t cBlock = 512, cChunk = 256 * 1024;

std::uint64_t padded(std::uint64_t size)
{
    return (size + cBlock - 1) / cBlock * cBlock;
}

void put(std::string& head, std::size_t at, const std::string& text, std::size_t most)
{
    head.replace(at, std::min(text.size(), most), text, 0, most);
}
}  // namespace

std::string tarHead(const std::string& name, std::uint64_t size, std::uint64_t seconds)
{
    std::string head(cBlock, '\0');
    put(head, 0, name, 100);
    put(head, 100, "0000644", 7);
    put(head, 108, "0000000", 7);
    put(head, 116, "0000000", 7);
    put(head, 124, fmt::format("{:011o}", size), 11);
    put(head, 136, fmt::format("{:011o}", seconds), 11);
    put(head, 148, "        ", 8);
    head[156] = '0';
    put(head, 257, "ustar", 5);
    put(head, 263, "00", 2);
    unsigned sum = 0;
    for (const char c : head)
        sum += static_cast<unsigned char>(c);
    put(head, 148, fmt::format("{:06o}", sum), 6);
    head[154] = '\0';
    return head;
}

tTarBody::tTarBody(const std::string& folder, const std::string& name, std::shared_ptr<void> keep)
    : m_keep(std::move(keep))
{
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.is_regular_file())
            paths.push_back(entry.path());
    std::ranges::sort(paths);
    for (const auto& path : paths)
    {
        const std::uint64_t size = std::filesystem::file_size(path);
        const auto written = std::chrono::time_point_cast<std::chrono::seconds>(
            std::chrono::file_clock::to_sys(std::filesystem::last_write_time(path)));
        const auto seconds = static_cast<std::uint64_t>(written.time_since_epoch().count());
        m_entries.push_back({path.string(), tarHead(name + '/' + path.filename().string(), size, seconds), size});
        m_length += cBlock + padded(size);
    }
    m_length += 2 * cBlock;
}

bool tTarBody::next(std::string& chunk)
{
    if (m_ended)
        return false;
    if (m_at == m_entries.size())
    {
        m_ended = true;
        chunk.assign(2 * cBlock, '\0');
        return true;
    }
    const tEntry& entry = m_entries[m_at];
    if (!m_file.valid())
    {
        m_file = tDescriptor(::open(entry.path.c_str(), O_RDONLY | O_CLOEXEC));
        m_sent = 0;
        chunk = entry.head;
        if (!m_file.valid())
            throw std::runtime_error("a file is gone");
    }
    else
        chunk.clear();
    const std::size_t had = chunk.size(), wanted = std::min<std::uint64_t>(cChunk, entry.size - m_sent);
    chunk.resize(had + wanted);
    if (!m_file.readAllAt(chunk.data() + had, wanted, m_sent))
        throw std::runtime_error("a file was cut");
    m_sent += wanted;
    if (m_sent == entry.size)
    {
        chunk.append(padded(entry.size) - entry.size, '\0');
        m_file.reset();
        ++m_at;
    }
    return true;
}
}  // namespace server

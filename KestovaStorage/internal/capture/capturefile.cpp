#include "KestovaStorage/internal/capture/capturefile.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include "common/byteorder.h"

namespace pcap
{
namespace
{
constexpr std::size_t cWindow = std::size_t{1} << 20;  // fits the second-level caches: what is copied in is still there
static_assert(cWindow > sizeof(tPcapPckHeader) + cRecordReach);
}  // namespace

std::unique_ptr<tCaptureFile> tCaptureFile::open(const std::string& path)
{
    tDescriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!descriptor.valid() || ::fstat(descriptor.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    ::posix_fadvise(descriptor.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    std::unique_ptr<tCaptureFile> file(
        new tCaptureFile(std::move(descriptor), static_cast<std::uint64_t>(status.st_size)));
    file->readHead();
    return file;
}

tCaptureFile::tCaptureFile(tDescriptor descriptor, std::uint64_t size)
    : m_descriptor(std::move(descriptor)), m_size(size), m_window(new char[cWindow + 1])
{}

void tCaptureFile::readHead()
{
    char head[sizeof(tPcapFileHeader)] = {};
    std::size_t len = sizeof head;
    const char* const bytes = view(0, len);
    std::memcpy(head, bytes, len);
    m_magic = le::load<std::uint32_t>(head + offsetof(tPcapFileHeader, magic));
    m_linkType = le::load<std::uint32_t>(head + offsetof(tPcapFileHeader, link_type));
    m_pos = std::min<std::uint64_t>(sizeof head, m_size);
}

bool tCaptureFile::next(tCaptureRecord& record)
{
    std::size_t headLen = sizeof(tPcapPckHeader);
    const char* const head = view(m_pos, headLen);
    if (headLen == 0)
        return false;
    if (headLen < sizeof(tPcapPckHeader))
    {
        record = {0, 0, m_window.get(), 0, m_size, true};
        m_pos = m_size;
        return true;
    }
    const auto claimed = le::load<std::uint32_t>(head + offsetof(tPcapPckHeader, cap_len));
    record.seconds = le::load<std::uint32_t>(head + offsetof(tPcapPckHeader, tv_sec));
    record.microseconds = le::load<std::uint32_t>(head + offsetof(tPcapPckHeader, tv_usec));
    const std::size_t reach = std::min<std::size_t>(claimed, cRecordReach);
    record.held = reach;
    record.bytes = view(m_pos + sizeof(tPcapPckHeader), record.held);
    const std::uint64_t end = m_pos + sizeof(tPcapPckHeader) + claimed;
    record.cut = end > m_size || record.held < reach;
    m_pos = record.end = std::min(end, m_size);
    return true;
}

// Returns the bytes from `pos` on. `len` holds the number wanted and receives the number available.
char* tCaptureFile::view(std::uint64_t pos, std::size_t& len)
{
    const std::uint64_t wanted = std::min<std::uint64_t>(len, m_size - std::min(pos, m_size));
    if (pos < m_windowPos || pos + wanted > m_windowPos + m_filled)
    {
        m_filled = m_descriptor.readAt(m_window.get(), cWindow, pos);
        m_windowPos = pos;
    }
    const std::size_t place = static_cast<std::size_t>(pos - m_windowPos);
    len = std::min(static_cast<std::size_t>(wanted), m_filled - std::min(place, m_filled));
    return m_window.get() + std::min(place, m_filled);
}
}  // namespace pcap

#include "KestovaRecordings/captureinput.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/captureframes.h"
#include "KestovaRecordings/failure.h"

namespace recordings
{
namespace
{
constexpr int cWait_ms = 100;
constexpr std::size_t cBufferSize = 256 * 1024;

std::string nameOf(const std::string& path)
{
    return path == cStandardInput ? "standard input" : path;
}
}  // namespace

tCaptureInput::tCaptureInput(const std::string& path, std::function<bool(std::uint64_t)> goOn)
    : m_name(nameOf(path)), m_goOn(std::move(goOn))
{
    if (path != cStandardInput)
    {
        m_file = tDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (!m_file.valid())
            throw tFailure(path + (errno == ENOENT ? ": no such file" : std::string(": ") + std::strerror(errno)));
        m_fd = m_file.get();
    }
    struct stat status = {};
    if (::fstat(m_fd, &status) != 0)
        throw tFailure(m_name + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode))
        throw tFailure(path + " is no capture: it is a folder");
    if (::isatty(m_fd) == 1)
        throw tFailure(m_name + " is a terminal: send a capture into it");
    if (S_ISREG(status.st_mode))
        m_size = static_cast<std::uint64_t>(status.st_size);
}

void tCaptureInput::rethrow()
{
    if (m_thrown)
        std::rethrow_exception(std::exchange(m_thrown, nullptr));
}

const std::string& tCaptureInput::head(std::size_t wanted)
{
    std::string bytes(wanted, '\0');
    std::size_t got = 0, count = 0;
    do
    {
        count = read(&bytes[got], wanted - got);
        got += count;
    } while (count != 0 && got < wanted);
    m_head.append(bytes, 0, got);
    rethrow();
    return m_head;
}

std::FILE* tCaptureInput::stream()
{
    cookie_io_functions_t calls{};
    calls.read = [](void* self, char* to, std::size_t len) {
        return static_cast<ssize_t>(static_cast<tCaptureInput*>(self)->read(to, len));
    };
    std::FILE* const stream = ::fopencookie(this, "rb", calls);
    if (stream == nullptr)
        throw tFailure("not enough memory to read " + m_name);
    std::setvbuf(stream, nullptr, _IOFBF, cBufferSize);
    return stream;
}

// Called by the C library, through which no exception may pass.
std::size_t tCaptureInput::read(char* to, std::size_t len) noexcept
try
{
    const std::size_t left = std::min(len, m_head.size() - m_headTaken);
    if (left == 0)
        return readDescriptor(to, len);
    std::memcpy(to, &m_head[m_headTaken], left);
    m_headTaken += left;
    return left;
}
catch (...)
{
    m_thrown = std::current_exception();
    m_cancelled = true;
    return 0;
}

std::size_t tCaptureInput::readDescriptor(char* to, std::size_t len)
{
    while (!m_atEnd && !m_cancelled && m_error == 0)
    {
        m_cancelled = !m_goOn(m_bytes);
        if (m_cancelled || !waitReadable())
            continue;
        const ssize_t count = ::read(m_fd, to, len);
        if (count > 0)
        {
            m_bytes += static_cast<std::size_t>(count);
            return static_cast<std::size_t>(count);
        }
        m_atEnd = count == 0;
        m_error = count < 0 && errno != EINTR && errno != EAGAIN ? errno : 0;
    }
    return 0;
}

bool tCaptureInput::waitReadable() const
{
    pollfd input{m_fd, POLLIN, 0};
    return ::poll(&input, 1, cWait_ms) == 1;
}
}  // namespace recordings

#include "sessions/picture/y4mwriter.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>
#include <utility>

#include "KestovaRecordings/failure.h"

namespace session
{
using namespace recordings;

namespace
{
constexpr char cFrameHead[] = "FRAME\n";
constexpr std::size_t cFrameHeadSize = sizeof cFrameHead - 1;

// In 1 / 65,536, rounded.
char component(std::uint32_t pixel, int red, int green, int blue, int offset)
{
    const int r = pixel >> 16 & 0xFF, g = pixel >> 8 & 0xFF, b = pixel & 0xFF;
    return static_cast<char>((red * r + green * g + blue * b + (offset << 16) + 0x8000) >> 16);
}
}  // namespace

tY4mWriter::tY4mWriter(int output, std::size_t size, std::uint64_t periodMs, tGoOn goOn)
    : m_output(output), m_goOn(std::move(goOn)), m_pixels(size * size),
      m_head(fmt::format("YUV4MPEG2 W{0} H{0} F1000:{1} Ip A1:1 C444 XCOLORRANGE=LIMITED\n", size,
                         std::max<std::uint64_t>(periodMs, 1)))
{}

bool tY4mWriter::write(const std::uint32_t* pixels)
{
    if (!writeAll(m_head))
        return false;
    m_head.clear();
    m_frame.resize(cFrameHeadSize + 3 * m_pixels);
    std::memcpy(m_frame.data(), cFrameHead, cFrameHeadSize);
    char* const luma = m_frame.data() + cFrameHeadSize;
    for (std::size_t i = 0; i < m_pixels; ++i)
    {
        luma[i] = component(pixels[i], 16'829, 33'039, 6'416, 16);
        luma[m_pixels + i] = component(pixels[i], -9'714, -19'071, 28'784, 128);
        luma[2 * m_pixels + i] = component(pixels[i], 28'784, -24'103, -4'681, 128);
    }
    return writeAll(m_frame);
}

// Returns whether the descriptor takes bytes, or reports an error.
bool tY4mWriter::awaitRoom() const
{
    constexpr int cLookEveryMs = 100;
    pollfd output{m_output, POLLOUT, 0};
    while (::poll(&output, 1, cLookEveryMs) <= 0)
    {
        if (!m_goOn())
            return false;
    }
    return true;
}

// A pipe that can be written takes at least PIPE_BUF bytes without waiting.
bool tY4mWriter::writeAll(const std::string& bytes) const
{
    for (std::size_t done = 0; done < bytes.size();)
    {
        if (!awaitRoom())
            return false;
        const ssize_t count =
            ::write(m_output, bytes.data() + done, std::min<std::size_t>(bytes.size() - done, PIPE_BUF));
        if (count >= 0)
            done += static_cast<std::size_t>(count);
        else if (errno == EPIPE)
            throw tPipeClosed("standard output");
        else if (errno != EINTR)
            throw tFailure(fmt::format("standard output cannot be written: {}", std::strerror(errno)));
    }
    return true;
}
}  // namespace session

// tY4mWriter: pictures as an uncompressed video, as ffmpeg and other programs read it from a pipe.
#ifndef KESTOVA_SESSIONS_PICTURE_Y4MWRITER_H
#define KESTOVA_SESSIONS_PICTURE_Y4MWRITER_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace session
{
// YUV4MPEG2 with whole colours (4:4:4, BT.601, 16 to 235). One thread at a time.
class tY4mWriter
{
public:
    // Writes to the descriptor, which stays open: frames of size x size pixels, one every `periodMs`.
    tY4mWriter(int output, std::size_t size, std::uint64_t periodMs);

    // Writes a frame of 0xRRGGBB pixels, row by row from the top. Throws tPipeClosed if nobody reads any more, and
    // tFailure for any other error.
    void write(const std::uint32_t* pixels);

private:
    void writeAll(const std::string& bytes) const;

    const int m_output;
    const std::size_t m_pixels;
    std::string m_head;  // not written yet
    std::string m_frame;
};
}  // namespace session

#endif

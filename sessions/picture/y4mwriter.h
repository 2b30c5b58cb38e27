// tY4mWriter: pictures as an uncompressed video, as ffmpeg and other programs read it from a pipe.
#ifndef KESTOVA_SESSIONS_PICTURE_Y4MWRITER_H
#define KESTOVA_SESSIONS_PICTURE_Y4MWRITER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace session
{
// YUV4MPEG2 with whole colours (4:4:4, BT.601, 16 to 235). One thread at a time.
class tY4mWriter
{
public:
    using tGoOn = std::function<bool()>;
    // Writes to the descriptor, which stays open: frames of size x size pixels, one every `periodMs`. `goOn` is called
    // every 0.1 s while the reader takes nothing.
    tY4mWriter(int output, std::size_t size, std::uint64_t periodMs, tGoOn goOn);

    // Writes a frame of 0xRRGGBB pixels, row by row from the top. Returns false if `goOn` did, with the frame cut off.
    // Throws tPipeClosed if nobody reads any more, and tFailure for any other error.
    bool write(const std::uint32_t* pixels);

private:
    bool writeAll(const std::string& bytes) const;
    bool awaitRoom() const;

    const int m_output;
    const tGoOn m_goOn;
    const std::size_t m_pixels;
    std::string m_head;  // not written yet
    std::string m_frame;
};
}  // namespace session

#endif

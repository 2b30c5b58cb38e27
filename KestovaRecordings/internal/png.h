// Pictures as PNG files, made fast: many a second, of which nobody minds the size.
#ifndef KESTOVA_RECORDINGS_INTERNAL_PNG_H
#define KESTOVA_RECORDINGS_INTERNAL_PNG_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace recordings
{
// Return the bytes of a file of `width` x `height` pixels, given row by row from the top. Throw tFailure where memory
// runs out.
std::string greyPng(const unsigned char* pixels, std::size_t width, std::size_t height);
std::string colourPng(const std::uint32_t* pixels, std::size_t width, std::size_t height);  // 0xRRGGBB each
}  // namespace recordings

#endif

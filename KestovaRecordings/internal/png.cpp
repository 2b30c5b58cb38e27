#include "KestovaRecordings/internal/png.h"

#include <cstring>
#include <isa-l/igzip_lib.h>
#include <string_view>
#include <vector>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/crc32.h"
#include "common/byteorder.h"

namespace recordings
{
namespace
{
enum eColours : char
{
    eGrey = 0,
    eRgb = 2
};

void putNumber(std::string& to, std::size_t number)
{
    char bytes[4];
    be::store(bytes, static_cast<std::uint32_t>(number));
    to.append(bytes, sizeof bytes);
}

void putChunk(std::string& to, std::string_view type, std::string_view content)
{
    putNumber(to, content.size());
    const std::size_t begin = to.size();
    to.append(type).append(content);
    putNumber(to, crc32(0, std::string_view(to).substr(begin)));
}

std::string deflated(const std::string& bytes)
{
    std::vector<std::uint8_t> level(ISAL_DEF_LVL1_DEFAULT);
    std::string to(bytes.size() + bytes.size() / 1024 + 1024, '\0');
    isal_zstream stream;
    isal_deflate_stateless_init(&stream);
    stream.gzip_flag = IGZIP_ZLIB;
    stream.level = 1;
    stream.level_buf = level.data();
    stream.level_buf_size = static_cast<std::uint32_t>(level.size());
    // It does not write, but declares that it might.
    stream.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<std::uint32_t>(bytes.size());
    stream.next_out = reinterpret_cast<std::uint8_t*>(to.data());
    stream.avail_out = static_cast<std::uint32_t>(to.size());
    stream.end_of_stream = 1;
    if (isal_deflate_stateless(&stream) != COMP_OK)
        throw tFailure("not enough memory for a picture");
    to.resize(to.size() - stream.avail_out);
    return to;
}

// `rows` begin with a zero each: nothing was done to them before they are compressed.
std::string pngOf(const std::string& rows, std::size_t width, std::size_t height, eColours colours)
{
    std::string head;
    putNumber(head, width);
    putNumber(head, height);
    head.append({8, colours, 0, 0, 0});
    std::string png("\x89PNG\r\n\x1A\n");
    putChunk(png, "IHDR", head);
    putChunk(png, "IDAT", deflated(rows));
    putChunk(png, "IEND", "");
    return png;
}
}  // namespace

std::string greyPng(const unsigned char* pixels, std::size_t width, std::size_t height)
{
    std::string rows(height * (width + 1), '\0');
    for (std::size_t row = 0; row < height; ++row)
        std::memcpy(&rows[row * (width + 1) + 1], pixels + row * width, width);
    return pngOf(rows, width, height, eGrey);
}

std::string colourPng(const std::uint32_t* pixels, std::size_t width, std::size_t height)
{
    std::string rows(height * (3 * width + 1), '\0');
    char* to = rows.data();
    for (std::size_t row = 0; row < height; ++row)
    {
        ++to;
        for (std::size_t column = 0; column < width; ++column, to += 3)
        {
            const std::uint32_t pixel = *pixels++;
            to[0] = static_cast<char>(pixel >> 16);
            to[1] = static_cast<char>(pixel >> 8);
            to[2] = static_cast<char>(pixel);
        }
    }
    return pngOf(rows, width, height, eRgb);
}
}  // namespace recordings

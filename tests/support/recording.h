// Recordings made by hand, byte by byte, so that reading is not tested against what writing happens to produce.
#ifndef KESTOVA_TESTS_RECORDING_H
#define KESTOVA_TESTS_RECORDING_H

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

#include "support/radarpackages.h"
#include "support/segments.h"

// Puts bytes into a file, which is created where it is missing; the rest stays a hole.
inline void putBytes(const std::string& path, std::uint64_t offset, const std::string& bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const ssize_t put = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    ::close(fd);
    if (put != static_cast<ssize_t>(bytes.size()))
        throw std::system_error(errno, std::generic_category(), path);
}

inline const std::string cPlainMagic("\x00\x1A\xA0\xD0", 4);
inline const std::string cHuffmanMagic("\x00\xDE\xC0\xE0", 4);

inline std::string indexHead(std::uint32_t indexNum, std::uint32_t segmentMaxLen = 0)
{
    return littleEndian(indexNum, 4) + littleEndian(segmentMaxLen, 4);
}

inline std::string indexRecord(std::uint64_t time, std::uint64_t pos, std::uint32_t len)
{
    return littleEndian(time, 8) + littleEndian(pos, 8) + littleEndian(len, 4) + '\0';
}

// One plain data file. Its segments may begin anywhere: readers go by the index.
inline void recordByHand(const std::string& path, const tSegments& segments, bool finished = true,
                         std::uint64_t payloadPos = 10'000'000)
{
    std::string index, payload;
    for (const tSegment& segment : segments)
    {
        index +=
            indexRecord(segment.time, payloadPos + payload.size(), static_cast<std::uint32_t>(segment.bytes.size()));
        payload += segment.bytes;
    }
    putBytes(path, 0, cPlainMagic);
    if (finished)
        putBytes(path, 2000, indexHead(static_cast<std::uint32_t>(segments.size())));
    putBytes(path, 2048, index);
    putBytes(path, payloadPos, payload);
}

#endif

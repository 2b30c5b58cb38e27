// The image state message as the radar sends it, as far as a replay knows it: the replay puts its own time into it.
#ifndef KESTOVA_IMAGESTATE_H
#define KESTOVA_IMAGESTATE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

constexpr size_t cImageStateSize = 129;
constexpr char cImageStateMark[] = "\x03\xC4";  // its first bytes, without the final zero
constexpr size_t cImageStateTimePos = 114;      // the time of sending: 8 bytes, ms since the Unix epoch

static_assert(cImageStateTimePos + sizeof(uint64_t) <= cImageStateSize, "the time lies in the message");

// Returns whether the payload is an image state message. (static: C++11 has no constants that all sources share.)
static inline bool isImageState(const char* payload, size_t len)
{
    return len == cImageStateSize && memcmp(payload, cImageStateMark, sizeof cImageStateMark - 1) == 0;
}

#endif

// A radar message package read in place: its marks, its sizes, and how to find its fields in recorded or received
// bytes. radarmsgpackage.h describes the layout.
//
// Shapes   a package is cPackageHeadSize bytes of head, the payload and the end mark. Marks are bytes without a
//          terminator: the first cPackageMarkSize of each constant.
// Units    sizes in bytes.
// Owner    a view points into the caller's bytes and is valid as long as they are. They may lie at any address.
// Threads  pure functions.
// Errors   returns null for bytes that are no package; nothing outside the given length is read.
#ifndef KESTOVA_PACKAGEVIEW_H
#define KESTOVA_PACKAGEVIEW_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "KestovaStorage/radarmsgpackage.h"

constexpr char cPackageHeadMark[] = "Quorvale";
constexpr char cPackageEndMark[] = "ZQ_Radar";
constexpr char cHeartbeatMark[] = "check";

constexpr size_t cPackageMarkSize = 8;                                    // of head mark and end mark
constexpr size_t cPackageHeadSize = sizeof(tRadarMsgPackage);             // before the payload
constexpr size_t cPackageOverhead = cPackageHeadSize + cPackageMarkSize;  // around the payload
constexpr size_t cMaxStreamPackage = 65535;                               // the longest that a byte stream can carry
constexpr size_t cHeartbeatMarkSize = sizeof(cHeartbeatMark) - 1;
constexpr size_t cHeartbeatSize = cHeartbeatMarkSize + 1;  // the last byte is any

static_assert(sizeof(cPackageHeadMark) == cPackageMarkSize + 1, "the head mark is eight bytes");
static_assert(sizeof(cPackageEndMark) == cPackageMarkSize + 1, "the end mark is eight bytes");
static_assert(cPackageOverhead == 41, "the smallest package is 41 bytes");

// Returns the size of a package around a payload of `payloadLen` bytes.
constexpr size_t packageSize(size_t payloadLen)
{
    return payloadLen + cPackageOverhead;
}

// Returns the package that starts at `bytes`, null unless head and payload lie within `len` bytes; marks are not
// checked. Fields read as stored, little-endian. (static: C++11 has no constants that all sources share.)
static inline const tRadarMsgPackage* asPackage(const char* bytes, size_t len)
{
    if (bytes == nullptr || len < cPackageHeadSize)
        return nullptr;
    const tRadarMsgPackage* const package = reinterpret_cast<const tRadarMsgPackage*>(bytes);
    return package->msgLen <= len - cPackageHeadSize ? package : nullptr;
}

// Returns `len` bytes as a package, null unless they are exactly one whole package, marks included.
static inline const tRadarMsgPackage* asWholePackage(const char* bytes, size_t len)
{
    const tRadarMsgPackage* const package = asPackage(bytes, len);
    if (package == nullptr || len != packageSize(package->msgLen) ||
        memcmp(bytes, cPackageHeadMark, cPackageMarkSize) != 0 ||
        memcmp(bytes + len - cPackageMarkSize, cPackageEndMark, cPackageMarkSize) != 0)
        return nullptr;
    return package;
}

#endif

// How large a disk is and how much of it is free.
#ifndef KESTOVA_STORAGE_DISK_DISKSPACE_H
#define KESTOVA_STORAGE_DISK_DISKSPACE_H

#include <cstdint>
#include <string>

namespace storage::disk
{
// Returns the free space in MiB in 32 bits, -1 on failure; prints the line "Disk Total Size: ...". Kept: the product of
// block size and blocks wraps from 2 TiB on.
std::int32_t freeSize_MB(const char* path);
// Returns the same figure without the wrap, -1 on failure; prints nothing.
std::int64_t trueFreeSize_MB(const char* path);
// Returns whether less than 1 GiB is free below `root` by both figures: the 32-bit one wraps and would report a large
// disk with room as low. A 32-bit figure below 1 is no information: the disk counts as not low.
bool isLow(const std::string& root);
bool isLow(std::int32_t free_MB, std::int64_t trueFree_MB);
// Returns the size in blocks of 1024 bytes of the local file system mounted at `mountPoint` (ends with "/"), 0 if none
// is.
std::int64_t mountSize(const std::string& mountPoint);

// Returns the figures of the 32-bit computation for a block size, blocks and available blocks.
struct tSize_MB
{
    std::int32_t total;
    std::int32_t free;
};
tSize_MB wrappedSize(std::uint64_t blockSize, std::uint64_t blocks, std::uint64_t available);
}  // namespace storage::disk

#endif

#include "KestovaStorage/internal/disk/diskspace.h"

#include <cstdio>
#include <memory>
#include <sys/vfs.h>

#include "KestovaStorage/internal/disk/paths.h"
#include "UdpSocket/consoleprint.h"

namespace storage::disk
{
namespace
{
// 32-bit signed product, sign-extended, shifted right as an unsigned number; the low 32 bits of that.
std::int32_t mebibytes(std::uint64_t kibibytesABlock, std::uint64_t blocks)
{
    const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(kibibytesABlock * blocks));
    return static_cast<std::int32_t>(static_cast<std::uint64_t>(std::int64_t{product}) >> 10);
}
}  // namespace

tSize_MB wrappedSize(std::uint64_t blockSize, std::uint64_t blocks, std::uint64_t available)
{
    if (blockSize < 1024)
    {
        blocks >>= 10;
        available >>= 10;
    }
    else
        blockSize /= 1024;
    return {mebibytes(blockSize, blocks), mebibytes(blockSize, available)};
}

std::int32_t freeSize_MB(const char* path)
{
    struct statfs info;
    if (::statfs(path, &info) != 0)
        return -1;
    const tSize_MB size = wrappedSize(static_cast<std::uint64_t>(info.f_bsize), info.f_blocks, info.f_bavail);
    Kestova::console::print("Disk Total Size: %dMB, Free Size: %dMB\r\n", size.total, size.free);
    return size.free;
}

std::int64_t trueFreeSize_MB(const char* path)
{
    struct statfs info;
    if (::statfs(path, &info) != 0)
        return -1;
    const auto blockSize = static_cast<std::uint64_t>(info.f_bsize);
    constexpr std::uint64_t cMebibyte = 1U << 20;
    // Split so that the product fits whatever the disk's size is.
    return static_cast<std::int64_t>(info.f_bavail / cMebibyte * blockSize +
                                     info.f_bavail % cMebibyte * blockSize / cMebibyte);
}

bool isLow(const std::string& root)
{
    return isLow(freeSize_MB(root.c_str()), trueFreeSize_MB(root.c_str()));
}

bool isLow(std::int32_t free_MB, std::int64_t trueFree_MB)
{
    constexpr std::int32_t cLowBelow_MB = 1024;
    return free_MB >= 1 && free_MB < cLowBelow_MB && trueFree_MB < cLowBelow_MB;
}

std::int64_t mountSize(const std::string& mountPoint)
{
    constexpr const char* cCommand = "df -P -l -x iso9660 -x iso9600 | "
                                     "awk '{if(NR!=1 && NF==6) print $2\" \"$3\" \"$6 }'";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(cCommand, "r"), ::pclose);
    if (!pipe)
        return 0;
    long long total = 0;
    long long used = 0;
    char mounted[4097];
    while (std::fscanf(pipe.get(), "%lld %lld %4096s", &total, &used, mounted) == 3)
    {
        std::string path = mounted;
        paths::normalize(path);
        if (path == mountPoint)
            return total;
    }
    return 0;
}
}  // namespace storage::disk

// Data files with sheets for the benchmarks that look at many of them.
#ifndef KESTOVA_BENCH_RECORDEDFILES_H
#define KESTOVA_BENCH_RECORDEDFILES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>

#include <unistd.h>

#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/packageview.h"
#include "common/descriptor.h"

namespace bench
{
// A package of `len` bytes in all on one of eight groups.
inline std::string packageOf(std::size_t number, std::size_t len)
{
    std::string bytes(len, static_cast<char>(number));
    tRadarMsgPackage head{};
    std::memcpy(&head, cPackageHeadMark, cPackageMarkSize);
    head.msgInfo.rwType = static_cast<tReadWriteType>(number % 8);
    head.packCnt = static_cast<std::uint32_t>(number);
    head.udpAddr = 0x010011ef;
    head.udpPort = static_cast<std::uint16_t>(6001 + number % 8);
    head.msgLen = static_cast<std::uint16_t>(len - cPackageOverhead);
    std::memcpy(bytes.data(), &head, sizeof head);
    std::memcpy(&bytes[len - cPackageMarkSize], cPackageEndMark, cPackageMarkSize);
    return bytes;
}

inline void put(const tDescriptor& file, const void* data, std::size_t len, std::uint64_t pos)
{
    if (!file.writeAllAt(data, len, pos))
    {
        std::perror("cannot write the files of this benchmark");
        std::exit(1);
    }
}

// A finished file of `records` packages of `len` bytes, ten a second from `firstMs` on, and its sheet.
inline void recordFile(const std::string& path, std::size_t records, std::size_t len, std::uint64_t firstMs)
{
    using namespace storage;
    constexpr std::size_t cPiece = 1024;
    const tDescriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    std::vector<tIndexSlot> slots;
    recordings::tSheetBuilder builder;
    std::string piece;
    for (std::size_t i = 0; i < records; ++i)
    {
        const std::uint64_t time = firstMs + i / 2, pos = cPayloadPos + i * len;
        const std::string package = packageOf(i, len);
        builder.add(time, storage::cNoFineTime, package, pos);
        slots.push_back(encode(tNormalIndexTable{time, pos, static_cast<std::uint32_t>(len)}));
        piece += package;
        if (slots.size() % cPiece == 0 || i + 1 == records)
        {
            put(file, piece.data(), piece.size(), pos + len - piece.size());
            piece.clear();
        }
    }
    const std::uint32_t magic = cDataFileHead;
    const tIndexHead head{static_cast<std::uint32_t>(records), static_cast<std::uint32_t>(len)};
    put(file, &magic, sizeof magic, 0);
    put(file, &head, sizeof head, cIndexHeadPos);
    put(file, slots.data(), slots.size() * cIndexSlotSize, cIndexPos);
    recordings::tSheet sheet;
    sheet.id = recordings::newSheetId();
    builder.fill(sheet);
    recordings::sealSheet(sheet, path);
    recordings::writeSheet(path, sheet);
}
}  // namespace bench

#endif

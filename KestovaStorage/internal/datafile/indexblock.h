// tIndexBlock: a stretch of a data file's index. Whoever plays a file holds one of them at a time, and of the others
// the time of the first record.
#ifndef KESTOVA_STORAGE_DATAFILE_INDEXBLOCK_H
#define KESTOVA_STORAGE_DATAFILE_INDEXBLOCK_H

#include <array>
#include <cstddef>

#include "KestovaStorage/datafileformat.h"

namespace storage
{
constexpr std::size_t cIndexBlock = 1024;  // records: 21 KiB
using tIndexBlock = std::array<tIndexSlot, cIndexBlock>;
}  // namespace storage

#endif

// tIndexOutput: what a data file has beside its segments: the magic, the index records and the index head.
//
// Owner    owns nothing; writes through the function given.
// Threads  starts none and locks nothing: one thread at a time.
// Errors   operations return false if a write fails; the index head counts whole records only.
#ifndef KESTOVA_STORAGE_DATAFILE_INDEXOUTPUT_H
#define KESTOVA_STORAGE_DATAFILE_INDEXOUTPUT_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "KestovaStorage/datafileformat.h"

namespace storage
{
class tIndexOutput
{
public:
    // Writes `len` bytes at `pos`; returns false on failure.
    using tWriteAt = std::function<bool(const void* data, std::size_t len, std::uint64_t pos)>;
    explicit tIndexOutput(tWriteAt writeAt) : m_writeAt(std::move(writeAt)) {}

    // Writes the magic of a plain file; a compressed file's head begins with its own. Does nothing once that has
    // succeeded.
    bool writeMagic();
    // Writes the first `count` of `slots` behind the records that are there, and zeros behind them: `slots` is left
    // with `count` records and one of zeros. Readers see them in order, whole or not at all, even if the process dies
    // in between.
    bool append(std::vector<tIndexSlot>& slots, std::size_t count);
    bool writeHead() const;

    std::uint32_t records() const { return m_head.indexNum; }

private:
    bool publish(const unsigned char* bytes, std::size_t len) const;

    const tWriteAt m_writeAt;
    tIndexHead m_head{};
    bool m_magicWritten = false;
};
}  // namespace storage

#endif

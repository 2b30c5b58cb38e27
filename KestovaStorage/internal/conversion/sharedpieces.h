// tSharedPieces: the records of a file processed piece by piece, by a thread of this object and by the caller.
//
// Shapes   a piece is the records `first` up to `last`, about 256 KiB of them. Each of the two threads takes the next
//          one as soon as it is available, so that pieces are processed while later ones are still being made.
// Threads  one, from construction to destruction; if it cannot be started the caller processes every piece.
// Errors   the first failure ends the work; finish() returns it.
#ifndef KESTOVA_STORAGE_CONVERSION_SHAREDPIECES_H
#define KESTOVA_STORAGE_CONVERSION_SHAREDPIECES_H

#include <cstddef>
#include <cstdint>
#include <functional>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "common/status.h"
#include "common/worker.h"

namespace storage
{
// Receives the number of bytes processed, now and then; returns false to cancel the work.
using tProgressFunction = std::function<bool(std::uint64_t bytes)>;

inline tStatus interrupted()
{
    return {tStatus::eCode::eCancelled, "interrupted"};
}

class tSharedPieces
{
public:
    // Processes one piece and sets `bytes` to the payload in it. Two such functions, which share no state, may run at
    // once.
    using tPieceFunction = std::function<tStatus(std::size_t first, std::size_t last, std::uint64_t& bytes)>;

    // `workerPiece`: what the thread does with a piece. The file stays open.
    tSharedPieces(const tDataFileReader& file, tPieceFunction workerPiece);
    ~tSharedPieces() { m_worker.stop(); }
    tSharedPieces(const tSharedPieces&) = delete;
    tSharedPieces& operator=(const tSharedPieces&) = delete;

    void available(std::size_t records);  // the first `records` records may be processed
    // All records are available: processes pieces by `callerPiece` until none is left.
    tStatus finish(const tPieceFunction& callerPiece, const tProgressFunction& report);

private:
    struct tRange
    {
        std::size_t first, last;
    };

    void work(const tPieceFunction& workerPiece);
    bool isOver() const { return !m_failure.ok() || (m_busy == 0 && m_next == m_file.count()); }
    bool isTakeable() const { return m_failure.ok() && m_next < m_available; }
    tRange take();
    void process(tWorker::tLock& held, const tPieceFunction& piece);

    const tDataFileReader& m_file;
    // All guarded by the worker's lock.
    std::size_t m_available = 0, m_next = 0;  // records
    std::size_t m_busy = 0;                   // threads that process a piece
    std::uint64_t m_bytes = 0;                // processed
    tStatus m_failure;                        // of the first piece that failed
    tWorker m_worker;
};
}  // namespace storage

#endif

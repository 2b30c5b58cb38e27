// tSharedPieces: the records of a file dealt with piece by piece, by a thread of its own and by the caller.
//
// Shapes   a piece is the records `first` up to `last`, about a MiB of them. Each of the two threads takes the next one
//          as soon as it is there, so that pieces may be dealt with while later ones are still being made.
// Threads  one, from construction to destruction; where none can be had the caller does everything.
// Errors   the first one ends the work.
#ifndef KESTOVA_STORAGE_CONVERSION_SHAREDPIECES_H
#define KESTOVA_STORAGE_CONVERSION_SHAREDPIECES_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "common/worker.h"

namespace storage
{
// Called now and then with how many bytes have been dealt with; false ends the work.
using tGoOn = std::function<bool(std::uint64_t bytes)>;

class tSharedPieces
{
public:
    // Deals with one piece: the bytes of payload in it, or nothing and a reason in `error`. Two of them, which share
    // nothing that changes, may be called at once.
    using tPiece = std::function<std::optional<std::uint64_t>(std::size_t first, std::size_t last, std::string& error)>;

    // `there`: what the thread does with a piece. The file stays open.
    tSharedPieces(const tDataFileReader& file, tPiece there);
    ~tSharedPieces() { m_worker.stop(); }
    tSharedPieces(const tSharedPieces&) = delete;
    tSharedPieces& operator=(const tSharedPieces&) = delete;

    void available(std::size_t records);  // so many may be dealt with by now
    // All records are available: deals with pieces by `here` until none is left.
    bool finish(const tPiece& here, const tGoOn& goOn, std::string& error);

private:
    struct tRange
    {
        std::size_t first, last;
    };

    void work(const tPiece& there);
    bool isOver() const { return !m_error.empty() || (m_busy == 0 && m_next == m_file.index().size()); }
    bool isTakeable() const { return m_error.empty() && m_next < m_available; }
    tRange take();
    void deal(tWorker::tLock& held, const tPiece& piece);

    const tDataFileReader& m_file;
    // All guarded by the worker's lock.
    std::size_t m_available = 0, m_next = 0;  // records
    std::size_t m_busy = 0;                   // threads that deal with a piece
    std::uint64_t m_bytes = 0;                // dealt with
    std::string m_error;                      // of the first piece that failed
    tWorker m_worker;
};
}  // namespace storage

#endif

#include "KestovaStorage/internal/conversion/sharedpieces.h"

#include <new>
#include <system_error>
#include <utility>

namespace storage
{
namespace
{
constexpr std::uint64_t cPieceBytes = 256 * 1024;  // stay in a core's cache
constexpr std::chrono::milliseconds cProgressPeriod{100};

tStatus processPiece(const tSharedPieces::tPieceFunction& piece, std::size_t first, std::size_t last,
                     std::uint64_t& bytes)
try
{
    return piece(first, last, bytes);
}
catch (const std::bad_alloc&)
{
    return {tStatus::eCode::eNoMemory, "not enough memory"};
}
}  // namespace

tSharedPieces::tSharedPieces(const tDataFileReader& file, tPieceFunction workerPiece) : m_file(file)
{
    try
    {
        m_worker.start([this, workerPiece = std::move(workerPiece)] { work(workerPiece); });
    }
    catch (const std::system_error&)
    {
        // No thread: finish() processes every piece.
    }
}

void tSharedPieces::available(std::size_t records)
{
    m_worker.wake([&] { m_available = records; });
}

void tSharedPieces::work(const tPieceFunction& workerPiece)
{
    tWorker::tLock held = m_worker.lock();
    while (m_worker.wait(held, [this] { return isTakeable(); }))
        process(held, workerPiece);
}

// Returns the next piece; requires isTakeable().
tSharedPieces::tRange tSharedPieces::take()
{
    const std::size_t first = m_next;
    for (std::uint64_t bytes = 0; m_next < m_available && bytes < cPieceBytes; ++m_next)
        bytes += m_file.record(m_next).bits / 8;
    return {first, m_next};
}

void tSharedPieces::process(tWorker::tLock& held, const tPieceFunction& piece)
{
    const tRange range = take();
    ++m_busy;
    held.unlock();
    std::uint64_t bytes = 0;
    tStatus status = processPiece(piece, range.first, range.last, bytes);
    held.lock();
    --m_busy;
    if (status)
        m_bytes += bytes;
    else if (m_failure.ok())
        m_failure = std::move(status);
    m_worker.notify();
}

tStatus tSharedPieces::finish(const tPieceFunction& callerPiece, const tProgressFunction& report)
{
    tWorker::tLock held = m_worker.lock();
    do
    {
        if (isTakeable())
            process(held, callerPiece);
        else
            m_worker.waitUntil(held, tWorker::tClock::now() + cProgressPeriod, [this] { return isOver(); });
        const std::uint64_t bytes = m_bytes;
        held.unlock();
        const bool continues = !report || report(bytes);  // at least once, even if the thread has finished
        held.lock();
        if (!continues && m_failure.ok())
            m_failure = interrupted();
    } while (!isOver());
    return m_failure;
}
}  // namespace storage

#include "KestovaStorage/internal/conversion/sharedpieces.h"

#include <new>
#include <system_error>
#include <utility>

namespace storage
{
namespace
{
constexpr std::uint64_t cPieceBytes = 1 << 20;
constexpr std::chrono::milliseconds cProgressPeriod{100};

// What a record takes in its file.
std::uint64_t storedBytes(tFileHeadSymbol symbol, const tIndexSlot& slot)
{
    return symbol == cDataFileHead ? decodeNormal(slot).len : decodeEncoded(slot).huffmanBits / 8;
}

std::optional<std::uint64_t> tried(const tSharedPieces::tPiece& piece, std::size_t first, std::size_t last,
                                   std::string& error)
try
{
    return piece(first, last, error);
}
catch (const std::bad_alloc&)
{
    error = "not enough memory";
    return std::nullopt;
}
}  // namespace

tSharedPieces::tSharedPieces(const tDataFileReader& file, tPiece there) : m_file(file)
{
    try
    {
        m_worker.start([this, there = std::move(there)] { work(there); });
    }
    catch (const std::system_error&)
    {
        // No thread: finish() deals with every piece.
    }
}

void tSharedPieces::available(std::size_t records)
{
    m_worker.wake([&] { m_available = records; });
}

void tSharedPieces::work(const tPiece& there)
{
    tWorker::tLock held = m_worker.lock();
    while (m_worker.wait(held, [this] { return isTakeable(); }))
        deal(held, there);
}

// The next piece; isTakeable().
tSharedPieces::tRange tSharedPieces::take()
{
    const std::size_t first = m_next;
    for (std::uint64_t bytes = 0; m_next < m_available && bytes < cPieceBytes; ++m_next)
        bytes += storedBytes(m_file.symbol(), m_file.index()[m_next]);
    return {first, m_next};
}

void tSharedPieces::deal(tWorker::tLock& held, const tPiece& piece)
{
    const tRange range = take();
    ++m_busy;
    held.unlock();
    std::string error;
    const std::optional<std::uint64_t> bytes = tried(piece, range.first, range.last, error);
    held.lock();
    --m_busy;
    if (bytes)
        m_bytes += *bytes;
    else if (m_error.empty())
        m_error = error;
    m_worker.notify();
}

bool tSharedPieces::finish(const tPiece& here, const tGoOn& goOn, std::string& error)
{
    tWorker::tLock held = m_worker.lock();
    do
    {
        if (isTakeable())
            deal(held, here);
        else
            m_worker.waitUntil(held, tWorker::tClock::now() + cProgressPeriod, [this] { return isOver(); });
        const std::uint64_t bytes = m_bytes;
        held.unlock();
        const bool stays = !goOn || goOn(bytes);  // once at least, however early the thread was done
        held.lock();
        if (!stays && m_error.empty())
            m_error = "interrupted";
    } while (!isOver());
    error = m_error;
    return m_error.empty();
}
}  // namespace storage

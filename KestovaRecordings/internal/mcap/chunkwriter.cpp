#include "KestovaRecordings/internal/mcap/chunkwriter.h"

#include <memory>
#include <zstd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/crc32.h"
#include "KestovaRecordings/internal/mcap/mcaprecord.h"

namespace recordings::mcap
{
namespace
{
constexpr int cLevel = 1;  // four times as fast as the library's own, and a tenth larger
}

void tChunk::clear()
{
    records.clear();
    firstNs = UINT64_MAX;
    lastNs = 0;
    for (tPlaces& places : index)
        places.clear();
}

class tChunkWriter::tCompressor
{
public:
    void compress(const std::string& from, std::string& to)
    {
        to.resize(ZSTD_compressBound(from.size()));
        const std::size_t size =
            m_context ? ZSTD_compressCCtx(m_context.get(), to.data(), to.size(), from.data(), from.size(), cLevel) : 0;
        if (size == 0 || ZSTD_isError(size) != 0)
            throw tFailure("not enough memory to compress a chunk");
        to.resize(size);
    }

private:
    struct tFree
    {
        void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
    };
    std::unique_ptr<ZSTD_CCtx, tFree> m_context{ZSTD_createCCtx()};
};

tChunkWriter::tChunkWriter(tPartFile& file, bool compress, std::string_view begin) : m_file(file), m_compress(compress)
{
    put(begin);
    try
    {
        for (tWorker& worker : m_workers)
            worker.start([this] { work(); });
    }
    catch (...)
    {
        end();
        throw;
    }
}

tChunkWriter::~tChunkWriter()
{
    fail();
    end();
}

void tChunkWriter::add(tChunk& chunk)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_added - m_written < cWaiting || m_failure; });
    throwFailure();
    tChunk next;
    if (!m_spare.empty())
    {
        next = std::move(m_spare.back());
        m_spare.pop_back();
    }
    m_waiting.emplace(m_added++, std::exchange(chunk, std::move(next)));
    m_changed.notify_all();
}

const std::string& tChunkWriter::finish()
{
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_added == m_written || m_failure; });
        throwFailure();
    }
    end();
    return m_chunkIndexes;
}

void tChunkWriter::end()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    for (tWorker& worker : m_workers)
        worker.stop();
}

// Keeps the first failure; threads that wait for their turn end.
void tChunkWriter::fail()
{
    const std::lock_guard lock(m_mutex);
    if (!m_failure)
        m_failure = std::current_exception() ? std::current_exception()
                                             : std::make_exception_ptr(tFailure("a chunk was not written"));
    m_changed.notify_all();
}

void tChunkWriter::throwFailure() const
{
    if (m_failure)
        std::rethrow_exception(m_failure);
}

bool tChunkWriter::take(std::uint64_t& number, tChunk& chunk)
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_waiting.empty() || m_isEnding || m_failure; });
    if (m_waiting.empty() || m_failure)
        return false;
    number = m_waiting.begin()->first;
    chunk = std::move(m_waiting.begin()->second);
    m_waiting.erase(m_waiting.begin());
    return true;
}

void tChunkWriter::work()
try
{
    tCompressor compressor;
    tPacked packed;
    tChunk chunk;
    for (std::uint64_t number = 0; take(number, chunk);)
    {
        pack(compressor, chunk, packed);
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [&] { return m_written == number || m_failure; });
            if (m_failure)
                return;
        }
        write(chunk, packed);
        chunk.clear();
        const std::lock_guard lock(m_mutex);
        m_spare.push_back(std::move(chunk));
        ++m_written;
        m_changed.notify_all();
    }
}
catch (...)
{
    fail();
}

void tChunkWriter::pack(tCompressor& compressor, const tChunk& chunk, tPacked& packed) const
{
    if (m_compress)
        compressor.compress(chunk.records, packed.compressed);
    const std::string& payload = m_compress ? packed.compressed : chunk.records;
    const std::string_view compression = m_compress ? "zstd" : "";
    packed.head.clear();
    mcap::put(packed.head, static_cast<std::uint8_t>(eChunk));
    mcap::put(packed.head, std::uint64_t{8 + 8 + 8 + 4 + 4 + compression.size() + 8 + payload.size()});
    mcap::put(packed.head, chunk.firstNs);
    mcap::put(packed.head, chunk.lastNs);
    mcap::put(packed.head, std::uint64_t{chunk.records.size()});
    mcap::put(packed.head, crc32(0, chunk.records));
    putText(packed.head, compression);
    mcap::put(packed.head, std::uint64_t{payload.size()});
}

void tChunkWriter::write(const tChunk& chunk, const tPacked& packed)
{
    const std::string& payload = m_compress ? packed.compressed : chunk.records;
    const std::uint64_t begin = m_file.size();
    put(packed.head);
    put(payload);
    const std::uint64_t length = m_file.size() - begin;
    std::string places;
    putIndexes(chunk, places);
    put(m_messageIndexes);
    const tRecord record(m_chunkIndexes, eChunkIndex);
    mcap::put(m_chunkIndexes, chunk.firstNs);
    mcap::put(m_chunkIndexes, chunk.lastNs);
    mcap::put(m_chunkIndexes, begin);
    mcap::put(m_chunkIndexes, length);
    putText(m_chunkIndexes, places);
    mcap::put(m_chunkIndexes, std::uint64_t{m_messageIndexes.size()});
    putText(m_chunkIndexes, m_compress ? "zstd" : "");
    mcap::put(m_chunkIndexes, std::uint64_t{payload.size()});
    mcap::put(m_chunkIndexes, std::uint64_t{chunk.records.size()});
    ++m_chunks;
}

// Makes the message index records behind the chunk; `places` is where in the file that of each channel lies.
void tChunkWriter::putIndexes(const tChunk& chunk, std::string& places)
{
    m_messageIndexes.clear();
    for (std::size_t channel = 0; channel < chunk.index.size(); ++channel)
    {
        if (chunk.index[channel].empty())
            continue;
        mcap::put(places, static_cast<std::uint16_t>(channel));
        mcap::put(places, m_file.size() + m_messageIndexes.size());
        const tRecord record(m_messageIndexes, eMessageIndex);
        mcap::put(m_messageIndexes, static_cast<std::uint16_t>(channel));
        mcap::put(m_messageIndexes, static_cast<std::uint32_t>(16 * chunk.index[channel].size()));
        for (const auto& [timeNs, offset] : chunk.index[channel])
        {
            mcap::put(m_messageIndexes, timeNs);
            mcap::put(m_messageIndexes, offset);
        }
    }
}

void tChunkWriter::put(std::string_view bytes)
{
    m_crc = crc32(m_crc, bytes);
    m_file.write(bytes);
}
}  // namespace recordings::mcap

// tChunkWriter: the chunks of an MCAP file, compressed and written on threads of their own.
//
// Shapes   a chunk is schemas, channels and messages, and where each channel's messages lie in it. Chunks lie in the
//          file in the order of add(), whichever is ready first.
// Memory   add() waits while cWaiting chunks are on their way; memory of chunks that are written is used again.
// Threads  add() and finish() belong to one thread.
// Errors   what fails on a thread is thrown by the next add(), or by finish().
#ifndef KESTOVA_RECORDINGS_INTERNAL_MCAP_CHUNKWRITER_H
#define KESTOVA_RECORDINGS_INTERNAL_MCAP_CHUNKWRITER_H

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KestovaRecordings/internal/partfile.h"
#include "common/worker.h"

namespace recordings::mcap
{
struct tChunk
{
    using tPlaces = std::vector<std::pair<std::uint64_t, std::uint64_t>>;  // of messages: time, offset in records

    std::string records;
    std::uint64_t firstNs = UINT64_MAX, lastNs = 0;  // of its messages
    std::vector<tPlaces> index;                      // by channel

    void clear();  // keeps its memory
};

class tChunkWriter
{
public:
    // `begin` are the bytes that `file` begins with; the file is the writer's until finish() has returned.
    tChunkWriter(tPartFile& file, bool compress, std::string_view begin);
    ~tChunkWriter();
    tChunkWriter(const tChunkWriter&) = delete;
    tChunkWriter& operator=(const tChunkWriter&) = delete;

    void add(tChunk& chunk);  // takes what it holds; it is empty then
    // Waits until all is written. Returns the chunk index records.
    const std::string& finish();

    std::uint32_t chunks() const { return m_chunks; }  // after finish()
    std::uint32_t crc() const { return m_crc; }        // of the file so far; after finish()

private:
    static constexpr std::size_t cThreads = 2, cWaiting = 3;

    struct tPacked
    {
        std::string head;  // of the chunk's record, up to its payload
        std::string compressed;
    };
    class tCompressor;

    void work();
    bool take(std::uint64_t& number, tChunk& chunk);
    void pack(tCompressor& compressor, const tChunk& chunk, tPacked& packed) const;
    void write(const tChunk& chunk, const tPacked& packed);
    void putIndexes(const tChunk& chunk, std::string& places);
    void put(std::string_view bytes);
    void fail();
    void end();
    void throwFailure() const;

    tPartFile& m_file;
    const bool m_compress;
    std::uint32_t m_crc = 0, m_chunks = 0;  // of the thread whose turn it is to write, as are these
    std::string m_chunkIndexes, m_messageIndexes;

    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::map<std::uint64_t, tChunk> m_waiting;
    std::vector<tChunk> m_spare;
    std::uint64_t m_added = 0, m_written = 0;  // chunks
    bool m_isEnding = false;
    std::exception_ptr m_failure;
    tWorker m_workers[cThreads];
};
}  // namespace recordings::mcap

#endif

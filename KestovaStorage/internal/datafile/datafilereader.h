// tDataFileReader: one data file, opened for reading, whole or damaged, finished or not.
//
// Shapes   index() is an array of the file's records as they stand on disk; every one of them lies inside the file and
//          has a possible time.
// Owner    owns the index; opens the file when it reads and closes it on closeFile(), so that thousands of files can be
//          held at once.
// Threads  starts none and locks nothing.
// Errors   nothing read from the file is trusted: what cannot be is left out and counted.
#ifndef KESTOVA_STORAGE_DATAFILE_DATAFILEREADER_H
#define KESTOVA_STORAGE_DATAFILE_DATAFILEREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/datastorageio.h"
#include "KestovaStorage/internal/datafile/indexarray.h"
#include "common/descriptor.h"

namespace huffman
{
class tHuffmanDecode;
}

namespace storage
{
class tDataFileReader
{
public:
    // Null, with the reason in `error` where not null, for what cannot be read or is no data file.
    static std::unique_ptr<tDataFileReader> open(const std::string& path, std::string* error = nullptr);
    // The same without its index, which may still be being written.
    static std::unique_ptr<tDataFileReader> openBare(const std::string& path, std::string* error = nullptr);
    ~tDataFileReader();
    tDataFileReader(const tDataFileReader&) = delete;
    tDataFileReader& operator=(const tDataFileReader&) = delete;

    const std::string& path() const { return m_path; }
    tFileHeadSymbol symbol() const { return m_symbol; }
    bool finished() const { return m_finished; }  // the index head was written
    std::uint64_t size() const { return m_size; }
    std::size_t damaged() const { return m_damaged; }

    std::span<tIndexSlot> index() { return {m_index.get(), m_count}; }
    std::span<const tIndexSlot> index() const { return {m_index.get(), m_count}; }
    bool sorted() const { return m_sorted; }                 // by time
    std::size_t longestRun() const { return m_longestRun; }  // of neighbours with equal times

    // Reads `len` bytes at `pos` into `to`; false if the file does not give them all.
    bool read(std::uint64_t pos, std::size_t len, char* to);
    // Reads the codes of a Huffman file; null where they cannot be used. Kept until closeFile().
    const huffman::tHuffmanDecode* decoder();
    std::uint64_t countedBits() const { return m_countedBits; }  // of its decoder, once that was asked for
    void closeFile();

private:
    explicit tDataFileReader(const std::string& path);
    static std::unique_ptr<tDataFileReader> open(const std::string& path, bool withIndex, std::string* error);
    const char* load(bool withIndex);
    bool openFile();
    bool reopenFile();
    std::size_t readAt(void* to, std::size_t len, std::uint64_t pos) const;
    void readIndex(std::uint32_t indexNum);
    bool readPiece(std::size_t place, std::size_t count);
    void keep(const tIndexSlot& slot);
    bool isEnd(const tIndexSlot& slot) const;
    bool isWhole(const tIndexSlot& slot) const;

    std::string m_path;
    tDescriptor m_file;
    std::uint64_t m_device = 0, m_inode = 0;  // of the file that was opened first
    std::unique_ptr<huffman::tHuffmanDecode> m_decoder;
    std::uint64_t m_countedBits = 0;
    std::uint64_t m_size = 0;
    tFileHeadSymbol m_symbol = cDataFileHead;
    bool m_finished = false;
    bool m_sorted = true;
    std::size_t m_longestRun = 0;
    std::size_t m_damaged = 0;
    std::size_t m_run = 0;  // of equal times, up to the last record kept
    tIndexArray m_index;
    std::size_t m_count = 0;
};
}  // namespace storage

#endif

// tDataFileReader: one data file, opened for reading, whole or damaged, finished or not.
//
// Shapes   index() is an array of the file's records as they stand on disk, record() gives one of them in the form that
//          is the same for every form; every one of them lies inside the file and has a possible time. Opened for
//          playing, the index stays on disk: memory holds blockTimes(), and readBlock() reads records again. That
//          needs records that are all whole and in order of time, as nearly always; otherwise index() is in memory.
// Owner    owns the index; opens the file when it reads and closes it on closeFile(), so that thousands of files can be
//          held at once.
// Threads  starts none and locks nothing.
// Growth   a file that is being written shows what is in it when its index is read: its size is taken again if a record
//          lies behind it, since segments are in the file before their records.
// Errors   nothing read from the file is trusted: impossible records are left out and counted. A tStatus does not name
//          the file.
#ifndef KESTOVA_STORAGE_DATAFILE_DATAFILEREADER_H
#define KESTOVA_STORAGE_DATAFILE_DATAFILEREADER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/datafile/fileforms.h"
#include "KestovaStorage/internal/datafile/indexarray.h"
#include "KestovaStorage/internal/datafile/indexblock.h"
#include "KestovaStorage/internal/datafile/segmentrecord.h"
#include "common/descriptor.h"
#include "common/status.h"

namespace storage
{
class tDataFileReader
{
public:
    // Returns null, and sets `failure` unless it is null, if the file cannot be read or is no data file.
    static std::unique_ptr<tDataFileReader> open(const std::string& path, tStatus* failure = nullptr);
    // Opens the file for playing: while its descriptor is open, others see that it is played (playmark.h).
    static std::unique_ptr<tDataFileReader> openToPlay(const std::string& path, tStatus* failure = nullptr);
    // Opens the file without reading its index, which may still grow; readRecords() returns what is there. A file whose
    // magic is that of no form is read as one of the form `assumed`, unless that is null.
    static std::unique_ptr<tDataFileReader> openBare(const std::string& path, tStatus* failure = nullptr,
                                                     const tFileForm* assumed = nullptr);
    ~tDataFileReader();
    tDataFileReader(const tDataFileReader&) = delete;
    tDataFileReader& operator=(const tDataFileReader&) = delete;

    const std::string& path() const { return m_path; }
    const tFileForm& form() const { return *m_form; }
    bool finished() const { return m_finished; }  // the index head was written
    std::uint64_t size() const { return m_size; }
    std::uint64_t presentSize() const;  // of the open file, which may have grown
    std::size_t damaged() const { return m_damaged; }

    std::size_t count() const { return m_count; }  // of records
    // Returns the time of the first record of each block; nothing if the index is in memory.
    std::span<const std::uint64_t> blockTimes() const { return m_blockTimes; }
    std::uint64_t lastTime() const { return m_lastTime; }  // of the last record
    // Reads a block of an index on disk. A record that is not there any more, or changed into an impossible one, is
    // replaced by one that lies outside the file and has the time before it.
    void readBlock(std::size_t block, tIndexBlock& to);
    // Returns the number that a record has in the index of the file, where records that are left out count, too.
    std::size_t slotNumber(std::size_t i) const;
    // With an index in memory.
    tSegmentRecord record(std::size_t i) const { return m_form->record(m_index[i]); }
    std::span<tIndexSlot> index() { return {m_index.get(), m_blockTimes.empty() ? m_count : 0}; }
    bool sorted() const { return m_sorted; }                 // by time
    std::size_t longestRun() const { return m_longestRun; }  // of neighbours with equal times

    // Reads `len` bytes at `pos` into `to`; returns false if the file does not hold them all or the read fails.
    bool read(std::uint64_t pos, std::size_t len, char* to) { return readUpTo(pos, len, to) == len; }
    // Returns how many of them the file holds.
    std::size_t readUpTo(std::uint64_t pos, std::size_t len, char* to);
    // From now on reads as if this bit of the file were the other one.
    void correctBit(std::uint64_t pos, unsigned bit);
    // Replaces `records` by `count` records from number `first` on as they stand on disk now, unchecked.
    bool readRecords(std::size_t first, std::size_t count, std::vector<tSegmentRecord>& records);
    // Returns the descriptor of the file, which it opens again if it was closed; -1 if that fails.
    int descriptor() { return m_file.valid() || reopenFile() ? m_file.get() : -1; }
    // Reads the head of a compressed file. Returns null for other forms, and if that fails; valid until closeFile().
    const iSegmentDecoder* decoder();
    void closeFile();

private:
    explicit tDataFileReader(const std::string& path);
    enum class eIndex
    {
        eNone,
        eInBlocks,
        eInMemory
    };
    static std::unique_ptr<tDataFileReader> open(const std::string& path, eIndex index, tStatus* failure,
                                                 const tFileForm* assumed = nullptr);
    tStatus load(eIndex index, const tFileForm* assumed);
    bool openFile();
    bool reopenFile();
    tStatus examine();
    const tFileForm* readForm() const;
    void takeSize();
    void readIndex(std::uint32_t indexNum, eIndex index);
    void readInMemory(std::size_t count);
    bool readInBlocks(std::size_t count);
    bool readPiece(tIndexSlot* piece, std::size_t place, std::size_t count);
    void keep(const tIndexSlot& slot);
    void leaveOut();
    // A record without a time ends every index.
    bool isEnd(const tSegmentRecord& record) const { return record.time == 0 || (m_emptyEnds && record.bits == 0); }
    bool isWhole(const tSegmentRecord& record) const;

    std::string m_path;
    tDescriptor m_file;
    bool m_isPlayed = false;                  // the descriptor carries the mark of a file that is played
    std::uint64_t m_device = 0, m_inode = 0;  // of the file that was opened first
    std::unique_ptr<iSegmentDecoder> m_decoder;
    std::vector<std::pair<std::uint64_t, char>> m_corrections;  // of single bytes: what is changed in them
    std::uint64_t m_size = 0;
    const tFileForm* m_form = nullptr;  // never null once the file is open
    bool m_finished = false;
    bool m_emptyEnds = false;  // a record without length ends the index
    bool m_sorted = true;
    std::size_t m_longestRun = 0;
    std::size_t m_damaged = 0;
    struct tGap
    {
        std::size_t record;   // that follows it
        std::size_t leftOut;  // slots up to it
    };
    std::vector<tGap> m_gaps;      // slots between the records that are left out
    std::size_t m_run = 0;         // of equal times, up to the last record
    std::uint64_t m_lastTime = 0;  // of the last record
    std::size_t m_count = 0;
    bool m_inMemory = false;                  // the index
    tIndexArray m_index;                      // in memory, or empty
    std::vector<std::uint64_t> m_blockTimes;  // of an index on disk, or empty
};
}  // namespace storage

#endif

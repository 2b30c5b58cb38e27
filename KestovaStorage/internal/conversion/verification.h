// tVerification: reads back what a conversion writes, record by record, while it is being written, and compares it with
// the source.
//
// Owner    the source outlives it; the written file keeps its path as long.
// Threads  one thread, and the caller of finish().
// Errors   the tStatus does not name the file.
#ifndef KESTOVA_STORAGE_CONVERSION_VERIFICATION_H
#define KESTOVA_STORAGE_CONVERSION_VERIFICATION_H

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "KestovaStorage/internal/conversion/sharedpieces.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace storage
{
class tVerification
{
public:
    tVerification(tDataFileReader& source, const std::string& writtenPath);

    // Reports that the first `records` records are in the written file, with their index.
    void stored(std::size_t records) { m_work.available(records); }
    // Reports that all are, and compares the rest. Succeeds if both files hold the same segments with the same times,
    // every one compared.
    tStatus finish(const tProgressFunction& report);

private:
    // The readers of one of the two threads.
    struct tReaders
    {
        tSegmentReader source, written;
        std::unique_ptr<tDataFileReader> file;  // the written one
        std::vector<tSegmentRecord> records;    // of the piece, as they were written
        std::vector<tSegmentRecord> together;   // those of the source that are compared at once
    };

    tSharedPieces::tPieceFunction pieceFor(tReaders& readers);
    tStatus compare(tReaders& readers, std::size_t first, std::size_t last, std::uint64_t& bytes);
    void takeTogether(std::vector<tSegmentRecord>& together, std::size_t first, std::size_t last) const;
    tStatus compare(tReaders& readers, std::span<const tSegmentRecord> again, std::uint64_t& bytes);
    bool readBack(tReaders& readers, std::size_t first, std::size_t last);

    tDataFileReader& m_source;
    const std::string m_writtenPath;
    tReaders m_callerReaders, m_workerReaders;
    tSharedPieces m_work;
};
}  // namespace storage

#endif

#include "KestovaStorage/internal/conversion/verification.h"

namespace storage
{
namespace
{
// Reads the codes now, before two threads use them.
tDataFileReader& withCodes(tDataFileReader& file)
{
    file.decoder();
    return file;
}

tStatus damaged(const char* text)
{
    return {tStatus::eCode::eDamaged, text};
}
}  // namespace

tVerification::tVerification(tDataFileReader& source, const std::string& writtenPath)
    : m_source(withCodes(source)), m_writtenPath(writtenPath), m_work(m_source, pieceFor(m_workerReaders))
{}

tStatus tVerification::finish(const tProgressFunction& report)
{
    return m_work.finish(pieceFor(m_callerReaders), report);
}

tSharedPieces::tPieceFunction tVerification::pieceFor(tReaders& readers)
{
    return [this, &readers](std::size_t first, std::size_t last, std::uint64_t& bytes) {
        return compare(readers, first, last, bytes);
    };
}

tStatus tVerification::compare(tReaders& readers, std::size_t first, std::size_t last, std::uint64_t& bytes)
{
    if (!readBack(readers, first, last))
        return damaged("the result cannot be read back");
    readers.source.readAhead(m_source, m_source.record(first), m_source.record(last - 1));
    for (std::size_t i = first; i < last; ++i)
    {
        const tSegmentRecord record = m_source.record(i), &again = readers.records[i - first];
        const auto segment = readers.source.read(m_source, record);
        if (!segment)
            return damaged("a segment cannot be read");
        if (readers.written.read(*readers.file, again) != segment || again.time != record.time)
            return damaged("the result does not give a record back");
        bytes += segment->size();
    }
    return {};
}

// Reads the index of a piece from the file, and the segments that it describes.
bool tVerification::readBack(tReaders& readers, std::size_t first, std::size_t last)
{
    if (!readers.file)
        readers.file = tDataFileReader::openBare(m_writtenPath);
    if (!readers.file || !readers.file->readRecords(first, last - first, readers.records))
        return false;
    readers.written.readAhead(*readers.file, readers.records.front(), readers.records.back());
    return true;
}
}  // namespace storage

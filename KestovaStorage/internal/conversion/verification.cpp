#include "KestovaStorage/internal/conversion/verification.h"

#include <array>
#include <string_view>

namespace storage
{
namespace
{
// Short segments that follow each other are decoded four by four; the room for long ones would be large.
constexpr std::size_t cTogether = 4;
constexpr std::uint64_t cShortBytes = 64 * 1024;

bool belongTogether(const tSegmentRecord& record, const tSegmentRecord& next)
{
    return record.bytes() <= cShortBytes && next.bytes() <= cShortBytes && next.firstByte >= record.firstByte &&
           next.firstByte <= record.end() && next.end() >= record.end();
}

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
    for (std::size_t i = first; i < last; i += readers.together.size())
    {
        takeTogether(readers.together, i, last);
        const std::span again = std::span(readers.records).subspan(i - first, readers.together.size());
        if (tStatus status = compare(readers, again, bytes); !status)
            return status;
    }
    return {};
}

// Takes the record `first` and those behind it that can be read with it.
void tVerification::takeTogether(std::vector<tSegmentRecord>& together, std::size_t first, std::size_t last) const
{
    together.assign(1, m_source.record(first));
    for (std::size_t i = first + 1; i < last && together.size() < cTogether; ++i)
    {
        const tSegmentRecord next = m_source.record(i);
        if (!belongTogether(together.back(), next))
            return;
        together.push_back(next);
    }
}

// Compares the records of `together` with what was written.
tStatus tVerification::compare(tReaders& readers, std::span<const tSegmentRecord> again, std::uint64_t& bytes)
{
    std::array<std::string_view, cTogether> segments, written;
    if (!readers.source.readSeveral(m_source, readers.together, segments))
        return damaged("a segment cannot be read");
    const bool isRead = readers.written.readSeveral(*readers.file, again, written);
    for (std::size_t i = 0; i < again.size(); ++i)
    {
        if (!isRead || written[i] != segments[i] || again[i].time != readers.together[i].time)
            return damaged("the result does not give a record back");
        bytes += segments[i].size();
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

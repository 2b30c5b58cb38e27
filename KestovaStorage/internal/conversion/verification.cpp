#include "KestovaStorage/internal/conversion/verification.h"

namespace storage
{
namespace
{
// Its codes are read now: two threads are about to use them.
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
    : m_source(withCodes(source)), m_writtenPath(writtenPath), m_work(m_source, pieceFor(m_there))
{}

tStatus tVerification::finish(const tGoOn& goOn)
{
    return m_work.finish(pieceFor(m_here), goOn);
}

tSharedPieces::tPiece tVerification::pieceFor(tHand& hand)
{
    return [this, &hand](std::size_t first, std::size_t last, std::uint64_t& bytes) {
        return compare(hand, first, last, bytes);
    };
}

tStatus tVerification::compare(tHand& hand, std::size_t first, std::size_t last, std::uint64_t& bytes)
{
    if (!readBack(hand, first, last))
        return damaged("the result cannot be read back");
    hand.source.readAhead(m_source, m_source.record(first), m_source.record(last - 1));
    for (std::size_t i = first; i < last; ++i)
    {
        const tSegmentRecord record = m_source.record(i), &again = hand.records[i - first];
        const auto segment = hand.source.read(m_source, record);
        if (!segment)
            return damaged("a segment cannot be read");
        if (hand.written.read(*hand.file, again) != segment || again.time != record.time)
            return damaged("the result does not give a record back");
        bytes += segment->size();
    }
    return {};
}

// The index of a piece, as it stands in the file, and the segments that it describes.
bool tVerification::readBack(tHand& hand, std::size_t first, std::size_t last)
{
    if (!hand.file)
        hand.file = tDataFileReader::openBare(m_writtenPath);
    if (!hand.file || !hand.file->readRecords(first, last - first, hand.records))
        return false;
    hand.written.readAhead(*hand.file, hand.records.front(), hand.records.back());
    return true;
}
}  // namespace storage

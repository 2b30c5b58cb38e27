#include "KestovaStorage/internal/conversion/verification.h"

namespace storage
{
namespace
{
// Its codes are read now: two threads are about to use them.
tDataFileReader& withCodes(tDataFileReader& file)
{
    if (file.symbol() == cHuffmanFileHead)
        file.decoder();
    return file;
}
}  // namespace

tVerification::tVerification(tDataFileReader& source, const std::string& writtenPath)
    : m_source(withCodes(source)), m_writtenPath(writtenPath), m_work(m_source, pieceFor(m_there))
{}

bool tVerification::finish(const tGoOn& goOn, std::string& error)
{
    return m_work.finish(pieceFor(m_here), goOn, error);
}

tSharedPieces::tPiece tVerification::pieceFor(tHand& hand)
{
    return [this, &hand](std::size_t first, std::size_t last, std::string& error) {
        return compare(hand, first, last, error);
    };
}

std::optional<std::uint64_t> tVerification::compare(tHand& hand, std::size_t first, std::size_t last,
                                                    std::string& error)
{
    error = "the result cannot be read back";
    if (!readBack(hand, first, last))
        return std::nullopt;
    hand.source.readAhead(m_source, m_source.index().subspan(first, last - first));
    std::uint64_t bytes = 0;
    for (std::size_t i = first; i < last; ++i)
    {
        const tIndexSlot &slot = m_source.index()[i], &again = hand.slots[i - first];
        const auto segment = hand.source.read(m_source, slot);
        error = segment ? "the result does not give a record back" : "a segment cannot be read";
        if (!segment || hand.written.read(*hand.file, again) != segment || timeOf(again) != timeOf(slot))
            return std::nullopt;
        bytes += segment->size();
    }
    return bytes;
}

// The index of a piece, as it stands in the file, and what it says is there.
bool tVerification::readBack(tHand& hand, std::size_t first, std::size_t last)
{
    if (!hand.file)
        hand.file = tDataFileReader::openBare(m_writtenPath);
    hand.slots.resize(last - first);
    if (!hand.file || !hand.file->read(cIndexPos + first * cIndexSlotSize, (last - first) * cIndexSlotSize,
                                       reinterpret_cast<char*>(hand.slots.data())))
        return false;
    hand.written.readAhead(*hand.file, hand.slots);
    return true;
}
}  // namespace storage

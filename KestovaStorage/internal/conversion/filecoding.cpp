#include "KestovaStorage/internal/conversion/filecoding.h"

#include <stdexcept>
#include <string_view>

#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace storage
{
namespace
{
constexpr std::size_t cWindow = 256 * 1024;  // stays in a core's cache
constexpr std::uint64_t cProgressStep = 1 << 20;

tStatus refused(const char* text)
{
    return {tStatus::eCode::eRefused, text};
}

tStatus damaged(const char* text)
{
    return {tStatus::eCode::eDamaged, text};
}

tStatus unreadable()
{
    return damaged("a segment cannot be read");
}

tStatus writeFailed(const tOutputFile& out)
{
    return tStatus::system(out.error(), "cannot be written");
}

// Reports progress once per cProgressStep bytes.
class tProgress
{
public:
    explicit tProgress(const tProgressFunction& report) : m_report(report) {}
    bool add(std::uint64_t bytes)
    {
        m_done += bytes;
        if (m_done - m_reported < cProgressStep)
            return true;
        m_reported = m_done;
        return !m_report || m_report(m_done);
    }

private:
    const tProgressFunction& m_report;
    std::uint64_t m_done = 0, m_reported = 0;
};

bool appendEncoded(tConversionOutput& out, iSegmentEncoder& encoder, std::uint64_t time, std::string_view segment)
{
    const auto len = static_cast<std::uint32_t>(segment.size());
    char* const to = out.room(encoder.room(len));
    if (to == nullptr)
        return false;
    const tEncodedBits codes = encoder.encode(segment.data(), len, to);
    const auto firstBit = static_cast<std::uint8_t>(codes.firstBit % 8);
    out.add({time, out.position() + codes.firstBit / 8, codes.bits, firstBit}, codes.stored);
    return true;
}

bool appendPlain(tConversionOutput& out, std::uint64_t time, std::string_view segment)
{
    char* const to = out.room(segment.size());
    if (to == nullptr)
        return false;
    const std::size_t len = segment.copy(to, segment.size());
    out.add({time, out.position(), std::uint64_t{len} * 8}, len);
    return true;
}

// Counts the segments of pieces.
class tCounting
{
public:
    tCounting(tDataFileReader& plain, iSegmentEncoder& encoder) : m_plain(plain), m_encoder(encoder) {}

    tSharedPieces::tPieceFunction piece()
    {
        return [this](auto first, auto last, auto& bytes) { return count(first, last, bytes); };
    }

private:
    tStatus count(std::size_t first, std::size_t last, std::uint64_t& bytes)
    {
        m_segments.readAhead(m_plain, m_plain.record(first), m_plain.record(last - 1));
        for (std::size_t i = first; i < last; ++i)
        {
            const auto segment = m_segments.read(m_plain, i);
            if (!segment)
                return unreadable();
            m_encoder.count(segment->data(), segment->size());
            bytes += segment->size();
        }
        return {};
    }

    tDataFileReader& m_plain;
    iSegmentEncoder& m_encoder;
    tSegmentReader m_segments;
};

// Calls append(time, bytes) for every segment of the file, in order. Returns its first failure.
template <typename tAppend>
tStatus eachSegment(tDataFileReader& file, const tProgressFunction& report, tAppend append)
{
    tSegmentReader segments(cWindow);
    tProgress progress(report);
    for (std::size_t i = 0; i < file.count(); ++i)
    {
        const tSegmentRecord record = file.record(i);
        const auto segment = segments.read(file, record);
        if (!segment)
            return unreadable();
        if (tStatus status = append(record.time, *segment); !status)
            return status;
        if (!progress.add(segment->size()))
            return interrupted();
    }
    return {};
}

// Bits of a segment are counted in 32 bits.
bool isStorable(const iSegmentEncoder& encoder, std::size_t len)
{
    return encoder.room(len) < UINT32_MAX / 8;
}
}  // namespace

tStatus countSegments(tDataFileReader& plain, iSegmentEncoder& encoder, const tProgressFunction& report)
{
    const auto aside = cCompressedForm.newEncoder();
    tCounting callerCounting(plain, encoder), workerCounting(plain, *aside);
    tSharedPieces work(plain, workerCounting.piece());
    work.available(plain.count());
    tStatus status = work.finish(callerCounting.piece(), report);
    if (status)
        encoder.count(*aside);
    return status;
}

tStatus encodeFile(tDataFileReader& plain, iSegmentEncoder& encoder, tOutputFile& out, const tProgressFunction& report,
                   const tStored& stored)
try
{
    const std::string head = encoder.begin();
    if (head.empty())
        return refused("its bytes have no code that could be read back");
    if (head.size() > cIndexHeadPos)
        return refused("its code needs more room than the file has in front of its index");
    if (!out.writeAt(head.data(), head.size(), 0))
        return writeFailed(out);
    tConversionOutput encoded(out, cCompressedForm, stored);
    tStatus status = eachSegment(plain, report, [&](std::uint64_t time, std::string_view segment) {
        if (!isStorable(encoder, segment.size()))
            return refused("a segment is too long for a compressed file");
        return appendEncoded(encoded, encoder, time, segment) ? tStatus() : writeFailed(out);
    });
    if (!status)
        return status;
    const tEncodedRest rest = encoder.rest();
    return encoded.finish({rest.bytes, rest.size}) ? tStatus() : writeFailed(out);
}
catch (const std::out_of_range&)
{
    return damaged("it has changed since its bytes were counted");
}

tStatus decodeFile(tDataFileReader& encoded, std::uint64_t bytes, tOutputFile& out, const tProgressFunction& report,
                   const tStored& stored)
{
    const std::uint32_t magic = fileOrder(static_cast<std::uint32_t>(cPlainForm.number));
    if (!out.writeAt(&magic, sizeof magic, 0))
        return writeFailed(out);
    tConversionOutput plain(out, cPlainForm, stored);
    tStatus status = eachSegment(encoded, report, [&](std::uint64_t time, std::string_view segment) {
        return appendPlain(plain, time, segment) ? tStatus() : writeFailed(out);
    });
    if (!status)
        return status;
    if (plain.position() != cPayloadPos + bytes)
        return damaged("its codes do not give as many bytes as its head says");
    return plain.finish({}) ? tStatus() : writeFailed(out);
}
}  // namespace storage

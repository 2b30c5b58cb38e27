#include "KestovaStorage/rawdatafile.h"

#include <memory>
#include <utility>
#include <vector>

#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "KestovaStorage/internal/datafile/fileforms.h"
#include "KestovaStorage/internal/datafile/segmentreader.h"

namespace storage
{
class tRawDataFilePrivate
{
public:
    std::unique_ptr<tDataFileReader> m_reader;  // never null once the file is open
    const iSegmentDecoder* m_decoder = nullptr;
};

class tRawSegmentsPrivate
{
public:
    explicit tRawSegmentsPrivate(const tRawDataFile& file) : m_file(*file.d->m_reader) {}

    tDataFileReader& m_file;  // open, its codes read: reading it changes nothing
    tSegmentReader m_segments;
    std::vector<tSegmentRecord> m_records;
    std::vector<std::string_view> m_views;
};

tRawDataFile::tRawDataFile() : m_lengthShift(0), m_firstBits(0), d(new tRawDataFilePrivate) {}

tRawDataFile::~tRawDataFile()
{
    delete d;
}

bool tRawDataFile::open(const std::string& path, uint32_t assumed, std::string* error)
{
    tStatus failure;
    d->m_decoder = nullptr;
    d->m_reader = tDataFileReader::openBare(path, &failure, formOf(assumed));
    if (!failure && error != nullptr)
        *error = std::move(failure).of(path).text();
    if (!d->m_reader)
        return false;
    m_lengthShift = d->m_reader->form().lengthShift;
    m_firstBits = d->m_reader->form().firstBits;
    d->m_decoder = d->m_reader->decoder();
    return true;
}

tFileHeadSymbol tRawDataFile::form() const
{
    return d->m_reader->form().number;
}

bool tRawDataFile::isCompressed() const
{
    return d->m_reader->form().isCompressed();
}

uint64_t tRawDataFile::countedBytes() const
{
    return d->m_decoder != nullptr ? d->m_decoder->countedBytes() : 0;
}

uint64_t tRawDataFile::size() const
{
    return d->m_reader->presentSize();
}

size_t tRawDataFile::read(uint64_t pos, size_t len, void* to) const
{
    return d->m_reader->readUpTo(pos, len, static_cast<char*>(to));
}

void tRawDataFile::correctBit(uint64_t pos, unsigned bit)
{
    d->m_reader->correctBit(pos, bit);
    d->m_decoder = d->m_reader->decoder();
}

tRawSegments::tRawSegments(const tRawDataFile& file) : d(new tRawSegmentsPrivate(file)) {}

tRawSegments::~tRawSegments()
{
    delete d;
}

bool tRawSegments::read(const tRawRecord* records, size_t count, tSegmentView* segments)
try
{
    if (count == 0)
        return true;
    d->m_records.clear();
    d->m_views.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        d->m_records.push_back(
            {records[i].timeMs, records[i].firstByte, records[i].bits, static_cast<std::uint8_t>(records[i].firstBit)});
    if (d->m_records.back().end() < d->m_records.front().firstByte ||
        !d->m_segments.readSeveral(d->m_file, d->m_records, d->m_views))
        return false;
    for (std::size_t i = 0; i < count; ++i)
        segments[i] = tSegmentView{d->m_views[i].data(), d->m_views[i].size()};
    return true;
}
catch (const std::bad_alloc&)
{
    return false;
}
}  // namespace storage

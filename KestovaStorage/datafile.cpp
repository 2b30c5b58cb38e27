#include "KestovaStorage/datafile.h"

#include <algorithm>
#include <new>
#include <utility>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/internal/datafile/datafileprivate.h"
#include "KestovaStorage/internal/datafile/fileforms.h"

namespace storage
{
const char* fileFormName(tFileHeadSymbol form)
{
    const tFileForm* const known = formOf(form);
    return known != nullptr ? known->name : "unknown";
}

tFineTimes& tDataFilePrivate::fineTimes()
{
    if (!m_fineTimes)
        m_fineTimes.emplace(m_reader ? fineTimesOf(*m_reader) : tFineTimes());
    return *m_fineTimes;
}

tDataFile::tDataFile() : d(new tDataFilePrivate) {}

tDataFile::~tDataFile()
{
    delete d;
}

bool tDataFile::open(const std::string& path, std::string* error)
{
    d->m_path = path;
    d->m_payloadBytes = 0;
    d->m_fineTimes.reset();
    tStatus failure;
    d->m_reader = tDataFileReader::open(path, &failure);
    if (!failure && error != nullptr)
        *error = std::move(failure).of(path).text();
    if (!d->m_reader)
        return false;
    for (std::size_t i = 0; i < d->m_reader->count(); ++i)
        d->m_payloadBytes += static_cast<std::uint32_t>(d->m_reader->record(i).bytes());
    return true;
}

const std::string& tDataFile::path() const
{
    return d->m_path;
}

tFileHeadSymbol tDataFile::kind() const
{
    return d->m_reader ? d->m_reader->form().number : cDataFileHead;
}

bool tDataFile::isCompressed() const
{
    return d->m_reader && d->m_reader->form().isCompressed();
}

bool tDataFile::finished() const
{
    return d->m_reader && d->m_reader->finished();
}

uint64_t tDataFile::size() const
{
    return d->m_reader ? d->m_reader->size() : 0;
}

uint64_t tDataFile::payloadBytes() const
{
    return d->m_payloadBytes;
}

size_t tDataFile::recordCount() const
{
    return d->m_reader ? d->m_reader->count() : 0;
}

size_t tDataFile::damagedCount() const
{
    return d->m_reader ? d->m_reader->damaged() : 0;
}

tDataFileRecord tDataFile::record(size_t i) const
{
    const tSegmentRecord record = d->m_reader->record(i);
    return {record.time, record.firstByte, static_cast<std::uint32_t>(record.bytes())};
}

int tDataFile::fineTime(size_t i) const
{
    return d->m_reader ? d->fineTimes().at(d->m_reader->slotNumber(i)) : -1;
}

tFineTimesState tDataFile::fineTimes() const
{
    return d->fineTimes().state();
}

bool tDataFile::fineTimesId(tFileId& id) const
{
    const bool ours = fineTimes() == eFineTimesOurs;
    if (ours)
        id = d->fineTimes().id();
    return ours;
}

const char* tDataFile::view(size_t i, size_t& len)
{
    if (i >= recordCount())
        return nullptr;
    const auto segment = d->m_segments.read(*d->m_reader, i);
    if (!segment)
        return nullptr;
    len = segment->size();
    return len != 0 ? segment->data() : "";
}

size_t tDataFile::readRun(size_t first, size_t count, tDataFileSegment* segments)
{
    const size_t most = first < recordCount() ? std::min(count, recordCount() - first) : 0;
    if (most == 0 || isCompressed())
        return 0;
    const tSegmentReader::tRun run = d->m_segments.readRun(*d->m_reader, first, most);
    for (size_t i = 0; i < run.records; ++i)
    {
        const tSegmentRecord record = d->m_reader->record(first + i);
        segments[i] = {record.time, run.bytes + (record.firstByte - run.pos), static_cast<size_t>(record.bytes())};
    }
    return run.records;
}

bool tDataFile::readPart(size_t i, size_t offset, size_t len, char* to)
{
    return i < recordCount() && d->m_segments.readPart(*d->m_reader, d->m_reader->record(i), offset, len, to);
}

bool tDataFile::read(size_t i, std::string& bytes)
try
{
    if (i >= recordCount())
        return false;
    const auto segment = d->m_segments.read(*d->m_reader, i);
    if (segment)
        bytes = *segment;
    return segment.has_value();
}
catch (const std::bad_alloc&)
{
    return false;
}
}  // namespace storage

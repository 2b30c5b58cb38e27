#include "KestovaStorage/internal/conversion/fileconverter.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>
#include <vector>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/internal/conversion/filecoding.h"
#include "KestovaStorage/internal/conversion/verification.h"
#include "KestovaStorage/internal/datafile/naming.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
std::uint64_t payloadOf(const tDataFileReader& plain)
{
    std::uint64_t bytes = 0;
    for (std::size_t i = 0; i < plain.count(); ++i)
        bytes += plain.record(i).bytes();
    return bytes;
}

// Returns whether the disk had no room for the end of the file: whole records follow each other from the start, those
// behind them reach beyond the end of the file, and the index ends where its head says.
bool isCut(tDataFileReader& plain)
{
    tIndexHead head;
    std::vector<tSegmentRecord> behind;
    const std::size_t whole = plain.count(), cut = plain.damaged();
    if (whole == 0 || !plain.read(cIndexHeadPos, sizeof head, reinterpret_cast<char*>(&head)) ||
        fileOrder(head).indexNum != whole + cut || !plain.readRecords(whole, cut + 1, behind))
        return false;
    std::uint64_t end = cPayloadPos;
    const auto follows = [&end](const tSegmentRecord& record) {
        return record.firstByte == std::exchange(end, record.end());
    };
    for (std::size_t i = 0; i < whole; ++i)
        if (!follows(plain.record(i)))
            return false;
    const tSegmentRecord last = behind.back();
    behind.pop_back();
    return last.time == 0 && std::all_of(behind.begin(), behind.end(), [&](const tSegmentRecord& record) {
               return follows(record) && record.time != 0 && record.time < cTimeLimit && end > plain.size();
           });
}

std::string realPath(const std::string& path)
{
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error).string();
    return error ? path : real;
}

// Names that do not end in ".data" have companions of their own in each form.
void moveCompanions(const std::string& from, const std::string& to)
{
    for (const auto nameOf : {&sheetName, &fineTimesName})
    {
        if (nameOf(from) != nameOf(to) && !paths::exists(nameOf(to)))
            std::rename(nameOf(from).c_str(), nameOf(to).c_str());
    }
}

tStatus refused(const std::string& text)
{
    return {tStatus::eCode::eRefused, text};
}
}  // namespace

tFileConverter::tFileConverter(const std::string& path, iConversionObserver* observer)
    : m_path(realPath(path)), m_observer(observer)
{}

tStatus tFileConverter::compress(const std::string& suffix)
{
    if (tStatus status = open(false, "it is compressed already"); !status)
        return status;
    if (tStatus status = checkUndamaged(); !status)
        return status;
    m_total = payloadOf(*m_source);
    if (m_source->size() != cPayloadPos + m_total || m_source->count() == 0)
        return refused("it holds no segments, or bytes that belong to none");
    return compressOpened(suffix);
}

tStatus tFileConverter::compressWhole(const std::string& suffix)
{
    if (tStatus status = open(false, "it is compressed already"); !status)
        return status;
    if (!isCut(*m_source))
        return compress(suffix);
    m_total = payloadOf(*m_source);
    m_leftOut = {m_source->damaged(), m_source->size() - cPayloadPos - m_total};
    return compressOpened(suffix);
}

tStatus tFileConverter::compressOpened(const std::string& suffix)
{
    if (tStatus status = openOutput(naming::compressedName(m_path, suffix)); !status)
        return status;
    const auto encoder = cCompressedForm.newEncoder();
    if (tStatus status = countSegments(*m_source, *encoder, progress(eCounting)); !status)
        return status;
    return write([&](const tStored& stored) { return encode(*encoder, stored); });
}

tStatus tFileConverter::compressRecorded(const std::string& suffix, iSegmentEncoder& counted)
{
    if (tStatus status = openRecorded(counted.countedBytes()); !status)
        return status;
    m_result = naming::compressedName(m_path, suffix);
    m_out = std::make_unique<tOutputFile>(m_result);
    if (!m_out->isOpen())
        return giveUpRecorded();
    if (tStatus status = encode(counted, nullptr); !status)
        return status;
    if (!m_out->commit(m_result))
        return m_out->status();
    std::remove(m_path.c_str());
    moveCompanions(m_path, m_result);
    return {};
}

tStatus tFileConverter::expand(const std::string& suffix)
{
    if (tStatus status = open(true, "it is not compressed"); !status)
        return status;
    if (tStatus status = checkUndamaged(); !status)
        return status;
    const iSegmentDecoder* const decoder = m_source->decoder();
    m_total = decoder != nullptr ? decoder->countedBytes() : 0;
    if (tStatus status = openOutput(naming::plainName(m_path, suffix)); !status)
        return status;
    return write(
        [&](const tStored& stored) { return decodeFile(*m_source, m_total, *m_out, progress(eWriting), stored); });
}

tStatus tFileConverter::open(bool compressed, const char* otherwise)
{
    tStatus status;
    m_source = tDataFileReader::open(m_path, &status);
    if (!m_source)
        return status;
    if (m_source->form().isCompressed() != compressed)
        return refused(otherwise);
    if (!m_source->finished())
        return refused("it is unfinished: it is being recorded, or its recorder died");
    return {};
}

tStatus tFileConverter::checkUndamaged() const
{
    if (m_source->damaged() == 0)
        return {};
    return {tStatus::eCode::eDamaged, std::to_string(m_source->damaged()) + " of its records are damaged"};
}

// A recorded file is complete when its last segment ends where all that was counted ends.
tStatus tFileConverter::openRecorded(std::uint64_t bytes)
{
    if (bytes == 0)
        return refused("it holds no segments");
    tStatus status;
    m_source = tDataFileReader::open(m_path, &status);
    if (!m_source)
        return status;
    m_total = bytes;
    const bool complete = m_source->finished() && m_source->damaged() == 0 && m_source->size() == cPayloadPos + bytes;
    return complete ? tStatus() : refused("it is not complete");
}

tStatus tFileConverter::openOutput(const std::string& result)
{
    m_result = result;
    if (m_result != m_path && paths::exists(m_result))
        return refused("there is a " + m_result + " already");
    m_out = std::make_unique<tOutputFile>(m_path);
    return m_out->isOpen() ? tStatus() : tStatus::system(m_out->error(), m_out->path());
}

// Kept: removes the recording if the output cannot even be opened. One that opens but cannot be locked is another's.
tStatus tFileConverter::giveUpRecorded()
{
    tStatus status = tStatus(m_out->status()).of(m_out->path());
    if (m_out->wasOpened() || isKept(m_path))
        return status;
    removeDataFile(m_path);
    return std::move(status).of("it is removed, for no output could be made");
}

tStatus tFileConverter::encode(iSegmentEncoder& counted, const tStored& stored)
{
    return encodeFile(*m_source, counted, *m_out, progress(eWriting), stored);
}

// Writes the result and compares it at the same time. Replaces the source only if all records are equal and on the
// disk.
template <typename tWork>
tStatus tFileConverter::write(tWork work)
{
    tVerification comparison(*m_source, m_out->path());
    tStatus status = work([&](std::size_t records) { comparison.stored(records); });
    if (status)
        status = sync();
    if (status)
        status = comparison.finish(progress(eVerifying));
    if (status)
        status = checkWhole();
    return status ? replace() : status;
}

tProgressFunction tFileConverter::progress(tConversionStep step)
{
    return [this, step](std::uint64_t bytes) {
        return m_observer == nullptr || m_observer->UpdateConversion(step, bytes, m_total);
    };
}

tStatus tFileConverter::sync()
{
    return m_out->sync() ? tStatus() : tStatus::system(m_out->error());
}

tStatus tFileConverter::checkWhole() const
{
    tStatus status;
    const auto written = tDataFileReader::open(m_out->path(), &status);
    if (!written)
        return std::move(status).of(m_out->path());
    const bool whole = written->finished() && written->damaged() == 0 && written->count() == m_source->count();
    return whole ? tStatus() : tStatus(tStatus::eCode::eDamaged, "the result has another number of records");
}

// Renames over the source first: at no moment are there two files, or none.
tStatus tFileConverter::replace()
{
    if (!m_out->likeFile(m_path) || !m_out->commit(m_path))
        return tStatus::system(m_out->error());
    if (m_result != m_path && std::rename(m_path.c_str(), m_result.c_str()) != 0)
        m_result = m_path;  // converted, under the name it had
    moveCompanions(m_path, m_result);
    syncFolderOf(m_result);
    return {};
}
}  // namespace storage

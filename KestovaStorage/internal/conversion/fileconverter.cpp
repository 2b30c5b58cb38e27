#include "KestovaStorage/internal/conversion/fileconverter.h"

#include <cstdio>
#include <filesystem>
#include <utility>

#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/conversion/filecoding.h"
#include "KestovaStorage/internal/conversion/verification.h"
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

std::uint64_t countedBytes(tDataFileReader& encoded)
{
    huffman::tFileHead head{};
    std::uint64_t bytes = 0;
    if (encoded.read(0, sizeof head, reinterpret_cast<char*>(&head)))
        for (const huffman::tAlphaFreq& alpha : head.alphaFreqs)
            bytes += alpha.freq;
    return bytes;
}

std::string realPath(const std::string& path)
{
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error).string();
    return error ? path : real;
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
    if (tStatus status = open(cDataFileHead, "it is compressed already"); !status)
        return status;
    m_total = payloadOf(*m_source);
    if (m_source->size() != cPayloadPos + m_total || m_source->count() == 0)
        return refused("it holds no segments, or bytes that belong to none");
    if (tStatus status = openOutput(encodedName(m_path, suffix)); !status)
        return status;
    huffman::tSegmentEncoder encoder;
    if (tStatus status = countSegments(*m_source, encoder, progress(eCounting)); !status)
        return status;
    return write(
        [&](const tStored& stored) { return encodeFile(*m_source, encoder, *m_out, progress(eWriting), stored); });
}

tStatus tFileConverter::expand(const std::string& suffix)
{
    if (tStatus status = open(cHuffmanFileHead, "it is not compressed"); !status)
        return status;
    m_total = countedBytes(*m_source);
    if (tStatus status = openOutput(plainName(m_path, suffix)); !status)
        return status;
    return write(
        [&](const tStored& stored) { return decodeFile(*m_source, m_total, *m_out, progress(eWriting), stored); });
}

tStatus tFileConverter::open(tFileHeadSymbol kind, const char* otherwise)
{
    tStatus status;
    m_source = tDataFileReader::open(m_path, &status);
    if (!m_source)
        return status;
    if (m_source->symbol() != kind)
        return refused(otherwise);
    if (!m_source->finished())
        return refused("it is unfinished: it is being recorded, or its recorder died");
    if (m_source->damaged() != 0)
        return {tStatus::eCode::eDamaged, std::to_string(m_source->damaged()) + " of its records are damaged"};
    return {};
}

tStatus tFileConverter::openOutput(const std::string& result)
{
    m_result = result;
    if (m_result != m_path && paths::exists(m_result))
        return refused("there is a " + m_result + " already");
    m_out = std::make_unique<tOutputFile>(m_path);
    return m_out->isOpen() ? tStatus() : tStatus::system(m_out->error(), m_out->path());
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
    syncFolderOf(m_result);
    return {};
}
}  // namespace storage

#include "KestovaStorage/datafileconverter.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>

#include "KestovaStorage/huffmanhead.h"
#include "KestovaStorage/internal/conversion/filecoding.h"
#include "KestovaStorage/internal/conversion/verification.h"
#include "KestovaStorage/internal/disk/paths.h"

namespace storage
{
namespace
{
std::uint64_t payloadOf(tDataFileReader& plain)
{
    std::uint64_t bytes = 0;
    for (const tIndexSlot& slot : plain.index())
        bytes += decodeNormal(slot).len;
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

std::string plainName(const std::string& encodedPath, const std::string& suffix)
{
    const std::string ending = ".tar" + suffix;
    return encodedPath.ends_with(ending) ? encodedPath.substr(0, encodedPath.size() - ending.size()) + suffix
                                         : encodedPath;
}

// The file that a link leads to: that one is converted, where it is.
std::string realPath(const std::string& path)
{
    std::error_code error;
    const std::string real = std::filesystem::canonical(path, error).string();
    return error ? path : real;
}

// One file on its way from one form to the other. Every step says why it failed.
class tConversion
{
public:
    tConversion(const std::string& path, iConversionObserver* observer) : m_path(realPath(path)), m_observer(observer)
    {}

    bool compress(const std::string& suffix)
    {
        if (!open(cDataFileHead, "it is compressed already"))
            return false;
        m_total = payloadOf(*m_source);
        if (m_source->size() != cPayloadPos + m_total || m_source->index().empty())
            return fail("it holds no segments, or bytes that belong to none");
        huffman::tSegmentEncoder encoder;
        return aim(encodedName(m_path, suffix)) && countSegments(*m_source, encoder, step(eCounting), m_error) &&
               write([&](const tStored& stored) {
                   return encodeFile(*m_source, encoder, *m_out, step(eWriting), stored, m_error);
               });
    }
    bool expand(const std::string& suffix)
    {
        if (!open(cHuffmanFileHead, "it is not compressed"))
            return false;
        m_total = countedBytes(*m_source);
        return aim(plainName(m_path, suffix)) && write([&](const tStored& stored) {
                   return decodeFile(*m_source, m_total, *m_out, step(eWriting), stored, m_error);
               });
    }
    const std::string& result() const { return m_result; }
    std::string error() const { return m_path + ": " + m_error; }

private:
    bool fail(const std::string& reason)
    {
        m_error = reason;
        return false;
    }
    bool open(tFileHeadSymbol symbol, const char* otherwise)
    {
        m_source = tDataFileReader::open(m_path, &m_error);
        if (!m_source)
            return fail(m_error.substr(m_path.size() + 2));  // the path stands in front of it
        if (m_source->symbol() != symbol)
            return fail(otherwise);
        if (!m_source->finished())
            return fail("it is unfinished: it is being recorded, or its recorder died");
        return m_source->damaged() == 0 || fail(std::to_string(m_source->damaged()) + " of its records are damaged");
    }
    bool aim(const std::string& result)
    {
        m_result = result;
        if (m_result != m_path && paths::exists(m_result))
            return fail("there is a " + m_result + " already");
        m_out = std::make_unique<tOutputFile>(m_path);
        return m_out->isOpen() || fail(m_out->path() + ": " + std::strerror(m_out->error()));
    }
    tGoOn step(tConversionStep step)
    {
        return [this, step](std::uint64_t bytes) {
            return m_observer == nullptr || m_observer->UpdateConversion(step, bytes, m_total);
        };
    }
    // Writes the result and compares it meanwhile; only what is the same all through, and on the disk, takes the place.
    template <typename tWork>
    bool write(tWork work)
    {
        tVerification comparison(*m_source, m_out->path());
        return work([&](std::size_t records) { comparison.stored(records); }) && sync() &&
               comparison.finish(step(eVerifying), m_error) && isWhole() && replace();
    }
    bool sync() { return m_out->sync() || fail(std::strerror(m_out->error())); }
    bool isWhole()
    {
        const auto written = tDataFileReader::open(m_out->path(), &m_error);
        if (!written)
            return false;
        const bool whole =
            written->finished() && written->damaged() == 0 && written->index().size() == m_source->index().size();
        return whole || fail("the result has another number of records");
    }
    // Over the source first: there is no moment with two files, and none without.
    bool replace()
    {
        if (!m_out->likeFile(m_path) || !m_out->commit(m_path))
            return fail(std::strerror(m_out->error()));
        if (m_result != m_path && std::rename(m_path.c_str(), m_result.c_str()) != 0)
            m_result = m_path;  // converted, under the name it had
        syncFolderOf(m_result);
        return true;
    }

    const std::string m_path;
    iConversionObserver* const m_observer;
    std::unique_ptr<tDataFileReader> m_source;
    std::unique_ptr<tOutputFile> m_out;
    std::uint64_t m_total = 0;
    std::string m_result, m_error;
};

template <typename tWork>
bool convert(const std::string& path, iConversionObserver* observer, std::string* result, std::string* error,
             tWork work)
try
{
    tConversion conversion(path, observer);
    const bool done = work(conversion);
    if (done && result != nullptr)
        *result = conversion.result();
    if (!done && error != nullptr)
        *error = conversion.error();
    return done;
}
catch (const std::bad_alloc&)
{
    if (error != nullptr)
        *error = path + ": not enough memory";
    return false;
}
}  // namespace

bool tDataFileConverter::Compress(const std::string& path, const std::string& specifySuffix,
                                  iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, observer, result, error, [&](tConversion& c) { return c.compress(specifySuffix); });
}

bool tDataFileConverter::Expand(const std::string& path, const std::string& specifySuffix,
                                iConversionObserver* observer, std::string* result, std::string* error)
{
    return convert(path, observer, result, error, [&](tConversion& c) { return c.expand(specifySuffix); });
}
}  // namespace storage

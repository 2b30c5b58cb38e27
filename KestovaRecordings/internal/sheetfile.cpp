#include "KestovaRecordings/internal/sheetfile.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include "common/byteorder.h"

namespace recordings
{
namespace
{
// In the numbers, or in their digits, since a sheet has them as text. A bit makes a blank of a 0 at the end.
int bitsApart(std::uint64_t stated, std::uint64_t found)
{
    const int inNumbers = std::popcount(stated ^ found);
    const std::string right = std::to_string(found);
    std::string text = std::to_string(stated);
    if (text.size() > right.size())
        return inNumbers;
    text.resize(right.size(), ' ');
    int inTexts = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        inTexts += std::popcount(static_cast<unsigned char>(text[i] ^ right[i]));
    return std::min(inNumbers, inTexts);
}
}  // namespace

std::string shown(const std::string& path)
{
    std::string text;
    for (const char c : path)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F)
            text += fmt::format("\\x{:02x}", byte);
        else
            text += c;
    }
    return text;
}

tSheetFile::tSheetFile(const std::string& path) : tSheetFile(AT_FDCWD, path) {}

// A pipe that nobody writes to must not hold the reader.
tSheetFile::tSheetFile(int folder, const std::string& name)
    : m_file(::openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY))
{
    struct stat found
    {};
    if (!m_file.valid())
    {
        m_exists = errno != ENOENT && errno != ENOTDIR && errno != ENAMETOOLONG;
        if (m_exists)
            m_problem = errno == ELOOP ? "is a link" : fmt::format("cannot be read: {}", std::strerror(errno));
        return;
    }
    if (::fstat(m_file.get(), &found) != 0)
        return;
    if (!S_ISREG(found.st_mode))
        m_problem = "is no regular file";
    else if (static_cast<std::uint64_t>(found.st_size) > cSheetSizeLimit)
        m_problem = fmt::format("is larger than a sheet can be: {} bytes", found.st_size);
    m_size = static_cast<std::size_t>(found.st_size);
}

tDataFileBeginning readBeginning(const std::string& dataFile)
{
    const tDescriptor file(::open(dataFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    tDataFileBeginning beginning;
    unsigned char magic[4] = {};
    storage::tIndexSlot slot{};
    beginning.readable = file.valid() && file.readAllAt(magic, sizeof magic, 0);
    if (!beginning.readable)
        return beginning;
    const auto number = le::load<std::uint32_t>(magic);
    if (number == storage::cDataFileHead || number == storage::cHuffmanFileHead)
        beginning.form = static_cast<storage::tFileHeadSymbol>(number);
    if (file.readAllAt(slot.data(), slot.size(), storage::cIndexPos) && storage::timeOf(slot) != 0)
        beginning.first = slot;
    return beginning;
}

tSheetFirst firstOf(const storage::tIndexSlot& slot, storage::tFileHeadSymbol form)
{
    const std::uint64_t position =
        form == storage::cHuffmanFileHead ? storage::decodeEncoded(slot).firstBytePos : storage::decodeNormal(slot).pos;
    return {storage::timeOf(slot), position, storage::lengthOf(slot)};
}

bool belongs(const std::optional<tSheetFirst>& first, storage::tFileHeadSymbol form, bool finished,
             const tDataFileBeginning& file)
{
    if (!first)
        return !finished || !file.first;
    if (!file.first)
        return false;
    const tSheetFirst found = firstOf(*file.first, form);
    int apart = bitsApart(first->timeMs, found.timeMs) + bitsApart(first->position, found.position);
    if (file.form.value_or(form) == form)
        apart += bitsApart(first->length, found.length);
    return apart <= 1;
}
}  // namespace recordings

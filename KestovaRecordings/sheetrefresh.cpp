// What a sheet takes from its finished data file: the checksums of heads and index.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/crc32c.h"
#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "common/byteorder.h"
#include "common/descriptor.h"

namespace recordings
{
namespace
{
using tHead = std::array<unsigned char, storage::cIndexPos>;

tDescriptor open(const std::string& dataFile)
{
    tDescriptor file(::open(dataFile.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.valid())
        throw tFailure(fmt::format("cannot open {}: {}", shown(dataFile), std::strerror(errno)));
    return file;
}

// What a short file lacks counts as 0.
tHead headOf(const tDescriptor& file, const std::string& dataFile)
{
    tHead head{};
    if (file.readAt(head.data(), head.size(), 0) < head.size() && errno != 0)
        throw tFailure(fmt::format("cannot read {}: {}", shown(dataFile), std::strerror(errno)));
    return head;
}

std::uint32_t recordsOf(const tHead& head)
{
    return le::load<std::uint32_t>(head.data() + storage::cIndexHeadPos);
}

// Returns the checksum of the slots of a block; nothing if the file does not hold them.
std::optional<std::uint32_t> sumOfSlots(const tDescriptor& file, std::uint64_t first, std::uint64_t count)
{
    std::array<unsigned char, 1024 * storage::cIndexSlotSize> slots;
    std::uint64_t pos = storage::cIndexPos + first * storage::cIndexSlotSize;
    std::uint32_t sum = 0;
    for (std::uint64_t rest = count * storage::cIndexSlotSize; rest != 0;)
    {
        const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(rest, slots.size()));
        if (!file.readAllAt(slots.data(), part, pos))
            return std::nullopt;
        sum = crc32c(sum, slots.data(), part);
        pos += part;
        rest -= part;
    }
    return sum;
}

// Blocks that the file no longer holds as a whole lose their checksums: it was made of a file that had been cut.
void refreshBlocks(tSheet& sheet, const tDescriptor& file, std::uint64_t records)
{
    tSheetBlocks kept;
    std::uint64_t first = 0;
    for (std::size_t i = 0; i < sheet.blocks.records.size(); ++i)
    {
        const std::uint32_t count = sheet.blocks.records[i];
        const auto sum = first + count <= records ? sumOfSlots(file, first, count) : std::nullopt;
        if (!sum)
            break;
        kept.records.push_back(count);
        kept.payloadCrc32c.push_back(sheet.blocks.payloadCrc32c[i]);
        kept.indexCrc32c.push_back(*sum);
        first += count;
    }
    sheet.blocks = std::move(kept);
}
}  // namespace

void sealSheet(tSheet& sheet, const std::string& dataFile)
{
    const tHead head = headOf(open(dataFile), dataFile);
    sheet.headCrc32c = crc32c(0, head.data(), head.size());
    sheet.finished = true;
}

void refreshSheet(const std::string& dataFile)
{
    const tSheetLock lock(dataFile);
    tFoundSheet found = readSheet(dataFile);
    const tDataFileBeginning beginning = readBeginning(dataFile);
    if (!found || !beginning.form)
        return;
    tSheet& sheet = found.sheet;
    const tDescriptor file = open(dataFile);
    const tHead head = headOf(file, dataFile);
    sheet.form = *beginning.form;
    if (beginning.first)
        sheet.first = firstOf(*beginning.first, sheet.form);
    if (recordsOf(head) != 0)
    {
        refreshBlocks(sheet, file, recordsOf(head));
        sheet.headCrc32c = crc32c(0, head.data(), head.size());
    }
    writeSheet(dataFile, sheet);
}

std::string newSheetId()
{
    storage::tFileId id{};
    if (::getentropy(id.bytes, sizeof id.bytes) != 0)
        throw tFailure(fmt::format("no random bytes: {}", std::strerror(errno)));
    return sheetId(id);
}

std::string sheetId(const storage::tFileId& id)
{
    std::string text;
    for (const unsigned char byte : id.bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}
}  // namespace recordings

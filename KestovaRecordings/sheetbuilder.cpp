#include "KestovaRecordings/sheetbuilder.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <unordered_map>

#include "KestovaRecordings/activity.h"
#include "KestovaRecordings/internal/blocksums.h"
#include "KestovaRecordings/internal/sheetfile.h"
#include "KestovaRecordings/internal/streamsheet.h"
#include "KestovaStorage/packageview.h"

namespace recordings
{
namespace
{
// A stream as one number: packages of one kind on one group; no package has the number of the raw segments.
constexpr std::uint64_t cRaw = UINT64_MAX;

std::uint64_t numberOf(const tRadarMsgPackage& package)
{
    return std::uint64_t{package.msgInfo.rwType} << 48 | std::uint64_t{package.udpPort} << 32 | package.udpAddr;
}

// The streams of a file, found by their numbers: mostly in a small table without a search.
class tStreams
{
public:
    tStreamSheet& of(std::uint64_t number)
    {
        tAtHand& hand = m_atHand[number * 0x9E3779B97F4A7C15u >> 58];
        if (hand.stream == nullptr || hand.number != number)
            hand = {number, &find(number)};
        return *hand.stream;
    }
    const std::deque<tStreamSheet>& all() const { return m_all; }

private:
    struct tAtHand
    {
        std::uint64_t number = 0;
        tStreamSheet* stream = nullptr;
    };

    tStreamSheet& find(std::uint64_t number)
    {
        const auto [place, isNew] = m_byNumber.try_emplace(number, nullptr);
        if (isNew)
            place->second = &m_all.emplace_back(keyOf(number));
        return *place->second;
    }
    static tStreamKey keyOf(std::uint64_t number)
    {
        return number == cRaw
                   ? tStreamKey::raw()
                   : tStreamKey::of(static_cast<tReadWriteType>(number >> 48), static_cast<std::uint32_t>(number),
                                    static_cast<std::uint16_t>(number >> 32));
    }

    std::deque<tStreamSheet> m_all;  // they stay in place
    std::unordered_map<std::uint64_t, tStreamSheet*> m_byNumber;
    std::array<tAtHand, 64> m_atHand{};
};
}  // namespace

class tSheetBuilder::tPrivate
{
public:
    // The segment stays where it is until blocks.settle().
    void add(const storage::tIndexSlot& slot, std::uint16_t us, std::string_view segment)
    {
        const std::uint64_t timeMs = storage::timeOf(slot);
        if (records++ == 0)
            first = slot;
        bytes += segment.size();
        firstMs = records == 1 ? timeMs : std::min(firstMs, timeMs);
        lastMs = std::max(lastMs, timeMs);
        blocks.add(slot, us, segment);
        activity.add(timeMs);
        const tRadarMsgPackage* const package = asWholePackage(segment.data(), segment.size());
        if (package == nullptr)
            streams.of(cRaw).add(timeMs, segment);
        else
            streams.of(numberOf(*package)).add(timeMs, segment.substr(cPackageHeadSize, package->msgLen));
    }

    std::uint64_t records = 0, bytes = 0, firstMs = 0, lastMs = 0;
    storage::tIndexSlot first{};
    tBlockSums blocks;
    tActivity activity;
    tStreams streams;
};

tSheetBuilder::tSheetBuilder() : d(std::make_unique<tPrivate>()) {}

tSheetBuilder::~tSheetBuilder() = default;
tSheetBuilder::tSheetBuilder(tSheetBuilder&&) noexcept = default;
tSheetBuilder& tSheetBuilder::operator=(tSheetBuilder&&) noexcept = default;

void tSheetBuilder::add(std::uint64_t timeMs, std::uint16_t us, std::string_view segment, std::uint64_t position)
{
    add(storage::encode(storage::tNormalIndexTable{timeMs, position, static_cast<std::uint32_t>(segment.size())}), us,
        segment);
}

void tSheetBuilder::add(const storage::tIndexSlot& slot, std::uint16_t us, std::string_view segment)
{
    d->add(slot, us, segment);
    d->blocks.settle();
}

void tSheetBuilder::addWritten(const storage::tWrittenSegment* segments, std::size_t count)
{
    for (const auto* segment = segments; segment != segments + count; ++segment)
        d->add(storage::encode(storage::tNormalIndexTable{segment->timeMs, segment->pos, segment->len}), segment->us,
               {segment->bytes, segment->len});
    d->blocks.settle();
}

std::uint64_t tSheetBuilder::records() const
{
    return d->records;
}

std::uint64_t tSheetBuilder::bytes() const
{
    return d->bytes;
}

void tSheetBuilder::fill(tSheet& sheet) const
{
    sheet.records = d->records;
    sheet.bytes = d->bytes;
    sheet.firstMs = d->firstMs;
    sheet.lastMs = d->lastMs;
    sheet.first.reset();
    if (d->records != 0)
        sheet.first = firstOf(d->first, sheet.form);
    sheet.silences = d->activity.silences();
    d->blocks.fill(sheet);
    std::map<tStreamKey, tSheetStream> rows;
    for (tSheetStream& row : sheet.streams)
        rows[row.key] = std::move(row);
    for (const tStreamSheet& stream : d->streams.all())
        stream.fill(rows[stream.key()]);
    sheet.streams.clear();
    for (auto& [key, row] : rows)
        sheet.streams.push_back(std::move(row));
}
}  // namespace recordings

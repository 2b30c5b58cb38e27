// The fields of a sheet: where each value goes, and which values cannot be.
#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <type_traits>
#include <unordered_map>

#include "KestovaRecordings/internal/base64.h"
#include "KestovaRecordings/internal/sheetformat.h"
#include "KestovaRecordings/internal/sheetreader.h"
#include "KestovaStorage/datafile.h"
#include "KestovaUtils/streamnames.h"
#include "UdpSocket/udpsocket.h"

namespace recordings
{
namespace
{
constexpr std::size_t cMostGaps = 1000;  // of a stream

bool set(bool& to, const tSheetValue& value)
{
    to = value.flag;
    return value.kind == tSheetValue::eFlag;
}

bool set(std::string& to, const tSheetValue& value)
{
    if (value.kind != tSheetValue::eText)
        return false;
    to = *value.text;
    return true;
}

bool set(std::int64_t& to, const tSheetValue& value)
{
    if ((value.kind != tSheetValue::eWhole && value.kind != tSheetValue::eNegative) ||
        value.number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        return false;
    to = static_cast<std::int64_t>(value.number);
    if (value.kind == tSheetValue::eNegative)
        to = -to;
    return true;
}

bool set(std::optional<double>& to, const tSheetValue& value)
{
    const auto whole = static_cast<double>(value.number);
    switch (value.kind)
    {
    case tSheetValue::eWhole:
        to = whole;
        return true;
    case tSheetValue::eNegative:
        to = -whole;
        return true;
    case tSheetValue::eReal:
        to = value.real;
        return true;
    default:
        return false;
    }
}

template <typename tNumber>
requires(std::is_unsigned_v<tNumber> && !std::is_same_v<tNumber, bool>) bool set(tNumber& to, const tSheetValue& value)
{
    to = static_cast<tNumber>(value.number);
    return value.kind == tSheetValue::eWhole && value.number <= std::numeric_limits<tNumber>::max();
}

bool set(std::optional<std::uint64_t>& to, const tSheetValue& value)
{
    return set(to.emplace(), value);
}

template <typename tNumber>
bool setHex(tNumber& to, const tSheetValue& value)
{
    if (value.kind != tSheetValue::eText || value.text->size() != 2 * sizeof(tNumber))
        return false;
    const char* const end = value.text->data() + value.text->size();
    const auto [last, error] = std::from_chars(value.text->data(), end, to, 16);
    return last == end && error == std::errc();
}

bool setHex(std::optional<std::uint32_t>& to, const tSheetValue& value)
{
    return setHex(to.emplace(), value);
}

bool set(storage::tFileHeadSymbol& to, const tSheetValue& value)
{
    for (const auto form : {storage::cDataFileHead, storage::cHuffmanFileHead})
    {
        if (value.kind != tSheetValue::eText || *value.text != storage::fileFormName(form))
            continue;
        to = form;
        return true;
    }
    return false;
}

bool set(std::vector<std::uint32_t>& to, const tSheetValue& value)
{
    if (value.kind != tSheetValue::eText)
        return false;
    auto numbers = numbersOf(*value.text, cMostRecords);
    if (!numbers)
        return false;
    to = std::move(*numbers);
    return true;
}

template <auto cMember>
bool ofSheet(tSheetParts& parts, const tSheetValue& value)
{
    return set(parts.sheet.*cMember, value);
}

template <auto cPart, auto cMember>
bool ofPart(tSheetParts& parts, const tSheetValue& value)
{
    return set(parts.sheet.*cPart.*cMember, value);
}

template <auto cMember>
bool ofParts(tSheetParts& parts, const tSheetValue& value)
{
    return set(parts.*cMember, value);
}

template <auto cMember, auto cHas>
bool ofFirst(tSheetParts& parts, const tSheetValue& value)
{
    parts.*cHas = true;
    return parts.sheet.first && set((*parts.sheet.first).*cMember, value);
}

bool form(tSheetParts& parts, const tSheetValue& value)
{
    parts.hasForm = true;
    return set(parts.sheet.form, value);
}

template <typename tList>
bool begin(tList& list, const tSheetValue& value, std::size_t most = cMostEntries)
{
    if (value.kind != tSheetValue::eBegins || list.size() >= most)
        return false;
    list.emplace_back();
    return true;
}

template <auto cList>
bool beginOf(tSheetParts& parts, const tSheetValue& value)
{
    return begin(parts.sheet.*cList, value);
}

template <auto cList, auto cMember>
bool ofLast(tSheetParts& parts, const tSheetValue& value)
{
    auto& list = parts.sheet.*cList;
    return !list.empty() && set(list.back().*cMember, value);
}

template <auto cMember>
constexpr tSheetField cOfStream = &ofLast<&tSheet::streams, cMember>;

template <auto cMember>
bool ofGap(tSheetParts& parts, const tSheetValue& value)
{
    return !parts.sheet.streams.empty() && !parts.sheet.streams.back().gaps.empty() &&
           set(parts.sheet.streams.back().gaps.back().*cMember, value);
}

bool address(tSheetParts& parts, const tSheetValue& value)
{
    return parts.sheet.radarAddresses.size() < cMostEntries && set(parts.sheet.radarAddresses[parts.key], value);
}

bool id(tSheetParts& parts, const tSheetValue& value)
{
    constexpr std::string_view cHex = "0123456789abcdef";
    return set(parts.sheet.id, value) && parts.sheet.id.size() == 32 &&
           parts.sheet.id.find_first_not_of(cHex) == std::string::npos;
}

// Each number of messages is a second; a negative one is so many seconds without.
bool seconds(tSheetParts& parts, const tSheetValue& value)
{
    if (parts.sheet.streams.empty() || parts.nextSecond >= storage::cTimeLimit || value.number >= storage::cTimeLimit ||
        (value.kind != tSheetValue::eWhole && value.kind != tSheetValue::eNegative))
        return false;
    if (value.kind == tSheetValue::eNegative)
    {
        parts.nextSecond += value.number;
        return true;
    }
    if (value.number == 0 || value.number > cMostRecords || ++parts.seconds > cMostRecords)
        return false;
    parts.sheet.streams.back().perSecond.emplace_back(parts.nextSecond++, static_cast<std::uint32_t>(value.number));
    return true;
}

bool beginStream(tSheetParts& parts, const tSheetValue& value)
{
    parts.name.clear();
    parts.address.clear();
    parts.fromSecond = parts.nextSecond = 0;
    return begin(parts.sheet.streams, value);
}

using tFields = std::unordered_map<std::string_view, tSheetField>;

tFields beginningFields()
{
    return {{"schema", &ofParts<&tSheetParts::schema>},
            {"kept", &ofSheet<&tSheet::kept>},
            {"notes_count", &ofParts<&tSheetParts::notes>},
            {"lost", &ofParts<&tSheetParts::lost>},
            {"records", &ofSheet<&tSheet::records>},
            {"bytes", &ofSheet<&tSheet::bytes>},
            {"first_ms", &ofSheet<&tSheet::firstMs>},
            {"last_ms", &ofSheet<&tSheet::lastMs>},
            {"id", &id},
            {"form", &form},
            {"first",
             [](tSheetParts& parts, const tSheetValue& value) {
                 parts.sheet.first.emplace();
                 return value.kind == tSheetValue::eBegins;
             }},
            {"first.time_ms", &ofFirst<&tSheetFirst::timeMs, &tSheetParts::hasTime>},
            {"first.position", &ofFirst<&tSheetFirst::position, &tSheetParts::hasPosition>},
            {"first.length", &ofFirst<&tSheetFirst::length, &tSheetParts::hasLength>},
            {"finished", &ofSheet<&tSheet::finished>},
            {"cut", &ofSheet<&tSheet::cut>},
            {"carried", &ofSheet<&tSheet::carried>},
            {"notes_only", &ofSheet<&tSheet::notesOnly>},
            {"radar.serial", &ofSheet<&tSheet::radarSerial>},
            {"radar.id", &ofSheet<&tSheet::radarId>}};
}

tFields recordingFields()
{
    return {{"recorder.version", &ofSheet<&tSheet::recorderVersion>},
            {"recorder.host", &ofSheet<&tSheet::recorderHost>},
            {"interface", &ofSheet<&tSheet::interface>},
            {"losses.kernel_dropped", &ofPart<&tSheet::losses, &tSheetLosses::kernelDropped>},
            {"losses.queue_lost", &ofPart<&tSheet::losses, &tSheetLosses::queueLost>},
            {"losses.disk_lost", &ofPart<&tSheet::losses, &tSheetLosses::diskLost>},
            {"losses.missing_on_wire", &ofPart<&tSheet::losses, &tSheetLosses::missingOnWire>},
            {"losses.joins_lost[]",
             [](tSheetParts& parts, const tSheetValue& value) { return begin(parts.sheet.losses.joinsLost, value); }},
            {"clock.source", &ofPart<&tSheet::clock, &tSheetClock::source>},
            {"clock.offset_ms", &ofPart<&tSheet::clock, &tSheetClock::offsetMs>},
            {"clock.drift_ppm", &ofPart<&tSheet::clock, &tSheetClock::driftPpm>},
            {"clock.steps[]",
             [](tSheetParts& parts, const tSheetValue& value) { return begin(parts.sheet.clock.steps, value); }},
            {"notes[]", &beginOf<&tSheet::notes>},
            {"notes[].time_ms", &ofLast<&tSheet::notes, &tNote::timeMs>},
            {"notes[].text", &ofLast<&tSheet::notes, &tNote::text>},
            {"silences[]", &beginOf<&tSheet::silences>},
            {"silences[].from_ms", &ofLast<&tSheet::silences, &tGap::fromMs>},
            {"silences[].to_ms", &ofLast<&tSheet::silences, &tGap::toMs>}};
}

template <auto cMember>
bool ofJoin(tSheetParts& parts, const tSheetValue& value)
{
    auto& lost = parts.sheet.losses.joinsLost;
    return !lost.empty() && set(lost.back().*cMember, value);
}

template <auto cMember>
bool ofStep(tSheetParts& parts, const tSheetValue& value)
{
    auto& steps = parts.sheet.clock.steps;
    return !steps.empty() && set(steps.back().*cMember, value);
}

bool digest(tSheetParts& parts, const tSheetValue& value)
{
    return !parts.sheet.streams.empty() && setHex(parts.sheet.streams.back().digest.hash, value);
}

tFields streamFields()
{
    return {{"losses.joins_lost[].address", &ofJoin<&tLostJoin::address>},
            {"losses.joins_lost[].from_ms", &ofJoin<&tLostJoin::fromMs>},
            {"losses.joins_lost[].to_ms", &ofJoin<&tLostJoin::toMs>},
            {"clock.steps[].at_ms", &ofStep<&tClockStep::atMs>},
            {"clock.steps[].step_ms", &ofStep<&tClockStep::stepMs>},
            {"streams[]", &beginStream},
            {"streams[].stream", &ofParts<&tSheetParts::name>},
            {"streams[].address", &ofParts<&tSheetParts::address>},
            {"streams[].messages", cOfStream<&tSheetStream::messages>},
            {"streams[].bytes", cOfStream<&tSheetStream::bytes>},
            {"streams[].digest", &digest},
            {"streams[].first_ms", cOfStream<&tSheetStream::firstMs>},
            {"streams[].last_ms", cOfStream<&tSheetStream::lastMs>},
            {"streams[].longest_silence_ms", cOfStream<&tSheetStream::longestSilenceMs>},
            {"streams[].kernel_dropped", cOfStream<&tSheetStream::kernelDropped>},
            {"streams[].missing_on_wire", cOfStream<&tSheetStream::missingOnWire>},
            {"streams[].gaps[]",
             [](tSheetParts& parts, const tSheetValue& value) {
                 return !parts.sheet.streams.empty() && begin(parts.sheet.streams.back().gaps, value, cMostGaps);
             }},
            {"streams[].gaps[].from_ms", &ofGap<&tGap::fromMs>},
            {"streams[].gaps[].to_ms", &ofGap<&tGap::toMs>},
            {"streams[].per_second.from_s", &ofParts<&tSheetParts::fromSecond>},
            {"streams[].per_second.messages[]", &seconds}};
}

tFields sumFields()
{
    return {
        {"head_crc32c",
         [](tSheetParts& parts, const tSheetValue& value) { return setHex(parts.sheet.headCrc32c, value); }},
        {"fine_crc32c",
         [](tSheetParts& parts, const tSheetValue& value) { return setHex(parts.sheet.fineCrc32c, value); }},
        {"blocks.count", &ofParts<&tSheetParts::blocks>},
        {"blocks.records", &ofPart<&tSheet::blocks, &tSheetBlocks::records>},
        {"blocks.payload_crc32c", &ofPart<&tSheet::blocks, &tSheetBlocks::payloadCrc32c>},
        {"blocks.index_crc32c", &ofPart<&tSheet::blocks, &tSheetBlocks::indexCrc32c>},
        {"blocks.crc32c", [](tSheetParts& parts, const tSheetValue& value) { return setHex(parts.sumOfSums, value); }}};
}

tFields allFields()
{
    tFields all = beginningFields();
    all.merge(recordingFields());
    all.merge(streamFields());
    all.merge(sumFields());
    return all;
}

// Returns whether the name, as tStreamKey::name() writes it, was found.
bool kindOf(const std::string& name, tStreamKey& key)
{
    constexpr std::string_view cNumbered = "kind ";
    unsigned int kind = 0;
    if (const int named = utils::streamKind(name); named >= 0)
        kind = static_cast<unsigned int>(named);
    else if (name.starts_with(cNumbered))
        std::from_chars(name.data() + cNumbered.size(), name.data() + name.size(), kind);
    key.kind = static_cast<tReadWriteType>(kind & 0xFF);
    return key.name() == name;
}
}  // namespace

tSheetField sheetField(const std::string& path)
{
    static const tFields fields = allFields();
    if (path.starts_with("radar.addresses."))
        return &address;
    const auto found = fields.find(path);
    return found != fields.end() ? found->second : nullptr;
}

bool endSheetStream(tSheetParts& parts)
{
    tSheetStream& stream = parts.sheet.streams.back();
    if (parts.fromSecond >= storage::cTimeLimit || parts.fromSecond + parts.nextSecond > storage::cTimeLimit)
        return false;
    for (auto& second : stream.perSecond)
        second.first += parts.fromSecond;
    if (parts.name == "raw")
    {
        stream.key = tStreamKey::raw();
        return parts.address.empty();
    }
    const NetAddress group = net::parseAddress(parts.address);
    stream.key = tStreamKey::of(eOtherType, group.ip, net::NtoHs(group.port));
    return kindOf(parts.name, stream.key) && stream.key.address() == parts.address;
}
}  // namespace recordings

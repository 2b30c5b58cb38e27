#include "KestovaUtils/internal/spokejson.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <optional>

namespace utils
{
using nlohmann::json;

namespace
{
constexpr std::uint64_t cLastOffset = 65535;  // of a datagram
constexpr unsigned cWidest = 8;
constexpr std::size_t cMostLayouts = 64;

struct tUnit
{
    const char* name;
    double factor;
};
constexpr tUnit cLengths[] = {{"m", 1}, {"dm", 0.1}, {"cm", 0.01}, {"mm", 0.001}, {"km", 1000}, {"nm", 1852}};
constexpr tUnit cTimes[] = {{"ms", 1}, {"s", 1000}, {"us", 0.001}, {"ns", 0.000001}};

// Calls `read` for a key; an error in it is named with the key.
template <typename tRead>
auto inKey(const std::string& key, tRead read)
{
    try
    {
        return read();
    }
    catch (const tDirectoryError& reason)
    {
        throw tDirectoryError(key + ": " + reason.what());
    }
}

std::uint64_t wholeIn(const json& value, std::uint64_t smallest, std::uint64_t largest)
{
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() < smallest || value.get<std::uint64_t>() > largest)
        throw tDirectoryError("not a whole number from " + std::to_string(smallest) + " to " + std::to_string(largest));
    return value.get<std::uint64_t>();
}

std::uint64_t whole(const json& object, const char* key, std::uint64_t smallest, std::uint64_t largest)
{
    const json& value = member(object, key);
    return inKey(key, [&] { return wholeIn(value, smallest, largest); });
}

void requireObject(const json& value, const char* what)
{
    if (!value.is_object())
        throw tDirectoryError(std::string("not ") + what);
}

std::uint64_t maskIn(const json& object, unsigned width)
{
    const std::uint64_t full = width == cWidest ? ~std::uint64_t{0} : (std::uint64_t{1} << 8 * width) - 1;
    return object.contains("mask") ? whole(object, "mask", 1, full) : full;
}

// `more` are keys that the field has beside those of every field.
tSpokeField fieldIn(const json& value, std::initializer_list<std::string_view> more = {})
{
    requireObject(value, "an object with \"at\" and \"width\"");
    std::vector<std::string_view> known{"at", "width", "mask", "shift"};
    known.insert(known.end(), more);
    for (const auto& item : value.items())
    {
        if (std::find(known.begin(), known.end(), item.key()) == known.end())
            throw tDirectoryError("unknown key " + shown(item.key()));
    }
    tSpokeField field;
    field.at = static_cast<std::uint32_t>(whole(value, "at", 0, cLastOffset));
    field.width = static_cast<std::uint8_t>(whole(value, "width", 1, cWidest));
    field.mask = maskIn(value, field.width);
    if (value.contains("shift"))
        field.shift = static_cast<std::uint8_t>(whole(value, "shift", 0, 8u * field.width - 1));
    if (field.mask >> field.shift == 0)
        throw tDirectoryError("mask and shift leave nothing of it");
    return field;
}

// A number above 0 may stand in place of a field.
tSpokeField fieldOrNumberIn(const json& value, std::initializer_list<std::string_view> more = {})
{
    if (!value.is_number())
        return fieldIn(value, more);
    tSpokeField field;
    field.constant = value.get<double>();
    if (!(field.constant > 0) || !std::isfinite(field.constant))
        throw tDirectoryError("not a number above 0");
    return field;
}

template <std::size_t cCount>
double unitIn(const json& field, const tUnit (&units)[cCount])
{
    if (!field.is_object() || !field.contains("unit"))
        return units[0].factor;
    const json& name = field["unit"];
    std::string all;
    for (const tUnit& unit : units)
    {
        if (name == unit.name)
            return unit.factor;
        all += std::string(all.empty() ? "" : ", ") + '"' + unit.name + '"';
    }
    throw tDirectoryError("unit is none of " + all);
}

std::string bytesIn(const json& value)
{
    if (!value.is_string())
        throw tDirectoryError("not a text of hexadecimal digits");
    const auto& digits = value.get_ref<const std::string&>();
    if (digits.empty() || digits.size() % 2 != 0)
        throw tDirectoryError("not an even number of hexadecimal digits");
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
    {
        unsigned char byte = 0;
        const char* const end = digits.data() + i + 2;
        if (std::from_chars(digits.data() + i, end, byte, 16).ptr != end)
            throw tDirectoryError(shown(digits) + " is not hexadecimal");
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

tSpokeMatch matchIn(const std::string& place, const json& value)
{
    std::uint32_t at = 0;
    const char* const end = place.data() + place.size();
    const auto [read, error] = std::from_chars(place.data(), end, at);
    if (error != std::errc() || read != end || at > cLastOffset)
        throw tDirectoryError("key " + shown(place) + " is no offset from 0 to " + std::to_string(cLastOffset));
    return {at, inKey(place, [&] { return bytesIn(value); })};
}

void readMatch(const json& value, tSpokeLayout& layout)
{
    requireObject(value, "an object of offsets and hexadecimal bytes");
    for (const auto& item : value.items())
        layout.match.push_back(matchIn(item.key(), item.value()));
}

void readAzimuth(const json& value, tSpokeLayout& layout)
{
    layout.azimuth = fieldIn(value, {"per_turn"});
    const json& perTurn = member(value, "per_turn");
    layout.perTurn = inKey("per_turn", [&] { return fieldOrNumberIn(perTurn); });
}

void readCells(const json& value, tSpokeLayout& layout)
{
    requireObject(value, "an object with \"at\", \"count\" and \"bits\"");
    requireKnownKeys(value, {"at", "count", "bits"});
    layout.cellsAt = static_cast<std::uint32_t>(whole(value, "at", 0, cLastOffset));
    constexpr int cBits[] = {1, 2, 4, 8, 12, 16, 24, 32};
    const std::uint64_t bits = whole(value, "bits", 1, 32);
    if (std::find(std::begin(cBits), std::end(cBits), static_cast<int>(bits)) == std::end(cBits))
        throw tDirectoryError("bits is none of 1, 2, 4, 8, 12, 16, 24, 32");
    layout.cellBits = static_cast<std::uint8_t>(bits);
    const json& count = member(value, "count");
    layout.cellsToTheEnd = count == "rest";
    if (layout.cellsToTheEnd)
        return;
    layout.cellCount = inKey("count", [&] {
        if (count.is_object())
            return fieldIn(count);
        tSpokeField number;
        number.constant = static_cast<double>(wholeIn(count, 1, 8 * cLastOffset));
        return number;
    });
}

tBearingReference referenceIn(const json& value)
{
    if (value == "bow")
        return eReferenceBow;
    if (value == "north")
        return eReferenceNorth;
    if (value == "unknown")
        return eReferenceUnknown;
    throw tDirectoryError("none of \"bow\", \"north\", \"unknown\"");
}

void readOrder(const json& value, tSpokeLayout& layout)
{
    if (value != "little" && value != "big")
        throw tDirectoryError("none of \"little\", \"big\"");
    layout.bigEndian = value == "big";
}

tSpokeLayout standardIn(const json& value)
{
    requireKnownKeys(value, {"source", "reference"});
    if (value["source"] != "cat240")
        throw tDirectoryError("source is not \"cat240\"");
    tSpokeLayout layout;
    layout.source = eSpokeCat240;
    if (value.contains("reference"))
        layout.reference = inKey("reference", [&] { return referenceIn(value["reference"]); });
    return layout;
}

void readKey(const std::string& key, const json& value, tSpokeLayout& layout)
{
    if (key == "match")
        readMatch(value, layout);
    else if (key == "azimuth")
        readAzimuth(value, layout);
    else if (key == "range")
    {
        layout.range = fieldOrNumberIn(value, {"unit"});
        layout.rangeUnit = unitIn(value, cLengths);
    }
    else if (key == "sequence")
        layout.sequence = fieldIn(value);
    else if (key == "time")
    {
        layout.time = fieldIn(value, {"unit"});
        layout.timeUnit = unitIn(value, cTimes);
    }
    else if (key == "cells")
        readCells(value, layout);
    else if (key == "order")
        readOrder(value, layout);
    else
        layout.reference = referenceIn(value);
}

tSpokeLayout layoutIn(const json& value)
{
    if (value.is_string())
    {
        if (value != "cat240")
            throw tDirectoryError("no layout and not \"cat240\"");
        return standardIn({{"source", "cat240"}});
    }
    requireObject(value, "an object");
    if (value.contains("source"))
        return standardIn(value);
    requireKnownKeys(value, {"match", "azimuth", "range", "sequence", "time", "cells", "order", "reference"});
    member(value, "azimuth");
    member(value, "cells");
    tSpokeLayout layout;
    for (const auto& item : value.items())
        inKey(item.key(), [&] { readKey(item.key(), item.value(), layout); });
    return layout;
}
}  // namespace

std::vector<tSpokeLayout> spokeLayoutsIn(const json& value)
{
    if (!value.is_array())
        return {inKey("spoke", [&] { return layoutIn(value); })};
    if (value.empty() || value.size() > cMostLayouts)
        throw tDirectoryError("spoke: a list of 1 to " + std::to_string(cMostLayouts) + " layouts is wanted");
    std::vector<tSpokeLayout> layouts;
    for (const json& one : value)
        layouts.push_back(inKey("spoke " + std::to_string(layouts.size() + 1), [&] { return layoutIn(one); }));
    return layouts;
}
}  // namespace utils

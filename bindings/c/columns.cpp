#include "bindings/c/columns.h"

#include <algorithm>

namespace binding
{
using recordings::tSentence;

namespace
{
template <typename tValue>
tColumnKind number(const char* name, std::optional<tValue> tSentence::*member)
{
    const auto value = [member](const tSentence& sentence) -> std::optional<double> {
        if (!(sentence.*member))
            return std::nullopt;
        return static_cast<double>(*(sentence.*member));
    };
    return {name, {}, value, {}};
}

// For a table whose rows all have it.
template <typename tValue>
tColumnKind whole(const char* name, std::optional<tValue> tSentence::*member)
{
    return {name, [member](const tSentence& sentence) { return std::int64_t{*(sentence.*member)}; }, {}, {}};
}

tColumnKind valid()
{
    return {"valid", [](const tSentence& sentence) { return std::int64_t{sentence.valid}; }, {}, {}};
}

tColumnKind text(const char* name, std::string tSentence::*member)
{
    return {name, {}, {}, [member](const tSentence& sentence) { return std::optional(sentence.*member); }};
}

tColumnKind shipName()
{
    return {"ship_name", {}, {}, [](const tSentence& sentence) { return sentence.shipName; }};
}

tColumnKind targetStatus()
{
    return {"target_status", {}, {}, [](const tSentence& sentence) {
                return sentence.targetStatus != 0 ? std::optional(std::string(1, sentence.targetStatus)) : std::nullopt;
            }};
}

tColumnKind bearingReference()
{
    return {"bearing_reference", {}, {}, [](const tSentence& sentence) -> std::optional<std::string> {
                constexpr const char* cNames[] = {"unknown", "bow", "north"};
                if (!sentence.bearingDeg)
                    return std::nullopt;
                return cNames[sentence.bearingReference];
            }};
}

// Of whom a sentence speaks, as recordings::tNavigation takes it.
bool isOfOwnShip(const tSentence& sentence)
{
    if (sentence.type == "VDO")
        return true;
    const bool isOfTarget = sentence.type == "TTM" || sentence.type == "TLL" || sentence.type == "VDM";
    return !sentence.mmsi && !sentence.target && !isOfTarget;
}

bool isOwn(const tSentence& sentence)
{
    return isOfOwnShip(sentence) &&
           (sentence.latitudeDeg || sentence.speedKn || sentence.courseDeg || sentence.headingDeg);
}

bool isAis(const tSentence& sentence)
{
    return sentence.mmsi && sentence.aisType && sentence.type != "VDO";
}

bool isArpa(const tSentence& sentence)
{
    return sentence.target.has_value();
}

bool isDepth(const tSentence& sentence)
{
    return sentence.depthM.has_value();
}

bool isAny(const tSentence&)
{
    return true;
}

std::vector<tTableKind> tables()
{
    const auto latitude = number("latitude_deg", &tSentence::latitudeDeg);
    const auto longitude = number("longitude_deg", &tSentence::longitudeDeg);
    const auto speed = number("speed_kn", &tSentence::speedKn), course = number("course_deg", &tSentence::courseDeg);
    const auto heading = number("heading_deg", &tSentence::headingDeg), utc = number("utc_ms", &tSentence::utcMs);
    const auto depth = number("depth_m", &tSentence::depthM);
    const auto distance = number("distance_nm", &tSentence::distanceNm);
    const auto bearing = number("bearing_deg", &tSentence::bearingDeg);
    const auto talker = text("talker", &tSentence::talker), type = text("type", &tSentence::type);
    return {{"own", isOwn, {talker, type, valid(), latitude, longitude, speed, course, heading, utc}},
            {"ais",
             isAis,
             {talker, type, valid(), latitude, longitude, speed, course, heading, utc, whole("mmsi", &tSentence::mmsi),
              whole("ais_type", &tSentence::aisType), shipName()}},
            {"arpa",
             isArpa,
             {talker, type, valid(), latitude, longitude, speed, course, utc, whole("target", &tSentence::target),
              targetStatus(), distance, bearing, bearingReference()}},
            {"depth", isDepth, {talker, type, valid(), depth}},
            {"sentences",
             isAny,
             {talker, type, valid(), latitude, longitude, speed, course, heading, depth, utc,
              number("target", &tSentence::target), targetStatus(), distance, bearing, bearingReference(),
              number("mmsi", &tSentence::mmsi), number("ais_type", &tSentence::aisType), shipName()}}};
}

const std::vector<tTableKind>& allTables()
{
    static const std::vector<tTableKind> s_tables = tables();
    return s_tables;
}
}  // namespace

const tTableKind* tableNamed(const std::string& name)
{
    const auto table =
        std::find_if(allTables().begin(), allTables().end(), [&](const tTableKind& kind) { return name == kind.name; });
    return table != allTables().end() ? &*table : nullptr;
}

std::string tableNames()
{
    std::string names;
    for (const tTableKind& kind : allTables())
        names += (names.empty() ? "" : ", ") + std::string(kind.name);
    return names;
}
}  // namespace binding

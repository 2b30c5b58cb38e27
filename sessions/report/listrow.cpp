#include "sessions/report/listrow.h"

#include <nlohmann/json.hpp>

namespace session
{
using namespace recordings;

tJson listRow(const tListedRecording& one)
{
    return {
        {"path", one.path},   {"name", one.name},       {"first_ms", one.firstMs},     {"last_ms", one.lastMs},
        {"files", one.files}, {"records", one.records}, {"size_bytes", one.sizeBytes}, {"state", stateName(one.state)},
        {"lost", one.lost},   {"kept", one.kept},       {"notes", one.notes},          {"sheets", one.sheets},
        {"radar", one.radar}};
}

tJson gapsJson(const std::vector<tGap>& gaps)
{
    tJson rows = tJson::array();
    for (const tGap& gap : gaps)
        rows.push_back({{"from_ms", gap.fromMs}, {"to_ms", gap.toMs}, {"length_ms", gap.length()}});
    return rows;
}

tJson notesJson(const std::vector<tNote>& notes)
{
    tJson rows = tJson::array();
    for (const tNote& note : notes)
        rows.push_back({{"time_ms", note.timeMs}, {"text", note.text}});
    return rows;
}

tJson lossesJson(const tSheetLosses& losses)
{
    tJson joins = tJson::array();
    for (const tLostJoin& join : losses.joinsLost)
        joins.push_back({{"address", join.address}, {"from_ms", join.fromMs}, {"to_ms", join.toMs}});
    return {{"kernel_dropped", losses.kernelDropped},
            {"queue_lost", losses.queueLost},
            {"disk_lost", losses.diskLost},
            {"joins_lost", std::move(joins)}};
}
}  // namespace session

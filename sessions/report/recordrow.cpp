#include "sessions/report/recordrow.h"

#include <nlohmann/json.hpp>

#include "KestovaRecordings/streamchoice.h"
#include "sessions/report/payloadtext.h"

namespace session
{
using namespace recordings;

std::string hexText(std::string_view bytes)
{
    constexpr char cDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes)
    {
        text += cDigits[static_cast<unsigned char>(c) >> 4];
        text += cDigits[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

tStreamKey keyOf(const std::optional<tPackageContents>& package)
{
    return package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
}

void putRecord(tJson& row, const tShownRecord& record)
{
    row["time_ms"] = record.timeMs;
    if (const auto& package = record.package)
    {
        const tStreamKey key = keyOf(package);
        const tUdpMsgInfo& info = package->info;
        row["stream"] = key.name();
        row["kind"] = messageTitle(info.type);
        row["address"] = key.address();
        row["sequence"] = package->sequence;
        row["package_ms"] = package->timeMs;
        row["info"] = {info.sender, info.recver, info.type, info.rwType, info.radarMultiNum};
    }
    else
        row["stream"] = "raw";
    const std::string_view shown = record.bytes.substr(0, record.shown);
    row["length"] = record.bytes.size();
    row["payload"] = hexText(shown);
    if (record.asText)
        row["text"] = escapedText(shown);
    row["truncated"] = shown.size() < record.bytes.size();
}
}  // namespace session

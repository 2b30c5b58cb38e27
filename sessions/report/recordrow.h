// A record as a row of `kestova dump --json`.
#ifndef KESTOVA_SESSIONS_REPORT_RECORDROW_H
#define KESTOVA_SESSIONS_REPORT_RECORDROW_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KestovaRecordings/packagecontents.h"
#include "KestovaRecordings/streamcounts.h"
#include "sessions/report/json.h"

namespace session
{
std::string hexText(std::string_view bytes);

// The stream of a package; that of raw segments for nothing.
recordings::tStreamKey keyOf(const std::optional<recordings::tPackageContents>& package);

struct tShownRecord
{
    std::uint64_t timeMs;
    const std::optional<recordings::tPackageContents>& package;
    std::string_view bytes;  // of the message, or of a segment that is no package
    std::size_t shown;       // of them, at most
    bool asText;             // as escaped text, too
};

// Sets the keys from "time_ms" on.
void putRecord(tJson& row, const tShownRecord& record);
}  // namespace session

#endif

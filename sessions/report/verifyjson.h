// The result of kestova verify as JSON.
#ifndef KESTOVA_SESSIONS_REPORT_VERIFYJSON_H
#define KESTOVA_SESSIONS_REPORT_VERIFYJSON_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KestovaRecordings/verify.h"
#include "sessions/report/json.h"

namespace session
{
tJson verifyJson(const std::vector<std::string>& paths, bool quick, const recordings::tVerification& verification);

// Returns "kind", "damage", "record", "offset", "time_ms", "detail" for each; null where a finding has none.
tJson findingsJson(const std::vector<recordings::tFinding>& findings);
// Returns what is missing on the wire in all files; nothing where no file knows.
std::optional<std::uint64_t> missingIn(const recordings::tVerification& verification);
}  // namespace session

#endif

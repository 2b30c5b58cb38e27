#include "sessions/report/verifyjson.h"

#include <nlohmann/json.hpp>

#include "sessions/report/leftoutjson.h"

namespace session
{
using namespace recordings;

namespace
{
tJson numberJson(const std::optional<std::uint64_t>& number)
{
    return number ? tJson(*number) : tJson(nullptr);
}

tJson fileJson(const tVerifiedFile& file)
{
    tJson row = {{"path", file.path},
                 {"state", stateName(file.state)},
                 {"findings", findingsJson(file.findings)},
                 {"more_findings", file.moreFindings},
                 {"lost", file.lost},
                 {"records", file.records},
                 {"size", file.size},
                 {"sheet", file.hasSheet}};
    if (file.missingOnWire)
        row["missing_on_wire"] = *file.missingOnWire;
    return row;
}
}  // namespace

tJson findingsJson(const std::vector<tFinding>& findings)
{
    tJson rows = tJson::array();
    for (const tFinding& finding : findings)
        rows.push_back({{"kind", finding.kind},
                        {"damage", finding.damage},
                        {"record", numberJson(finding.record)},
                        {"offset", numberJson(finding.offset)},
                        {"time_ms", numberJson(finding.timeMs)},
                        {"detail", finding.detail}});
    return rows;
}

std::optional<std::uint64_t> missingIn(const tVerification& verification)
{
    std::optional<std::uint64_t> sum;
    for (const tVerifiedFile& file : verification.files)
        if (file.missingOnWire)
            sum = sum.value_or(0) + *file.missingOnWire;
    return sum;
}

tJson verifyJson(const std::vector<std::string>& paths, bool quick, const tVerification& verification)
{
    tJson files = tJson::array();
    for (const tVerifiedFile& file : verification.files)
        files.push_back(fileJson(file));
    tJson result = {{"schema", "kestova/verify/1"},
                    {"paths", paths},
                    {"quick", quick},
                    {"files", std::move(files)},
                    {"skipped", leftOutJson(verification.leftOut)},
                    {"total",
                     {{"sound", verification.sound},
                      {"recording", verification.recording},
                      {"unfinished", verification.unfinished},
                      {"damaged", verification.damaged}}},
                    {"complete", verification.complete}};
    if (const auto missing = missingIn(verification))
        result["total"]["missing_on_wire"] = *missing;
    return result;
}
}  // namespace session

#include "KestovaRecordings/survey.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <set>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/packagecontents.h"
#include "KestovaStorage/datafile.h"

namespace recordings
{
namespace
{
class tSurveyor
{
public:
    explicit tSurveyor(std::uint64_t silenceMs) : m_activity(silenceMs) {}

    tSurvey run(const std::vector<std::string>& paths, const std::string& suffix);

private:
    void look(const std::string& path, bool asked);
    void addTimes(const storage::tDataFile& file);

    tActivity m_activity;
    tSurvey m_survey;
};

tSurvey tSurveyor::run(const std::vector<std::string>& paths, const std::string& suffix)
{
    tFoundFiles found = findAllRecordings(paths, suffix);
    m_survey.leftOut = std::move(found.leftOut);
    for (const std::string& file : found.files)
        if (const auto present = presentForm(file, found.files, suffix))
            look(*present, std::find(paths.begin(), paths.end(), file) != paths.end());
    if (m_survey.files.empty())
        throw nothingLeft(m_survey.leftOut);
    m_survey.silences = m_activity.silences();
    return std::move(m_survey);
}

void tSurveyor::look(const std::string& path, bool asked)
{
    storage::tDataFile file;
    std::string error;
    if (file.open(path, &error) && file.recordCount() > 0 && !isReadable(file))
        error = "none of its records can be read";
    if (!error.empty())
    {
        m_survey.leftOut.push_back(leftOut(path, error, asked));
        return;
    }
    m_survey.files.push_back(path);
    m_survey.damaged += file.damagedCount();
    addTimes(file);
}

void tSurveyor::addTimes(const storage::tDataFile& file)
{
    const std::size_t count = file.recordCount();
    for (std::size_t i = 0; i < count; ++i)
    {
        const std::uint64_t timeMs = file.record(i).timeMs;
        m_activity.add(timeMs);
        m_survey.firstMs = m_survey.records == 0 ? timeMs : std::min(m_survey.firstMs, timeMs);
        m_survey.lastMs = std::max(m_survey.lastMs, timeMs);
        ++m_survey.records;
    }
}

// Returns false when `goOn` did.
bool findStreamsIn(storage::tDataFile& file, std::set<tStreamKey>& known,
                   const std::function<bool(const tStreamKey&)>& goOn)
{
    std::string segment;
    for (std::size_t i = 0; i < file.recordCount(); ++i)
    {
        if (!file.read(i, segment))
            continue;
        const auto package = viewPackage(segment);
        const tStreamKey key =
            package ? tStreamKey::of(package->info.rwType, package->ip, package->port) : tStreamKey::raw();
        if (known.insert(key).second && !goOn(key))
            return false;
    }
    return true;
}
}  // namespace

tSurvey surveyRecordings(const std::vector<std::string>& paths, const std::string& suffix, std::uint64_t silenceMs)
{
    return tSurveyor(silenceMs).run(paths, suffix);
}

void findStreams(const std::vector<std::string>& files, const std::function<bool(const tStreamKey&)>& goOn)
{
    std::set<tStreamKey> known;
    for (const std::string& path : files)
    {
        storage::tDataFile file;
        if (file.open(path) && !findStreamsIn(file, known, goOn))
            return;
    }
}

void requireStreams(const std::vector<std::string>& files, const tStreamChoice& choice)
{
    if (choice.includesAll())
        return;
    bool found = false;
    std::set<std::string> names;
    findStreams(files, [&](const tStreamKey& key) {
        found = key.package && choice.includes(key.kind);
        names.insert(key.name());
        return !found;
    });
    if (!found && !names.empty())
        throw tFailure(
            fmt::format("none of the chosen streams is there: the recording has {}", fmt::join(names, ", ")));
}
}  // namespace recordings

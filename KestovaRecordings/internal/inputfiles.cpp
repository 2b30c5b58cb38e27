#include "KestovaRecordings/internal/inputfiles.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "KestovaRecordings/recordingoutput.h"
#include "KestovaStorage/datafile.h"
#include "KestovaStorage/datafileconverter.h"
#include "KestovaStorage/datastorageio.h"

namespace recordings
{
namespace
{
class tFinder
{
public:
    explicit tFinder(const std::string& suffix) { m_inputs.suffix = suffix; }

    void findBelow(const std::string& path, std::size_t argument);
    tInputFiles finish();

private:
    void examine(const std::string& path, std::size_t argument, bool asked);
    void add(const storage::tDataFile& file, tInputFile input);

    tInputFiles m_inputs;
    std::set<std::string> m_known;                                         // real paths
    std::map<std::pair<std::string, std::string>, std::size_t> m_numbers;  // of recordings, by folder and name
    std::size_t m_files = 0;
};

void tFinder::findBelow(const std::string& path, std::size_t argument)
{
    tFoundFiles found = findAllRecordings({path}, m_inputs.suffix);
    m_inputs.leftOut.insert(m_inputs.leftOut.end(), found.leftOut.begin(), found.leftOut.end());
    for (const std::string& file : found.files)
        if (const auto present = presentForm(file, found.files, m_inputs.suffix))
            examine(*present, argument, file == path);
}

void tFinder::examine(const std::string& path, std::size_t argument, bool asked)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    if (!error && !m_known.insert(real.string()).second)
        return;
    storage::tDataFile file;
    std::string why;
    if (!file.open(path, &why))
    {
        m_inputs.leftOut.push_back(leftOut(path, why, asked));
        return;
    }
    ++m_files;
    const std::pair name(real.parent_path().string(), extNameOf(path));
    add(file, {path, argument, m_numbers.try_emplace(name, m_numbers.size()).first->second});
}

void tFinder::add(const storage::tDataFile& file, tInputFile input)
{
    input.records = file.recordCount();
    if (input.records == 0)
        return;
    input.startMs = input.firstMs = input.lastMs = file.record(0).timeMs;
    for (std::size_t i = 1; i < input.records; ++i)
    {
        const std::uint64_t timeMs = file.record(i).timeMs;
        input.firstMs = std::min(input.firstMs, timeMs);
        input.lastMs = std::max(input.lastMs, timeMs);
    }
    m_inputs.firstMs = m_inputs.records == 0 ? input.firstMs : std::min(m_inputs.firstMs, input.firstMs);
    m_inputs.lastMs = std::max(m_inputs.lastMs, input.lastMs);
    m_inputs.records += input.records;
    m_inputs.fineTimes |= file.fineTimes() == storage::eFineTimesOurs;
    m_inputs.files.push_back(std::move(input));
}

tInputFiles tFinder::finish()
{
    if (m_files == 0)
        throw nothingLeft(m_inputs.leftOut);
    if (m_inputs.records == 0)
        throw tFailure("nothing was recorded: the data files hold no record");
    m_inputs.recordings = m_numbers.size();
    std::sort(m_inputs.files.begin(), m_inputs.files.end(), [](const tInputFile& a, const tInputFile& b) {
        return std::tie(a.recording, a.path) < std::tie(b.recording, b.path);
    });
    return std::move(m_inputs);
}
}  // namespace

tInputFiles findInputs(const std::vector<std::string>& paths, const std::string& suffix)
{
    tFinder finder(suffix);
    for (std::size_t i = 0; i < paths.size(); ++i)
        finder.findBelow(paths[i], i);
    return finder.finish();
}

std::string presentPath(const std::string& path, const std::string& suffix)
{
    const std::string compressed = storage::tDataFileConverter::CompressedName(path, suffix);
    return !storage::tDataStorageIO::IsExistPath(path) && storage::tDataStorageIO::IsExistPath(compressed) ? compressed
                                                                                                           : path;
}
}  // namespace recordings

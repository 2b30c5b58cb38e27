#include "KestovaRecordings/recover.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/fileexamination.h"
#include "KestovaRecordings/internal/microseconds.h"
#include "KestovaRecordings/internal/segmentunit.h"
#include "KestovaRecordings/recordingoutput.h"
#include "KestovaRecordings/sheet.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datafileoutput.h"
#include "KestovaStorage/finetimesformat.h"

namespace recordings
{
namespace
{
namespace fs = std::filesystem;

constexpr std::uint64_t cUnitBytes = 256 * 1024;  // of segments that are in memory at once, a long one alone

// The segments of an examined file, one after the other.
class tExaminedSegments
{
public:
    explicit tExaminedSegments(const tExaminedFile& examined)
        : m_examined(examined), m_unit(*examined.file, examined.index)
    {}

    // Returns that of record i; null data if it cannot be read. Records are asked for in order.
    std::string_view of(std::size_t i)
    {
        if (i >= m_end)
            load(i);
        return m_unit.segment(i);
    }

private:
    void load(std::size_t first)
    {
        std::uint64_t bytes = 0;
        for (m_end = first; m_end < m_examined.index.count() && (m_end == first || bytes < cUnitBytes); ++m_end)
            bytes += m_examined.index.worth[m_end] != eBroken ? sizeOf(m_end) : 0;
        m_unit.load(first, m_end);
    }
    std::uint64_t sizeOf(std::size_t i) const { return m_examined.file->record(m_examined.index.slots[i]).bytes(); }

    const tExaminedFile& m_examined;
    tSegmentUnit m_unit;
    std::size_t m_end = 0;  // of the records that are in memory
};

tMicroseconds fineTimesOf(const tExaminedFile& examined)
{
    const tExaminedIndex& index = examined.index;
    const storage::tRawRecord first =
        index.count() != 0 ? examined.file->record(index.slots.front()) : storage::tRawRecord{};
    return {examined.verified.path, first.timeMs, first.firstByte, index.count()};
}

// What the sheet of saved records takes from that of their file: all but what the records themselves say.
tSheet aboutSaved(const tFoundSheet& found)
{
    tSheet about = found ? found.sheet : tSheet{};
    about.cut = true;
    about.silences.clear();
    for (tSheetStream& stream : about.streams)
    {
        tSheetStream bare;
        bare.key = stream.key;
        bare.kernelDropped = stream.kernelDropped;
        stream = std::move(bare);
    }
    return about;
}

class tRecovery
{
public:
    tRecovery(const tRecoverOptions& options, const std::function<bool(const tVerifyProgress&)>& goOn)
        : m_options(options), m_goOn(goOn)
    {}

    tRecoveries run(const std::vector<std::string>& paths);

private:
    void recover(const std::string& path, bool asked);
    void apply(tExaminedFile examined, bool asked);
    void finish(const tExaminedFile& examined);
    static void renewSheet(const tExaminedFile& examined);
    static void sealSheetOf(const std::string& path);
    void save(tExaminedFile& examined, bool asked);
    std::optional<std::uint64_t> saveRecords(const tExaminedFile& examined);
    std::string freeName(const std::string& path);
    void commit();
    void verifyResult(const tRecoveredFile& file);
    std::optional<tExaminedFile> examine(const std::string& path);
    bool goesOn(std::uint64_t bytes, std::uint64_t ofBytes);
    void leaveOut(const std::string& path, const std::string& why, bool asked)
    {
        m_result.leftOut.push_back(recordings::leftOut(path, why, asked));
    }
    void dropUnsaved();
    void sum();

    const tRecoverOptions& m_options;
    const std::function<bool(const tVerifyProgress&)>& m_goOn;
    std::unique_ptr<tRecordingOutput> m_output;  // null until it is needed
    std::set<std::string> m_names;               // of its files
    std::size_t m_number = 0, m_files = 0;
    bool m_cancelled = false;
    tRecoveries m_result;
};

tRecoveries tRecovery::run(const std::vector<std::string>& paths)
{
    std::error_code error;
    if (!m_options.to.empty() && fs::symlink_status(m_options.to, error).type() != fs::file_type::not_found)
        throw tFailure(m_options.to + ": exists already");
    tFoundFiles found = findAllRecordings(paths, m_options.suffix);
    m_result.leftOut = std::move(found.leftOut);
    m_files = found.files.size();
    for (m_number = 1; m_number <= m_files && !m_cancelled; ++m_number)
    {
        const std::string& file = found.files[m_number - 1];
        if (const auto present = presentForm(file, found.files, m_options.suffix))
            recover(*present, std::find(paths.begin(), paths.end(), file) != paths.end());
    }
    m_number = std::min(m_number, m_files);
    if (m_output && !m_cancelled)
        commit();
    if (m_cancelled)
        dropUnsaved();
    if (m_result.files.empty() && !m_cancelled)
        throw nothingLeft(m_result.leftOut);
    sum();
    return std::move(m_result);
}

void tRecovery::recover(const std::string& path, bool asked)
{
    std::optional<tExaminedFile> examined;
    try
    {
        examined = examine(path);
    }
    catch (const tFailure& failure)
    {
        return leaveOut(path, failure.what(), asked);
    }
    if (examined)
        apply(std::move(*examined), asked);
}

void tRecovery::apply(tExaminedFile examined, bool asked)
{
    tVerifiedFile& verified = examined.verified;
    if (verified.state == eFileState::eRecording)
        return leaveOut(verified.path, "it is being recorded", asked);
    if (verified.state == eFileState::eDamaged && !examined.canBeFinished)
        return save(examined, asked);
    tRecoveredFile done{verified.path, eRecovery::eNothing, verified.path, verified.records, 0, verified.findings};
    try
    {
        if (verified.state != eFileState::eSound)
        {
            finish(examined);
            verifyResult(done);
            done.recovery = eRecovery::eFinished;
        }
        m_result.files.push_back(std::move(done));
    }
    catch (const tFailure& failure)
    {
        leaveOut(verified.path, failure.what(), true);
    }
}

// The sheet covers every record before the file is finished, and says that it is finished afterwards: whenever the
// process dies, what it says is right.
void tRecovery::finish(const tExaminedFile& examined)
{
    const std::string& path = examined.verified.path;
    const tFoundSheet& sheet = examined.sheet;
    const bool renews = sheet && !sheet.sheet.notesOnly && !sheet.sheet.finished;
    if (renews)
        renewSheet(examined);
    std::string error;
    if (!storage::tDataFileOutput::finishInPlace(path, &error))
        throw tFailure(error);
    if (renews)
        sealSheetOf(path);
}

void tRecovery::renewSheet(const tExaminedFile& examined)
{
    tSheetBuilder builder;
    tExaminedSegments segments(examined);
    const tMicroseconds fine = fineTimesOf(examined);
    for (std::size_t i = 0; i < examined.index.count(); ++i)
        builder.add(examined.index.slots[i], fine ? fine.of(i) : storage::cNoFineTime, segments.of(i));
    const tSheetLock lock(examined.verified.path);
    tFoundSheet present = readSheet(examined.verified.path);  // with the notes that came meanwhile
    if (!present)
        return;
    builder.fill(present.sheet);
    writeSheet(examined.verified.path, present.sheet);
}

void tRecovery::sealSheetOf(const std::string& path)
{
    const tSheetLock lock(path);
    tFoundSheet present = readSheet(path);
    if (!present)
        return;
    sealSheet(present.sheet, path);
    writeSheet(path, present.sheet);
}

void tRecovery::save(tExaminedFile& examined, bool asked)
{
    tVerifiedFile& verified = examined.verified;
    const std::vector<eWorth>& worth = examined.index.worth;
    if (m_options.to.empty())
        return leaveOut(verified.path, "it is damaged: its whole records need a new recording, --to FOLDER", true);
    if (std::find(worth.begin(), worth.end(), eWhole) == worth.end())
        return leaveOut(verified.path, "none of its records is whole", asked);
    if (!m_output)
        m_output = std::make_unique<tRecordingOutput>(m_options.to);
    const std::string name = freeName(verified.path);
    m_output->startFile(aboutSaved(examined.sheet), name);
    if (const auto kept = saveRecords(examined))
        m_result.files.push_back({verified.path, eRecovery::eSaved, (fs::path(m_options.to) / name).string(), *kept,
                                  verified.records - *kept + examined.index.missing, std::move(verified.findings)});
}

// Returns how many were whole; nothing if the work was cancelled.
std::optional<std::uint64_t> tRecovery::saveRecords(const tExaminedFile& examined)
{
    constexpr std::size_t cLook = 1024;
    tExaminedSegments segments(examined);
    const tMicroseconds fine = fineTimesOf(examined);
    if (fine)
        m_output->keepFineTimes();
    const std::size_t count = examined.index.count();
    std::uint64_t kept = 0;
    for (std::size_t i = 0; i < count; ++i)
    {
        if (i % cLook == 0 && !goesOn(i, count))
            return std::nullopt;
        const std::string_view segment = segments.of(i);
        if (examined.index.worth[i] != eWhole || segment.empty())
            continue;
        const std::uint64_t time = examined.file->record(examined.index.slots[i]).timeMs;
        const std::uint16_t us = fine ? fine.of(i) : storage::cNoFineTime;
        m_output->add({time, us != storage::cNoFineTime ? us : storage::cUnknownFineTime, segment});
        ++kept;
    }
    return kept;
}

// Returns the file's name in its plain form; another one for the second file of that name.
std::string tRecovery::freeName(const std::string& path)
{
    std::string stem = fs::path(path).filename().string();
    for (const std::string_view ending : {std::string_view(".data"), std::string_view(".tar")})
        if (stem.ends_with(ending))
            stem.resize(stem.size() - ending.size());
    std::string name = stem + ".data";
    for (int n = 2; !m_names.insert(name).second; ++n)
        name = fmt::format("{}_{}.data", stem, n);
    return name;
}

void tRecovery::commit()
{
    const bool any = std::any_of(m_result.files.begin(), m_result.files.end(),
                                 [](const tRecoveredFile& file) { return file.recovery == eRecovery::eSaved; });
    if (any)
        m_output->commit();
    m_output.reset();
    for (const tRecoveredFile& file : m_result.files)
        if (file.recovery == eRecovery::eSaved)
            verifyResult(file);
}

// A cancelled look at what is done already is no failure.
void tRecovery::verifyResult(const tRecoveredFile& file)
{
    const auto result = examineFile(file.result, {false, threadsFor(m_options.threads)},
                                    [](std::uint64_t, std::uint64_t) { return true; });
    if (!result || result->verified.state != eFileState::eSound || result->verified.records != file.kept)
        throw tFailure(file.result + ": the result is not sound: see kestova verify");
}

std::optional<tExaminedFile> tRecovery::examine(const std::string& path)
{
    if (!goesOn(0, 0))
        return std::nullopt;
    return examineFile(path, {false, threadsFor(m_options.threads)},
                       [this](std::uint64_t bytes, std::uint64_t ofBytes) { return goesOn(bytes, ofBytes); });
}

bool tRecovery::goesOn(std::uint64_t bytes, std::uint64_t ofBytes)
{
    m_cancelled = m_cancelled || !m_goOn({m_number, m_files, bytes, ofBytes});
    return !m_cancelled;
}

// The new recording has not appeared.
void tRecovery::dropUnsaved()
{
    m_output.reset();
    const auto isSaved = [](const tRecoveredFile& file) { return file.recovery == eRecovery::eSaved; };
    m_result.files.erase(std::remove_if(m_result.files.begin(), m_result.files.end(), isSaved), m_result.files.end());
}

void tRecovery::sum()
{
    for (const tRecoveredFile& file : m_result.files)
    {
        m_result.kept += file.kept;
        m_result.recordsLeftOut += file.leftOut;
    }
    m_result.complete = !m_cancelled;
}
}  // namespace

const char* recoveryName(eRecovery recovery)
{
    constexpr const char* cNames[] = {"nothing", "finished", "saved"};
    return cNames[static_cast<std::size_t>(recovery)];
}

tRecoveries recoverRecordings(const std::vector<std::string>& paths, const tRecoverOptions& options,
                              const std::function<bool(const tVerifyProgress&)>& goOn)
{
    return tRecovery(options, goOn).run(paths);
}
}  // namespace recordings

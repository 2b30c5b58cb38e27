#include "KestovaRecordings/recordingoutput.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <fmt/format.h>
#include <optional>
#include <utility>

#include "KestovaRecordings/internal/earlywriting.h"
#include "KestovaRecordings/internal/newfolder.h"
#include "KestovaRecordings/sheetbuilder.h"
#include "KestovaStorage/datafileformat.h"

namespace recordings
{
namespace
{
constexpr char cEnding[] = ".data";
constexpr std::size_t cExtNameLimit = 200;            // so that the names of companions and of the compressed form fit
constexpr std::uint64_t cLongStretch = 128 * 1024;    // a shorter one is copied faster by way of our own memory
constexpr std::uint64_t cStretchLimit = 1024 * 1024;  // read for the sheet while it is in the cache, then copied

std::string timeLabel(std::uint64_t timeMs)
{
    const auto seconds = static_cast<std::time_t>(timeMs / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 32> text;
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%d_%H-%M-%S", &local)};
}

std::string hexText(const storage::tFileId& id)
{
    std::string text;
    for (const unsigned char byte : id.bytes)
        text += fmt::format("{:02x}", byte);
    return text;
}

std::uint16_t storedUs(int us)
{
    return us < 0 ? storage::cNoFineTime : static_cast<std::uint16_t>(us);
}

// Returns the length of a text at the beginning of `name` in which a 0 of the pattern is any digit; 0 for none.
std::size_t matching(std::string_view pattern, std::string_view name)
{
    const auto fits = [](char wanted, char c) {
        return wanted == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : wanted == c;
    };
    return name.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), name.begin(), fits)
               ? pattern.size()
               : 0;
}

bool hasFineTimes(const storage::tDataFile& file)
{
    return file.fineTimes() == storage::eFineTimesOurs;
}

// Records of a file that follow each other and go into the present file.
struct tStretch
{
    std::size_t first, count;
    bool cut;  // the record behind them cannot be read
};
}  // namespace

class tRecordingOutput::tPrivate
{
public:
    explicit tPrivate(const std::string& folder) : m_folder(folder) {}

    void begin(const tSheet& about, std::string name, std::string extName);
    void add(const tNewRecord& record);
    std::uint64_t copy(storage::tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs);
    void finishFile();
    std::vector<tNewFile> commit();

    bool m_fineTimes = false;  // for every file
    tSheet m_about;
    std::uint64_t m_records = 0, m_bytes = 0;

private:
    struct tPresentFile
    {
        storage::tDataFileOutput output;
        tSheetBuilder sheet;
        std::string name;
        std::optional<tEarlyWriting> writing;

        bool takesMore(std::size_t records, std::uint64_t lastStart) const
        {
            return output.recordCount() + records < storage::cIndexCapacity && lastStart <= storage::cLastSegmentPos;
        }
    };

    void makeRoom(std::uint64_t timeMs, bool fineTimes);
    void create(const std::string& name, bool fineTimes);
    void append(const tNewRecord& record);
    tStretch gather(storage::tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs);
    void account(std::uint64_t timeMs, int us, std::string_view bytes, std::uint64_t position);
    std::uint64_t copySingly(storage::tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs);
    std::string inPart(const std::string& name) const { return m_folder.part() + "/" + name; }
    [[noreturn]] void fail(const std::string& error) const;

    tNewFolder m_folder;
    std::string m_name, m_extName;         // of the next file; without a name it is named by time
    std::unique_ptr<tPresentFile> m_file;  // null until its first record
    std::vector<tNewFile> m_files;         // finished ones
};

void tRecordingOutput::tPrivate::begin(const tSheet& about, std::string name, std::string extName)
{
    tSheet next = about;
    finishFile();
    m_about = std::move(next);
    m_name = std::move(name);
    m_extName = std::move(extName);
    m_extName.resize(std::min(m_extName.size(), cExtNameLimit));
}

void tRecordingOutput::tPrivate::create(const std::string& name, bool fineTimes)
{
    m_file = std::make_unique<tPresentFile>();
    m_file->name = name;
    if (!m_file->output.create(inPart(name), fineTimes || m_fineTimes))
        fail(m_file->output.error());
    m_file->writing.emplace(inPart(name));
    m_name.clear();
}

// Creates the file that the next record goes to, if there is none or the present one is full.
void tRecordingOutput::tPrivate::makeRoom(std::uint64_t timeMs, bool fineTimes)
{
    if (m_file && m_file->output.isFull())
    {
        finishFile();
        m_about.carried = 0;
        m_about.notes.clear();
        m_about.losses = {};
        m_about.streams.clear();
    }
    if (m_file)
        return;
    const std::string byTime = fmt::format("{:04}_{}{}{}{}", m_files.size(), timeLabel(timeMs),
                                           m_extName.empty() ? "" : "_", m_extName, cEnding);
    create(m_name.empty() ? byTime : m_name, fineTimes);
}

void tRecordingOutput::tPrivate::add(const tNewRecord& record)
{
    makeRoom(record.timeMs, record.us >= 0);
    append(record);
}

void tRecordingOutput::tPrivate::append(const tNewRecord& record)
{
    account(record.timeMs, record.us, record.bytes, m_file->output.position());
    if (!m_file->output.append(record.timeMs, record.us, record.bytes.data(),
                               static_cast<std::uint32_t>(record.bytes.size())))
        fail(m_file->output.error());
    m_file->writing->reached(m_file->output.position());
}

void tRecordingOutput::tPrivate::account(std::uint64_t timeMs, int us, std::string_view bytes, std::uint64_t position)
{
    m_file->sheet.add(timeMs, storedUs(us), bytes, position);
    ++m_records;
    m_bytes += bytes.size();
}

std::uint64_t tRecordingOutput::tPrivate::copy(storage::tDataFile& from, std::size_t first, std::size_t count,
                                               std::int64_t shiftMs)
{
    std::uint64_t bytes = 0;
    for (std::size_t i = first; i < first + count && bytes < cLongStretch; ++i)
        bytes += from.record(i).len;
    if (from.isCompressed() || bytes < cLongStretch)
        return copySingly(from, first, count, shiftMs);

    std::uint64_t unread = 0;
    for (const std::size_t end = first + count; first < end;)
    {
        makeRoom(from.record(first).timeMs + static_cast<std::uint64_t>(shiftMs), hasFineTimes(from));
        const tStretch stretch = gather(from, first, end - first, shiftMs);
        if (stretch.count != 0 && m_file->output.copy(from, stretch.first, stretch.count, shiftMs) != stretch.count)
            fail(m_file->output.error());
        m_file->writing->reached(m_file->output.position());
        unread += stretch.cut ? 1 : 0;
        first += stretch.count + (stretch.cut ? 1 : 0);
    }
    return unread;
}

// Reads as many records as the present file takes, up to a MiB, and accounts for them.
tStretch tRecordingOutput::tPrivate::gather(storage::tDataFile& from, std::size_t first, std::size_t count,
                                            std::int64_t shiftMs)
{
    tStretch stretch{first, 0, false};
    const std::uint64_t begin = m_file->output.position();
    std::uint64_t position = begin, lastStart = 0;
    while (stretch.count < count && position - begin < cStretchLimit && m_file->takesMore(stretch.count, lastStart))
    {
        const std::size_t i = first + stretch.count;
        std::size_t len = 0;
        const char* const bytes = from.view(i, len);
        if (bytes == nullptr || len == 0)
        {
            stretch.cut = true;
            break;
        }
        account(from.record(i).timeMs + static_cast<std::uint64_t>(shiftMs), from.fineTime(i), {bytes, len}, position);
        lastStart = position;
        position += len;
        ++stretch.count;
    }
    return stretch;
}

std::uint64_t tRecordingOutput::tPrivate::copySingly(storage::tDataFile& from, std::size_t first, std::size_t count,
                                                     std::int64_t shiftMs)
{
    std::uint64_t unread = 0;
    for (std::size_t i = first; i < first + count; ++i)
    {
        std::size_t len = 0;
        const char* const bytes = from.view(i, len);
        if (bytes == nullptr || len == 0)
        {
            ++unread;
            continue;
        }
        const std::uint64_t timeMs = from.record(i).timeMs + static_cast<std::uint64_t>(shiftMs);
        makeRoom(timeMs, hasFineTimes(from));
        append({timeMs, from.fineTime(i), {bytes, len}});
    }
    return unread;
}

void tRecordingOutput::tPrivate::finishFile()
{
    if (!m_file && !m_name.empty())
        create(m_name, false);
    if (!m_file)
        return;
    if (!m_file->output.finish())
        fail(m_file->output.error());
    const std::string path = inPart(m_file->name);
    tSheet sheet = m_about;
    m_file->sheet.fill(sheet);
    sheet.id = hexText(m_file->output.id());
    sheet.form = storage::cDataFileHead;
    try
    {
        sealSheet(sheet, path);
        writeSheet(path, sheet);
    }
    catch (const tFailure& failure)
    {
        fail(failure.what());
    }
    m_files.push_back({m_folder.path() + "/" + m_file->name, sheet.records, sheet.bytes, sheet.firstMs, sheet.lastMs});
    m_file.reset();
}

std::vector<tNewFile> tRecordingOutput::tPrivate::commit()
{
    finishFile();
    m_folder.commit();
    return m_files;
}

// The user knows the name that the folder will have.
void tRecordingOutput::tPrivate::fail(const std::string& error) const
{
    std::string text = error;
    const std::size_t at = text.find(m_folder.part());
    if (at != std::string::npos)
        text.replace(at, m_folder.part().size(), m_folder.path());
    throw tFailure(text);
}

std::string extNameOf(const std::string& dataFile)
{
    constexpr std::array<const char*, 2> cLabels{"0000_0000-00-00_00-00-00", "0000_0000_00_00"};
    std::string name = dataFile.substr(dataFile.rfind('/') + 1);
    name.resize(std::min(name.rfind('.'), name.size()));
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".tar") == 0)
        name.resize(name.size() - 4);
    for (const char* const label : cLabels)
        if (const std::size_t len = matching(label, name); len != 0 && (name.size() == len || name[len] == '_'))
            return name.substr(std::min(len + 1, name.size()));
    return name;
}

tRecordingOutput::tRecordingOutput(const std::string& folder) : d(std::make_unique<tPrivate>(folder)) {}

tRecordingOutput::~tRecordingOutput() = default;

void tRecordingOutput::keepFineTimes()
{
    d->m_fineTimes = true;
}

void tRecordingOutput::startFile(const tSheet& about, const std::string& name)
{
    d->begin(about, name, extNameOf(name));
}

void tRecordingOutput::startFileByTime(const tSheet& about, const std::string& extName)
{
    d->begin(about, {}, extName);
}

tSheet& tRecordingOutput::about()
{
    return d->m_about;
}

void tRecordingOutput::add(const tNewRecord& record)
{
    d->add(record);
}

std::uint64_t tRecordingOutput::copy(storage::tDataFile& from, std::size_t first, std::size_t count,
                                     std::int64_t shiftMs)
{
    return d->copy(from, first, count, shiftMs);
}

std::uint64_t tRecordingOutput::records() const
{
    return d->m_records;
}

std::uint64_t tRecordingOutput::bytes() const
{
    return d->m_bytes;
}

std::vector<tNewFile> tRecordingOutput::commit()
{
    return d->commit();
}
}  // namespace recordings

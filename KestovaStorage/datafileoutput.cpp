#include "KestovaStorage/datafileoutput.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/datafile/datafileprivate.h"
#include "KestovaStorage/internal/datafile/finetimes.h"
#include "KestovaStorage/internal/datafile/indexoutput.h"
#include "KestovaStorage/internal/datafile/writinglock.h"
#include "common/status.h"

namespace storage
{
namespace
{
constexpr std::size_t cBuffer = 1 << 20;     // bytes of segments that are written at once
constexpr std::size_t cMostSlots = 16'384;   // and records
constexpr std::uint64_t cLongRun = 1 << 16;  // bytes from which on copying inside the kernel is faster

tStatus refused(const std::string& text)
{
    return {tStatus::eCode::eRefused, text};
}

// Not possible between some file systems, or on some.
bool mustCopyByHand(int error)
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}
}  // namespace

class tDataFileOutputPrivate
{
public:
    tStatus create(const std::string& path, bool fineTimes);
    tStatus append(std::uint64_t timeMs, int us, const char* bytes, std::size_t len);
    tStatus copy(tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs, std::size_t& copied);
    tStatus flush();
    tStatus finish();

    bool isFull() const { return m_lastStart > cLastSegmentPos || records() >= cIndexCapacity; }
    std::size_t records() const { return m_index.records() + m_slots.size(); }
    std::uint64_t position() const { return m_position; }
    const tFileId& id() const { return m_id; }
    // Keeps the first failure. Returns whether there was none yet.
    bool take(const tStatus& status);
    bool isOpen() const { return m_file.valid(); }
    const std::string& error() const { return m_error; }

private:
    struct tStretch
    {
        std::size_t first, count;
        std::uint64_t pos, bytes;
    };
    tStretch stretchOf(const tDataFile& from, std::size_t first, std::size_t count) const;
    tStatus copyStretch(tDataFile& from, const tStretch& stretch, std::int64_t shiftMs);
    tStatus appendStretch(tDataFile& from, const tStretch& stretch, std::int64_t shiftMs);
    tStatus copyBytes(tDataFileReader& from, const tStretch& stretch);
    tStatus copyByHand(tDataFileReader& from, std::uint64_t pos, std::uint64_t to, std::uint64_t bytes);
    void addSlot(std::uint64_t timeMs, int us, std::size_t len);
    tStatus failed() const { return tStatus::system(errno != 0 ? errno : EIO); }

    std::string m_path, m_error;
    tDescriptor m_file;
    tFileId m_id{};
    std::unique_ptr<tFineTimesOutput> m_fineTimes;
    tIndexOutput m_index{
        [this](const void* data, std::size_t len, std::uint64_t pos) { return m_file.writeAllAt(data, len, pos); }};
    std::uint64_t m_position = cPayloadPos;  // of the next segment
    std::uint64_t m_lastStart = 0;
    // Not yet written: the bytes end at m_position, the slots follow those of m_index.
    std::vector<char> m_bytes;
    std::vector<tIndexSlot> m_slots;
    std::vector<std::uint16_t> m_times;
};

bool tDataFileOutputPrivate::take(const tStatus& status)
{
    if (!status && m_error.empty())
        m_error = tStatus(status).of(m_path).text();
    return m_error.empty();
}

tStatus tDataFileOutputPrivate::create(const std::string& path, bool fineTimes)
{
    m_path = path;
    m_file = tDescriptor(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!m_file.valid())
        return failed();
    takeWritingLock(m_file.get());
    m_id = newFileId();
    if (fineTimes)
        m_fineTimes = std::make_unique<tFineTimesOutput>(fineTimesName(path), m_id);
    return m_index.writeMagic() ? tStatus() : failed();
}

tStatus tDataFileOutputPrivate::append(std::uint64_t timeMs, int us, const char* bytes, std::size_t len)
{
    if (timeMs == 0 || timeMs >= cTimeLimit || len == 0 || isFull())
        return refused("a record has no possible time or no bytes, or the file is full");
    m_bytes.insert(m_bytes.end(), bytes, bytes + len);
    addSlot(timeMs, us, len);
    return m_bytes.size() >= cBuffer || m_slots.size() >= cMostSlots ? flush() : tStatus();
}

void tDataFileOutputPrivate::addSlot(std::uint64_t timeMs, int us, std::size_t len)
{
    m_slots.push_back(encode(tNormalIndexTable{timeMs, m_position, static_cast<std::uint32_t>(len)}));
    m_times.push_back(us >= 0 && us < cFineTimeLimit ? static_cast<std::uint16_t>(us) : cNoFineTime);
    m_lastStart = m_position;
    m_position += len;
}

tStatus tDataFileOutputPrivate::copy(tDataFile& from, std::size_t first, std::size_t count, std::int64_t shiftMs,
                                     std::size_t& copied)
{
    while (copied < count && !isFull())
    {
        const tStretch stretch = stretchOf(from, first + copied, count - copied);
        const bool isLong = stretch.bytes >= cLongRun;
        if (tStatus status = isLong ? copyStretch(from, stretch, shiftMs) : appendStretch(from, stretch, shiftMs);
            !status)
            return status;
        copied += stretch.count;
    }
    return {};
}

// Returns the records from `first` on whose bytes follow each other and that this file still takes.
tDataFileOutputPrivate::tStretch tDataFileOutputPrivate::stretchOf(const tDataFile& from, std::size_t first,
                                                                   std::size_t count) const
{
    if (from.isCompressed())
        return {first, 1, 0, 0};
    tStretch stretch{first, 0, from.record(first).pos, 0};
    const std::size_t most = std::min(count, cIndexCapacity - records());
    const auto takesMore = [&] { return stretch.count == 0 || m_position + stretch.bytes <= cLastSegmentPos; };
    for (; stretch.count < most && takesMore(); ++stretch.count)
    {
        const tDataFileRecord record = from.record(first + stretch.count);
        if (record.pos != stretch.pos + stretch.bytes)
            break;
        stretch.bytes += record.len;
    }
    return stretch;
}

tStatus tDataFileOutputPrivate::copyStretch(tDataFile& from, const tStretch& stretch, std::int64_t shiftMs)
{
    if (tStatus status = flush(); !status)
        return status;
    if (tStatus status = copyBytes(*from.d->m_reader, stretch); !status)
        return status;
    for (std::size_t i = stretch.first; i < stretch.first + stretch.count; ++i)
    {
        const tDataFileRecord record = from.record(i);
        const std::uint64_t time = record.timeMs + static_cast<std::uint64_t>(shiftMs);
        if (time == 0 || time >= cTimeLimit || record.len == 0)
            return refused("a record has no possible time or no bytes");
        addSlot(time, m_fineTimes ? from.fineTime(i) : cUnknownFineTime, record.len);
    }
    return flush();
}

tStatus tDataFileOutputPrivate::appendStretch(tDataFile& from, const tStretch& stretch, std::int64_t shiftMs)
{
    for (std::size_t i = stretch.first; i < stretch.first + stretch.count; ++i)
    {
        std::size_t len = 0;
        const char* const bytes = from.view(i, len);
        if (bytes == nullptr)
            return tStatus(tStatus::eCode::eDamaged, "record " + std::to_string(i) + " cannot be read").of(from.path());
        const std::uint64_t time = from.record(i).timeMs + static_cast<std::uint64_t>(shiftMs);
        if (tStatus status = append(time, m_fineTimes ? from.fineTime(i) : cUnknownFineTime, bytes, len); !status)
            return status;
    }
    return {};
}

tStatus tDataFileOutputPrivate::copyBytes(tDataFileReader& from, const tStretch& stretch)
{
    const int source = from.descriptor();
    auto in = static_cast<off_t>(stretch.pos);
    auto out = static_cast<off_t>(m_position);
    std::uint64_t left = stretch.bytes;
    while (left != 0 && source >= 0)
    {
        const ssize_t done = ::copy_file_range(source, &in, m_file.get(), &out, left, 0);
        if (done > 0)
            left -= static_cast<std::uint64_t>(done);
        else if (done == 0 || mustCopyByHand(errno))  // 0: the file was cut, or one that is no real file
            break;
        else if (errno != EINTR)
            return failed();
    }
    return copyByHand(from, static_cast<std::uint64_t>(in), static_cast<std::uint64_t>(out), left);
}

tStatus tDataFileOutputPrivate::copyByHand(tDataFileReader& from, std::uint64_t pos, std::uint64_t to,
                                           std::uint64_t bytes)
{
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, cBuffer)));
    while (bytes != 0)
    {
        const auto len = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, piece.size()));
        if (!from.read(pos, len, piece.data()))
            return tStatus(tStatus::eCode::eDamaged, "its records cannot be read").of(from.path());
        if (!m_file.writeAllAt(piece.data(), len, to))
            return failed();
        pos += len;
        to += len;
        bytes -= len;
    }
    return {};
}

// Bytes, then fine times, then the records that need both.
tStatus tDataFileOutputPrivate::flush()
{
    if (m_slots.empty())
        return {};
    if (!m_bytes.empty() && !m_file.writeAllAt(m_bytes.data(), m_bytes.size(), m_position - m_bytes.size()))
        return failed();
    if (m_fineTimes)
        m_fineTimes->write(m_index.records(), m_slots.front(), m_times);
    if (!m_index.append(m_slots, m_slots.size()))
        return failed();
    m_bytes.clear();
    m_slots.clear();
    m_times.clear();
    return {};
}

tStatus tDataFileOutputPrivate::finish()
{
    if (tStatus status = flush(); !status)
        return status;
    if (!m_index.writeHead() || ::fsync(m_file.get()) != 0 || (m_fineTimes && !m_fineTimes->sync()))
        return failed();
    releaseWritingLock(m_file.get());
    return {};
}

namespace
{
tStatus checkUnfinished(const tDataFileReader& file)
{
    constexpr std::uint64_t cEmptyFile = cIndexHeadPos + sizeof(tIndexHead);
    if (file.form().isCompressed())
        return refused("it is compressed");
    if (file.finished())
        return refused("it is finished");
    if (file.damaged() != 0)
        return {tStatus::eCode::eDamaged, std::to_string(file.damaged()) + " of its records are damaged"};
    return file.count() != 0 || file.size() <= cEmptyFile ? tStatus() : refused("it holds no record, but bytes");
}

tStatus finishUnfinished(const std::string& path)
{
    const tDescriptor file(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid())
        return tStatus::system(errno);
    if (!takeWritingLock(file.get()) && errno == EWOULDBLOCK)
        return refused("it is being recorded");
    tStatus status;
    const auto reader = tDataFileReader::open(path, &status);
    if (status)
        status = checkUnfinished(*reader);
    if (!status)
        return status;
    tIndexHead head{static_cast<std::uint32_t>(reader->count()), 0};
    for (std::size_t i = 0; i < reader->count(); ++i)
        head.segmentMaxLen = std::max(head.segmentMaxLen, static_cast<std::uint32_t>(reader->record(i).bytes()));
    head = fileOrder(head);
    return file.writeAllAt(&head, sizeof head, cIndexHeadPos) && ::fsync(file.get()) == 0 ? tStatus()
                                                                                          : tStatus::system(errno);
}
}  // namespace

tDataFileOutput::tDataFileOutput() : d(new tDataFileOutputPrivate) {}

tDataFileOutput::~tDataFileOutput()
{
    delete d;
}

bool tDataFileOutput::create(const std::string& path, bool fineTimes)
{
    return d->take(d->create(path, fineTimes));
}

const tFileId& tDataFileOutput::id() const
{
    return d->id();
}

bool tDataFileOutput::isFull() const
{
    return d->isFull();
}

size_t tDataFileOutput::recordCount() const
{
    return d->records();
}

uint64_t tDataFileOutput::position() const
{
    return d->position();
}

bool tDataFileOutput::append(uint64_t timeMs, int us, const char* bytes, uint32_t len)
{
    return d->take({}) && d->take(d->append(timeMs, us, bytes, len));
}

size_t tDataFileOutput::copy(tDataFile& from, size_t first, size_t count, int64_t shiftMs)
{
    std::size_t copied = 0;
    if (d->take({}) && first <= from.recordCount() && count <= from.recordCount() - first)
        d->take(d->copy(from, first, count, shiftMs, copied));
    return copied;
}

bool tDataFileOutput::flush()
{
    return d->take({}) && d->take(d->flush());
}

bool tDataFileOutput::finish()
{
    return d->take({}) && d->take(d->finish());
}

const std::string& tDataFileOutput::error() const
{
    return d->error();
}

bool tDataFileOutput::finishInPlace(const std::string& path, std::string* error)
{
    const tStatus status = finishUnfinished(path).of(path);
    if (!status && error != nullptr)
        *error = status.text();
    return status.ok();
}
}  // namespace storage

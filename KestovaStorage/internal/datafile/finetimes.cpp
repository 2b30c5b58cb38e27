#include "KestovaStorage/internal/datafile/finetimes.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaStorage/companions.h"
#include "KestovaStorage/internal/datafile/datafilereader.h"
#include "UdpSocket/consoleprint.h"
#include "common/byteorder.h"

namespace storage
{
namespace
{
constexpr std::size_t cMagicSize = sizeof cFineTimesMagic - 1;

std::uint64_t placeOf(std::size_t record)
{
    return cFineTimesPos + record * cFineTimeSize;
}

void writeHead(const tIndexSlot& first, const tFileId& id, unsigned char* head)
{
    const tNormalIndexTable record = decodeNormal(first);
    std::memcpy(head, cFineTimesMagic, cMagicSize);
    le::store(head + offsetof(tFineTimesHead, version), cFineTimesVersion);
    std::memcpy(head + offsetof(tFineTimesHead, id), id.bytes, sizeof id.bytes);
    le::store(head + offsetof(tFineTimesHead, firstTimeMs), record.tim);
    le::store(head + offsetof(tFineTimesHead, firstPos), record.pos);
}

// One flipped bit, of the head or of the index, makes no file foreign.
bool belongsTo(const unsigned char* head, const tIndexSlot& first)
{
    const tNormalIndexTable record = decodeNormal(first);
    const auto time = le::load<std::uint64_t>(head + offsetof(tFineTimesHead, firstTimeMs));
    const auto pos = le::load<std::uint64_t>(head + offsetof(tFineTimesHead, firstPos));
    return std::popcount(time ^ record.tim) + std::popcount(pos ^ record.pos) <= 1;
}
}  // namespace

tFileId newFileId()
{
    tFileId id{};
    std::random_device random;
    for (unsigned char& byte : id.bytes)
        byte = static_cast<unsigned char>(random());
    return id;
}

void tFineTimesOutput::write(std::size_t first, const tIndexSlot& slot, std::span<const std::uint16_t> times)
{
    if (m_failed || (!m_file.valid() && !create()))
        return;
    const std::size_t headSize = first == 0 ? sizeof(tFineTimesHead) : 0;
    const std::uint64_t pos = first == 0 ? 0 : placeOf(first);
    std::vector<unsigned char> bytes(headSize + times.size() * cFineTimeSize);
    if (headSize != 0)
        writeHead(slot, m_id, bytes.data());
    for (std::size_t i = 0; i < times.size(); ++i)
        le::store(bytes.data() + headSize + i * cFineTimeSize, times[i]);
    if (m_file.writeAllAt(bytes.data(), bytes.size(), pos))
        return;
    fail();
    // What was not written whole is not known.
    (void)!::ftruncate(m_file.get(), static_cast<off_t>(placeOf(first)));
}

// Something of this name is left from a data file that is gone.
bool tFineTimesOutput::create()
{
    const auto open = [this] {
        return tDescriptor(::open(m_path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    };
    tDescriptor created = open();
    if (!created.valid() && errno == EEXIST && ::unlink(m_path.c_str()) == 0)
        created = open();
    if (!created.valid())
        fail();
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_file = std::move(created);
    return m_file.valid();
}

void tFineTimesOutput::fail()
{
    m_failed = true;
    Kestova::console::printSystemError(m_path.c_str());
}

bool tFineTimesOutput::sync() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_file.valid() || ::fdatasync(m_file.get()) == 0;
}

tFineTimes::tFineTimes(std::string path, const tIndexSlot& first) : m_path(std::move(path))
{
    const tDescriptor file(::open(m_path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.valid())
        m_state = examine(file, first);
    else if (errno == ELOOP)
        m_state = eFineTimesDamaged;
}

tFineTimesState tFineTimes::examine(const tDescriptor& file, const tIndexSlot& first)
{
    struct stat info;
    unsigned char head[sizeof(tFineTimesHead)];
    if (::fstat(file.get(), &info) != 0)
        return eFineTimesNone;
    if (!S_ISREG(info.st_mode) || !file.readAllAt(head, sizeof head, 0) ||
        std::memcmp(head, cFineTimesMagic, cMagicSize) != 0)
        return eFineTimesDamaged;
    if (le::load<std::uint32_t>(head + offsetof(tFineTimesHead, version)) != cFineTimesVersion ||
        !belongsTo(head, first))
        return eFineTimesForeign;
    m_device = info.st_dev;
    m_inode = info.st_ino;
    std::memcpy(m_id.bytes, head + offsetof(tFineTimesHead, id), sizeof m_id.bytes);
    return eFineTimesOurs;
}

// Leaves the block without times if the file is gone or another one.
void tFineTimes::load(std::size_t block)
{
    m_block = block;
    m_times.clear();
    struct stat info;
    const tDescriptor file(::open(m_path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.valid() || ::fstat(file.get(), &info) != 0 || info.st_dev != m_device || info.st_ino != m_inode)
        return;
    unsigned char bytes[cBlock * cFineTimeSize];
    const std::size_t got = file.readAt(bytes, sizeof bytes, placeOf(block * cBlock)) / cFineTimeSize;
    m_times.resize(got);
    for (std::size_t i = 0; i < got; ++i)
        m_times[i] = le::load<std::uint16_t>(bytes + i * cFineTimeSize);
}

tFineTimes fineTimesOf(tDataFileReader& file)
{
    tIndexSlot first;
    const bool has = file.read(cIndexPos, first.size(), reinterpret_cast<char*>(first.data()));
    return has && timeOf(first) != 0 ? tFineTimes(fineTimesName(file.path()), first) : tFineTimes();
}
}  // namespace storage

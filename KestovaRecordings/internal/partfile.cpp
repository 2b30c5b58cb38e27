#include "KestovaRecordings/internal/partfile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaRecordings/internal/newfolder.h"

namespace recordings
{
namespace
{
constexpr std::size_t cGathered = 1 << 20;

tDescriptor createNew(const std::string& path, const std::string& part)
{
    struct stat info;
    if (::lstat(path.c_str(), &info) == 0)
        throw tFailure(path + " exists already: remove it, or choose another name");
    tDescriptor file(::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file.valid())
        throw tFailure(part + " cannot be made: " + std::strerror(errno));
    return file;
}
}  // namespace

tPartFile::tPartFile(const std::string& path)
    : m_path(path), m_part(path + ".part"), m_file(createNew(m_path, m_part)), m_early(m_part)
{
    m_buffer.reserve(cGathered);
}

tPartFile::~tPartFile()
{
    if (!m_finished)
        std::remove(m_part.c_str());
}

void tPartFile::write(std::string_view bytes)
{
    const bool isLarge = bytes.size() >= cGathered / 2;
    if (isLarge || m_buffer.size() + bytes.size() > cGathered)
    {
        writeThrough(m_buffer);
        m_buffer.clear();
    }
    if (isLarge)
        writeThrough(bytes);
    else
        m_buffer.append(bytes);
}

void tPartFile::writeThrough(std::string_view bytes)
{
    if (!m_file.writeAllAt(bytes.data(), bytes.size(), m_written))
        fail();
    m_written += bytes.size();
    m_early.reached(m_written);
}

void tPartFile::finish()
{
    writeThrough(m_buffer);
    m_buffer.clear();
    if (::fsync(m_file.get()) != 0 || !renameNew(m_part, m_path))
        fail();
    m_finished = true;
}

void tPartFile::fail() const
{
    throw tFailure(m_path + " cannot be written: " + std::strerror(errno));
}
}  // namespace recordings

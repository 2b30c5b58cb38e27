#include "KestovaStorage/internal/datafile/playmark.h"

#include <fcntl.h>
#include <unistd.h>

namespace storage
{
namespace
{
struct flock wholeFile(short kind)
{
    struct flock lock
    {};
    lock.l_type = kind;
    lock.l_whence = SEEK_SET;
    return lock;
}

// O_NONBLOCK: a pipe that is named like a data file does not wait.
tDescriptor opened(const std::string& path)
{
    return tDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}
}  // namespace

// An open file description's lock, not flock(): whoever asks for it does not take it, and the recorder has the other.
void markPlayed(int file)
{
    struct flock lock = wholeFile(F_RDLCK);
    ::fcntl(file, F_OFD_SETLK, &lock);
}

tDescriptor markPlayed(const std::string& path)
{
    tDescriptor file = opened(path);
    if (file.valid())
        markPlayed(file.get());
    return file;
}

bool isMarkedPlayed(const std::string& path)
{
    const tDescriptor file = opened(path);
    struct flock lock = wholeFile(F_WRLCK);
    return file.valid() && ::fcntl(file.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}
}  // namespace storage

#include "server/recorderprocess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/companions.h"
#include "common/descriptor.h"

namespace server
{
using recordings::tFailure;

namespace
{
using namespace std::chrono_literals;
using tSteady = std::chrono::steady_clock;

constexpr std::chrono::milliseconds cStartTime = 10s, cStopTime = 30s, cLook = 20ms;
constexpr std::string_view cBegun = "recording to ";

std::mutex s_mutex;
std::vector<pid_t> s_children;  // guarded by s_mutex

// The settings of a new process, let go of with the object.
class tSpawn
{
public:
    explicit tSpawn(int errors)
    {
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawn_file_actions_addopen(&m_actions, 0, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&m_actions, 1, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_adddup2(&m_actions, errors, 2);
        ::posix_spawn_file_actions_addclosefrom_np(&m_actions, 3);  // no socket of ours outlives us there
        ::posix_spawnattr_init(&m_attributes);
        sigset_t none, usual;
        sigemptyset(&none);
        sigemptyset(&usual);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
            sigaddset(&usual, signal);
        ::posix_spawnattr_setsigmask(&m_attributes, &none);
        ::posix_spawnattr_setsigdefault(&m_attributes, &usual);
        ::posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~tSpawn()
    {
        ::posix_spawn_file_actions_destroy(&m_actions);
        ::posix_spawnattr_destroy(&m_attributes);
    }
    tSpawn(const tSpawn&) = delete;
    tSpawn& operator=(const tSpawn&) = delete;

    pid_t start(std::vector<std::string> arguments) const
    {
        std::vector<char*> argv;
        argv.reserve(arguments.size() + 1);
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        pid_t pid = -1;
        if (const int error = ::posix_spawn(&pid, argv[0], &m_actions, &m_attributes, argv.data(), environ))
            throw tFailure(std::string("no recorder can be started: ") + std::strerror(error));
        return pid;
    }

private:
    posix_spawn_file_actions_t m_actions{};
    posix_spawnattr_t m_attributes{};
};

std::string contentsOf(const tDescriptor& file)
{
    std::array<char, 16384> bytes{};
    return {bytes.data(), file.readAt(bytes.data(), bytes.size(), 0)};
}

// Returns the path behind "recording to ", without the file's name.
std::optional<std::string> folderIn(const std::string& said)
{
    const std::size_t at = said.find(cBegun), end = said.find('\n', at);
    if (at == std::string::npos || end == std::string::npos)
        return std::nullopt;
    const std::string file = said.substr(at + cBegun.size(), end - at - cBegun.size());
    return std::filesystem::path(file).parent_path().string();
}

std::string lastLine(std::string said)
{
    while (!said.empty() && said.back() == '\n')
        said.pop_back();
    const std::string line = said.substr(said.rfind('\n') + 1);
    return line.empty() ? "the recorder has ended without a reason" : line;
}

bool isEnded(pid_t child)
{
    return ::waitpid(child, nullptr, WNOHANG) == child;
}

// A kernel number that glibc of this distribution has no name for everywhere.
int openProcess(pid_t pid)
{
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

bool isSame(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

std::string textOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Returns whether one of the process's descriptors is the file, and holds its lock.
bool holdsLock(const std::filesystem::path& process, const struct stat& file)
{
    std::error_code error;
    for (std::filesystem::directory_iterator entry(process / "fd", error), end; !error && entry != end;
         entry.increment(error))
    {
        struct stat facts
        {};
        if (::stat(entry->path().c_str(), &facts) != 0 || !isSame(facts, file))
            continue;
        const std::string about = textOf(process / "fdinfo" / entry->path().filename());
        if (about.find("FLOCK") != std::string::npos && about.find("WRITE") != std::string::npos)
            return true;
    }
    return false;
}

bool isRecorder(const std::filesystem::path& process)
{
    const std::string line = textOf(process / "cmdline");
    const std::string program = line.substr(0, line.find('\0'));
    const std::string command = line.substr(std::min(program.size() + 1, line.size()));
    return std::filesystem::path(program).filename() == "kestova" && command.starts_with(std::string("record\0", 7));
}

struct tHolder
{
    tDescriptor process;
    std::filesystem::path path;
};

// The descriptor stands for the process that held the lock, whatever becomes of its number.
tHolder findHolder(const std::string& dataFile)
{
    struct stat file
    {};
    if (::stat(dataFile.c_str(), &file) != 0)
        throw tFailure("the file is gone");
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error))
    {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid <= 0 || !holdsLock(entry.path(), file))
            continue;
        tDescriptor process(openProcess(pid));
        if (process.valid() && holdsLock(entry.path(), file))  // it was still that one
            return {std::move(process), entry.path()};
    }
    throw tFailure("the recorder cannot be found: is it another user's?");
}
}  // namespace

std::string startRecorder(const std::vector<std::string>& arguments)
{
    const tDescriptor errors(::memfd_create("kestova-record", MFD_CLOEXEC));
    if (!errors.valid())
        throw tFailure(std::string("no recorder can be started: ") + std::strerror(errno));
    const pid_t child = tSpawn(errors.get()).start(arguments);
    const auto deadline = tSteady::now() + cStartTime;
    for (;;)
    {
        if (const auto folder = folderIn(contentsOf(errors)))
        {
            const std::lock_guard lock(s_mutex);
            s_children.push_back(child);
            return *folder;
        }
        if (isEnded(child))
            throw tFailure(lastLine(contentsOf(errors)));
        if (tSteady::now() >= deadline)
            break;
        std::this_thread::sleep_for(cLook);
    }
    ::kill(child, SIGKILL);  // ours, and not yet waited for: the number is its own
    ::waitpid(child, nullptr, 0);
    throw tFailure("the recorder did not begin in ten seconds");
}

void stopRecorder(const std::string& dataFile)
{
    const tHolder holder = findHolder(dataFile);
    if (!isRecorder(holder.path))
        throw tFailure("another program records into this file: end it there");
    if (::syscall(SYS_pidfd_send_signal, holder.process.get(), SIGINT, nullptr, 0) != 0)
        throw tFailure(std::string("the recorder cannot be ended: ") + std::strerror(errno));
    const auto deadline = tSteady::now() + cStopTime;
    while (storage::isBeingWritten(dataFile) && tSteady::now() < deadline)
        std::this_thread::sleep_for(cLook);
}

void reapRecorders()
{
    const std::lock_guard lock(s_mutex);
    std::erase_if(s_children, isEnded);
}
}  // namespace server

#include "sessions/check/machinechecks.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/timex.h>
#include <unistd.h>
#include <vector>

#include "common/descriptor.h"

namespace session
{
namespace
{
namespace fs = std::filesystem;
using tSteady = std::chrono::steady_clock;

constexpr double cDaySeconds = 86'400.0;
constexpr std::uint64_t cLowBytes = 1ull << 30;  // where recorders begin to reclaim
constexpr std::size_t cBlock = 1 << 20;
constexpr std::uint64_t cMostWritten = 64 * cBlock;

std::string sizeText(double bytes)
{
    return bytes < 1e9 ? fmt::format("{:.1f} MB", bytes / 1e6) : fmt::format("{:.1f} GB", bytes / 1e9);
}

// Noise: disks and file systems that compress, or keep no zeros, must not look fast.
std::vector<char> noise()
{
    std::vector<char> block(cBlock);
    std::uint64_t state = 88172645463325252u;
    for (std::size_t i = 0; i + sizeof state <= block.size(); i += sizeof state)
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        std::memcpy(&block[i], &state, sizeof state);
    }
    return block;
}

// A file that vanishes with its descriptor.
tDescriptor namelessFile(const std::string& folder)
{
    tDescriptor file(open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (file.valid())
        return file;
    std::string path = folder + "/.kestova-check-XXXXXX";  // a file system without nameless files
    file = tDescriptor(mkostemp(path.data(), O_CLOEXEC));
    if (file.valid())
        unlink(path.c_str());
    return file;
}
}  // namespace

tDiskRoom diskRoom(const std::string& root)
{
    std::error_code error;
    fs::path folder = fs::absolute(root, error);
    while (!fs::exists(folder, error) && folder.has_relative_path())
        folder = folder.parent_path();
    tDiskRoom room{folder.string()};
    if (!fs::is_directory(folder, error))
        room.error = ENOTDIR;
    else if (access(folder.c_str(), W_OK | X_OK) != 0)
        room.error = errno;
    const fs::space_info space = fs::space(folder, error);
    room.freeBytes = error ? 0 : space.available;
    return room;
}

tCheck checkDiskRoom(const std::string& root, const tDiskRoom& room, double bytesPerSecond)
{
    const std::string name = "disk_room";
    if (room.error != 0)
        return failure(name, fmt::format("cannot record into {}: {}: {}", root, room.folder, std::strerror(room.error)),
                       fmt::format("sudo install -d -o \"$USER\" {}", quoted(root)));
    const double freeBytes = static_cast<double>(room.freeBytes);
    std::string message = fmt::format("{} are free on the disk of {}", sizeText(freeBytes), root);
    const double seconds = bytesPerSecond > 0.0 ? freeBytes / bytesPerSecond : 2 * cDaySeconds;
    if (bytesPerSecond > 0.0)
        message += fmt::format(", for {:.1f} hours at {}/s", seconds / 3600.0, sizeText(bytesPerSecond));
    else
        message += "; nothing was heard, so nobody knows for how long";
    const double wanted = std::max(bytesPerSecond * cDaySeconds, 2.0 * cLowBytes);
    const std::string command =
        fmt::format("kestova prune {} --min-free {:.0f}G", quoted(root), std::max(wanted / 1e9 + 0.5, 1.0));
    if (room.freeBytes == 0)
        return failure(name, message, command);
    const bool isLow = room.freeBytes < cLowBytes || seconds < cDaySeconds;
    return isLow ? warning(name, message, command) : ok(name, message);
}

std::optional<double> writingSpeed(const tDiskRoom& room)
{
    const tDescriptor file = namelessFile(room.folder);
    if (!file.valid())
        return std::nullopt;
    const std::vector<char> block = noise();
    const std::uint64_t most = std::max<std::uint64_t>(std::min(cMostWritten, room.freeBytes / 10), cBlock);
    const auto started = tSteady::now();
    std::uint64_t written = 0;
    while (written < most && tSteady::now() - started < std::chrono::seconds(1))
    {
        if (!file.writeAllAt(block.data(), block.size(), written))
            return std::nullopt;
        written += block.size();
    }
    if (fdatasync(file.get()) != 0)
        return std::nullopt;
    return static_cast<double>(written) / std::chrono::duration<double>(tSteady::now() - started).count();
}

tCheck checkDiskSpeed(const std::string& root, std::optional<double> speed, double bytesPerSecond)
{
    const std::string name = "disk_speed";
    const std::string command = "findmnt --df";  // the other disks
    if (!speed)
        return failure(name, fmt::format("nothing can be written on the disk of {}", root), command);
    const std::string message = fmt::format("the disk of {} takes {}/s", root, sizeText(*speed));
    if (*speed < bytesPerSecond)
        return failure(name, fmt::format("{}, and {}/s come: choose another --root", message, sizeText(bytesPerSecond)),
                       command);
    if (*speed < 4.0 * bytesPerSecond)
        return warning(name, fmt::format("{}, and {}/s come: choose another --root", message, sizeText(bytesPerSecond)),
                       command);
    return ok(name, message);
}

tClockState clockState()
{
    timex clock{};
    const int state = adjtimex(&clock);
    if (state < 0)
        return {};
    const bool isSynchronised = state != TIME_ERROR && (clock.status & STA_UNSYNC) == 0;
    return {true, isSynchronised, static_cast<double>(clock.maxerror) / 1000.0};
}

tCheck checkClock(const tClockState& clock)
{
    const std::string command = "sudo timedatectl set-ntp true";
    if (!clock.isKnown)
        return warning("clock", "the kernel does not say whether the system clock is synchronised", command);
    if (!clock.isSynchronised)
        return warning("clock", "the system clock is not synchronised: recorded times may be wrong", command);
    return ok("clock", fmt::format("the system clock is synchronised to {:.1f} ms", clock.errorMs));
}
}  // namespace session

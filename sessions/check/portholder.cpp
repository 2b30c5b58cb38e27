// Who holds a UDP port, from what the kernel lists of sockets and processes.
#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <vector>

#include "UdpSocket/udpsocket.h"
#include "sessions/check/networkchecks.h"

namespace session
{
namespace
{
namespace fs = std::filesystem;

// A line of /proc/net/udp or udp6: "61: 0100007F:1770 00000000:0000 07 ... uid timeout inode ...".
struct tSocketLine
{
    std::string address;  // hexadecimal, each 32 bits as the machine has them in memory
    unsigned int port = 0;
    std::uint64_t inode = 0;
};

std::vector<tSocketLine> socketsIn(const char* list)
{
    constexpr std::size_t cLocal = 1, cInode = 9;
    std::vector<tSocketLine> found;
    std::ifstream file(list);
    std::string line;
    std::getline(file, line);  // the heads of the columns
    while (std::getline(file, line))
    {
        std::istringstream words(line);
        std::vector<std::string> columns;
        for (std::string word; words >> word;)
            columns.push_back(word);
        if (columns.size() <= cInode)
            continue;
        const std::string& local = columns[cLocal];
        const std::size_t colon = std::min(local.find(':'), local.size() - 1);
        tSocketLine socket{local.substr(0, colon)};
        std::from_chars(&local[colon] + 1, local.data() + local.size(), socket.port, 16);
        std::from_chars(columns[cInode].data(), columns[cInode].data() + columns[cInode].size(), socket.inode);
        found.push_back(socket);
    }
    return found;
}

// A socket on the group, or on every address, IPv6 ones included.
std::uint64_t inodeOf(const NetAddress& group)
{
    const std::string own = fmt::format("{:08X}", group.ip);
    for (const char* const list : {"/proc/self/net/udp", "/proc/self/net/udp6"})
    {
        for (const tSocketLine& socket : socketsIn(list))
        {
            const bool isAny = socket.address.find_first_not_of('0') == std::string::npos;
            if (socket.port == net::NtoHs(group.port) && (isAny || socket.address == own))
                return socket.inode;
        }
    }
    return 0;
}

bool hasSocket(const fs::path& process, const std::string& socket)
{
    std::error_code error;
    for (fs::directory_iterator file(process / "fd", error), end; !error && file != end; file.increment(error))
    {
        std::error_code gone;
        if (fs::read_symlink(file->path(), gone) == socket)
            return true;
    }
    return false;
}
}  // namespace

tPortHolder holderOf(const NetAddress& group)
{
    tPortHolder holder{inodeOf(group), 0, ""};
    if (holder.inode == 0)
        return holder;
    const std::string socket = fmt::format("socket:[{}]", holder.inode);
    std::error_code error;
    for (fs::directory_iterator process("/proc", error), end; !error && process != end; process.increment(error))
    {
        const std::string name = process->path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos || !hasSocket(process->path(), socket))
            continue;
        std::from_chars(name.data(), name.data() + name.size(), holder.pid);
        std::ifstream command(process->path() / "comm");
        std::getline(command, holder.program);
        break;
    }
    return holder;
}
}  // namespace session

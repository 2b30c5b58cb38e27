#include "sessions/record/recordingchecks.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/transport.h"
#include "sessions/localaddress.h"

namespace session
{
using namespace recordings;

namespace
{
namespace fs = std::filesystem;

[[noreturn]] void failRoot(const std::string& folder, int error)
{
    throw tFailure(fmt::format("cannot record into {}: {}; choose another folder", folder, std::strerror(error)));
}

// The folder `made` of the path to `folder` could neither be made nor found.
[[noreturn]] void failMaking(const fs::path& folder, const fs::path& made, int error)
{
    const fs::path above = made.has_parent_path() ? made.parent_path() : ".";
    if (error == EACCES && access(above.c_str(), X_OK) != 0)
        throw tFailure(fmt::format("cannot record into {}: {} may not be searched by this user; choose another folder",
                                   folder.string(), above.string()));
    failRoot(folder.string(), error);
}

// Mode 0700, as the storage engine uses for the folders below them.
void makeFolders(const fs::path& folder)
{
    fs::path made;
    for (const fs::path& part : folder)
    {
        made /= part;
        if (!part.empty() && mkdir(made.c_str(), 0700) != 0 && errno != EEXIST)
        {
            const int error = errno;
            struct stat existing
            {};
            if (stat(made.c_str(), &existing) != 0)
                failMaking(folder, made, error);
        }
    }
}

class tNullListener : public net::iDatagramListener
{
public:
    void OnDatagram(const net::tReceivedDatagram&) override {}
};

std::string addressText(const NetAddress& group)
{
    return fmt::format("{}:{}", net::transAddr(group.ip), net::NtoHs(group.port));
}

// Without an interface the kernel joins where its routes lead.
void requireRoute(const NetAddress& group)
{
    if (net::routeAddress(group) != 0)
        return;
    const std::string reason = std::strerror(errno);
    throw tFailure(fmt::format("cannot receive {}: this machine has no route for it ({}); choose the interface with "
                               "--local-ip: {}",
                               addressText(group), reason, listed(localInterfaces())));
}

std::string prepareRoot(const std::string& folder)
{
    if (folder.empty())
        throw tFailure("--root is empty: name the folder to record into");
    makeFolders(folder);
    if (!fs::is_directory(folder))
        failRoot(folder, ENOTDIR);
    if (access(folder.c_str(), R_OK | W_OK | X_OK) != 0)
        failRoot(folder, errno);
    std::string root = folder;
    storage::tDataStorageIO::NormalizePath(root);
    return root;
}

// Returns why an address could not be received, as far as that is known.
std::string refusal(const NetAddress& group)
{
    if (!IN_MULTICAST(ntohl(group.ip)) && interfaceWith(group.ip).name.empty())
        return "it is no multicast group, and no address of this machine";
    return fmt::format(
        "another program may hold the port for itself (ss -ulpn 'sport = {}'); --verbose shows the reason",
        net::NtoHs(group.port));
}
}  // namespace

void requireJoinable(const std::vector<NetAddress>& groups, std::uint32_t localIp)
{
    tNullListener listener;
    for (const NetAddress& group : groups)
    {
        if (localIp == 0)
            requireRoute(group);
        if (net::defaultTransport().openSource(&listener, group, localIp, 0)->joined())
            continue;
        throw tFailure(fmt::format("cannot receive {} on {}: {}", addressText(group),
                                   localIp == 0 ? "the default interface" : net::transAddr(localIp), refusal(group)));
    }
}

std::string prepareRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder)
{
    requireJoinable(groups, localIp);
    return prepareRoot(folder);
}

void requireFileBelow(const std::string& root, const std::string& file)
{
    if (!file.empty() && file.starts_with(root) && storage::tDataStorageIO::IsExistPath(file))
        return;
    std::error_code error;
    const fs::space_info space = fs::space(root, error);
    throw tFailure(fmt::format("no file could be made below {}: {}", root,
                               !error && space.available == 0 ? "the disk is full" : "--verbose shows the reason"));
}
}  // namespace session

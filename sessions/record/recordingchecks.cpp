#include "sessions/record/recordingchecks.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaRecordings/failure.h"
#include "KestovaStorage/datastorageio.h"
#include "UdpSocket/transport.h"

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
                failRoot(folder.string(), error);
        }
    }
}

class tNullListener : public net::iDatagramListener
{
public:
    void OnDatagram(const net::tReceivedDatagram&) override {}
};

void requireJoinable(const std::vector<NetAddress>& groups, std::uint32_t localIp)
{
    tNullListener listener;
    for (const NetAddress& group : groups)
    {
        if (net::defaultTransport().openSource(&listener, group, localIp, 0)->joined())
            continue;
        const unsigned int port = net::NtoHs(group.port);
        throw tFailure(fmt::format(
            "cannot receive {}:{} on {}: another program may hold the port for itself (ss -ulpn 'sport = {}'), or "
            "the interface takes no multicast (choose --local-ip)",
            net::transAddr(group.ip), port, localIp == 0 ? "the default interface" : net::transAddr(localIp), port));
    }
}

std::string prepareRoot(const std::string& folder)
{
    if (folder.empty())
        throw tFailure("--root is empty: name the folder to record into");
    makeFolders(folder);
    if (!fs::is_directory(folder))
        failRoot(folder, ENOTDIR);
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        failRoot(folder, errno);
    std::string root = folder;
    storage::tDataStorageIO::NormalizePath(root);
    return root;
}
}  // namespace

std::string prepareRecording(const std::vector<NetAddress>& groups, std::uint32_t localIp, const std::string& folder)
{
    requireJoinable(groups, localIp);
    return prepareRoot(folder);
}

void requireFileBelow(const std::string& root, const std::string& file)
{
    if (file.empty() || !file.starts_with(root) || !storage::tDataStorageIO::IsExistPath(file))
        throw tFailure(
            fmt::format("no file could be made below {}: see the lines above; is the disk full or read-only?", root));
}
}  // namespace session

// tNetworkNamespace, tTinyDisk: a network, and small disks in memory, that only this process sees.
//
// Enter before any other thread runs: only the calling thread, and threads and programs it starts later, move to the
// new namespace, which ends with the process. Without the rights (root, or unprivileged user namespaces) or the ip
// command it is said why, and the test skips.
#ifndef KESTOVA_TESTS_OWNNAMESPACE_H
#define KESTOVA_TESTS_OWNNAMESPACE_H

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

// Directly as root, otherwise as the root of a new user namespace. Empty, or why it cannot be.
inline std::string enterNamespace(int kind)
{
    const uid_t user = ::getuid();
    if (::unshare(kind) == 0)
        return {};
    if (::unshare(CLONE_NEWUSER | kind) != 0)
        return std::string("no namespace of its own: ") + std::strerror(errno);
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
    return {};
}

class tNetworkNamespace
{
public:
    tNetworkNamespace() : m_why(enterNamespace(CLONE_NEWNET))
    {
        if (m_why.empty() && (!ip("link set lo up") || !addInterface("probe0") || !ip("link del probe0")))
            m_why = "the ip command cannot make interfaces here";
    }

    const std::string& why() const { return m_why; }  // empty: all is well

    // Runs "ip ARGUMENTS" in the namespace.
    bool ip(const std::string& arguments) const
    {
        return std::system(("ip " + arguments + " 2>/dev/null").c_str()) == 0;
    }
    // An interface that is up, has no address, and a far end that nobody listens to.
    bool addInterface(const std::string& name) const
    {
        const std::string farEnd = name + "far";
        return ip("link add " + name + " type veth peer name " + farEnd) && ip("link set " + name + " up") &&
               ip("link set " + farEnd + " up");
    }

private:
    std::string m_why;
};

class tTinyDisk
{
public:
    // Empty: all is well. A second call only says the same again.
    static const std::string& enter()
    {
        static const std::string s_why = [] {
            const std::string why = enterNamespace(CLONE_NEWNS);
            const bool seen = why.empty() && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0;
            return seen ? "mounts cannot be made private" : why;
        }();
        return s_why;
    }

    tTinyDisk(const std::string& folder, int mebibytes) : m_folder(folder)
    {
        const std::string size = "size=" + std::to_string(mebibytes) + "m";
        m_mounted = ::mount("kestova-test", m_folder.c_str(), "tmpfs", 0, size.c_str()) == 0;
    }
    ~tTinyDisk()
    {
        if (m_mounted)
            ::umount2(m_folder.c_str(), MNT_DETACH);
    }
    tTinyDisk(const tTinyDisk&) = delete;
    tTinyDisk& operator=(const tTinyDisk&) = delete;

private:
    const std::string m_folder;
    bool m_mounted = false;
};

#endif

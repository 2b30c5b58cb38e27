// tNetworkNamespace: a network of its own for this process, with interfaces that the test makes and takes away.
//
// Construct it before any other thread runs: only the calling thread, and threads and programs it starts later, move
// to the new namespace. It ends with the process. Without the rights (root, or unprivileged user namespaces) or without
// the ip command, why() says what is missing and the test skips.
#ifndef KESTOVA_TESTS_NETWORKNAMESPACE_H
#define KESTOVA_TESTS_NETWORKNAMESPACE_H

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <string>
#include <unistd.h>

class tNetworkNamespace
{
public:
    tNetworkNamespace()
    {
        if (!enter())
            m_why = std::string("no network namespace of its own: ") + std::strerror(errno);
        else if (!ip("link set lo up") || !addInterface("probe0") || !ip("link del probe0"))
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
    // Directly as root, otherwise as the root of a new user namespace.
    static bool enter()
    {
        const uid_t user = ::getuid();
        if (::unshare(CLONE_NEWNET) == 0)
            return true;
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            return false;
        std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        return true;
    }

    std::string m_why;
};

#endif

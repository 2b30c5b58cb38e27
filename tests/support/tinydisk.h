// tTinyDisk: a small disk in memory, mounted where only this process sees it.
//
// enterNamespace() comes before any other thread runs: only the calling thread, and threads and programs it starts
// later, move to the namespace. Where that is not allowed it says why, and the test skips.
#ifndef KESTOVA_TESTS_TINYDISK_H
#define KESTOVA_TESTS_TINYDISK_H

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>
#include <utility>

class tTinyDisk
{
public:
    // Empty: all is well. A second call only says the same again.
    static const std::string& enterNamespace()
    {
        static const std::string s_why = enter();
        return s_why;
    }

    tTinyDisk(std::string folder, int mebibytes) : m_folder(std::move(folder))
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

    bool mounted() const { return m_mounted; }

private:
    // Directly as root, otherwise as the root of a new user namespace.
    static std::string enter()
    {
        const uid_t user = ::getuid();
        if (::unshare(CLONE_NEWNS) != 0)
        {
            if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
                return std::string("no mount namespace of its own: ") + std::strerror(errno);
            std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
        }
        if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return std::string("mounts cannot be made private: ") + std::strerror(errno);
        return {};
    }

    std::string m_folder;
    bool m_mounted = false;
};

#endif

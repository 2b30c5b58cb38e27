// tDoomedProcess: work in a process of its own, which is killed at a moment that the test chooses.
#ifndef KESTOVA_TESTS_DOOMEDPROCESS_H
#define KESTOVA_TESTS_DOOMEDPROCESS_H

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

class tDoomedProcess
{
public:
    template <typename tWork>
    explicit tDoomedProcess(tWork work) : m_pid(::fork())
    {
        if (m_pid != 0)
            return;
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        work();
        ::_exit(0);
    }
    ~tDoomedProcess() { kill(); }
    tDoomedProcess(const tDoomedProcess&) = delete;
    tDoomedProcess& operator=(const tDoomedProcess&) = delete;

    // Returns whether it was still at work.
    bool kill()
    {
        if (m_pid <= 0)
            return false;
        int status = 0;
        ::kill(m_pid, SIGKILL);
        ::waitpid(std::exchange(m_pid, -1), &status, 0);
        return WIFSIGNALED(status);
    }

private:
    pid_t m_pid;
};

#endif

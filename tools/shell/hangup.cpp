#include "tools/shell/hangup.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>

#include "common/descriptor.h"

namespace tool
{
namespace
{
std::atomic<bool> s_requested{false};

void onHangUp(int)
{
    s_requested = true;
}

bool hasControllingTerminal()
{
    return tDescriptor(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)).valid();
}

void handle(void (*handler)(int))
{
    struct sigaction action
    {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGHUP, &action, nullptr);
}
}  // namespace

tHangUp::tHangUp() : m_takes(!hasControllingTerminal())
{
    s_requested = false;
    if (m_takes)
        handle(onHangUp);
}

tHangUp::~tHangUp()
{
    if (m_takes)
        handle(SIG_IGN);
}

bool tHangUp::requested()
{
    return s_requested.exchange(false);
}
}  // namespace tool

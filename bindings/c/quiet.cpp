#include "bindings/c/quiet.h"

#include <mutex>

#include "UdpSocket/consolesink.h"

namespace binding
{
namespace
{
class tQuietSink final : public Kestova::iConsoleSink
{
public:
    void OnConsoleText(Kestova::eConsoleStream stream, const char* text, size_t len) override
    try
    {
        if (stream != Kestova::eConsoleError)
            return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_last.assign(text, len);
        while (m_last.ends_with('\n') || m_last.ends_with('\r'))
            m_last.pop_back();
    }
    catch (const std::bad_alloc&)
    {
        return;
    }
    std::string last()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_last;
    }

private:
    std::mutex m_mutex;
    std::string m_last;
};

// Threads of the libraries may print until the process ends: never destroyed.
tQuietSink& sink()
{
    static auto* const s_sink = new tQuietSink;
    return *s_sink;
}
}  // namespace

void silenceConsole()
{
    static std::once_flag s_once;
    std::call_once(s_once, [] { Kestova::SetConsoleSink(&sink()); });
}

std::string lastConsoleError()
{
    return sink().last();
}
}  // namespace binding

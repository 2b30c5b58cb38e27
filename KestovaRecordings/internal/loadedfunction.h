// tLoadedFunction: a C function of a library that is loaded when it is called first.
//
// Pictures and captures alone need these libraries: who reads records does without them.
// Threads  any.
// Errors   a call throws tFailure, which says what to install, if the library or the function is not there.
#ifndef KESTOVA_RECORDINGS_INTERNAL_LOADEDFUNCTION_H
#define KESTOVA_RECORDINGS_INTERNAL_LOADEDFUNCTION_H

#include <atomic>

namespace recordings
{
struct tLoadedLibrary
{
    const char* names[2];  // as the loader finds it: the first of them that is there
    const char* need;      // "drawing needs cairo: install libcairo2"
};

// Returns the function; the library stays loaded until the process ends. Throws tFailure.
void* loadedSymbol(const tLoadedLibrary& library, const char* function);

template <const tLoadedLibrary& tLibrary, typename tFunction>
class tLoadedFunction;

template <const tLoadedLibrary& tLibrary, typename tResult, typename... tArguments>
class tLoadedFunction<tLibrary, tResult(tArguments...)>
{
public:
    explicit constexpr tLoadedFunction(const char* name) : m_name(name) {}

    tResult operator()(tArguments... arguments) const
    {
        auto* function = m_function.load(std::memory_order_acquire);
        if (function == nullptr)
        {
            function = reinterpret_cast<tResult (*)(tArguments...)>(loadedSymbol(tLibrary, m_name));
            m_function.store(function, std::memory_order_release);
        }
        return function(arguments...);
    }

private:
    const char* m_name;
    mutable std::atomic<tResult (*)(tArguments...)> m_function{nullptr};
};
}  // namespace recordings

#endif

// What stands between C and the libraries: exceptions become results, and a sentence of the calling thread.
#ifndef KESTOVA_C_GUARD_H
#define KESTOVA_C_GUARD_H

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

#include "KestovaRecordings/failure.h"
#include "bindings/c/kestova.h"

namespace binding
{
// A failure with the result that C sees.
class tError : public std::runtime_error
{
public:
    tError(kestova_result result, const std::string& text) : std::runtime_error(text), m_result(result) {}
    kestova_result result() const { return m_result; }

private:
    kestova_result m_result;
};

// Sets the sentence of this thread and returns the result.
kestova_result fail(kestova_result result, const char* text) noexcept;

// Throws tError for a null pointer.
void require(const void* pointer, const char* name);

// Returns a copy that kestova_free() frees.
char* copyOf(const std::string& text);

// Calls `work`, which returns a result. Nothing leaves.
template <typename tWork>
kestova_result guarded(tWork work) noexcept
try
{
    return work();
}
catch (const tError& error)
{
    return fail(error.result(), error.what());
}
catch (const std::invalid_argument& error)
{
    return fail(KESTOVA_ARGUMENT, error.what());
}
catch (const std::bad_alloc&)
{
    return fail(KESTOVA_MEMORY, "there is not enough memory");
}
catch (const std::length_error&)
{
    return fail(KESTOVA_MEMORY, "there is not enough memory");
}
catch (const std::exception& error)
{
    return fail(KESTOVA_IO, error.what());
}
}  // namespace binding

#endif

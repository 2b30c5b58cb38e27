#include <cstdlib>
#include <cstring>

#include "bindings/c/guard.h"

namespace
{
thread_local std::string t_error;
}

namespace binding
{
kestova_result fail(kestova_result result, const char* text) noexcept
try
{
    t_error = text;
    return result;
}
catch (const std::bad_alloc&)
{
    t_error.clear();
    return result;
}

void require(const void* pointer, const char* name)
{
    if (pointer == nullptr)
        throw tError(KESTOVA_ARGUMENT, std::string(name) + " is NULL");
}

char* copyOf(const std::string& text)
{
    char* const copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr)
        throw std::bad_alloc();
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}
}  // namespace binding

int kestova_abi(void)
{
    return KESTOVA_ABI;
}

const char* kestova_version(void)
{
    return KESTOVA_VERSION;
}

const char* kestova_error(void)
{
    return t_error.c_str();
}

void kestova_free(void* text)
{
    std::free(text);
}

#include "KestovaRecordings/internal/loadedfunction.h"

#include <dlfcn.h>

#include "KestovaRecordings/failure.h"

namespace recordings
{
void* loadedSymbol(const tLoadedLibrary& library, const char* function)
{
    for (const char* const name : library.names)
    {
        void* const handle = ::dlopen(name, RTLD_NOW | RTLD_LOCAL);
        void* const symbol = handle != nullptr ? ::dlsym(handle, function) : nullptr;
        if (symbol != nullptr)
            return symbol;
    }
    throw tFailure(library.need);
}
}  // namespace recordings

#include "tools/shell/leftout.h"

#include <fmt/format.h>

#include "tools/shell/console.h"
#include "tools/shell/names.h"

namespace tool
{
int worseStatus(int a, int b)
{
    if (a == eFailed || b == eFailed)
        return eFailed;
    return a != eDone ? a : b;
}

int reportLeftOut(tConsole& console, std::string_view command, const std::vector<recordings::tLeftOut>& leftOut)
{
    int status = eDone;
    for (const recordings::tLeftOut& one : leftOut)
    {
        console.note(fmt::format("kestova {}: skipped {}: {}", command, printable(one.path), printable(one.reason)));
        status = worseStatus(status, one.asked ? eFailed : eDamaged);
    }
    return status;
}

void noteIgnoredSheets(tConsole& console, std::string_view command, const std::vector<recordings::tLeftOut>& sheets)
{
    for (const recordings::tLeftOut& one : sheets)
        console.note(fmt::format("kestova {}: ignored {}", command, printable(one.reason)));
}
}  // namespace tool

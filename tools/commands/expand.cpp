// kestova expand: compressed recordings back into plain ones.
#include "tools/commands/commands.h"
#include "tools/commands/convert.h"

namespace tool
{
void addExpand(CLI::App& app, tRun& chosen)
{
    static constexpr tDirection cExpand{
        "expand",
        "expanding",
        "Expand compressed recordings",
        "NAME.data takes the place of NAME.tar.data when it is verified and on the disk.\n"
        "Example: kestova expand recordings/Data_000000_2024.05.17",
        true,
        [](const std::string& path, const std::string& suffix, storage::iConversionObserver* observer,
           std::string* result, storage::tLeftOut*,
           std::string* error) { return storage::tDataFileConverter::Expand(path, suffix, observer, result, error); }};
    addConvert(app, chosen, cExpand);
}
}  // namespace tool

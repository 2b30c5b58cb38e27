// kestova compress: finished recordings into their Huffman form.
#include "tools/commands/commands.h"
#include "tools/commands/convert.h"

namespace tool
{
void addCompress(CLI::App& app, tRun& chosen)
{
    static constexpr tDirection cCompress{
        "compress",
        "compressing",
        "Compress finished recordings",
        "NAME.tar.data takes the place of NAME.data when it is verified and on the disk; it replays the same.\n"
        "Files that are unfinished or damaged stay as they are. Exit status 3 if some could not be compressed.\n"
        "Of a file that a full disk cut the whole records are compressed; what is left out is printed.\n"
        "Example: kestova compress recordings",
        false,
        &storage::tDataFileConverter::CompressWhole};
    addConvert(app, chosen, cCompress);
}
}  // namespace tool

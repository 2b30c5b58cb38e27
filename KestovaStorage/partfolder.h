// The name of a folder in which a recording is being made: no reader looks for recordings in it, and nothing deletes
// files of it to make room.
#ifndef KESTOVA_PARTFOLDER_H
#define KESTOVA_PARTFOLDER_H

#include <stddef.h>
#include <string>

namespace storage
{
// ".NAME.part-XXXXXX": NAME is the name that the folder will have, or the beginning of a long one.
constexpr char cPartFolderMark[] = ".part-";
constexpr size_t cPartFolderTail = 6;  // letters and digits behind the mark

// Returns whether a folder's name, without the path to it, is of that kind.
inline bool isPartFolder(const std::string& name)
{
    const size_t marked = sizeof cPartFolderMark - 1 + cPartFolderTail;
    return name.size() > marked + 1 && name[0] == '.' &&
           name.compare(name.size() - marked, sizeof cPartFolderMark - 1, cPartFolderMark) == 0 &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789",
                                  name.size() - cPartFolderTail) == std::string::npos;
}
}  // namespace storage

#endif

// The files of the page: built in, or from a folder while one works on them.
#ifndef KESTOVA_SERVER_PAGEFILES_H
#define KESTOVA_SERVER_PAGEFILES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/http.h"

namespace server
{
struct tPageFile
{
    const char* name;  // "js/main.js", as below the folder
    const unsigned char* bytes;
    std::size_t size;
};

// Made from server/page/ while building.
extern const tPageFile cPageFiles[];
extern const std::size_t cPageFileCount;

// Returns the answer for a file of the page, index.html without segments; of `folder` unless that is empty. Returns
// nothing if there is none. Hidden files, and those that are no part of a page by their ending, are none.
std::optional<tHttpAnswer> pageAnswer(const std::string& folder, const std::vector<std::string>& segments);
}  // namespace server

#endif

// tTarget: a request target, taken apart.
#ifndef KESTOVA_SERVER_TARGET_H
#define KESTOVA_SERVER_TARGET_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace server
{
struct tTarget
{
    std::string path;                          // as it was sent, without the query
    std::vector<std::string> segments;         // decoded; none is ".", ".." or has a "/" or a control character in it
    std::map<std::string, std::string> query;  // decoded

    // The value of a key as a whole number; nothing without the key. Throws tRefusal (400) for any other text, and for
    // a number that is not from `least` to `most`.
    std::optional<std::uint64_t> number(const std::string& key, std::uint64_t least, std::uint64_t most) const;
    std::optional<double> decimal(const std::string& key, double least, double most) const;
    bool flag(const std::string& key) const;  // "1" or "true"; "0", "false" or absent
    std::string text(const std::string& key) const;
};

// Returns nothing for a target that is not in origin form ("/a/b?c=d"), has a key twice, or holds what no segment may.
// "/" has no segment; "/a/" is none.
std::optional<tTarget> parseTarget(std::string_view target);
}  // namespace server

#endif

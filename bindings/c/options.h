// Options as C gives them: JSON objects.
#ifndef KESTOVA_C_OPTIONS_H
#define KESTOVA_C_OPTIONS_H

#include <initializer_list>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace binding
{
using tJson = nlohmann::json;

// Returns the object; an empty one for null. Throws tError if it is none, or has a member that is not known.
tJson optionsOf(const char* text, std::initializer_list<const char*> known);
// Returns a member that is text; empty where it is not there, or null. Throws tError for any other.
std::string textOf(const tJson& options, const char* name);
// Returns the JSON of layouts that parseSpokeLayouts() reads: of a path that of the file; of an object with "spoke"
// that member; anything else as it is. Throws tError if the file cannot be read.
std::string layoutTextOf(const tJson& layout);
}  // namespace binding

#endif

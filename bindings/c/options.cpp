#include "bindings/c/options.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "KestovaUtils/spokelayout.h"
#include "bindings/c/guard.h"

namespace binding
{
tJson optionsOf(const char* text, std::initializer_list<const char*> known)
{
    if (text == nullptr)
        return tJson::object();
    tJson options = tJson::parse(text, nullptr, false);
    if (!options.is_object())
        throw tError(KESTOVA_ARGUMENT, "the options are no JSON object");
    for (const auto& [name, value] : options.items())
        if (std::find(known.begin(), known.end(), name) == known.end())
            throw tError(KESTOVA_ARGUMENT, "there is no option \"" + name + "\"");
    return options;
}

std::string textOf(const tJson& options, const char* name)
{
    if (!options.contains(name) || options[name].is_null())
        return {};
    if (!options[name].is_string())
        throw tError(KESTOVA_ARGUMENT, std::string("the option \"") + name + "\" is no text");
    return options[name].get<std::string>();
}

std::string layoutTextOf(const tJson& layout)
{
    if (layout.is_object() && layout.contains("spoke"))
        return layout["spoke"].dump();
    if (!layout.is_string() || layout == "cat240")
        return layout.dump();
    std::vector<utils::tSpokeLayout> layouts;
    std::string error, text;
    if (!utils::readSpokeLayouts(layout.get<std::string>(), layouts, error, &text))
        throw tError(KESTOVA_ARGUMENT, error);
    return text;
}
}  // namespace binding

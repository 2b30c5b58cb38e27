#include "KestovaUtils/spokelayout.h"

#include "KestovaUtils/internal/spokejson.h"

namespace utils
{
bool parseSpokeLayouts(const std::string& text, std::vector<tSpokeLayout>& layouts, std::string& error)
{
    try
    {
        layouts = spokeLayoutsIn(parseText(text));
        return true;
    }
    catch (const tDirectoryError& reason)
    {
        error = reason.what();
        return false;
    }
}

bool readSpokeLayouts(const std::string& path, std::vector<tSpokeLayout>& layouts, std::string& error,
                      std::string* text)
{
    try
    {
        const nlohmann::json root = parseText(contentOf(path));
        if (!root.is_object())
            throw tDirectoryError("not an object with \"spoke\"");
        const nlohmann::json& value = member(root, "spoke");
        layouts = spokeLayoutsIn(value);
        if (text != nullptr)
            *text = value.dump();
        return true;
    }
    catch (const tDirectoryError& reason)
    {
        error = path + ": " + reason.what();
        return false;
    }
}
}  // namespace utils

#include "KestovaRecordings/streamchoice.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <stdexcept>

namespace tool
{
namespace
{
struct tKindName
{
    tReadWriteType kind;
    std::string_view name;
};

constexpr std::array<tKindName, 20> cKindNames = {{
    {eImageStream, "imageStream"},
    {eImageCtrl, "imageCtrl"},
    {eImageState, "imageState"},
    {eArpaStream, "arpaStream"},
    {eArpaCtrl, "arpaCtrl"},
    {eArpaState, "arpaState"},
    {eOriginalImage, "originalImage"},
    {eAisDev, "aisDev"},
    {eGpsDev, "gpsDev"},
    {eDepthDev, "depthDev"},
    {eHeadingDev, "headingDev"},
    {eSecondArpaStream, "secondArpaStream"},
    {eCameraCtrl, "cameraCtrl"},
    {eCameraState, "cameraState"},
    {eArpaSeverCtrl, "arpaSeverCtrl"},
    {eArpaServerState, "arpaServerState"},
    {eRadarClientCtrl, "radarClientCtrl"},
    {eRadarClientState, "radarClientState"},
    {eRadarCheck, "radarCheck"},
    {eOtherType, "otherType"},
}};

constexpr std::array<std::string_view, eTotalMsgTypes> cMessageNames = {
    "identify",  "radarMultiNums", "multiRadarNegotiate", "multiRadarService", "readType",
    "writeType", "dediReadType",   "dediWriteType",       "radarClientType"};

void chooseByName(tStreamChoice& choice, std::string_view name)
{
    const auto known =
        std::find_if(cKindNames.begin(), cKindNames.end(), [&](const tKindName& k) { return k.name == name; });
    if (known == cKindNames.end())
        throw std::invalid_argument(fmt::format("'{}' is no stream; the streams are {}", name, allStreamNames()));
    choice.choose(known->kind);
}
}  // namespace

std::string streamName(tReadWriteType kind)
{
    const auto known =
        std::find_if(cKindNames.begin(), cKindNames.end(), [&](const tKindName& k) { return k.kind == kind; });
    return known != cKindNames.end() ? std::string(known->name) : fmt::format("kind {}", kind);
}

std::string messageName(tMsgType type)
{
    return type < cMessageNames.size() ? std::string(cMessageNames[type]) : fmt::format("type {}", type);
}

tStreamChoice parseStreams(const std::vector<std::string>& texts)
{
    tStreamChoice choice;
    for (std::string_view text : texts)
    {
        while (!text.empty())
        {
            const std::size_t comma = text.find(',');
            chooseByName(choice, text.substr(0, comma));
            text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
        }
    }
    return choice;
}

std::string allStreamNames()
{
    std::string names;
    for (const tKindName& kind : cKindNames)
        names += (names.empty() ? "" : ", ") + std::string(kind.name);
    return names;
}
}  // namespace tool

#include "KestovaStorage/internal/datafile/naming.h"

#include <cstdio>
#include <cstdlib>

namespace storage::naming
{
namespace
{
constexpr char cFolderPrefix[] = "Data_";
constexpr std::size_t cFolderPrefixLen = sizeof cFolderPrefix - 1;
constexpr std::size_t cFolderDigits = 6;
constexpr std::size_t cFileDigits = 4;
constexpr char cCompressedMark[] = ".tar";  // before the suffix

std::string lastComponent(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);  // npos + 1 is 0: a path without "/" is its own last component
}

unsigned int lenientNumber(const std::string& text)
{
    return static_cast<unsigned int>(std::strtol(text.c_str(), nullptr, 10));
}

std::string formatted(const char* format, std::time_t seconds)
{
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, format, &local));
}

std::string padded(unsigned int number, std::size_t digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "%0*d", static_cast<int>(digits), static_cast<int>(number));
    return text;
}
}  // namespace

unsigned int nextFolderNumber(const tPaths& entriesOfRoot)
{
    for (auto path = entriesOfRoot.rbegin(); path != entriesOfRoot.rend(); ++path)
    {
        if (path->find(cFolderPrefix) == std::string::npos)
            continue;
        const std::string name = lastComponent(*path);
        // Kept: a test of the first character against a set, not of the prefix.
        if (name.empty() || std::string("Data_").find(name.front()) == std::string::npos)
            return 0;
        return name.size() < cFolderPrefixLen ? 1 : lenientNumber(name.substr(cFolderPrefixLen, cFolderDigits)) + 1;
    }
    return 0;
}

unsigned int nextFileNumber(const tPaths& filesOfFolder, const std::string& suffix)
{
    for (auto path = filesOfFolder.rbegin(); path != filesOfFolder.rend(); ++path)
    {
        if (path->find(suffix) == std::string::npos)
            continue;
        const std::string name = lastComponent(*path);
        return name.find('_') == cFileDigits ? lenientNumber(name.substr(0, cFileDigits)) + 1 : 0;
    }
    return 0;
}

std::string folderName(unsigned int number, const std::string& dateLabel)
{
    return cFolderPrefix + padded(number, cFolderDigits) + "_" + dateLabel;
}

std::string fileName(unsigned int number, const std::string& timeLabel, const std::string& extFileName,
                     const std::string& suffix)
{
    std::string name = padded(number, cFileDigits) + "_" + timeLabel;
    if (!extFileName.empty())
        name += "_" + extFileName;
    return name + suffix;
}

std::string compressedName(const std::string& plainPath, const std::string& suffix)
{
    const std::size_t name = plainPath.rfind('/') + 1;
    return plainPath.substr(0, suffix.empty() ? std::string::npos : plainPath.find(suffix, name)) + cCompressedMark +
           suffix;
}

std::string plainName(const std::string& compressedPath, const std::string& suffix)
{
    const std::string ending = cCompressedMark + suffix;
    return compressedPath.ends_with(ending) ? compressedPath.substr(0, compressedPath.size() - ending.size()) + suffix
                                            : compressedPath;
}

std::string timeYmdHMSToString(std::time_t seconds)
{
    return formatted("%Y-%m-%d_%H-%M-%S", seconds);
}

std::string timeYmdToString(std::time_t seconds)
{
    return formatted("%Y.%m.%d", seconds);
}

std::string timeSecToString(std::time_t seconds)
{
    char text[32];
    std::snprintf(text, sizeof text, "%04d_%02d_%02d", static_cast<int>(seconds / 3600),
                  static_cast<int>(seconds % 3600 / 60), static_cast<int>(seconds % 60));
    return text;
}

std::string storageTimLabel(tTimes_ms timestamp, bool withTime, tTimes_s now, tTimes_s& startTime)
{
    std::time_t seconds = static_cast<std::time_t>(timestamp / 1000);
    if (timestamp == 0)
    {
        static const tTimes_s s_clockIsSetAfter = utils::time::tTimeParser::String2Time_s("2022-11-11 11:11:11");
        if (startTime == 0)
            startTime = now;
        if (s_clockIsSetAfter >= now)
            return timeSecToString(std::time_t{now} - std::time_t{startTime});
        seconds = now;
    }
    return withTime ? timeYmdHMSToString(seconds) : timeYmdToString(seconds);
}
}  // namespace storage::naming

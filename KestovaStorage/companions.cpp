#include "KestovaStorage/companions.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "KestovaStorage/datafileformat.h"
#include "KestovaStorage/internal/datafile/playmark.h"
#include "common/descriptor.h"

namespace storage
{
namespace
{
constexpr char cSheetEnding[] = ".json";
constexpr char cFineTimesEnding[] = ".fine";
constexpr char cDataEnding[] = "data";  // of the text behind the last dot
constexpr char cCompressedMark[] = ".tar";
constexpr std::size_t cSheetBeginning = 4096;

// "DIR/NAME.data" and "DIR/NAME.tar.data" are the stem DIR/NAME and the ending ".data".
struct tName
{
    std::string stem, ending;
};

tName splitName(const std::string& dataFile)
{
    const std::size_t name = dataFile.rfind('/') + 1;
    const std::size_t dot = dataFile.rfind('.');
    if (dot == std::string::npos || dot <= name || !dataFile.ends_with(cDataEnding))
        return {dataFile, ""};
    std::string stem = dataFile.substr(0, dot);
    const std::size_t mark = std::string_view(cCompressedMark).size();
    if (stem.ends_with(cCompressedMark) && stem.size() - name > mark)
        stem.resize(stem.size() - mark);
    return {stem, dataFile.substr(dot)};
}

bool hasOtherForm(const std::string& dataFile)
{
    const auto [stem, ending] = splitName(dataFile);
    if (ending.empty())
        return false;
    const std::string plain = stem + ending;
    const std::string other = dataFile == plain ? stem + cCompressedMark + ending : plain;
    return ::access(other.c_str(), F_OK) == 0;
}

// Takes `token`, and white space before it, from the front of `text`.
bool take(std::string_view& text, std::string_view token)
{
    text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
    if (!text.starts_with(token))
        return false;
    text.remove_prefix(token.size());
    return true;
}

// The beginning of a sheet: {"schema":"kestova/recording/1","kept":true
bool saysKept(std::string_view text)
{
    if (!take(text, "{") || !take(text, R"("schema")") || !take(text, ":") || !take(text, R"("kestova/recording/)"))
        return false;
    text.remove_prefix(std::min(text.find('"'), text.size()));
    return take(text, R"(")") && take(text, ",") && take(text, R"("kept")") && take(text, ":") && take(text, "true");
}

tDescriptor openToLook(const std::string& path, int flags = 0)
{
    return tDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags));
}

bool isFinished(const tDescriptor& file)
{
    struct stat info;
    unsigned char head[sizeof(tIndexHead)] = {};
    if (::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return true;
    file.readAt(head, sizeof head, cIndexHeadPos);
    const bool counts = std::any_of(std::begin(head), std::begin(head) + sizeof(tIndexHead::indexNum),
                                    [](unsigned char byte) { return byte != 0; });
    return counts || static_cast<std::uint64_t>(info.st_size) == cIndexHeadPos + sizeof head;  // without a segment
}
}  // namespace

std::string sheetName(const std::string& dataFile)
{
    return splitName(dataFile).stem + cSheetEnding;
}

std::string fineTimesName(const std::string& dataFile)
{
    return splitName(dataFile).stem + cFineTimesEnding;
}

bool isKept(const std::string& dataFile)
{
    const tDescriptor sheet = openToLook(sheetName(dataFile), O_NOFOLLOW);
    struct stat info;
    if (!sheet.valid() || ::fstat(sheet.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    char beginning[cSheetBeginning];
    return saysKept({beginning, sheet.readAt(beginning, sizeof beginning, 0)});
}

bool isBeingWritten(const std::string& dataFile)
{
    const tDescriptor file = openToLook(dataFile);
    if (!file.valid() || isFinished(file) || ::flock(file.get(), LOCK_SH | LOCK_NB) == 0)
        return false;
    return errno == EWOULDBLOCK;
}

bool isBeingPlayed(const std::string& dataFile)
{
    return isMarkedPlayed(dataFile);
}

bool removeDataFile(const std::string& dataFile)
{
    if (::unlink(dataFile.c_str()) != 0)
        return false;
    if (hasOtherForm(dataFile))
        return true;
    ::unlink(fineTimesName(dataFile).c_str());
    ::unlink(sheetName(dataFile).c_str());
    return true;
}
}  // namespace storage

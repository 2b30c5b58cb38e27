// The splitter against any bytes in any portions: whatever a stream brings, it stays within what it was given, every
// package that it hands over is whole, and the portions in which undamaged packages come make no difference.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "KestovaStorage/internal/package/packagesplitter.h"
#include "tests/fuzz/fuzz.h"

namespace
{
class tCheckedSplitter final : private iSplitterSink
{
public:
    // What the splitter is not done with stays in front, as with a stream.
    void feed(const std::uint8_t* data, std::size_t size)
    {
        m_rest.append(reinterpret_cast<const char*>(data), size);
        const std::vector<char> view(m_rest.begin(), m_rest.end());  // of exactly this size
        const std::size_t done = m_splitter.split(view.data(), view.size());
        require(done <= view.size() && view.size() - done <= cMaxStreamPackage);
        m_rest.erase(0, done);
    }
    const std::string& packages() const { return m_packages; }
    bool damaged() const { return m_damaged; }
    std::size_t restLen() const { return m_rest.size(); }

private:
    void OnPackage(const char* package, std::size_t len) override
    {
        const tRadarMsgPackage* const head = asPackage(package, len);
        require(head != nullptr && len == packageSize(head->msgLen));
        require(std::memcmp(package, cPackageHeadMark, cPackageMarkSize) == 0);
        require(std::memcmp(package + len - cPackageMarkSize, cPackageEndMark, cPackageMarkSize) == 0);
        m_packages.append(package, len);
    }
    void OnLine(const char* text) override
    {
        const std::size_t len = std::strlen(text);
        require(len >= 2 && std::strcmp(text + len - 2, "\r\n") == 0);
        m_damaged = m_damaged || std::strstr(text, " bad ") != nullptr;
    }
    int Id() const override { return -1; }
    bool GoOn() const override { return true; }

    tPackageSplitter m_splitter{*this};
    std::string m_rest, m_packages;
    bool m_damaged = false;
};
}  // namespace

// The first byte chooses the portions; the rest is the stream.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t portion = std::size_t{*data} + 1;
    tCheckedSplitter whole, portions;
    whole.feed(data + 1, size - 1);
    for (std::size_t pos = 1; pos < size; pos += portion)
        portions.feed(data + pos, std::min(portion, size - pos));
    if (!whole.damaged())  // a head cut in two by damage is lost; without damage the portions make no difference
        require(portions.packages() == whole.packages() && portions.restLen() == whole.restLen());
    return 0;
}

#include "KestovaStorage/internal/packagesplitter.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/radarpackages.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
using tTexts = std::vector<std::string>;

class tPackageSplitterTest : public testing::Test, protected iSplitterSink
{
protected:
    // Feeds the splitter as its owner does: what it is not done with stays in front. Every view is a buffer of exactly
    // its size, so that a read beyond it is found.
    void feed(const std::string& bytes, std::size_t chunk = std::string::npos)
    {
        for (std::size_t pos = 0; pos < bytes.size(); pos += std::min(chunk, bytes.size() - pos))
        {
            m_rest += bytes.substr(pos, chunk);
            const std::vector<char> view(m_rest.begin(), m_rest.end());
            m_rest.erase(0, m_splitter.split(view.data(), view.size()));
        }
    }
    void OnPackage(const char* package, std::size_t len) override
    {
        m_packages.emplace_back(package, len);
        if (m_onPackage)
            m_onPackage();
    }
    void OnLine(const char* text) override { m_lines.emplace_back(text); }
    int Id() const override { return 17; }
    bool GoOn() const override { return m_goOn; }

    tPackageSplitter m_splitter{*this};
    std::function<void()> m_onPackage;
    bool m_goOn = true;
    std::string m_rest;
    tTexts m_packages, m_lines;
};

TEST_F(tPackageSplitterTest, givesTheSamePackagesInChunksOfAnySize)
{
    tTexts sent;
    for (std::uint32_t i = 0; i < 5; ++i)
        sent.push_back(makePackage(i, std::string(i * 100, 'p')));
    std::string stream;
    for (const auto& package : sent)
        stream += package;
    for (const std::size_t chunk : {1U, 2U, 7U, 40U, 41U, 42U, 500U, 5000U})
    {
        SCOPED_TRACE(chunk);
        m_packages.clear();
        m_splitter.resetCount();
        feed(stream, chunk);
        EXPECT_EQ(m_packages, sent);
        EXPECT_EQ(m_splitter.count(), 5U);
    }
    EXPECT_THAT(m_lines, IsEmpty());
}

TEST_F(tPackageSplitterTest, waitsForTheEndOfAPackage)
{
    const std::string package = makePackage(0, std::string(1000, 'p'));
    feed(package.substr(0, package.size() - 1));
    EXPECT_THAT(m_packages, IsEmpty());
    EXPECT_EQ(m_rest.size(), package.size() - 1);
    feed(package.substr(package.size() - 1));
    EXPECT_THAT(m_packages, ElementsAre(package));
    EXPECT_EQ(m_rest, "");
}

struct tDamage
{
    const char* what;
    std::string bytes;
    tTexts lines;
    std::size_t packages;
    std::size_t rest;
};

TEST_F(tPackageSplitterTest, findsItsWayAgainAfterDamage)
{
    const std::string good = makePackage(0);
    std::string badEnd = good, badHead = good;
    badEnd.back() = 'R';
    badHead.front() = 'q';
    const std::string garbage = "0123456789";
    const std::string dots(70, '.');
    const std::vector<tDamage> cases = {
        {"garbage before a package",
         garbage + good,
         {"\t *** bad head 3736353433323130:01234567 remain_size 51 ***\r\n", "\t *** delete 10 remain 41 ***\r\n"},
         1,
         0},
        {"garbage alone goes whole",
         dots,
         {"\t *** bad head 2E2E2E2E2E2E2E2E:........ remain_size 70 ***\r\n", "\t *** delete 70 remain 0 ***\r\n"},
         0,
         0},
        {"a head cut in two goes too",
         dots + good.substr(0, 7),
         {"\t *** bad head 2E2E2E2E2E2E2E2E:........ remain_size 77 ***\r\n", "\t *** delete 77 remain 0 ***\r\n"},
         0,
         0},
        {"a head with one wrong byte",
         badHead + good,
         {"\t *** bad head 656C6176726F7571:quorvale remain_size 82 ***\r\n", "\t *** delete 41 remain 41 ***\r\n"},
         1,
         0},
        {"a bad head with zeros in it",
         std::string("ab\0defgh", 8) + good,
         {"\t *** bad head 6867666564006261:ab remain_size 49 ***\r\n", "\t *** delete 8 remain 41 ***\r\n"},
         1,
         0},
        {"an end with one wrong byte", badEnd + good, {"\t *** bad end 52616461525F515A remain_size 82 ***\r\n"}, 1, 0},
        {"a wrong end loses 41 bytes, not the package",
         makePackage(0, "ten bytes!", eIdentify, 9) + good,
         {"\t *** bad end 616461525F515A21 remain_size 92 ***\r\n",
          "\t *** bad head 6461525F515A2173:s!ZQ_Rad remain_size 51 ***\r\n", "\t *** delete 10 remain 41 ***\r\n"},
         1,
         0},
        {"garbage too short to be judged", garbage, {}, 0, 10},
        {"a heartbeat in 40 bytes", "check1" + std::string(34, '.'), {}, 0, 40},
        {"a heartbeat before a package", "check1" + good, {"... Client ID:17 HeartBeat!\r\n"}, 1, 0},
        {"a heartbeat with any last byte",
         std::string("check\0", 6) + "checkQ" + good,
         {"... Client ID:17 HeartBeat!\r\n", "... Client ID:17 HeartBeat!\r\n"},
         1,
         0},
    };
    for (const tDamage& expected : cases)
    {
        SCOPED_TRACE(expected.what);
        m_packages.clear();
        m_lines.clear();
        m_rest.clear();
        m_splitter.resetCount();
        feed(expected.bytes);
        EXPECT_EQ(m_lines, expected.lines);
        EXPECT_EQ(m_packages, tTexts(expected.packages, good));
        EXPECT_EQ(m_rest.size(), expected.rest);
    }
}

TEST_F(tPackageSplitterTest, tellsAGapOnce)
{
    for (const std::uint32_t number : {0U, 1U, 2U, 5U, 6U})
        feed(makePackage(number));
    EXPECT_THAT(m_lines, ElementsAre("\t *** discontinuous data, cnt 3 rec 5 ***\r\n"));
    EXPECT_EQ(m_splitter.count(), 7U);
}

TEST_F(tPackageSplitterTest, acceptsAnyFirstNumber)
{
    feed(makePackage(4'000'000'000) + makePackage(4'000'000'002));
    EXPECT_THAT(m_lines, ElementsAre("\t *** discontinuous data, cnt -294967295 rec -294967294 ***\r\n"));
    m_splitter.resetCount();
    feed(makePackage(77));
    EXPECT_EQ(m_lines.size(), 1U);
}

TEST_F(tPackageSplitterTest, countsAPackageAfterItsDelivery)
{
    std::uint32_t during = 99;
    m_onPackage = [&] { during = m_splitter.count(); };
    feed(makePackage(8));
    EXPECT_EQ(during, 8U);
    EXPECT_EQ(m_splitter.count(), 9U);
}

TEST_F(tPackageSplitterTest, letsAResetDuringADeliveryWin)
{
    m_onPackage = [&] { m_splitter.resetCount(); };
    for (const std::uint32_t number : {0U, 500U, 3U})
    {
        feed(makePackage(number));
        EXPECT_EQ(m_splitter.count(), 0U);
    }
    EXPECT_THAT(m_lines, IsEmpty());
}

TEST_F(tPackageSplitterTest, carriesPayloadsOf65494BytesAndNoLongerOnes)
{
    feed(makePackage(0, std::string(65494, 'p')));
    EXPECT_EQ(m_packages.size(), 1U);
    feed(makePackage(1, std::string(65495, 'p')));
    EXPECT_EQ(m_packages.size(), 1U);
    EXPECT_THAT(m_lines, ElementsAre("\t *** bad end 72616461525F515A remain_size 65536 ***\r\n",
                                     "\t *** bad head 7070707070707070:pppppppp remain_size 65495 ***\r\n",
                                     "\t *** delete 65495 remain 0 ***\r\n"));
}

TEST_F(tPackageSplitterTest, showsAnEndThatIsNotThereAsZero)
{
    feed(makePackage(0, "", eIdentify, 65535));
    EXPECT_THAT(m_lines, ElementsAre("\t *** bad end 0 remain_size 41 ***\r\n"));
    EXPECT_EQ(m_rest, "");
}

TEST_F(tPackageSplitterTest, stopsBetweenTwoPackages)
{
    m_onPackage = [&] { m_goOn = false; };
    feed(makePackage(0) + makePackage(1) + makePackage(2));
    EXPECT_THAT(m_packages, ElementsAre(makePackage(0)));
    EXPECT_EQ(m_rest, makePackage(1) + makePackage(2));
}
}  // namespace

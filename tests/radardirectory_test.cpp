#include "KestovaUtils/internal/radardirectory.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KestovaUtils/internal/directoryjson.h"
#include "KestovaUtils/streamnames.h"
#include "support/addresstext.h"
#include "support/tempdir.h"

using testing::HasSubstr;

namespace
{
class tRadarDirectoryTest : public testing::Test
{
protected:
    // The refusal of a text; "accepted" where there is none.
    std::string refusalOf(const std::string& text)
    {
        const std::size_t before = m_radars.size();
        std::string error = "untouched";
        if (utils::parseRadarDirectory(text, m_radars, error))
            return "accepted";
        EXPECT_EQ(m_radars.size(), before) << text;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        return error;
    }
    // A directory of one radar with one stream.
    static std::string withAddress(const std::string& jsonValue)
    {
        return R"({"radars":[{"serial":"S","id":0,"streams":{"gpsDev":)" + jsonValue + "}}]}";
    }
    static std::string withRadar(const std::string& members)
    {
        return R"({"radars":[{"serial":"ok","id":9,"streams":{}},{)" + members + "}]}";
    }

    std::vector<utils::tRadarEntry> m_radars;
};
}  // namespace

TEST_F(tRadarDirectoryTest, readsEveryStreamIntoItsSlot)
{
    const auto address = [](unsigned int kind) {
        return "239.17.0." + std::to_string(kind + 1) + ":" + std::to_string(6001 + kind);
    };
    std::string streams;
    for (unsigned int kind = 0; kind < utils::cStreamKinds; ++kind)
        streams += (kind == 0 ? "\"" : ",\"") + std::string(utils::streamName(kind)) + "\":\"" + address(kind) + "\"";
    ASSERT_EQ(refusalOf(R"({"radars":[{"id":65535,"streams":{)" + streams + R"(},"serial":"A1:2"}]})"), "accepted");
    ASSERT_EQ(m_radars.size(), 1U);
    EXPECT_EQ(m_radars[0].serial + " " + std::to_string(m_radars[0].id), "A1:2 65535");
    for (unsigned int kind = 0; kind < utils::cStreamKinds; ++kind)
        EXPECT_EQ(addressText(m_radars[0].record.streamAddress(kind)), address(kind));
}

TEST_F(tRadarDirectoryTest, refusesWhatIsNoDirectoryAndSaysWhy)
{
    const std::string json = "no valid JSON at line ", twice = " is given twice", deep = "nested too deep";
    const std::string id = "radar 2: id is not a whole number from 0 to 65535";
    const std::vector<std::pair<std::string, std::string>> directories = {
        {"", json + "1, column 1"},
        {"{\"radars\":\n [ nonsense ]}", json + "2, column 5"},
        {R"({"radars":[]} more)", json + "1, column 15"},
        {"[1e999]", "no valid JSON: a number is out of range"},
        {"[]", "the root is not an object with \"radars\""},
        {"{}", "radars is missing"},
        {R"({"radars":[]})", "accepted"},
        {R"({"radars":{}})", "radars is not a list"},
        {R"({"radars":[7]})", "radar 1: not an object"},
        {R"({"radars":[],"radar":1})", R"(unknown key "radar")"},
        {withAddress(R"("1.2.3.4:5","gpsDev":"1.2.3.4:6")"), R"(radar 1: key "gpsDev")" + twice},
        {withRadar(R"("id":1,"id":1,"serial":"S","streams":{})"), R"(radar 2: key "id")" + twice},
        {R"({"radars":[{}],"radars":[]})", R"(key "radars")" + twice},
        {std::string(100'000, '['), deep},
        {withAddress(R"({"a":{"b":{"c":{"d":{}}}}})"), "radar 1: " + deep}};
    const std::vector<std::pair<std::string, std::string>> radars = {
        {R"("serial":"ok","id":8,"streams":{})", "accepted"},
        {R"("serial":"ok","id":9,"streams":{})", R"(radar 2: serial "ok" with id 9 is there already)"},
        {R"("id":1,"streams":{})", "radar 2: serial is missing"},
        {R"("serial":"S","streams":{})", "radar 2: id is missing"},
        {R"("serial":"S","id":1)", "radar 2: streams is missing"},
        {R"("serial":"","id":1,"streams":{})", "radar 2: serial is empty"},
        {R"("serial":5,"id":1,"streams":{})", "radar 2: serial is not a text"},
        {R"("serial":"a\u0000b","id":1,"streams":{})", R"(radar 2: serial "a?b" has control characters)"},
        {"\"serial\":\"" + std::string(129, 's') + "\"", "radar 2: serial is longer than 128 bytes"},
        {R"("serial":"S","id":-1,"streams":{})", id},
        {R"("serial":"S","id":65536,"streams":{})", id},
        {R"("serial":"S","id":1.0,"streams":{})", id},
        {R"("serial":"S","id":"1","streams":{})", id},
        {R"("serial":"S","id":18446744073709551616,"streams":{})", id},
        {R"("serial":"S","id":1,"streams":[])", "radar 2: streams is not an object"},
        {R"("serial":"S","id":1,"streams":{},"name":"x")", R"(radar 2: unknown key "name")"},
        {R"("serial":"S","id":1,"streams":{"ImageStream":"1.2.3.4:5"})", R"(radar 2: unknown stream "ImageStream")"},
        {R"("serial":"S","id":1,"streams":{"otherType":"1.2.3.4:5"})", R"(radar 2: unknown stream "otherType")"}};
    for (const auto& [text, refusal] : directories)
        EXPECT_EQ(refusalOf(text), refusal) << text.substr(0, 200);
    for (const auto& [members, refusal] : radars)
        EXPECT_EQ(refusalOf(withRadar(members)), refusal) << members;
}

TEST_F(tRadarDirectoryTest, refusesWrongAddresses)
{
    for (const char* address :
         {"239.17.0.9", "239.17.0.9:", "239.17.0.9:0", "239.17.0.9:65536", "239.17.0.9:60x", "239.17.0.9:4294967297",
          "239.17.0.9:6009 ", "239.17.0.9:+609", "239.17.0.9:06009", "239.17.0.9:6009:1", ":6009", "", "239.17.0:6009",
          "239.17.0.256:6009", "0.0.0.0:6009", "host:6009", "239.17.0.9\\u0000:6009"})
        EXPECT_THAT(refusalOf(withAddress('"' + std::string(address) + '"')), HasSubstr("radar 1: gpsDev: address "))
            << address;
    for (const char* value : {"6009", "null", "[\"239.17.0.9:6009\"]"})
        EXPECT_THAT(refusalOf(withAddress(value)), HasSubstr("radar 1: gpsDev: address ")) << value;
    EXPECT_EQ(refusalOf(withAddress("\"239.17.0.9:65535\"")), "accepted");
    EXPECT_EQ(refusalOf(withAddress("\"192.168.1.9:1\"")), "accepted");
}

TEST_F(tRadarDirectoryTest, showsLittleOfAHostileText)
{
    const std::string refusal = refusalOf("{\"\\u001b[31m" + std::string(5000, 'k') + "\":1}");
    EXPECT_LT(refusal.size(), 120U);
    EXPECT_THAT(refusal, HasSubstr("\"?[31mkkk"));
}

TEST_F(tRadarDirectoryTest, refusesFilesThatCannotBeReadOrAreTooLarge)
{
    const tTempDir folder;
    const std::string large = folder.file("large.json");
    std::ofstream(large) << R"({"radars":[]})" << std::string(utils::cLargestDirectory, ' ');
    const std::pair<std::string, const char*> cases[] = {
        {folder.file("none.json"), "cannot be opened: No such file or directory"},
        {folder.string(), "cannot be read: Is a directory"},
        {large, "larger than 4194304 bytes"},
        {"/dev/zero", "larger than 4194304 bytes"}};
    for (const auto& [path, reason] : cases)
    {
        std::string error;
        EXPECT_FALSE(utils::readRadarDirectory(path, m_radars, error));
        EXPECT_EQ(error, path + ": " + reason);
    }
}

// tToolFixture: the built program, run as its users run it, beside a folder of the test's own.
#ifndef KESTOVA_TESTS_TOOLFIXTURE_H
#define KESTOVA_TESTS_TOOLFIXTURE_H

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KestovaStorage/companions.h"
#include "support/addresstext.h"
#include "support/childprocess.h"
#include "support/datagramcollector.h"
#include "support/radarpackages.h"
#include "support/recording.h"
#include "support/tempdir.h"

using tJson = nlohmann::json;
using tArguments = std::vector<std::string>;

class tToolFixture : public testing::Test
{
protected:
    static constexpr std::uint64_t cTime = 1'715'940'000'250;

    // The command line: the program, then these arguments.
    static tArguments tool(tArguments arguments)
    {
        arguments.insert(arguments.begin(), KESTOVA_TOOL);
        return arguments;
    }
    // What it prints, run to its end: on standard output if it succeeds, otherwise on standard error alone.
    static std::string said(const tArguments& arguments, int status = 0)
    {
        tChildProcess child(tool(arguments));
        EXPECT_EQ(child.wait(), status) << child.err();
        const bool isResult = status == 0 || status == 3;
        EXPECT_EQ(isResult ? "" : child.out(), "");
        return isResult ? child.out() : child.err();
    }
    static tJson parsed(const std::string& output)
    {
        const tJson json = tJson::parse(output, nullptr, false);
        EXPECT_TRUE(json.is_object()) << output;
        return json.is_object() ? json : tJson::object();
    }
    // With --json: standard output must be one object and nothing else.
    static tJson result(tArguments arguments, int status = 0)
    {
        arguments.push_back("--json");
        return parsed(said(arguments, status));
    }
    // The sheet beside a data file.
    static tJson sheetOf(const std::string& file) { return parsed(contentsOf(storage::sheetName(file))); }
    // Holds these members, others too maybe.
    static void expectIn(const tJson& json, const tJson& members)
    {
        for (const auto& [key, value] : members.items())
            EXPECT_EQ(json.at(key), value) << key;
    }
    // A finished file with these segments, `stepMs` apart.
    std::string fileOf(const std::vector<std::string>& segments, std::uint64_t stepMs, const char* name = "made.data",
                       std::uint64_t time = cTime) const
    {
        std::vector<tSegment> made;
        for (const std::string& segment : segments)
            made.push_back({time + made.size() * stepMs, segment});
        recordByHand(dir.file(name), made);
        return dir.file(name);
    }

    tTempDir dir;
};

#endif

#include "cmdline.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;

/// The parser of a program with one flag, one value and one needed value of digits.
cmdline::parser makeParser()
{
    cmdline::parser parser;
    parser.add("recovery", 'r', "recover first");
    parser.add("folder", 'f', "folder for results", false, "here");
    return parser;
}

bool parse(cmdline::parser &parser, std::vector<const char *> arguments)
{
    arguments.insert(arguments.begin(), "program");
    return parser.parse(static_cast<int>(arguments.size()), arguments.data());
}

TEST(CommandLine, ReadsLongShortAndJoinedOptions)
{
    auto parser = makeParser();
    EXPECT_TRUE(parse(parser, {}));
    EXPECT_FALSE(parser.exist("recovery"));
    EXPECT_EQ(parser.get("folder"), "here");

    EXPECT_TRUE(parse(parser, {"stray", "-rf", "there", "-"}));
    EXPECT_TRUE(parser.exist("recovery"));
    EXPECT_EQ(parser.get("folder"), "there");
    EXPECT_THAT(parser.rest(), ElementsAre("stray", "-"));

    EXPECT_TRUE(parse(parser, {"--folder=a=b"}));
    EXPECT_EQ(parser.get("folder"), "a=b");
    EXPECT_TRUE(parse(parser, {"--folder", "c"}));
    EXPECT_EQ(parser.get("folder"), "c");
}

TEST(CommandLine, TellsWhatIsWrong)
{
    const std::vector<std::pair<std::vector<const char *>, std::string>> cases = {
        {{"--bogus=1"}, "undefined option: --bogus"},
        {{"--"}, "undefined option: --"},
        {{"-rx"}, "undefined short option: -x"},
        {{"--folder"}, "option needs value: --folder"},
        {{"-fr"}, "option needs value: --folder"},
        {{"--recovery=yes"}, "option value is invalid: --recovery=yes"},
    };
    for (const auto &[arguments, error] : cases) {
        auto parser = makeParser();
        EXPECT_FALSE(parse(parser, arguments)) << error;
        EXPECT_EQ(parser.error(), error);
    }

    auto parser = makeParser();
    EXPECT_FALSE(parser.parse(0, nullptr));
    EXPECT_EQ(parser.error(), "argument number must be longer than 0");

    parser.add("count", 'c', "how many", true, "", [](const std::string &value) { return value == "1"; });
    EXPECT_FALSE(parse(parser, {}));
    EXPECT_EQ(parser.error(), "need option: --count");
    EXPECT_FALSE(parse(parser, {"-c", "one"}));
    EXPECT_EQ(parser.error(), "option value is invalid: --count=one");
    EXPECT_TRUE(parse(parser, {"-c", "1"}));
}

} // namespace

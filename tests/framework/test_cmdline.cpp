#include "cmdline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace {

/// What is left of a command line, as one text: the error, the values, the flag, the rest.
std::string read(cmdline::parser &options, const std::string &line)
{
    std::vector<std::string> words{"program"};
    std::istringstream stream(line);
    for (std::string word; stream >> word;)
        words.push_back(word);
    words.emplace_back("beyond");
    std::vector<const char *> arguments(words.size());
    std::transform(words.begin(), words.end(), arguments.begin(),
                   [](const auto &word) { return word.c_str(); });
    const bool good = options.parse(int(words.size()) - 1, arguments.data());
    EXPECT_EQ(good, options.error().empty());
    std::string text = options.error() + '|' + options.get("name") + '|' + options.get("port") + '|';
    text += options.exist("verbose") ? "verbose|" : "|";
    for (const std::string &other : options.rest())
        text += other + ' ';
    return text;
}

cmdline::parser makeParser()
{
    const auto isNumber = [](const std::string &value) { return std::isdigit(value[0]) != 0; };
    cmdline::parser options;
    options.add("name", 'n', "whose it is", true, "nobody");
    options.add("port", 0, "where", false, "80", isNumber);
    options.add("verbose", 'v', "more");
    return options;
}

TEST(CommandLine, IsReadAsDocumented)
{
    const std::pair<const char *, const char *> lines[] = {
        {"", "need option: --name|nobody|80||"},
        {"--name=a b --port 9", "|a|9||b "},
        {"--name --port 9", "|--port|80||9 "},
        {"--name= --verbose", "||80|verbose|"},
        {"-vn a - b=c", "|a|80|verbose|- b=c "},
        {"-nv a", "option needs value: --name|nobody|80|verbose|a "},
        {"--name", "option needs value: --name|nobody|80||"},
        {"-v -n", "option needs value: --name|nobody|80|verbose|"},
        {"-n a --port=x", "option value is invalid: --port=x|a|80||"},
        {"-n a --verbose=1", "option value is invalid: --verbose=1|a|80||"},
        {"-n a --bogus -v", "undefined option: --bogus|a|80|verbose|"},
        {"-xv -n a=b", "undefined short option: -x|a=b|80|verbose|"},
    };
    for (const auto &[line, expected] : lines) {
        cmdline::parser options = makeParser();
        EXPECT_EQ(read(options, line), expected);
    }
    cmdline::parser options = makeParser();
    EXPECT_FALSE(options.parse(0, nullptr));
    EXPECT_EQ(options.error(), "argument number must be longer than 0");
    EXPECT_EQ(read(options, "-x b"), "undefined short option: -x|nobody|80||b ");
    EXPECT_EQ(read(options, "-n a"), "|a|80||") << "nothing of the line before";
    EXPECT_EQ(options.get("unknown"), "");
    EXPECT_EQ(options.usage(), "usage: program --name=value [options] ... \noptions:\n"
                               "  -n, --name       whose it is\n"
                               "      --port       where\n"
                               "  -v, --verbose    more\n");
    EXPECT_THROW(options.add("port", 'p', "again"), cmdline::cmdline_error);
    options.add("new", 'n', "the name's letter");
    EXPECT_EQ(read(options, "-v"), "short option 'n' is ambiguous|a|80|verbose|");
}

} // namespace

#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

/// The options of a command line: `--name`, `--name value`, `--name=value`, `-n`, `-n value`, and several
/// short flags in one argument (`-ab`).
namespace cmdline {

/// A mistake in the use of the parser itself, such as an option defined twice.
class cmdline_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/**
 * Knows the options of a program, reads a command line and tells what was in it. Arguments that are not
 * options are collected and mean nothing to the parser.
 *
 * For one thread. Texts are in the encoding of the command line.
 */
class parser
{
public:
    using Check = std::function<bool(const std::string &value)>;

    /// Adds a flag: an option without a value.
    /// @param shortName 0 for an option that has only a long name
    /// @throws cmdline_error when there is an option of this name
    void add(const std::string &name, char shortName, const std::string &help);

    /// Adds an option with a value.
    /// @param needed whether a command line without the option is bad
    /// @param check tells whether a value is valid; every value is when there is no check
    /// @throws cmdline_error when there is an option of this name
    void add(const std::string &name, char shortName, const std::string &help, bool needed,
             const std::string &defaultValue, Check check = {});

    /// Reads the command line. False when it is bad: error() tells why.
    bool parse(int argc, const char *const argv[]);

    /// Adds the flag `help` (`-?`) unless there is an option of this name, reads the command line, and leaves
    /// the process where it can't go on: with code 0 after `--help`, with code 1 when the command line is
    /// bad.
    void parse_check(int argc, const char *const argv[]);

    /// Whether the option was given.
    bool exist(const std::string &name) const;

    /// The value given, or else the default.
    std::string get(const std::string &name) const;

    /// The arguments that are not options, in their order.
    const std::vector<std::string> &rest() const { return others; }

    /// The first thing wrong with the command line; empty when there is nothing.
    std::string error() const { return errors.empty() ? std::string() : errors.front(); }

    /// How the program is called, one line for each option.
    std::string usage() const;

private:
    struct Option
    {
        std::string name;
        char shortName = 0;
        std::string help;
        bool takesValue = false;
        bool needed = false;
        std::string value;
        Check check;
        bool given = false;
    };

    void define(Option option);
    const Option *find(const std::string &name) const;
    Option *find(const std::string &name);
    void findAmbiguities();
    Option *findShort(char shortName);
    void setFlag(Option &option);
    void setValue(Option &option, const std::string &value);
    void readLong(const std::string &text, const char *next, bool &nextTaken);
    void readShort(const std::string &letters, const char *next, bool &nextTaken);

    std::string programName;
    std::vector<Option> options; ///< in the order in which they were added
    std::vector<std::string> others;
    std::vector<std::string> errors;
};

} // namespace cmdline

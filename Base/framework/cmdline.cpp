#include "cmdline.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <utility>

namespace cmdline {

void parser::add(const std::string &name, char shortName, const std::string &help)
{
    Option option;
    option.name = name;
    option.shortName = shortName;
    option.help = help;
    define(std::move(option));
}

void parser::add(const std::string &name, char shortName, const std::string &help, bool needed,
                 const std::string &defaultValue, Check check)
{
    Option option;
    option.name = name;
    option.shortName = shortName;
    option.help = help;
    option.takesValue = true;
    option.needed = needed;
    option.value = defaultValue;
    option.check = std::move(check);
    define(std::move(option));
}

bool parser::parse(int argc, const char *const argv[])
{
    errors.clear();
    others.clear();
    if (argc < 1) {
        errors.emplace_back("argument number must be longer than 0");
        return false;
    }
    programName = argv[0];
    findAmbiguities();
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const char *next = i + 1 < argc ? argv[i + 1] : nullptr;
        bool nextTaken = false;
        if (argument.compare(0, 2, "--") == 0)
            readLong(argument.substr(2), next, nextTaken);
        else if (argument.size() > 1 && argument[0] == '-')
            readShort(argument.substr(1), next, nextTaken);
        else
            others.push_back(argument);
        if (nextTaken)
            ++i;
    }
    for (const Option &option : options) {
        if (option.needed && !option.given)
            errors.push_back("need option: --" + option.name);
    }
    return errors.empty();
}

void parser::parse_check(int argc, const char *const argv[])
{
    if (!find("help"))
        add("help", '?', "print this message");
    const bool good = parse(argc, argv);
    if (exist("help")) {
        std::cerr << usage();
        std::exit(EXIT_SUCCESS);
    }
    if (!good) {
        std::cerr << error() << '\n' << usage();
        std::exit(EXIT_FAILURE);
    }
}

bool parser::exist(const std::string &name) const
{
    const Option *option = find(name);
    return option && option->given;
}

std::string parser::get(const std::string &name) const
{
    const Option *option = find(name);
    return option ? option->value : std::string();
}

std::string parser::usage() const
{
    std::size_t widest = 0;
    for (const Option &option : options)
        widest = std::max(widest, option.name.size());

    std::string text = "usage: " + programName + " ";
    for (const Option &option : options) {
        if (option.needed)
            text.append("--").append(option.name).append("=value ");
    }
    text += "[options] ... \noptions:\n";
    for (const Option &option : options) {
        text += option.shortName ? std::string{' ', ' ', '-', option.shortName, ',', ' '} : "      ";
        text.append("--").append(option.name).append(widest - option.name.size() + 4, ' ');
        text.append(option.help).append("\n");
    }
    return text;
}

void parser::define(Option option)
{
    if (find(option.name))
        throw cmdline_error("multiple definition: " + option.name);
    options.push_back(std::move(option));
}

const parser::Option *parser::find(const std::string &name) const
{
    const auto found = std::find_if(options.begin(), options.end(),
                                    [&](const Option &option) { return option.name == name; });
    return found == options.end() ? nullptr : &*found;
}

parser::Option *parser::find(const std::string &name)
{
    return const_cast<Option *>(std::as_const(*this).find(name));
}

void parser::findAmbiguities()
{
    std::map<char, int> uses;
    for (const Option &option : options) {
        if (option.shortName && ++uses[option.shortName] == 2)
            errors.push_back(std::string("short option '") + option.shortName + "' is ambiguous");
    }
}

/// The one option with this short name. Null, with an error noted, when there is none or more than one.
parser::Option *parser::findShort(char shortName)
{
    Option *found = nullptr;
    for (Option &option : options) {
        if (option.shortName != shortName)
            continue;
        if (found) {
            errors.push_back(std::string("ambiguous short option: -") + shortName);
            return nullptr;
        }
        found = &option;
    }
    if (!found)
        errors.push_back(std::string("undefined short option: -") + shortName);
    return found;
}

void parser::setFlag(Option &option)
{
    if (option.takesValue)
        errors.push_back("option needs value: --" + option.name);
    else
        option.given = true;
}

void parser::setValue(Option &option, const std::string &value)
{
    if (!option.takesValue || (option.check && !option.check(value))) {
        errors.push_back("option value is invalid: --" + option.name + "=" + value);
        return;
    }
    option.value = value;
    option.given = true;
}

void parser::readLong(const std::string &text, const char *next, bool &nextTaken)
{
    const std::size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    Option *option = find(name);
    if (!option) {
        errors.push_back("undefined option: --" + name);
    } else if (equals != std::string::npos) {
        setValue(*option, text.substr(equals + 1));
    } else if (option->takesValue && next) {
        setValue(*option, next);
        nextTaken = true;
    } else {
        setFlag(*option);
    }
}

/// One argument of short options, of which only the last can have a value.
void parser::readShort(const std::string &letters, const char *next, bool &nextTaken)
{
    for (std::size_t i = 0; i < letters.size(); ++i) {
        Option *option = findShort(letters[i]);
        if (!option)
            continue;
        if (option->takesValue && next && i + 1 == letters.size()) {
            setValue(*option, next);
            nextTaken = true;
        } else {
            setFlag(*option);
        }
    }
}

} // namespace cmdline

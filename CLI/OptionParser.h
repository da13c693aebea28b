#ifndef ORBTEX_CLI_OPTION_PARSER_H
#define ORBTEX_CLI_OPTION_PARSER_H

// The commands' argument parsing: each command lists its options in a table
// and one parser walks the arguments with it, storing each option through its
// handler and saying what is wrong in the commands' common wording.

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace cli
{

// What an option does with the argument after it.
enum class OptionValue
{
    None,      // a flag
    Required,  // NAME VALUE
    IfAccepted // NAME [VALUE]: the next argument when the option accepts it
};

struct Option
{
    // Stores the option with its value ("" for a flag or an absent optional
    // value); returns a usage error, or "" when stored.
    using Store = std::function<std::string(const std::string& value)>;
    // IfAccepted: whether the argument after the option is its value.
    using Accepts = std::function<bool(const std::string& argument)>;

    Option(std::string name, OptionValue value, Store store, Accepts accepts = nullptr,
           std::string missing = "a value")
        : name(std::move(name)), value(value), store(std::move(store)), accepts(std::move(accepts)),
          missing(std::move(missing))
    {
    }

    std::string name;
    OptionValue value;
    Store store;
    Accepts accepts;
    // A missing Required value is told as "NAME needs " + missing.
    std::string missing;
};

// A flag that sets 'flag'.
Option FlagOption(const std::string& name, bool& flag);

// An option whose value is stored in 'text' as given.
Option TextOption(const std::string& name, std::string& text);

struct OptionTable
{
    std::string command; // named in usage errors
    const char* help;    // printed for --help or -h
    std::vector<Option> options;
    // Collects the arguments that are no option, an argument "-" among them;
    // null when the command takes none, and then each is an unexpected
    // argument, as is an unknown option.
    std::vector<std::string>* positional = nullptr;
};

// Walks the arguments in order with the table. --help or -h where no option
// takes it as its value prints the help. Returns -1 to go on, else the exit
// status: kExitOk after the help, kExitUsage after a usage error (told on
// standard error: an unknown option or unexpected argument, a missing value,
// or what a handler refused).
int ParseOptions(const std::vector<std::string>& arguments, const OptionTable& table);

} // namespace cli

#endif

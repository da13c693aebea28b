#include "OptionParser.h"

#include <iostream>

#include "CliSupport.h"

namespace cli
{

Option FlagOption(const std::string& name, bool& flag)
{
    return {name, OptionValue::None, [&flag](const std::string&) {
                flag = true;
                return std::string();
            }};
}

Option TextOption(const std::string& name, std::string& text)
{
    return {name, OptionValue::Required, [&text](const std::string& value) {
                text = value;
                return std::string();
            }};
}

namespace
{

const Option* FindOption(const std::vector<Option>& options, const std::string& name)
{
    for (const Option& option : options)
        if (option.name == name)
            return &option;
    return nullptr;
}

} // namespace

int ParseOptions(const std::vector<std::string>& arguments, const OptionTable& table)
{
    for (size_t i = 0; i < arguments.size(); ++i)
    {
        const std::string& argument = arguments[i];
        if (IsHelpFlag(argument))
        {
            std::cout << table.help;
            return kExitOk;
        }
        const Option* option = FindOption(table.options, argument);
        if (!option)
        {
            if (!table.positional)
                return UsageError(table.command, "unexpected argument '" + argument + "'");
            if (argument.size() > 1 && argument[0] == '-')
                return UsageError(table.command, "unknown option '" + argument + "'");
            table.positional->push_back(argument);
            continue;
        }
        std::string value;
        if (option->value == OptionValue::Required)
        {
            if (i + 1 == arguments.size())
                return UsageError(table.command, argument + " needs " + option->missing);
            value = arguments[++i];
        }
        else if (option->value == OptionValue::IfAccepted && i + 1 < arguments.size() &&
                 option->accepts(arguments[i + 1]))
            value = arguments[++i];
        const std::string error = option->store(value);
        if (!error.empty())
            return UsageError(table.command, error);
    }
    return -1;
}

} // namespace cli

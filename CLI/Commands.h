#ifndef ORBTEX_CLI_COMMANDS_H
#define ORBTEX_CLI_COMMANDS_H

#include <string>
#include <vector>

namespace cli
{

// Each command takes the arguments after its name and returns the exit status.
struct Command
{
    const char* name;
    const char* summary;
    const char* help;
    int (*run)(const std::vector<std::string>& arguments);
};

int RunInfo(const std::vector<std::string>& arguments);
int RunDemo(const std::vector<std::string>& arguments);
int RunConvert(const std::vector<std::string>& arguments);
int RunFormats(const std::vector<std::string>& arguments);
int RunCompare(const std::vector<std::string>& arguments);

extern const char* const kInfoHelp;
extern const char* const kDemoHelp;
extern const char* const kConvertHelp;
extern const char* const kFormatsHelp;
extern const char* const kCompareHelp;

} // namespace cli

#endif

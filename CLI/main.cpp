// orbtex: command-line front end of ORBTexLib.

#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "CliSupport.h"
#include "Commands.h"

namespace
{

const cli::Command kCommands[] = {
    {"info", "describe texture files", cli::kInfoHelp, cli::RunInfo},
    {"convert", "convert textures and images between pixel formats", cli::kConvertHelp, cli::RunConvert},
    {"compare", "measure and picture the difference of two textures", cli::kCompareHelp, cli::RunCompare},
    {"formats", "list the format and channel type names", cli::kFormatsHelp, cli::RunFormats},
    {"demo", "run the library's main job on a built-in test card", cli::kDemoHelp, cli::RunDemo},
};

void PrintUsage(std::ostream& out)
{
    out << "usage: orbtex COMMAND [ARGUMENTS]\n"
           "\n"
           "Texture tool of ORBTexLib.\n"
           "\n"
           "Commands:\n";
    for (const cli::Command& command : kCommands)
        out << "  " << command.name << std::string(10 - std::string(command.name).size(), ' ') << command.summary
            << "\n";
    out << "\n"
           "'orbtex COMMAND --help' describes a command; 'orbtex --version' tells\n"
           "the version.\n";
}

int Run(int argc, char** argv)
{
    if (argc < 2)
    {
        PrintUsage(std::cerr);
        return cli::kExitUsage;
    }
    const std::string name = argv[1];
    if (name == "--version")
    {
        std::cout << "orbtex " ORBTEX_VERSION "\n";
        return cli::kExitOk;
    }
    if (cli::IsHelpFlag(name) || name == "help")
    {
        if (name == "help" && argc > 2)
        {
            for (const cli::Command& command : kCommands)
                if (argv[2] == std::string(command.name))
                {
                    std::cout << command.help;
                    return cli::kExitOk;
                }
            return cli::UsageError("", std::string("unknown command '") + argv[2] + "'");
        }
        PrintUsage(std::cout);
        return cli::kExitOk;
    }
    for (const cli::Command& command : kCommands)
        if (name == command.name)
            return command.run(std::vector<std::string>(argv + 2, argv + argc));
    return cli::UsageError("", "unknown command '" + name + "'");
}

} // namespace

int main(int argc, char** argv)
{
    cli::InstallSignalCleanup();
    // Last resort: the commands report their own failures, and nothing else
    // may end the program without a line saying why.
    try
    {
        return Run(argc, argv);
    }
    catch (const std::bad_alloc&)
    {
        std::cerr << "orbtex: out of memory\n";
    }
    catch (const std::exception& error)
    {
        std::cerr << "orbtex: unexpected error: " << error.what() << "\n";
    }
    catch (...)
    {
        std::cerr << "orbtex: unexpected error\n";
    }
    return cli::kExitFailure;
}

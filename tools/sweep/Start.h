// One start of the loader on a machine's folder, through qxsim.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace qxsweep
{

// The programs of this build; Loader may be another one.
struct Programs {
    std::filesystem::path Simulator;
    std::filesystem::path Loader;
};

struct Start {
    std::optional<int> Status;                 // whole, when the loader came to its own end
    int Signal{};                              // that ended it, 0 none
    bool InTime{};                             // it ended before the limits, virtual and real
    std::string Output;                        // of the loader
    std::string Errors;                        // its standard error, and qxsim's
    std::map<std::string, std::string> Result; // of qxsim --result; empty: there is none
};

// The command that run_Start carries out, without what it leaves: for a person to repeat.
std::string show_Command(const Programs &Used, const std::filesystem::path &Machine);

// Works on the folder itself, as qxsim --keep does. What the start leaves besides goes to Folder,
// which is there: trace, result, output, errors.
Start run_Start(const Programs &Used, const std::filesystem::path &Machine,
                const std::filesystem::path &Folder);

} // namespace qxsweep

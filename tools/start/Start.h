// One start of the loader on a machine's folder, through qxsim, and all that comes of it.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qxstart
{

// The programs of this build; Loader may be another one.
struct Programs {
    std::filesystem::path Simulator;
    std::filesystem::path Loader;
};

struct Start {
    int Exit{};                                // of qxsim: 8 bits, 128 and the signal
    std::optional<int> Status;                 // whole, when the loader came to its own end
    int Signal{};                              // that ended the loader, 0 none
    bool InTime{};                             // it ended before the limits, virtual and real
    double RealSeconds{};                      // that qxsim took
    std::string Output;                        // of the loader
    std::string Errors;                        // its standard error, and qxsim's
    std::string Trace;                         // the bus, as candump writes it
    std::map<std::string, std::string> Result; // of qxsim --result; empty: there is none
};

// The command that run_Start carries out, without what it leaves: for a person to repeat.
std::string show_Command(const Programs &Used, const std::filesystem::path &Machine);

// Runs the loader with Arguments on Machine, under qxsim with Options. What it leaves besides goes
// to Folder, which is there: trace, result, output, errors. 600 virtual seconds are the limit, if
// Options do not say another, and 300 real ones.
Start run_Start(const Programs &Used, const std::filesystem::path &Machine,
                const std::filesystem::path &Folder, const std::vector<std::string> &Options,
                const std::vector<std::string> &Arguments = {});

// A new folder for files that the caller removes: "scenario" makes /tmp/scenario.XXXXXX. Throws
// std::system_error.
std::filesystem::path make_TemporaryFolder(const std::string &Name);

std::string read_Text(const std::filesystem::path &Path); // "" when there is none

// Makes the folders on the way. Throws std::runtime_error.
void write_Text(const std::filesystem::path &Path, const std::string &Text);

} // namespace qxstart

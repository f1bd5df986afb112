// What is shown after a run, and the result file for programs.
#pragma once

#include "machine/Machine.h"
#include <filesystem>
#include <map>
#include <string>

namespace qxsim
{

struct Outcome {
    int WaitStatus{};                          // of the loader
    std::map<std::string, std::string> Result; // what the run left, key by key
    std::map<std::string, Time> Phases;        // virtual duration by the loader's phase
    std::vector<std::string> PhaseOrder;
};

// Collects what the run left in its folder.
Outcome read_Outcome(const std::filesystem::path &Run, int WaitStatus);

// True when the power was cut before the loader came to its end.
bool is_PowerCut(const Outcome &Left);

// The status of this program: the loader's low 8 bits, or 128 and the signal that ended it.
int get_ExitStatus(const Outcome &Left);

// Before and After: the machine at the start and at the end.
void print_Report(const Outcome &Left, const Machine &Before, const Machine &After,
                  const std::filesystem::path &Config);

// Lines "key=value"; docs/simulator.md lists the keys.
void write_ResultFile(const std::filesystem::path &Path, const Outcome &Left);

} // namespace qxsim

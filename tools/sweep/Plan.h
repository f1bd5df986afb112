// What the sweep runs: every command of a good start with every fault that a board can show, and
// every call failing, or ended by a power cut, that reaches beyond the process or changes
// something.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qxsweep
{

// A command as a board received it.
struct ReceivedCommand {
    std::string Board;
    std::uint8_t Service{};
    std::uint8_t Function{};
    std::optional<std::uint8_t> Tag; // first parameter
    unsigned Nth{};                  // the first one that these name ...
    bool AnswerWanted{};
    bool LongAnswer{}; // of several frames
};

// One run: a fault and where it strikes.
struct PlannedRun {
    std::string Kind;  // "silence", "error code = 129" ...
    std::string Place; // "heater service 24 function 0 tag 4 nth 1"
    std::string Board; // whose table Toml is; "": the machine's
    std::string Toml;
    bool Cut{}; // the power goes; a second start follows, without the fault
};

// The commands of a start from its trace (candump's log format) and the machine's description.
// Restarts and moves of the boards are followed.
std::vector<ReceivedCommand> read_Commands(const std::string &Trace,
                                           const std::string &MachineFolder);

// Each command with each fault that can change something about it.
std::vector<PlannedRun> plan_BoardFaults(const std::vector<ReceivedCommand> &Commands,
                                         const std::vector<std::string> &Boards);

// Each call to the outside failing, and the power going at each. Result is that of the good start:
// every call fails that reaches beyond the process, the power goes at every one that changes
// something there. Of the others (a byte out of a buffer, a look at the driver that finds what the
// last one found) the first of each kind and some at regular distances are struck as well.
std::vector<PlannedRun> plan_OutsideFaults(const std::map<std::string, std::string> &Result);

} // namespace qxsweep

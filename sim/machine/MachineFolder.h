// A machine's folder on disk:
//
//     machine.toml     boards, bus, clock, driver, card, scripts, faults
//     state.toml       what the boards hold after a kept run; absent: as machine.toml says
//     boards/NAME/     files of board NAME, by name relative to its distribution's root
//     config/ vantrel/ card/ removable/ net/   the master's storage, bound into the run
//
// docs/simulator.md describes every key.
#pragma once

#include "machine/Machine.h"
#include <filesystem>
#include <stdexcept>

namespace qxsim
{

// A file of the machine's folder is wrong. what() names file, line and key:
// "machine.toml:12: board.board_type: must be 1 to 31".
class MachineError : public std::runtime_error
{
  public:
    using std::runtime_error::runtime_error;
};

// The machine of Folder, with the state that an earlier run left. Throws MachineError.
Machine read_Machine(const std::filesystem::path &Folder);

// Leaves items, faults and files of Boards in Folder, so that read_Machine finds them as they are
// now: state.toml, and boards/NAME/ with exactly the board's files. Throws std::filesystem_error or
// std::ios_base::failure.
void write_State(const std::filesystem::path &Folder, const std::vector<BoardSpec> &Boards);

} // namespace qxsim

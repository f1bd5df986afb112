// The machine of the sweep: small, and yet its start uses every service of the boards.
//
//     axis_left    its software is not in the store: header and two files are uploaded
//     axis_right   the same software, found in the store; appl.todo forces another one upon it
//     heater       hardware newer than its software: it is brought up to date
//     scale        no type map of its own: looked up in the database and written to the board
//     labeller     not required (State 0): stopped and left alone
//     panel        exchanged for a newer one, never moved, started without parameters
//
// All but labeller and panel are moved to another address. appl.protocols offers a structure that
// no board speaks, then one that all speak.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qxsweep
{

// Makes the machine's folder, as qxsim reads it.
void make_Machine(const std::filesystem::path &Folder);

// Names of the boards of a machine.toml, in its order.
std::vector<std::string> find_Boards(const std::string &MachineToml);

// machine.toml with the tables Toml in addition: of the board, or of the machine when Board is "".
std::string add_Tables(const std::string &MachineToml, const std::string &Board,
                       const std::string &Toml);

} // namespace qxsweep

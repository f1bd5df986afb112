// What a run leaves where it has no business: everything of the run's own file system that can be
// written, empty folders included, but for what is in the machine's folders (config, vantrel,
// card).
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace qxsim
{

// What there is, by path: its kind, of a file also size and time of the last change.
using Tree = std::map<std::string, std::string>;

// To be called inside, by the one who prepares the run.
Tree read_Tree();

// Adds lines "stray.N=created PATH" (or removed, changed) to the result file.
void write_Strays(const std::filesystem::path &Result, const Tree &Before, const Tree &After);

} // namespace qxsim

// The contract: what may come of a start on a machine with one fault.
//
//   - It ends within the limits, by a status that is documented or by an assertion that stands in
//     the loader's sources; by no other signal, and without a word from a sanitizer.
//   - Each result file is whole, or absent. (An assertion or a fatal end in the middle of a file
//     may leave a part of it; that is counted, not refused.)
//   - Every archive in the store is complete, and nothing else is there. Those that were there
//     before are there still, byte for byte (or replaced by a complete one of the same name, when
//     the loader could not see that it had it). A copy that is marked as under way,
//     .NAME.tar.gz.copying beside it, counts as absent.
//   - After a power cut the next start leaves the result files that it leaves without one: nothing
//     that was asked for is forgotten, nobody is missing.
#pragma once

#include "start/Start.h"
#include <array>
#include <map>
#include <string>
#include <vector>

namespace qxsweep
{

struct Verdict {
    std::string Outcome;               // "status -491", "assertion ! TimeoutMask" ...
    std::vector<std::string> Breaches; // of the contract, a sentence each
    bool PartOfResult{};               // a part of a result file is left
};

// Contents of the files in a machine's store, by name, without marked copies and their markers.
std::map<std::string, std::string> read_Store(const std::filesystem::path &Machine);

// Before: the store before the start. Sources: the folder of the loader's sources.
Verdict judge_Start(const qxstart::Start &Ended, const std::filesystem::path &Machine,
                    const std::map<std::string, std::string> &Before,
                    const std::filesystem::path &Sources);

// The result files of a machine, by name, without the lines that tell when and by what they were
// written.
using Results = std::map<std::string, std::string>;
Results read_Results(const std::filesystem::path &Machine);

// Whether a start after a power cut has left what a good start leaves: the first one's results, or,
// when the start that was cut had left those already (Told), the results of one more. Returns what
// was found, "" when it is right.
std::string check_Recovery(const Results &Found, const std::array<Results, 2> &Expected, bool Told);

// Why a result file is not whole, "" when it is. Name is "loader.errors" and so on.
std::string check_ResultFile(const std::string &Name, const std::string &Text);

} // namespace qxsweep

// The loader's own calls to the outside (files, shell, memory, driver, threads): counted by kind,
// and made to fail or ended by a power cut where the machine says so.
//
// The calls of the program itself are met, by the addresses that its dynamic linker filled in, and
// nobody else's: what the C and C++ libraries or a sanitizer call for themselves is never counted
// and never fails.
#pragma once

#include "machine/Machine.h"
#include <set>
#include <string>
#include <vector>

namespace qxsim::outside
{

// From here on the program's calls come here first. Faults and Cut must stay as they are.
void start(const std::vector<OutsideFault> &Faults, const std::optional<PowerCut> &Cut);

// Calls of the kind so far, failed ones included.
unsigned get_Count(OutsideCall Call);

// Which of the kind's calls, from 1, went beyond the process: all but those that a stream's buffer
// served, and polls of the driver (an empty receive, the timer) from the fourth on in which nothing
// else went beyond it. And which of these changed something out there. As "1-4,7", rising.
std::string get_Reaching(OutsideCall Call);
std::string get_Changing(OutsideCall Call);

// Command lines that the loader gave to the shell so far, in their order.
const std::vector<std::string> &get_Commands();

// Files that the loader opened or tried to open so far, the driver included: where the names led
// to.
const std::set<std::string> &get_Opened();

} // namespace qxsim::outside

// The loader's own calls to the outside (files, shell, memory, driver, threads): counted by kind,
// and made to fail or ended by a power cut where the machine says so.
//
// The calls of the program itself are met, by the addresses that its dynamic linker filled in, and
// nobody else's: what the C and C++ libraries or a sanitizer call for themselves is never counted
// and never fails.
#pragma once

#include "machine/Machine.h"
#include <set>

namespace qxsim::outside
{

// From here on the program's calls come here first. Faults and Cut must stay as they are.
void start(const std::vector<OutsideFault> &Faults, const std::optional<PowerCut> &Cut);

// Calls of the kind so far, failed ones included.
unsigned get_Count(OutsideCall Call);

// Command lines that the loader gave to the shell so far, in their order.
const std::vector<std::string> &get_Commands();

// Files that the loader opened or tried to open so far, the driver included: where the names led
// to.
const std::set<std::string> &get_Opened();

} // namespace qxsim::outside

// One run: the simulated machine as the loader's requests reach it, and what is left of it for the
// runner. Only a thread that is inside (turn::Inside) may call in here.
//
// The runner hands over in the environment:
//     QXSIM_RUN       folder of the run: trace, output and result are written there
//     QXSIM_LIMIT     virtual seconds after which the run is ended, 0 none
//     QXSIM_SPEED     virtual seconds a real one, 0 as fast as possible
//     QXSIM_PARALLEL  the same with the loader's threads in parallel, 0 they take turns
// The machine's folder is FOLDER_MACHINE.
#pragma once

#include "../src/CanFrame.h"
#include "Frame.h"
#include "machine/Machine.h"
#include <cstddef>
#include <optional>
#include <string_view>

namespace qxsim::session
{

constexpr const char *DRIVER_PATH = "/dev/cana";

// Sets the machine up when QXSIM_RUN is there; without it every stand-in passes everything on.
void start();

bool is_Running();

// Seconds since 1970 at power-on.
Time get_Date();

// The driver. Results are those of open and ioctl.
std::optional<int> open_Driver(); // nullopt: the open succeeds
void close_Driver();
int request(unsigned long Request, void *Argument);

// What the driver's request is for; nullopt: none of what a machine can let fail.
std::optional<DriverRequest> get_RequestKind(unsigned long Request);

// Text that the loader wrote to its standard output just now.
void record_Output(std::string_view Text);

// Leaves the results. Whole: the status given to exit; nullopt when the process ends otherwise.
// Only the first call counts.
void finish(std::optional<int> Whole);

// Leaves the results; the process is no more.
[[noreturn]] void cut_Power();

} // namespace qxsim::session

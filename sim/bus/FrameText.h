// Frames as text, and the traffic of a run as its trace holds it.
#pragma once

#include "Frame.h"
#include <string>
#include <vector>

namespace qxsim
{

// "160003F0#430000": the identifier in 8 hexadecimal digits, then the data.
std::string show_Frame(const Frame &Shown);

// The same back. Data beyond 8 bytes is left out; throws std::logic_error for what is no number.
Frame read_Frame(const std::string &Text);

struct TracedFrame {
    Time At{}; // end of the frame, by the machine's clock since 1970
    Frame Sent;
};

// The frames of a trace in candump's log format: "(1773469800.000395) cana 160003F0#430000".
std::vector<TracedFrame> read_Trace(const std::string &Trace);

} // namespace qxsim

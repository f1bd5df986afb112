// The faults of a board: which of them strike a command, and what they do to its answer.
#pragma once

#include "board/Message.h"
#include "machine/Machine.h"

namespace qxsim
{

// The faults that strike one command, in the order of the board's table.
using Strikes = std::vector<const Fault *>;

// The first fault of a kind, or null.
const Fault *find_Strike(const Strikes &Struck, FaultKind Kind);

// Counts the commands that each fault matches.
class FaultWatch
{
  public:
    // To be called once for each command. Faults is the board's table, always the same.
    Strikes watch_Command(const std::vector<Fault> &Faults, const Command &Received);

  private:
    std::vector<unsigned> NbMatches; // by fault
};

// The frames that leave the board instead of a plain answer; none after Silence.
// Others: all boards of the machine, by whose names OtherBoard names them.
std::vector<Frame> make_AnswerFrames(const Command &Received, Answer Given, Address Source,
                                     const Strikes &Struck, const std::vector<BoardSpec> &Others);

// An answer that nobody asked for: function 63, one byte 0.
Frame make_Unsolicited(Address Source, std::uint8_t Service);

// By how much they are late.
Time get_Delay(const Strikes &Struck);

} // namespace qxsim

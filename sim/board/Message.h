// Messages of the boards' protocol and the CAN frames that carry them, from a board's side.
//
// Identifier (29 bits):
//
//   28..24  23..19          18..14          13..9       8..4        3            2..0
//   service destination BN  destination BT  source BN   source BT   multi-frame  0
//
// A command goes to one board (BT, BN), to all boards of a type (BT, BN 0) or to all (BT 0, BN 0).
// The master is BT 31, BN 1.
//
// Data of a message of n parameter bytes:
//
//   n <= 7  one frame      Fn, parameters
//   n >= 8  first frame    Fn, 0x80 | N, parameters 0..5        N = (n - 1) / 6, at most 127
//           N more frames  Fn, counter from N-1 down to 0, next 6 parameters (the last: the rest)
//
// Fn: bits 0..5 the function; bit 6 (0x40) of a command: an answer is wanted; of an answer: it is
// an error answer, whose first parameter is the board's code.
#pragma once

#include "Frame.h"
#include <optional>
#include <vector>

namespace qxsim
{

constexpr std::uint32_t SOURCE_MASK = 0x3FF0; // of an identifier
constexpr std::uint32_t SOURCE_MASTER = 1 << 9 | 31 << 4;

constexpr std::size_t NB_PARAMETERS_MAX = 768; // of one message

struct Address {
    std::uint8_t BoardType{};
    std::uint8_t BoardNumber{};

    bool operator==(const Address &) const = default;
};

struct Command {
    std::uint8_t Service{};  // 0..31
    std::uint8_t Function{}; // 0..63
    bool AnswerWanted{};
    std::vector<std::uint8_t> Parameters;

    // Parameters that the command does not carry read as 0.
    std::uint8_t get_Byte(std::size_t Index) const
    {
        return Index < Parameters.size() ? Parameters[Index] : std::uint8_t{0};
    }
};

struct Answer {
    bool Error{};
    std::vector<std::uint8_t> Parameters; // byte 0: 0, or the code of an error answer
};

inline Answer make_Success(std::vector<std::uint8_t> Values = {})
{
    Values.insert(Values.begin(), 0);
    return {false, std::move(Values)};
}

inline Answer make_Error(std::uint8_t Code)
{
    return {true, {Code}};
}

// Whether the master's frame goes to the board at Own, to its type or to all boards.
bool is_CommandTo(std::uint32_t Identifier, Address Own);

// The frames of a message from the board at Source to the master, Fn as in the table above. At most
// NB_PARAMETERS_MAX parameters.
std::vector<Frame> split_Answer(Address Source, std::uint8_t Service, std::uint8_t Fn,
                                const std::vector<std::uint8_t> &Parameters);

// Puts commands together again. The master sends one message at a time, so one is in the making at
// most; a new first frame drops it. Frames that fit nothing are ignored.
class CommandAssembly
{
  public:
    // The command that the frame completes, if it does.
    std::optional<Command> add_Frame(const Frame &Received);

  private:
    std::uint32_t Identifier{}; // of the message in the making
    std::uint8_t Fn{};
    unsigned NbFramesLeft{}; // 0: none is in the making
    std::vector<std::uint8_t> Parameters;
};

} // namespace qxsim

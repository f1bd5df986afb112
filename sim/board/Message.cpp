#include "board/Message.h"

#include <algorithm>
#include <utility>

namespace qxsim
{

namespace
{

constexpr std::uint32_t MULTI_FRAME = 0x8;
constexpr std::uint32_t DESTINATION_MASTER = 1 << 19 | 31 << 14;
constexpr std::uint8_t FIRST_FRAME = 0x80;
constexpr std::size_t NB_SINGLE_MAX = 7; // parameters of a message that fits one frame
constexpr std::size_t NB_PER_FRAME = 6;  // of a frame of a longer one

// Byte Index of the frame carries parameters from First on.
void fill_Parameters(Frame &Filled, std::size_t Index, const std::vector<std::uint8_t> &Parameters,
                     std::size_t First)
{
    const std::size_t Count = std::min(Parameters.size() - First, 8 - Index);
    std::copy_n(Parameters.data() + First, Count, Filled.Data.data() + Index);
    Filled.Length = static_cast<std::uint8_t>(Index + Count);
}

Command make_Command(std::uint32_t Identifier, std::uint8_t Fn,
                     std::vector<std::uint8_t> Parameters)
{
    return {static_cast<std::uint8_t>(Identifier >> 24 & 0x1F),
            static_cast<std::uint8_t>(Fn & 0x3F), (Fn & 0x40) != 0, std::move(Parameters)};
}

} // namespace

bool is_CommandTo(std::uint32_t Identifier, Address Own)
{
    const std::uint32_t Number = Identifier >> 19 & 0x1F;
    const std::uint32_t Type = Identifier >> 14 & 0x1F;
    if ((Identifier & SOURCE_MASK) != SOURCE_MASTER) {
        return false;
    }
    return Number == 0 ? Type == 0 || Type == Own.BoardType
                       : Number == Own.BoardNumber && Type == Own.BoardType;
}

std::vector<Frame> split_Answer(Address Source, std::uint8_t Service, std::uint8_t Fn,
                                const std::vector<std::uint8_t> &Parameters)
{
    Frame Next;
    Next.Identifier = std::uint32_t{Service} << 24 | DESTINATION_MASTER |
                      std::uint32_t{Source.BoardNumber} << 9 | std::uint32_t{Source.BoardType} << 4;
    Next.Data[0] = Fn;
    if (Parameters.size() <= NB_SINGLE_MAX) {
        fill_Parameters(Next, 1, Parameters, 0);
        return {Next};
    }

    Next.Identifier |= MULTI_FRAME;
    const std::size_t NbFollowing = (Parameters.size() - 1) / NB_PER_FRAME;
    std::vector<Frame> Frames;
    for (std::size_t i = 0; i <= NbFollowing; ++i) {
        Next.Data[1] =
            static_cast<std::uint8_t>(i == 0 ? FIRST_FRAME | NbFollowing : NbFollowing - i);
        fill_Parameters(Next, 2, Parameters, i * NB_PER_FRAME);
        Frames.push_back(Next);
    }
    return Frames;
}

std::optional<Command> CommandAssembly::add_Frame(const Frame &Received)
{
    const auto *pData = Received.Data.data();
    const auto *pEnd = pData + std::min<std::size_t>(Received.Length, Received.Data.size());
    const bool Multi = (Received.Identifier & MULTI_FRAME) != 0;
    if (pEnd - pData < (Multi ? 2 : 1)) {
        return std::nullopt;
    }
    if (!Multi) {
        return make_Command(Received.Identifier, pData[0], {pData + 1, pEnd});
    }

    if ((pData[1] & FIRST_FRAME) != 0) {
        Identifier = Received.Identifier;
        Fn = pData[0];
        NbFramesLeft = (pData[1] & 0x7FU) + 1;
        Parameters.clear();
    }
    const unsigned Counter = pData[1] & 0x7FU;
    if (Identifier != Received.Identifier || Fn != pData[0] || Counter + 1 != NbFramesLeft) {
        NbFramesLeft = 0;
        return std::nullopt;
    }
    Parameters.insert(Parameters.end(), pData + 2, pEnd);
    if (--NbFramesLeft > 0) {
        return std::nullopt;
    }
    return make_Command(Identifier, Fn, std::move(Parameters));
}

} // namespace qxsim

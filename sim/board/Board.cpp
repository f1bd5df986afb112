#include "board/Board.h"

#include <algorithm>

namespace qxsim
{

namespace
{

constexpr std::uint8_t SERVICE_STATE = 22;
constexpr std::uint8_t SERVICE_INFORMATION = 24;
constexpr std::uint8_t SERVICE_FILES = 25;
constexpr std::uint8_t FUNCTION_WRITE_ITEM = 32;
constexpr std::uint8_t GROUP_HARDWARE = 0;
constexpr std::uint8_t GROUP_SOFTWARE = 1;
constexpr std::uint8_t ERROR_UNKNOWN = 128;
constexpr std::uint8_t ERROR_RECORD = 129;
constexpr std::size_t NB_VALUE_MAX = 255; // bytes of an item

} // namespace

const char *get_BoardStateName(BoardState State)
{
    static const char *const NAMES[] = {"ready", "stopped", "running", "started", "restarting"};
    return NAMES[static_cast<std::size_t>(State)];
}

Board::Board(const BoardSpec &Described, const std::vector<BoardSpec> &Machine)
    : Own{Described.BoardType, Described.BoardNumber}, Spec{Described}, pOthers{&Machine}
{
}

std::optional<Time> Board::get_NextTime() const
{
    const Time Restarted = State == BoardState::Restarting ? RestartEnd : Time::max();
    const Time Ready = Answers.empty() ? Time::max() : Answers.front().Ready;
    const Time Next = std::min(Restarted, Ready);
    if (Next == Time::max()) {
        return std::nullopt;
    }
    return Next;
}

void Board::advance_To(Time Now)
{
    if (State == BoardState::Restarting && RestartEnd <= Now) {
        State = BoardState::Ready;
        Own = {Spec.BoardType, Spec.BoardNumber};
    }
    if (Spec.Flood && Spec.Present && State != BoardState::Restarting && Answers.empty()) {
        Answers.push_back({Now, make_Unsolicited(Own, *Spec.Flood)});
    }
}

const Frame *Board::get_PendingFrame(Time Now) const
{
    return !Answers.empty() && Answers.front().Ready <= Now ? &Answers.front().Sent : nullptr;
}

void Board::remove_PendingFrame(Time Now)
{
    if (get_PendingFrame(Now) != nullptr) {
        Answers.pop_front();
    }
}

Filter Board::get_Filter() const
{
    return {SOURCE_MASK, SOURCE_MASTER};
}

void Board::receive_Frame(const Frame &Received, Time Now)
{
    advance_To(Now);
    if (State == BoardState::Restarting || !is_CommandTo(Received.Identifier, Own) ||
        !Spec.Present) {
        return;
    }
    if (const std::optional<Command> Complete = Assembly.add_Frame(Received)) {
        carry_Out(*Complete, Now);
    }
}

void Board::carry_Out(const Command &Received, Time Now)
{
    ++NbCommands;
    const Address Source = Own; // a new address is answered from the old one
    const Strikes Struck = Watch.watch_Command(Spec.Faults, Received);
    const Fault *pError = find_Strike(Struck, FaultKind::Error);
    const Answer Given =
        pError != nullptr ? make_Error(pError->Code) : serve_Command(Received, Struck, Now);
    if (!Received.AnswerWanted) {
        return;
    }

    const Time Ready = Now + Spec.ResponseTime + get_Delay(Struck);
    const auto Place =
        std::upper_bound(Answers.begin(), Answers.end(), Ready,
                         [](Time Left, const ReadyFrame &Right) { return Left < Right.Ready; });
    std::vector<ReadyFrame> Frames;
    for (const Frame &Next : make_AnswerFrames(Received, Given, Source, Struck, *pOthers)) {
        Frames.push_back({Ready, Next});
    }
    Answers.insert(Place, Frames.begin(), Frames.end());
}

Answer Board::serve_Command(const Command &Received, const Strikes &Struck, Time Now)
{
    switch (Received.Service) {
    case SERVICE_STATE:
        return serve_State(Received, Now);
    case SERVICE_INFORMATION:
        return serve_Information(Received);
    case SERVICE_FILES: {
        Answer Given = Files.serve_Command(Received, Spec.Files, Struck);
        if (const auto Header = Files.take_Distribution()) {
            install_Distribution(*Header);
        }
        return Given;
    }
    default:
        return make_Error(ERROR_UNKNOWN);
    }
}

Answer Board::serve_State(const Command &Received, Time Now)
{
    switch (Received.Function) {
    case 0:
        return make_Success();
    case 1:
        return make_Success(
            {static_cast<std::uint8_t>(State), Spec.HardwareFault, Spec.SoftwareFault});
    case 2:
        if (Received.get_Byte(0) > static_cast<std::uint8_t>(BoardState::Running)) {
            return make_Error(ERROR_UNKNOWN);
        }
        State = static_cast<BoardState>(Received.get_Byte(0));
        return make_Success();
    case 3:
        restart(Now);
        return make_Success();
    case 4:
        return set_NewAddress(Received);
    case 5:
        StartParameters = Received.Parameters;
        State = BoardState::Started;
        return make_Success();
    default:
        return make_Error(ERROR_UNKNOWN);
    }
}

Answer Board::set_NewAddress(const Command &Received)
{
    const Address New{Received.get_Byte(1), Received.get_Byte(0)};
    if (New.BoardType < 1 || New.BoardType > 31 || New.BoardNumber < 1 || New.BoardNumber > 31) {
        return make_Error(ERROR_UNKNOWN);
    }
    Own = New;
    return make_Success();
}

void Board::restart(Time Now)
{
    State = BoardState::Restarting;
    RestartEnd = Now + Spec.RestartTime;
    Answers.clear();
    Assembly = {};
    Files.restart();
}

Answer Board::serve_Information(const Command &Received)
{
    if (Received.Function == FUNCTION_WRITE_ITEM) {
        return write_Item(Received);
    }
    const auto Found = Received.Parameters.empty()
                           ? Spec.Items.end()
                           : Spec.Items.find({Received.Function, Received.Parameters[0]});
    if (Found == Spec.Items.end()) {
        return make_Error(ERROR_UNKNOWN);
    }
    const auto &[Key, Stored] = *Found;
    const std::size_t Length = std::min(Stored.Value.size(), NB_VALUE_MAX);
    Answer Given = make_Success({Key.Tag, static_cast<std::uint8_t>(Length), Stored.Type});
    Given.Parameters.insert(Given.Parameters.end(), Stored.Value.data(),
                            Stored.Value.data() + Length);
    return Given;
}

Answer Board::write_Item(const Command &Received)
{
    const auto &Bytes = Received.Parameters;
    if (Bytes.size() < 3 || Bytes.size() - 3 < Bytes[1]) {
        return make_Error(ERROR_RECORD);
    }
    const auto *pValue = Bytes.data() + 3;
    Spec.Items[{GROUP_HARDWARE, Bytes[0]}] = {Bytes[2], {pValue, pValue + Bytes[1]}};
    return make_Success();
}

// The software that starts now is the one of the header.
void Board::install_Distribution(const SoftwareHeader &Header)
{
    std::erase_if(Spec.Items, [](const auto &Kept) { return Kept.first.Group == GROUP_SOFTWARE; });
    Spec.Items.insert(Header.Items.begin(), Header.Items.end());
    Spec.SoftwareFault = 0;
    State = BoardState::Ready;
    ++NbDownloads;
}

const BoardSpec &Board::get_Spec() const
{
    return Spec;
}

BoardState Board::get_State() const
{
    return State;
}

std::uint8_t Board::get_BoardType() const
{
    return Own.BoardType;
}

std::uint8_t Board::get_BoardNumber() const
{
    return Own.BoardNumber;
}

unsigned Board::get_NbCommands() const
{
    return NbCommands;
}

unsigned Board::get_NbDownloads() const
{
    return NbDownloads;
}

const std::vector<std::uint8_t> &Board::get_StartParameters() const
{
    return StartParameters;
}

} // namespace qxsim

#include "board/Faults.h"

#include <algorithm>

namespace qxsim
{

namespace
{

constexpr std::uint8_t SERVICE_INFORMATION = 24;
constexpr std::uint8_t FUNCTION_WRITE_ITEM = 32;
constexpr std::uint8_t FUNCTION_OF_NOBODY = 63;
constexpr std::uint8_t ERROR_MARK = 0x40;

// Places in the answer to an item's read: 0, tag, length, type, value.
constexpr std::size_t PLACE_LENGTH = 2;
constexpr std::size_t PLACE_TYPE = 3;
constexpr std::size_t PLACE_ITEM_VALUE = 4;
constexpr std::size_t PLACE_VALUE = 1; // in any other answer

bool is_Match(const Fault &Watched, const Command &Received)
{
    return (!Watched.Service || *Watched.Service == Received.Service) &&
           (!Watched.Function || *Watched.Function == Received.Function) &&
           (!Watched.Tag ||
            (!Received.Parameters.empty() && *Watched.Tag == Received.Parameters[0]));
}

bool is_ItemAnswer(const Command &Received, const Answer &Given)
{
    return Received.Service == SERVICE_INFORMATION && Received.Function != FUNCTION_WRITE_ITEM &&
           !Given.Error && Given.Parameters.size() >= PLACE_ITEM_VALUE;
}

void change_Value(Answer &Given, bool ItemAnswer, const std::vector<std::uint8_t> &Bytes)
{
    const std::size_t Place = ItemAnswer ? PLACE_ITEM_VALUE : PLACE_VALUE;
    const std::size_t Count = std::min(Bytes.size(), NB_PARAMETERS_MAX - Place);
    Given.Parameters.resize(Place);
    Given.Parameters.insert(Given.Parameters.end(), Bytes.begin(),
                            Bytes.begin() + static_cast<std::ptrdiff_t>(Count));
    if (ItemAnswer) {
        Given.Parameters[PLACE_LENGTH] = static_cast<std::uint8_t>(Count);
    }
}

void change_Answer(Answer &Given, bool ItemAnswer, const Fault &Struck)
{
    if (Struck.Kind == FaultKind::WrongValue && !Given.Error) {
        change_Value(Given, ItemAnswer, Struck.Bytes);
    } else if (Struck.Kind == FaultKind::WrongLength && ItemAnswer) {
        Given.Parameters[PLACE_LENGTH] = Struck.Code;
    } else if (Struck.Kind == FaultKind::WrongType && ItemAnswer) {
        Given.Parameters[PLACE_TYPE] = Struck.Code;
    }
}

// The address that the answer bears.
Address find_Source(Address Own, const Strikes &Struck, const std::vector<BoardSpec> &Others)
{
    const Fault *pFault = find_Strike(Struck, FaultKind::OtherBoard);
    if (pFault == nullptr) {
        return Own;
    }
    if (pFault->Bytes.size() >= 2) {
        return {static_cast<std::uint8_t>(pFault->Bytes[0] & 0x1F),
                static_cast<std::uint8_t>(pFault->Bytes[1] & 0x1F)};
    }
    const auto Other = std::find_if(Others.begin(), Others.end(), [&](const BoardSpec &Spec) {
        return Spec.Name == pFault->Other;
    });
    return Other == Others.end() ? Own : Address{Other->BoardType, Other->BoardNumber};
}

void truncate_Answer(std::vector<Frame> &Frames)
{
    if (Frames.size() > 1) {
        Frames.pop_back();
    } else if (!Frames.empty() && Frames.front().Length > 1) {
        --Frames.front().Length;
    }
}

// An answer's continuation frame that no first frame has announced.
Frame make_LoneContinuation(const Frame &First)
{
    Frame Lone;
    Lone.Identifier = First.Identifier | 0x8;
    Lone.Length = 8;
    Lone.Data[0] = First.Data[0];
    return Lone;
}

void change_Frames(std::vector<Frame> &Frames, const Frame &First, const Frame &Unsolicited,
                   const Fault &Struck)
{
    switch (Struck.Kind) {
    case FaultKind::Silence:
        Frames.clear();
        break;
    case FaultKind::Duplicate: {
        const std::vector<Frame> Copy = Frames;
        Frames.insert(Frames.end(), Copy.begin(), Copy.end());
        break;
    }
    case FaultKind::WrongCounter:
        if (Frames.size() > 1) {
            Frames[1].Data[1] = (Frames[1].Data[1] + 1) & 0x7F;
        }
        break;
    case FaultKind::LoneContinuation:
        Frames.insert(Frames.begin(), make_LoneContinuation(First));
        break;
    case FaultKind::Truncated:
        truncate_Answer(Frames);
        break;
    case FaultKind::Unsolicited:
        Frames.insert(Frames.begin(), Unsolicited);
        break;
    default:
        break;
    }
}

} // namespace

const Fault *find_Strike(const Strikes &Struck, FaultKind Kind)
{
    const auto Found = std::find_if(Struck.begin(), Struck.end(),
                                    [Kind](const Fault *pFault) { return pFault->Kind == Kind; });
    return Found == Struck.end() ? nullptr : *Found;
}

Strikes FaultWatch::watch_Command(const std::vector<Fault> &Faults, const Command &Received)
{
    NbMatches.resize(Faults.size());
    Strikes Struck;
    for (std::size_t i = 0; i < Faults.size(); ++i) {
        if (is_Match(Faults[i], Received)) {
            ++NbMatches[i];
            if (Faults[i].Nth == 0 || Faults[i].Nth == NbMatches[i]) {
                Struck.push_back(&Faults[i]);
            }
        }
    }
    return Struck;
}

std::vector<Frame> make_AnswerFrames(const Command &Received, Answer Given, Address Own,
                                     const Strikes &Struck, const std::vector<BoardSpec> &Others)
{
    const bool ItemAnswer = is_ItemAnswer(Received, Given);
    for (const Fault *pFault : Struck) {
        change_Answer(Given, ItemAnswer, *pFault);
    }

    const Address Source = find_Source(Own, Struck, Others);
    const auto Fn = static_cast<std::uint8_t>(Received.Function | (Given.Error ? ERROR_MARK : 0));
    std::vector<Frame> Frames = split_Answer(Source, Received.Service, Fn, Given.Parameters);
    if (Struck.empty()) {
        return Frames;
    }

    const Frame First = Frames.front();
    const Frame Unsolicited = make_Unsolicited(Source, Received.Service);
    for (const Fault *pFault : Struck) {
        change_Frames(Frames, First, Unsolicited, *pFault);
    }
    return Frames;
}

Frame make_Unsolicited(Address Source, std::uint8_t Service)
{
    return split_Answer(Source, Service, FUNCTION_OF_NOBODY, {0}).front();
}

Time get_Delay(const Strikes &Struck)
{
    Time Delay{};
    for (const Fault *pFault : Struck) {
        if (pFault->Kind == FaultKind::Late) {
            Delay += pFault->Delay;
        }
    }
    return Delay;
}

} // namespace qxsim

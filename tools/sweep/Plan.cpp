#include "sweep/Plan.h"

#include "board/Message.h"
#include "bus/FrameText.h"
#include "machine/Machine.h"
#include "machine/MachineFolder.h"
#include <algorithm>
#include <set>
#include <sstream>

namespace qxsweep
{

namespace
{

using qxsim::Address;
using qxsim::Command;

constexpr std::uint8_t SERVICE_STATE = 22;
constexpr std::uint8_t SERVICE_INFORMATION = 24;
constexpr std::uint8_t SERVICE_FILES = 25;
constexpr std::uint8_t FUNCTION_RESTART = 3;
constexpr std::uint8_t FUNCTION_NEW_ADDRESS = 4;
constexpr std::uint8_t FUNCTION_WRITE_ITEM = 32;
constexpr std::uint8_t FUNCTION_OPEN = 0;
constexpr std::uint8_t FUNCTION_WRITE = 1;
constexpr std::uint8_t FUNCTION_READ = 2;
constexpr std::uint32_t LONG_MARK = 0x8;

// Which commands a fault can do something to.
enum class Reach { Any, Answered, Long, Item, Open, Write, Read };

struct FaultForm {
    const char *Kind;
    const char *Keys; // besides kind and what names the command; OTHER: another board's name
    Reach Strikes;
};

constexpr FaultForm FORMS[] = {
    {"silence", "", Reach::Answered},
    {"error", "code = 128", Reach::Any},
    {"error", "code = 129", Reach::Answered},
    {"error", "code = 130", Reach::Answered},
    {"error", "code = 131", Reach::Answered},
    {"error", "code = 132", Reach::Answered},
    {"error", "code = 133", Reach::Answered},
    {"error", "code = 134", Reach::Answered},
    {"error", "code = 135", Reach::Answered},
    {"error", "code = 255", Reach::Answered},
    {"late", "delay_ms = 60", Reach::Answered},   // a common command is given up after 40 ms
    {"late", "delay_ms = 1200", Reach::Answered}, // open, read and write after 1 s
    {"duplicate", "", Reach::Answered},
    {"wrong_type", "code = 2", Reach::Item},
    {"wrong_type", "code = 5", Reach::Item},
    {"wrong_type", "code = 85", Reach::Item}, // there is none
    {"wrong_length", "code = 0", Reach::Item},
    {"wrong_length", "code = 255", Reach::Item},
    {"wrong_value", "bytes = \"\"", Reach::Answered},
    {"wrong_value", "bytes = \"FF FF FF FF\"", Reach::Answered},
    {"wrong_counter", "", Reach::Long},
    {"lone_continuation", "", Reach::Answered},
    {"truncated", "", Reach::Answered},
    {"other_board", "other = \"OTHER\"", Reach::Answered},
    {"unsolicited", "", Reach::Answered},
    {"short_write", "code = 1", Reach::Write},
    {"negative_length", "", Reach::Open},
    {"no_data", "", Reach::Read},
    {"already_open", "", Reach::Open},
};

// What can go wrong at a call to the outside.
struct OutsideForm {
    const char *Table;
    const char *Keys;
    const char *Calls; // kinds it is for, each between blanks; "": all of them
};

// A full disk, for the commands that make a file.
constexpr const char *HALF = "half = true";

constexpr OutsideForm OUTSIDE_FORMS[] = {
    {"[[outside.fault]]", "", ""},
    {"[[outside.fault]]", "run = true", " shell "},
    {"[[outside.fault]]", HALF, " shell "},
    {"[cut]", "when = \"before\"", ""},
    {"[cut]", "when = \"middle\"", " write close shell "},
    // What changes nothing outside is the same after it as before it. After a request of the driver
    // is before the next call.
    {"[cut]", "when = \"after\"", " open write close rename remove mkdir shell "},
};

// Calls that are struck although nothing beyond the process should tell them from others: of each
// kind every one of the first, and so many of the rest.
constexpr unsigned NB_CALLS_EACH = 40;
constexpr unsigned NB_CALLS_SPREAD = 60;

bool is_InReach(const ReceivedCommand &Struck, Reach Strikes)
{
    const bool OfFiles = Struck.Service == SERVICE_FILES;
    switch (Strikes) {
    case Reach::Any:
        return true;
    case Reach::Answered:
        return Struck.AnswerWanted;
    case Reach::Long:
        return Struck.LongAnswer;
    case Reach::Item:
        return Struck.Service == SERVICE_INFORMATION && Struck.Function != FUNCTION_WRITE_ITEM;
    case Reach::Open:
        return OfFiles && Struck.Function == FUNCTION_OPEN;
    case Reach::Write:
        return OfFiles && Struck.Function == FUNCTION_WRITE;
    case Reach::Read:
        return OfFiles && Struck.Function == FUNCTION_READ;
    }
    return false;
}

// Where the boards are, and what they have received so far.
struct Station {
    std::string Name;
    Address Switches; // the physical address
    Address Own;
    std::optional<std::size_t> Last; // command received, in the list of all
};

// Names the command as a fault does: without a parameter, by service and function alone.
void note_Command(Station &Receiver, const Command &Complete, std::vector<ReceivedCommand> &All)
{
    ReceivedCommand Noted{
        Receiver.Name, Complete.Service, Complete.Function, {}, 1, Complete.AnswerWanted, false};
    if (!Complete.Parameters.empty()) {
        Noted.Tag = Complete.Parameters[0];
    }
    Noted.Nth += static_cast<unsigned>(
        std::count_if(All.begin(), All.end(), [&Noted](const ReceivedCommand &Earlier) {
            return Earlier.Board == Noted.Board && Earlier.Service == Noted.Service &&
                   Earlier.Function == Noted.Function && (!Noted.Tag || Earlier.Tag == Noted.Tag);
        }));
    Receiver.Last = All.size();
    All.push_back(Noted);

    if (Complete.Service == SERVICE_STATE && Complete.Function == FUNCTION_RESTART) {
        Receiver.Own = Receiver.Switches;
    } else if (Complete.Service == SERVICE_STATE && Complete.Function == FUNCTION_NEW_ADDRESS) {
        Receiver.Own = {Complete.get_Byte(1), Complete.get_Byte(0)};
    }
}

std::string show_Place(const ReceivedCommand &Struck)
{
    return Struck.Board + " service " + std::to_string(Struck.Service) + " function " +
           std::to_string(Struck.Function) +
           (Struck.Tag ? " tag " + std::to_string(*Struck.Tag) : "") + " nth " +
           std::to_string(Struck.Nth);
}

std::string make_Toml(const ReceivedCommand &Struck, const FaultForm &Form, const std::string &Keys)
{
    return std::string{"[[board.fault]]\nkind = \""} + Form.Kind +
           "\"\nservice = " + std::to_string(Struck.Service) +
           "\nfunction = " + std::to_string(Struck.Function) +
           (Struck.Tag ? "\ntag = " + std::to_string(*Struck.Tag) : "") +
           "\nnth = " + std::to_string(Struck.Nth) + "\n" + Keys + "\n";
}

Address get_Source(const qxsim::Frame &Sent)
{
    return {static_cast<std::uint8_t>(Sent.Identifier >> 4 & 0x1F),
            static_cast<std::uint8_t>(Sent.Identifier >> 9 & 0x1F)};
}

} // namespace

std::vector<ReceivedCommand> read_Commands(const std::string &Trace,
                                           const std::string &MachineFolder)
{
    std::vector<Station> Stations;
    for (const qxsim::BoardSpec &Board : qxsim::read_Machine(MachineFolder).Boards) {
        const Address Switches{Board.BoardType, Board.BoardNumber};
        Stations.push_back({Board.Name, Switches, Switches, std::nullopt});
    }
    std::vector<ReceivedCommand> All;
    qxsim::CommandAssembly Assembly;
    for (const auto &[At, Seen] : qxsim::read_Trace(Trace)) {
        if ((Seen.Identifier & qxsim::SOURCE_MASK) == qxsim::SOURCE_MASTER) {
            const std::optional<Command> Complete = Assembly.add_Frame(Seen);
            for (Station &Receiver : Stations) {
                if (Complete && qxsim::is_CommandTo(Seen.Identifier, Receiver.Own)) {
                    note_Command(Receiver, *Complete, All);
                }
            }
        } else if ((Seen.Identifier & LONG_MARK) != 0) {
            for (const Station &Sender : Stations) {
                if (Sender.Last && Sender.Own == get_Source(Seen)) {
                    All[*Sender.Last].LongAnswer = true;
                }
            }
        }
    }
    return All;
}

std::vector<PlannedRun> plan_BoardFaults(const std::vector<ReceivedCommand> &Commands,
                                         const std::vector<std::string> &Boards)
{
    std::vector<PlannedRun> Plan;
    for (const ReceivedCommand &Struck : Commands) {
        const auto Own = std::find(Boards.begin(), Boards.end(), Struck.Board);
        const std::string &Other = Own + 1 < Boards.end() ? *(Own + 1) : Boards.front();
        for (const FaultForm &Form : FORMS) {
            if (!is_InReach(Struck, Form.Strikes)) {
                continue;
            }
            std::string Keys = Form.Keys;
            if (const std::size_t At = Keys.find("OTHER"); At != std::string::npos) {
                Keys.replace(At, 5, Other);
            }
            const std::string Kind = std::string{Form.Kind} + (Keys.empty() ? "" : " ") + Form.Keys;
            Plan.push_back({Kind, show_Place(Struck), Struck.Board, make_Toml(Struck, Form, Keys)});
        }
    }
    return Plan;
}

namespace
{

// The calls of a kind to strike: those of the result's list ("1-4,7"), and the others as above.
std::set<unsigned> choose_Calls(const std::string &List, unsigned NbCalls)
{
    std::set<unsigned> Chosen;
    std::istringstream Text{List};
    unsigned First = 0;
    while (Text >> First) {
        unsigned Last = First;
        if (Text.peek() == '-') {
            Text.ignore();
            Text >> Last;
        }
        for (; First <= Last; ++First) {
            Chosen.insert(First);
        }
        Text.ignore(); // the comma
    }
    const unsigned Step = std::max(1U, NbCalls / NB_CALLS_SPREAD);
    for (unsigned Nth = 1; Nth <= NbCalls; Nth += Nth < NB_CALLS_EACH ? 1 : Step) {
        Chosen.insert(Nth);
    }
    return Chosen;
}

} // namespace

std::vector<PlannedRun> plan_OutsideFaults(const std::map<std::string, std::string> &Result)
{
    const std::string Prefix = "outside.";
    std::vector<PlannedRun> Plan;
    for (const auto &[Key, Count] : Result) {
        if (!Key.starts_with(Prefix) || Key.find('.', Prefix.size()) != std::string::npos) {
            continue;
        }
        const std::string Call = Key.substr(Prefix.size());
        const auto NbCalls = static_cast<unsigned>(std::stoul(Count));
        const std::set<unsigned> Reaching = choose_Calls(Result.at(Key + ".reaching"), NbCalls);
        const std::set<unsigned> Changing = choose_Calls(Result.at(Key + ".changing"), NbCalls);
        for (const OutsideForm &Form : OUTSIDE_FORMS) {
            const std::string Calls = Form.Calls;
            if (!Calls.empty() && Calls.find(" " + Call + " ") == std::string::npos) {
                continue;
            }
            const bool Cut = std::string{Form.Table} == "[cut]";
            std::string Kind = (Cut ? "cut at " : "failing ") + Call;
            Kind.append(*Form.Keys == 0 ? "" : " ").append(Form.Keys);
            for (const unsigned Nth : Cut ? Changing : Reaching) {
                if (Form.Keys == HALF &&
                    !qxsim::is_MakingFile(Result.at("shell." + std::to_string(Nth)))) {
                    continue;
                }
                const std::string Place = "nth " + std::to_string(Nth);
                Plan.push_back({Kind, Place, "",
                                std::string{Form.Table} + "\ncall = \"" + Call +
                                    "\"\nnth = " + std::to_string(Nth) + "\n" + Form.Keys + "\n",
                                Cut});
            }
        }
    }
    return Plan;
}

} // namespace qxsweep

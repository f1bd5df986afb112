#include "runner/Report.h"
#include "../src/Status.h"
#include "runner/Paths.h"
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/wait.h>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;

constexpr std::size_t PHASE_WIDTH = 50; // the loader pads the name of a phase to this
constexpr std::uint8_t GROUP_SOFTWARE = 1;
constexpr std::uint8_t TAG_NAME = 2; // versions follow at 3, 4, 5
constexpr std::uint8_t TAG_LAST_VERSION = 5;

struct StatusName {
    int Value;
    const char *Name;
    const char *Meaning;
};

constexpr StatusName StatusNames[] = {
#define STATUS_ENTRY(Name, Value, Meaning) {Value, #Name, Meaning},
    QX_STATUS_TABLE(STATUS_ENTRY)
#undef STATUS_ENTRY
};

std::string read_Text(const fs::path &Path)
{
    std::ifstream File{Path, std::ios::binary};
    return {std::istreambuf_iterator<char>{File}, {}};
}

// The name of the phase that a piece of output announces, "" none: a line that begins with a name,
// padded with blanks to the width.
std::string find_Phase(const std::string &Text)
{
    std::size_t Begin = 0;
    while (Begin < Text.size()) {
        const std::size_t End = std::min(Text.find('\n', Begin), Text.size());
        const std::size_t Name = Text.find(' ', Begin);
        if (End - Begin >= PHASE_WIDTH && Name < End && Name > Begin &&
            Text.find_first_not_of(' ', Name) >= End) {
            return Text.substr(Begin, Name - Begin);
        }
        Begin = End + 1;
    }
    return "";
}

void read_Phases(const fs::path &Path, Time End, Outcome &Left)
{
    std::ifstream File{Path, std::ios::binary};
    std::string Phase;
    Time Since{};
    const auto Close = [&](Time Now) {
        if (!Phase.empty()) {
            Left.Phases[Phase] += Now - Since;
        }
    };
    Time::rep Nanos = 0;
    std::size_t Size = 0;
    while (File >> Nanos >> Size && File.get() == '\n') {
        std::string Text(Size, 0);
        File.read(Text.data(), static_cast<std::streamsize>(Size));
        const std::string Next = find_Phase(Text);
        if (!Next.empty()) {
            Close(Time{Nanos});
            Since = Time{Nanos};
            Phase = Next;
            if (!Left.Phases.contains(Phase)) {
                Left.PhaseOrder.push_back(Phase);
            }
        }
    }
    Close(End);
}

std::int64_t get_Number(const Outcome &Left, const std::string &Key)
{
    const auto Found = Left.Result.find(Key);
    return Found == Left.Result.end() ? 0 : std::stoll(Found->second);
}

std::string get_Text(const Outcome &Left, const std::string &Key)
{
    const auto Found = Left.Result.find(Key);
    return Found == Left.Result.end() ? "" : Found->second;
}

// Name and versions of a board's software, "-" where it has none.
std::string make_Software(const BoardSpec &Board)
{
    std::string Text;
    for (std::uint8_t Tag = TAG_NAME; Tag <= TAG_LAST_VERSION; ++Tag) {
        const auto Found = Board.Items.find({GROUP_SOFTWARE, Tag});
        if (Found == Board.Items.end()) {
            return Text.empty() ? "-" : Text;
        }
        const std::vector<std::uint8_t> &Value = Found->second.Value;
        if (Tag == TAG_NAME) {
            Text.assign(Value.begin(), Value.end());
        } else {
            unsigned Number = 0;
            for (const std::uint8_t Byte : Value) {
                Number = Number << 8 | Byte;
            }
            Text += "." + std::to_string(Number);
        }
    }
    return Text;
}

std::string make_Done(const Outcome &Left, const BoardSpec &Before, const BoardSpec &After)
{
    const std::string Key = "board." + Before.Name + ".";
    std::string Done;
    const auto Add = [&Done](const std::string &Text) {
        Done += (Done.empty() ? "" : ", ") + Text;
    };
    if (get_Number(Left, Key + "downloads") > 0) {
        Add("received " + make_Software(After));
    } else if (Before.Files != After.Files) {
        Add("received files");
    }
    if (Before.Items != After.Items && get_Number(Left, Key + "downloads") == 0) {
        Add("items written");
    }
    return Done.empty() ? "-" : Done;
}

void print_Boards(const Outcome &Left, const Machine &Before, const Machine &After)
{
    printf("\n%-12s %-16s %-20s %-28s %s\n", "Board", "Address", "Found", "Done", "State");
    for (std::size_t i = 0; i < Before.Boards.size(); ++i) {
        const BoardSpec &Board = Before.Boards[i];
        const std::string Key = "board." + Board.Name + ".";
        std::string Address =
            std::to_string(Board.BoardType) + "." + std::to_string(Board.BoardNumber);
        const std::string Now = get_Text(Left, Key + "address");
        if (!Now.empty() && Now != Address) {
            Address += " -> " + Now;
        }
        printf("%-12s %-16s %-20s %-28s %s\n", Board.Name.c_str(), Address.c_str(),
               Board.Present ? make_Software(Board).c_str() : "absent",
               make_Done(Left, Board, After.Boards.at(i)).c_str(),
               Board.Present ? get_Text(Left, Key + "state").c_str() : "-");
    }
}

void print_Phases(const Outcome &Left)
{
    printf("\n%-34s %s\n", "Phase", "Virtual seconds");
    for (const std::string &Name : Left.PhaseOrder) {
        printf("%-34s %12.6f\n", Name.c_str(),
               std::chrono::duration<double>{Left.Phases.at(Name)}.count());
    }
    printf("%-34s %12.6f\n", "whole run", static_cast<double>(get_Number(Left, "time_ns")) / 1e9);
}

void print_Bus(const Outcome &Left)
{
    const auto Busy = static_cast<double>(get_Number(Left, "bus.busy_ns"));
    const auto Whole = static_cast<double>(get_Number(Left, "time_ns"));
    printf("\nBus: %lld frames, %lld bits, load %.2f %%; driver: %lld frames lost\n",
           static_cast<long long>(get_Number(Left, "bus.frames")),
           static_cast<long long>(get_Number(Left, "bus.bits")),
           Whole > 0 ? 100 * Busy / Whole : 0.0,
           static_cast<long long>(get_Number(Left, "driver.overflows")));
}

void print_ResultFiles(const fs::path &Config)
{
    for (const char *Name :
         {"loader.versions", "loader.conf", "loader.protocols", "loader.todo", "loader.errors"}) {
        if (fs::exists(Config / Name)) {
            printf("\n--- %s\n%s", Name, read_Text(Config / Name).c_str());
        }
    }
}

void print_Status(const Outcome &Left)
{
    const auto Whole = Left.Result.find("status");
    if (is_PowerCut(Left)) {
        printf("\nThe power was cut\n");
    } else if (WIFSIGNALED(Left.WaitStatus)) {
        printf("\nThe loader was ended by signal %d (%s)\n", WTERMSIG(Left.WaitStatus),
               strsignal(WTERMSIG(Left.WaitStatus)));
    } else if (get_Number(Left, "limit_reached") != 0) {
        printf("\nThe loader was ended at the limit of virtual time\n");
    } else if (Whole == Left.Result.end()) {
        printf("\nExit status %d\n", WEXITSTATUS(Left.WaitStatus));
    } else {
        const int Status = std::stoi(Whole->second);
        const auto *Named =
            std::find_if(std::begin(StatusNames), std::end(StatusNames),
                         [Status](const StatusName &S) { return S.Value == Status; });
        printf("\nExit status %d", Status);
        if (Named != std::end(StatusNames)) {
            printf(" %s: %s", Named->Name, Named->Meaning);
        }
        printf(" (%d for the system)\n", Status & 0xFF);
    }
}

} // namespace

Outcome read_Outcome(const fs::path &Run, int WaitStatus)
{
    Outcome Left;
    Left.WaitStatus = WaitStatus;
    std::ifstream File{Run / NAME_RESULT};
    std::string Line;
    while (std::getline(File, Line)) {
        const std::size_t At = Line.find('=');
        if (At != std::string::npos) {
            Left.Result[Line.substr(0, At)] = Line.substr(At + 1);
        }
    }
    // A sanitizer may end the process with a status of its own after the loader's exit.
    const bool Exited = WIFEXITED(WaitStatus);
    if (!Exited || (get_Number(Left, "status") & 0xFF) != WEXITSTATUS(WaitStatus)) {
        Left.Result.erase("status");
    }
    Left.Result["exit"] = std::to_string(Exited ? WEXITSTATUS(WaitStatus) : -1);
    Left.Result["signal"] = std::to_string(WIFSIGNALED(WaitStatus) ? WTERMSIG(WaitStatus) : 0);
    read_Phases(Run / NAME_OUTPUT, Time{get_Number(Left, "time_ns")}, Left);
    for (const auto &[Name, Duration] : Left.Phases) {
        Left.Result["phase." + Name + ".ns"] = std::to_string(Duration.count());
    }
    return Left;
}

bool is_PowerCut(const Outcome &Left)
{
    return get_Number(Left, "cut") != 0;
}

int get_ExitStatus(const Outcome &Left)
{
    return WIFSIGNALED(Left.WaitStatus) ? 128 + WTERMSIG(Left.WaitStatus)
                                        : WEXITSTATUS(Left.WaitStatus);
}

void print_Report(const Outcome &Left, const Machine &Before, const Machine &After,
                  const fs::path &Config)
{
    print_Boards(Left, Before, After);
    print_Phases(Left);
    print_Bus(Left);
    print_ResultFiles(Config);
    print_Status(Left);
}

void write_ResultFile(const fs::path &Path, const Outcome &Left)
{
    std::ofstream File;
    File.exceptions(std::ios::failbit | std::ios::badbit);
    File.open(Path);
    for (const auto &[Key, Value] : Left.Result) {
        File << Key << '=' << Value << '\n';
    }
}

} // namespace qxsim

#include "preload/Session.h"
#include "board/Board.h"
#include "bus/FrameText.h"
#include "driver/DriverPort.h"
#include "machine/MachineFolder.h"
#include "preload/Journal.h"
#include "preload/Next.h"
#include "preload/Outside.h"
#include "preload/Turn.h"
#include "runner/Paths.h"
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qxsim::session
{
namespace
{

using namespace std::chrono_literals;

// Requests of the driver.
enum : unsigned long {
    REQUEST_RESET = 0,
    REQUEST_ERROR_COUNTER = 2,
    REQUEST_RECEIVE = 3,
    REQUEST_SEND = 4,
    REQUEST_RECEIVE_NO_BLOCK = 5,
    REQUEST_SET_OUT = 8,
    REQUEST_RES_OUT = 9,
    REQUEST_SYS_TIMER = 10,
    REQUEST_GET_INP = 11,
    REQUEST_WAIT_RX = 12,
    REQUEST_SEND_NO_BLOCK = 13,
};

constexpr int NOTHING_WAITS = -10003;
constexpr std::uint32_t IDENTIFIER_MASK = 0x1FFFFFFF;
constexpr int EXIT_LIMIT = 124; // as timeout(1) ends

using Names = std::vector<std::string>;

// Never destroyed: the loader's own end of the process may still call in.
struct Run {
    explicit Run(Machine Read)
        : Described{std::move(Read)}, Wire{Described.BitRate}, Port{Described.Driver}
    {
    }

    Machine Described;
    Bus Wire;
    DriverPort Port;
    std::vector<std::unique_ptr<Board>> Boards;
    Journal Trace;
    Journal Output;
    std::string Folder;
    std::optional<Time> CardGone; // still to come
    Names Descriptors;            // numbers of those that were open at the start
    Names Mounts;                 // mount points at the start
    Time Limit{turn::NEVER};
    double Speed{};
    timespec RealStart{};
    pid_t Process{};
    std::uint64_t Requests{};
    bool LimitReached{};
    bool Cut{};
};

Run *Current;
std::atomic<bool> Finished;

std::string get_Path(const char *Name)
{
    return Current->Folder + "/" + Name;
}

void trace_Frame(const Frame &Sent, Time When)
{
    const std::int64_t Micros =
        std::chrono::floor<std::chrono::microseconds>(When + get_Date()).count();
    char Head[64];
    const int Length =
        snprintf(Head, sizeof Head, "(%010" PRId64 ".%06" PRId64 ") %.32s ", Micros / 1'000'000,
                 Micros % 1'000'000, Current->Described.Interface.c_str());
    Current->Trace.append({Head, static_cast<std::size_t>(Length)});
    Current->Trace.append(show_Frame(Sent) + "\n");
}

// The card goes out of its socket: what is open stays open, nothing new is found.
void remove_Card()
{
    Journal Mark;
    Mark.open(get_Path(NAME_CARD_GONE).c_str());
    while (umount2(MOUNT_CARD, MNT_DETACH) == 0) {
    }
    Current->CardGone.reset();
}

void sleep_UntilReal(Time Now)
{
    const auto Real = static_cast<std::int64_t>(static_cast<double>(Now.count()) / Current->Speed);
    const std::int64_t Nanos = Current->RealStart.tv_nsec + Real;
    timespec Until{Current->RealStart.tv_sec + Nanos / 1'000'000'000, Nanos % 1'000'000'000};
    while (syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, TIMER_ABSTIME, &Until, nullptr) != 0 &&
           errno == EINTR) {
    }
}

Time get_NextAlarm(Time Now)
{
    const Time Pace = Current->Speed > 0 ? Now + Time{1} : turn::NEVER;
    return std::min({Current->CardGone.value_or(turn::NEVER), Current->Limit, Pace});
}

// What happens at a virtual time outside the bus.
Time keep_Time(Time Now)
{
    if (Current->Speed > 0) {
        sleep_UntilReal(Now);
    }
    if (Current->CardGone && Now >= *Current->CardGone) {
        remove_Card();
    }
    if (Now >= Current->Limit) {
        Current->LimitReached = true;
        finish(std::nullopt);
        syscall(SYS_exit_group, EXIT_LIMIT);
    }
    return get_NextAlarm(Now);
}

double get_Setting(const char *Name)
{
    const char *const Text = getenv(Name);
    return Text != nullptr ? strtod(Text, nullptr) : 0;
}

void build_Machine(const char *Folder)
{
    Current = new Run{read_Machine(FOLDER_MACHINE)};
    Current->Folder = Folder;
    Current->Process = getpid();
    Current->CardGone = Current->Described.Card.Gone;
    if (const double Limit = get_Setting("QXSIM_LIMIT"); Limit > 0) {
        Current->Limit = Time{static_cast<std::int64_t>(Limit * 1e9)};
    }
    Current->Speed = get_Setting("QXSIM_SPEED");
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &Current->RealStart);
    if (!Current->Trace.open(get_Path(NAME_TRACE).c_str()) ||
        !Current->Output.open(get_Path(NAME_OUTPUT).c_str())) {
        next::die("the folder of the run cannot be written");
    }
    Current->Wire.attach_Node(Current->Port);
    for (const BoardSpec &Spec : Current->Described.Boards) {
        Current->Boards.push_back(std::make_unique<Board>(Spec, Current->Described.Boards));
        Current->Wire.attach_Node(*Current->Boards.back());
    }
    Current->Wire.set_Trace(trace_Frame);
}

// The requests. Each is served at the virtual time at which it ends.

int copy_Received(CAN_FRAME *Record)
{
    const std::optional<Frame> Taken = Current->Port.take_Frame();
    if (!Taken) {
        return NOTHING_WAITS;
    }
    Record->ControlA = 0;
    Record->ControlB = 1;
    Record->Identifier = Taken->Identifier;
    Record->Length = Taken->Length;
    memcpy(Record->Data, Taken->Data.data(), sizeof Record->Data);
    return 0;
}

void advance_Bus()
{
    Current->Wire.advance_To(turn::get_Now());
}

// Lets the machine run until Done or Until.
template <typename Condition>
void wait_For(Condition Done, Time Until)
{
    advance_Bus();
    while (!Done() && turn::get_Now() < Until) {
        const Time Later = turn::get_Now() + Current->Described.Clock.Quantum;
        const Time Next = Current->Wire.get_NextTime().value_or(Later);
        turn::wait_Until(std::min(Until, std::clamp(Next, turn::get_Now() + Time{1}, Later)));
        advance_Bus();
    }
}

bool is_FrameWaiting()
{
    return Current->Port.is_FrameWaiting();
}

int send(const CAN_FRAME *Record, bool Block)
{
    if (Record->Length > sizeof Record->Data) {
        errno = EINVAL;
        return -1;
    }
    Frame Sent{Record->Identifier & IDENTIFIER_MASK, Record->Length, {}};
    std::copy_n(Record->Data, Record->Length, Sent.Data.begin());
    const auto Room = [] { return !Current->Port.is_TransmitFull(); };
    wait_For(Room, Block ? turn::NEVER : Time{});
    if (!Room()) {
        errno = EAGAIN;
        return -1;
    }
    Current->Port.send(Sent, turn::get_Now());
    return 0;
}

// Milliseconds 0: until a frame comes.
int wait_Reception(std::intptr_t Milliseconds)
{
    wait_For(is_FrameWaiting, Milliseconds > 0
                                  ? turn::get_Now() + std::chrono::milliseconds{Milliseconds}
                                  : turn::NEVER);
    return is_FrameWaiting() ? 0 : NOTHING_WAITS;
}

int receive(CAN_FRAME *Record, bool Block)
{
    wait_For(is_FrameWaiting, Block ? turn::NEVER : Time{});
    return copy_Received(Record);
}

int reset()
{
    advance_Bus();
    Current->Port.reset();
    return 0;
}

int serve(unsigned long Request, void *Argument)
{
    switch (Request) {
    case REQUEST_RESET:
        return reset();
    case REQUEST_RECEIVE:
    case REQUEST_RECEIVE_NO_BLOCK:
        return receive(static_cast<CAN_FRAME *>(Argument), Request == REQUEST_RECEIVE);
    case REQUEST_SEND:
    case REQUEST_SEND_NO_BLOCK:
        return send(static_cast<CAN_FRAME *>(Argument), Request == REQUEST_SEND);
    case REQUEST_SYS_TIMER:
        *static_cast<std::uint32_t *>(Argument) = Current->Port.get_Ticks(turn::get_Now());
        return 0;
    case REQUEST_WAIT_RX:
        return wait_Reception(reinterpret_cast<std::intptr_t>(Argument));
    case REQUEST_ERROR_COUNTER: // a wire without errors
    case REQUEST_GET_INP:       // no input is connected
    case REQUEST_SET_OUT:
    case REQUEST_RES_OUT:
        return 0;
    default:
        errno = EINVAL;
        return -1;
    }
}

// What the process has from the system. The folder's own descriptor, gone by then, is no number of
// a file any more.
Names find_Descriptors()
{
    Names Found;
    for (const auto &Entry : std::filesystem::directory_iterator{"/proc/self/fd"}) {
        Found.push_back(Entry.path().filename());
    }
    std::erase_if(Found, [](const std::string &Number) {
        return syscall(SYS_fcntl, std::stoi(Number), F_GETFD) < 0;
    });
    return Found;
}

Names find_Mounts()
{
    Names Found;
    std::ifstream Mounts{"/proc/mounts"};
    std::string Source;
    for (std::string Point; Mounts >> Source >> Point; std::getline(Mounts, Source)) {
        Found.push_back(Point);
    }
    return Found;
}

// Those of Now that were not there Before, an entry each.
Names find_New(Names Now, Names Before)
{
    std::sort(Now.begin(), Now.end());
    std::sort(Before.begin(), Before.end());
    Names New;
    std::set_difference(Now.begin(), Now.end(), Before.begin(), Before.end(),
                        std::back_inserter(New));
    return New;
}

std::string join(const Names &Joined)
{
    std::string Text;
    for (const std::string &Name : Joined) {
        Text += (Text.empty() ? "" : " ") + Name;
    }
    return Text;
}

// The driver's descriptor is one of /dev/null.
std::string find_LeftDescriptors()
{
    Names Left = find_New(find_Descriptors(), Current->Descriptors);
    for (std::string &Number : Left) {
        std::error_code Ignored;
        const std::string Path =
            std::filesystem::read_symlink("/proc/self/fd/" + Number, Ignored).string();
        Number = Path == "/dev/null" ? std::string{DRIVER_PATH} : Path.substr(0, Path.find(':'));
    }
    std::sort(Left.begin(), Left.end()); // their numbers depend on what the host left open
    return join(Left);
}

// The results.

[[gnu::format(printf, 2, 3)]] void add_Line(std::string &Text, const char *Format, ...)
{
    char Line[256];
    va_list Arguments;
    va_start(Arguments, Format);
    vsnprintf(Line, sizeof Line, Format, Arguments);
    va_end(Arguments);
    Text += Line;
}

// One line each, whatever is in them.
template <typename LIST>
void add_Texts(std::string &Text, const std::string &Key, const LIST &Texts)
{
    int Number = 0;
    for (std::string Added : Texts) {
        std::replace(Added.begin(), Added.end(), '\n', '\r');
        Text.append(Key).append(".").append(std::to_string(++Number)).append("=");
        Text.append(Added).append("\n");
    }
}

void add_Board(std::string &Text, const Board &Reported)
{
    const char *const Name = Reported.get_Spec().Name.c_str();
    add_Line(Text, "board.%s.present=%d\n", Name, Reported.get_Spec().Present ? 1 : 0);
    add_Line(Text, "board.%s.address=%u.%u\n", Name, Reported.get_BoardType(),
             Reported.get_BoardNumber());
    add_Line(Text, "board.%s.state=%s\n", Name, get_BoardStateName(Reported.get_State()));
    add_Line(Text, "board.%s.commands=%u\n", Name, Reported.get_NbCommands());
    add_Line(Text, "board.%s.downloads=%u\n", Name, Reported.get_NbDownloads());
}

void add_Left(std::string &Text)
{
    Text += "left.descriptors=" + find_LeftDescriptors() + "\n";
    Text += "left.mounts=" + join(find_New(find_Mounts(), Current->Mounts)) + "\n";
}

std::string make_Result(std::optional<int> Whole)
{
    const BusLoad &Load = Current->Wire.get_Load();
    const DriverCounters &Counters = Current->Port.get_Counters();
    std::string Text;
    if (Whole) {
        add_Line(Text, "status=%d\n", *Whole);
    }
    add_Line(Text, "date=%" PRId64 "\n", Current->Described.Clock.Date);
    add_Line(Text, "limit_reached=%d\n", Current->LimitReached ? 1 : 0);
    add_Line(Text, "cut=%d\n", Current->Cut ? 1 : 0);
    add_Line(Text, "time_ns=%" PRId64 "\n", static_cast<std::int64_t>(turn::get_Now().count()));
    add_Line(Text, "bus.frames=%" PRIu64 "\n", Load.Frames);
    add_Line(Text, "bus.bits=%" PRIu64 "\n", Load.Bits);
    add_Line(Text, "bus.busy_ns=%" PRId64 "\n", static_cast<std::int64_t>(Load.Busy.count()));
    add_Line(Text, "waits=%" PRIu64 "\n", turn::get_NbWaits());
    add_Line(Text, "driver.requests=%" PRIu64 "\n", Current->Requests);
    add_Line(Text, "driver.sent=%" PRIu64 "\n", Counters.Sent);
    add_Line(Text, "driver.received=%" PRIu64 "\n", Counters.Received);
    add_Line(Text, "driver.overflows=%" PRIu64 "\n", Counters.Overflows);
    for (const OutsideCallName &Named : OutsideCallNames) {
        const std::string Key = std::string{"outside."} + Named.Name;
        add_Line(Text, "outside.%s=%u\n", Named.Name, outside::get_Count(Named.Call));
        Text.append(Key).append(".reaching=").append(outside::get_Reaching(Named.Call));
        Text.append("\n").append(Key).append(".changing=");
        Text.append(outside::get_Changing(Named.Call)).append("\n");
    }
    add_Texts(Text, "shell", outside::get_Commands());
    add_Texts(Text, "opened", outside::get_Opened());
    add_Left(Text);
    for (const auto &Reported : Current->Boards) {
        add_Board(Text, *Reported);
    }
    return Text;
}

void leave_Results(std::optional<int> Whole)
{
    advance_Bus();
    Current->Trace.flush();
    Current->Output.flush();
    const std::string Text = make_Result(Whole);
    Journal Result;
    Result.open(get_Path(NAME_RESULT).c_str());
    Result.append(Text);
    Result.flush();
    std::vector<BoardSpec> Specs;
    for (const auto &Kept : Current->Boards) {
        Specs.push_back(Kept->get_Spec());
    }
    write_State(FOLDER_MACHINE, Specs);
}

} // namespace

void start()
{
    const char *const Folder = getenv("QXSIM_RUN");
    if (Folder == nullptr) {
        return;
    }
    try {
        build_Machine(Folder);
        Current->Descriptors = find_Descriptors();
        Current->Mounts = find_Mounts();
    } catch (const std::exception &Error) {
        next::die(Error.what());
    }
    const double Rate = get_Setting("QXSIM_PARALLEL");
    outside::start(Current->Described.OutsideFaults, Current->Described.Cut);
    turn::start(Current->Described.Clock.Quantum, Rate, get_NextAlarm(Time{}), keep_Time);
}

bool is_Running()
{
    return Current != nullptr;
}

Time get_Date()
{
    return std::chrono::seconds{Current->Described.Clock.Date};
}

std::optional<int> open_Driver()
{
    turn::wait_Until(turn::get_Now() + Current->Described.Driver.CallCost);
    const std::optional<int> Failure = Current->Port.count_Request(DriverRequest::Open);
    if (!Failure) {
        advance_Bus();
        Current->Port.open();
    }
    return Failure;
}

void close_Driver()
{
    advance_Bus();
    Current->Port.close();
}

std::optional<DriverRequest> get_RequestKind(unsigned long Request)
{
    switch (Request) {
    case REQUEST_RESET:
        return DriverRequest::Reset;
    case REQUEST_SEND:
    case REQUEST_SEND_NO_BLOCK:
        return DriverRequest::Send;
    case REQUEST_RECEIVE:
    case REQUEST_RECEIVE_NO_BLOCK:
        return DriverRequest::Receive;
    case REQUEST_SYS_TIMER:
        return DriverRequest::Timer;
    default:
        return std::nullopt;
    }
}

int request(unsigned long Request, void *Argument)
{
    ++Current->Requests;
    turn::wait_Until(turn::get_Now() + Current->Described.Driver.CallCost);
    if (const std::optional<DriverRequest> Kind = get_RequestKind(Request)) {
        if (const std::optional<int> Failure = Current->Port.count_Request(*Kind)) {
            errno = EIO;
            return *Failure;
        }
    }
    return serve(Request, Argument);
}

void record_Output(std::string_view Text)
{
    char Head[64];
    const int Length = snprintf(Head, sizeof Head, "%" PRId64 " %zu\n",
                                static_cast<std::int64_t>(turn::get_Now().count()), Text.size());
    Current->Output.append({Head, static_cast<std::size_t>(Length)});
    Current->Output.append(Text);
}

void finish(std::optional<int> Whole)
{
    if (Current == nullptr || Current->Process != getpid() || Finished.exchange(true)) {
        return;
    }
    try {
        leave_Results(Whole);
    } catch (const std::exception &Error) {
        next::die(Error.what());
    }
}

void cut_Power()
{
    const next::Unseen Guard;
    Current->Cut = true;
    finish(std::nullopt);
    for (;;) {
        syscall(SYS_kill, getpid(), SIGKILL);
    }
}

} // namespace qxsim::session

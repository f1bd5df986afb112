#include "preload/Turn.h"
#include "preload/Next.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <linux/futex.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace qxsim::turn
{
namespace
{

// One thread of the loader. All but MayRun belongs to the thread that has the turn.
struct Player {
    std::atomic<std::uint32_t> MayRun{}; // futex: 1, the turn has been handed to it
    bool Used{};
    bool Ended{};
    Time Wake{};           // NEVER: it waits for another thread, or for ever. In parallel, of a
                           // thread that does not wait: when it was last inside
    std::uint64_t Order{}; // of the moment since which it has waited
    Player *Joined{};      // the thread whose end it waits for
    pthread_t Handle{};
    void *(*Start)(void *){};
    void *Argument{};
};

constexpr std::size_t NB_PLAYERS = 64;
std::array<Player, NB_PLAYERS> Players;
std::uint64_t LastOrder;
std::uint64_t NbWaits;
Time Now;
Time Quantum;
Time NextAlarm{NEVER};
Alarm OnAlarm;
thread_local Player *Self;

// In parallel. Virtual time stays less than LEAD ahead of a thread that the system does not let
// run, or a busy host would make every answer of a board late.
constexpr Time LEAD = std::chrono::milliseconds{1};
double Rate;
Time RealClock;                    // when virtual time was last moved on
std::atomic<std::uint32_t> Taken;  // futex, the turn: 0 free, 1 taken, 2 taken and waited for
thread_local unsigned InsideDepth; // of the thread that has taken it

bool is_Parallel()
{
    return Rate > 0;
}

Time read_RealClock()
{
    timespec Real{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &Real);
    return std::chrono::seconds{Real.tv_sec} + Time{Real.tv_nsec};
}

void set_Clock(Time Reached)
{
    Now = std::max(Now, Reached);
    if (Now >= NextAlarm) {
        const next::Unseen Guard;
        NextAlarm = OnAlarm(Now);
    }
}

void set_Wake(Player &Waiting, Time Wake)
{
    Waiting.Wake = Wake;
    Waiting.Order = ++LastOrder;
}

Player &find_First()
{
    Player *First = nullptr;
    for (Player &Candidate : Players) {
        if (Candidate.Used && !Candidate.Ended && Candidate.Wake != NEVER &&
            (First == nullptr || Candidate.Wake < First->Wake ||
             (Candidate.Wake == First->Wake && Candidate.Order < First->Order))) {
            First = &Candidate;
        }
    }
    if (First == nullptr) {
        next::die("every thread of the loader waits for ever");
    }
    return *First;
}

Time find_Lead()
{
    Time Lead = NEVER;
    for (const Player &Other : Players) {
        if (&Other != Self && Other.Used && !Other.Ended && Other.Wake != NEVER) {
            Lead = std::min(Lead, Other.Wake + LEAD);
        }
    }
    return Lead;
}

void take_Turn()
{
    std::uint32_t State = 0;
    if (!Taken.compare_exchange_strong(State, 1, std::memory_order_acquire)) {
        while (Taken.exchange(2, std::memory_order_acquire) != 0) {
            syscall(SYS_futex, &Taken, FUTEX_WAIT_PRIVATE, 2, nullptr, nullptr, 0);
        }
    }
    const Time Real = read_RealClock();
    const auto Passed = static_cast<double>((Real - std::exchange(RealClock, Real)).count());
    set_Clock(std::min(Now + Time{static_cast<Time::rep>(Passed * Rate)}, find_Lead()));
    if (Self != nullptr) {
        Self->Wake = Now;
    }
}

void free_Turn()
{
    if (Taken.exchange(0, std::memory_order_release) == 2) {
        syscall(SYS_futex, &Taken, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
}

// What takes no time worth a sleep lets others run all the same.
void sleep_Really(Time Duration)
{
    const auto Nanos = static_cast<Time::rep>(static_cast<double>(Duration.count()) / Rate);
    if (Nanos < 1000) {
        syscall(SYS_sched_yield);
        return;
    }
    timespec Left{Nanos / 1'000'000'000, Nanos % 1'000'000'000};
    while (syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &Left, &Left) != 0 && errno == EINTR) {
    }
}

void wait_InParallel(Time Wake)
{
    Self->Wake = Wake;
    const unsigned Depth = std::exchange(InsideDepth, 0);
    free_Turn();
    sleep_Really(Wake - Now);
    take_Turn();
    InsideDepth = Depth;
}

void hand_Turn(Player &To)
{
    To.MayRun.store(1, std::memory_order_release);
    syscall(SYS_futex, &To.MayRun, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void await_Turn(Player &Waiting)
{
    while (Waiting.MayRun.load(std::memory_order_acquire) == 0) {
        syscall(SYS_futex, &Waiting.MayRun, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
    Waiting.MayRun.store(0, std::memory_order_relaxed);
}

// Lets whoever is first run; comes back when that is the caller.
void give_Turn()
{
    Player &First = find_First();
    set_Clock(First.Wake);
    if (&First != Self) {
        hand_Turn(First);
        await_Turn(*Self);
    }
}

// The end of a thread, however it ends.
struct LastTurn {
    LastTurn() = default;
    LastTurn(const LastTurn &) = delete;
    LastTurn &operator=(const LastTurn &) = delete;
    ~LastTurn()
    {
        Player &Leaving = *Self;
        const Inside Guard;
        Leaving.Ended = true;
        Self = nullptr;
        if (is_Parallel()) {
            return;
        }
        for (Player &Waiting : Players) {
            if (Waiting.Used && Waiting.Joined == &Leaving) {
                Waiting.Joined = nullptr;
                set_Wake(Waiting, Now);
            }
        }
        Player &First = find_First();
        set_Clock(First.Wake);
        hand_Turn(First);
    }
};

void *run_Thread(void *Created)
{
    Self = static_cast<Player *>(Created);
    if (!is_Parallel()) {
        await_Turn(*Self);
    }
    const LastTurn Guard;
    return Self->Start(Self->Argument);
}

Player *find_Free()
{
    for (Player &Candidate : Players) {
        if (!Candidate.Used) {
            return &Candidate;
        }
    }
    return nullptr;
}

// The sanitizer must see the creation that follows, so no Guard lives longer than this.
Player *prepare_Thread(void *(*Start)(void *), void *Argument)
{
    const Inside Guard;
    Player *const Created = find_Free();
    if (Created != nullptr) {
        Created->Used = true;
        Created->Ended = false;
        Created->Start = Start;
        Created->Argument = Argument;
        set_Wake(*Created, Now);
    }
    return Created;
}

Player *find_Thread(pthread_t Handle)
{
    for (Player &Candidate : Players) {
        if (Candidate.Used && pthread_equal(Candidate.Handle, Handle) != 0) {
            return &Candidate;
        }
    }
    return nullptr;
}

} // namespace

void start(Time ShortestWait, double TimeRate, Time FirstAlarm, Alarm Called)
{
    Quantum = ShortestWait;
    Rate = TimeRate;
    RealClock = read_RealClock();
    NextAlarm = FirstAlarm;
    OnAlarm = Called;
    Self = Players.data();
    Self->Used = true;
    Self->Handle = pthread_self();
    if (is_Parallel()) {
        prctl(PR_SET_TIMERSLACK, 1); // nanosecond, instead of 50 us a wait
    }
}

bool is_OfLoader()
{
    return Self != nullptr;
}

Inside::Inside()
{
    if (InsideDepth++ == 0 && is_Parallel()) {
        take_Turn();
    }
}

Inside::~Inside()
{
    if (--InsideDepth == 0 && is_Parallel()) {
        free_Turn();
    }
}

Time get_Now()
{
    return Now;
}

void wait_Until(Time Wake)
{
    if (is_Parallel()) {
        wait_InParallel(Wake);
        return;
    }
    set_Wake(*Self, Wake);
    give_Turn();
}

void wait_Duration(Time Duration)
{
    ++NbWaits;
    const Time Left = NEVER - Now;
    wait_Until(Duration >= Left ? NEVER : Now + std::max(Duration, Quantum));
}

std::uint64_t get_NbWaits()
{
    return NbWaits;
}

int create_Thread(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                  void *Argument)
{
    Player *const Created = prepare_Thread(Start, Argument);
    if (Created == nullptr) {
        return EAGAIN;
    }
    const int Result = next::pthread_create(Handle, Attributes, run_Thread, Created);
    if (Result == 0) {
        Created->Handle = *Handle;
    } else {
        Created->Used = false;
    }
    return Result;
}

int join_Thread(pthread_t Handle, void **Result)
{
    Player *const Joined = find_Thread(Handle);
    if (is_Parallel()) {
        const Inside Guard;
        Self->Wake = NEVER;
    } else if (Joined != nullptr && Joined != Self && !Joined->Ended) {
        Self->Joined = Joined;
        wait_Until(NEVER);
    }
    const int Status = next::pthread_join(Handle, Result);
    if (Joined != nullptr && Status == 0) {
        Joined->Used = false;
    }
    return Status;
}

} // namespace qxsim::turn

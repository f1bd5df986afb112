#include "preload/Turn.h"
#include "preload/Next.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qxsim::turn
{
namespace
{

// One thread of the loader. All but MayRun belongs to the thread that has the turn.
struct Player {
    std::atomic<std::uint32_t> MayRun{}; // futex: 1, the turn has been handed to it
    bool Used{};
    bool Ended{};
    Time Wake{};           // NEVER: it waits for another thread, or for ever
    std::uint64_t Order{}; // of the moment since which it has waited
    Player *Joined{};      // the thread whose end it waits for
    pthread_t Handle{};
    void *(*Start)(void *){};
    void *Argument{};
};

constexpr std::size_t NB_PLAYERS = 64;
std::array<Player, NB_PLAYERS> Players;
std::uint64_t LastOrder;
Time Now;
Time Quantum;
Time NextAlarm{NEVER};
Alarm OnAlarm;
thread_local Player *Self;

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
        Leaving.Ended = true;
        Self = nullptr;
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
    await_Turn(*Self);
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

void start(Time ShortestWait, Time FirstAlarm, Alarm Called)
{
    Quantum = ShortestWait;
    NextAlarm = FirstAlarm;
    OnAlarm = Called;
    Self = Players.data();
    Self->Used = true;
    Self->Handle = pthread_self();
}

bool has_Turn()
{
    return Self != nullptr;
}

Time get_Now()
{
    return Now;
}

void wait_Until(Time Wake)
{
    set_Wake(*Self, Wake);
    give_Turn();
}

void wait_Duration(Time Duration)
{
    const Time Left = NEVER - Now;
    wait_Until(Duration >= Left ? NEVER : Now + std::max(Duration, Quantum));
}

int create_Thread(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                  void *Argument)
{
    Player *const Created = find_Free();
    if (Created == nullptr) {
        return EAGAIN;
    }
    Created->Used = true;
    Created->Ended = false;
    Created->Start = Start;
    Created->Argument = Argument;
    set_Wake(*Created, Now);
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
    if (Joined != nullptr && Joined != Self && !Joined->Ended) {
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

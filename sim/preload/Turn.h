// Virtual time, and the turn: of the loader's threads only one runs at a time, the one whose wake
// time comes first (of equal ones the one that has waited longest). A wait costs nothing but the
// hand-over, and nothing at all while the caller stays first; the order of events depends on
// virtual time alone, so that two runs are the same.
//
// The turn changes hands through futex system calls in code that is never instrumented: a
// thread sanitizer sees no synchronisation here, and what it finds in the loader stays found
// although the threads alternate.
//
// A thread that waits for something else than virtual time (a lock that another thread holds across
// a wait, say) would hold the turn for ever; the loader has no such place.
//
// In parallel, the other way to run, the threads are the system's to run: virtual time is real
// time, only faster, a wait is a real one, and a thread has the turn only while it is inside the
// simulated machine. Nothing is repeatable then; it shows what the threads do to each other.
#pragma once

#include "Frame.h"
#include "preload/Next.h"
#include <cstdint>
#include <limits>
#include <pthread.h>

namespace qxsim::turn
{

constexpr Time NEVER{std::numeric_limits<Time::rep>::max()};

// Called with the clock when it has reached the alarm; returns the time of the next alarm.
using Alarm = Time (*)(Time Now);

// The calling thread becomes the first one and has the turn. Rate: virtual time a real one, for
// threads in parallel; 0: they take turns.
void start(Time Quantum, double Rate, Time FirstAlarm, Alarm Called);

// True on the threads of the loader: the first one and those that it and they create.
bool is_OfLoader();

// While it lives, its thread has the turn and is unseen by a thread sanitizer. A thread may have
// several. Whatever below is not about threads, and all of the session, is called with one.
class Inside
{
  public:
    Inside();
    ~Inside();
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;

  private:
    next::Unseen Guard;
};

// Stands still while the turn is not given away.
Time get_Now();

// The caller goes on not before Wake; the others run meanwhile.
void wait_Until(Time Wake);

// Waits for Duration, at least a quantum.
void wait_Duration(Time Duration);

// How often the loader waited for a duration.
std::uint64_t get_NbWaits();

// As pthread_create: the new thread runs at the caller's next wait.
int create_Thread(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                  void *Argument);

// As pthread_join: the others run until the thread has ended.
int join_Thread(pthread_t Handle, void **Result);

} // namespace qxsim::turn

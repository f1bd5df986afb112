// The names of the C library that the loader meets here first: the driver's device file, the clock,
// waiting, threads, and the end of the process. Everything that does not concern the simulated
// machine is passed on.
#include "preload/Next.h"
#include "preload/Session.h"
#include "preload/Turn.h"
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

using namespace qxsim;
using namespace std::chrono_literals;

namespace
{

constexpr int NO_DRIVER = -1;
std::atomic<int> DriverFd = NO_DRIVER;

// True where virtual time counts.
bool is_Simulated()
{
    return turn::is_OfLoader();
}

// The end of the process.

constexpr std::array FatalSignals{SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE,
                                  SIGTERM, SIGINT,  SIGHUP, SIGQUIT};
std::array<struct sigaction, FatalSignals.size()> EarlierActions;

// What stood there before decides how the process ends: a sanitizer's report, or death. A faulty
// instruction is met again on return; what was sent has to be sent again.
void end_BySignal(int Signal, siginfo_t *Info, void *)
{
    const turn::Inside Guard;
    session::finish(std::nullopt);
    for (std::size_t i = 0; i < FatalSignals.size(); ++i) {
        if (FatalSignals[i] == Signal) {
            sigaction(Signal, &EarlierActions[i], nullptr);
        }
    }
    if (Info->si_code <= 0) {
        raise(Signal);
    }
}

void end_ByExit(int Status, void *)
{
    const next::Unseen Hidden;
    fflush(stdout); // before the turn is taken: another thread may hold stdout and wait for it
    const turn::Inside Guard;
    session::finish(Status);
}

void end_BySanitizer()
{
    const turn::Inside Guard;
    session::finish(std::nullopt);
}

// Each sanitizer has a runtime of its own, with an end of its own after a finding.
int watch_Sanitizer(dl_phdr_info *Library, size_t, void *)
{
    if (strstr(Library->dlpi_name, "san.so") == nullptr) {
        return 0;
    }
    void *const Runtime = dlopen(Library->dlpi_name, RTLD_LAZY | RTLD_NOLOAD);
    using SetCallback = void (*)(void (*)());
    if (const auto Set =
            reinterpret_cast<SetCallback>(dlsym(Runtime, "__sanitizer_set_death_callback"))) {
        Set(end_BySanitizer);
    }
    return 0;
}

void watch_End()
{
    struct sigaction Action {
    };
    Action.sa_sigaction = end_BySignal;
    Action.sa_flags = SA_SIGINFO;
    for (std::size_t i = 0; i < FatalSignals.size(); ++i) {
        sigaction(FatalSignals[i], &Action, &EarlierActions[i]);
    }
    on_exit(end_ByExit, nullptr);
    dl_iterate_phdr(watch_Sanitizer, nullptr);
}

// Standard output goes where it went, and is recorded with its virtual time.
ssize_t write_Output(void *, const char *Text, size_t Size)
{
    const turn::Inside Guard;
    session::record_Output({Text, Size});
    while (syscall(SYS_write, STDOUT_FILENO, Text, Size) < 0 && errno == EINTR) {
    }
    return static_cast<ssize_t>(Size);
}

void watch_Output()
{
    if (FILE *const Watched =
            fopencookie(nullptr, "w", {nullptr, write_Output, nullptr, nullptr})) {
        stdout = Watched;
    }
}

// Before anything of the loader runs. Its children must see neither library nor settings.
[[gnu::constructor]] void start()
{
    const next::Unseen Guard;
    session::start();
    if (!session::is_Running()) {
        return;
    }
    for (const char *Name :
         {"LD_PRELOAD", "QXSIM_RUN", "QXSIM_LIMIT", "QXSIM_SPEED", "QXSIM_PARALLEL"}) {
        unsetenv(Name);
    }
    watch_Output();
    watch_End();
}

// Time.

timespec make_Timespec(Time Value)
{
    const auto Seconds = std::chrono::floor<std::chrono::seconds>(Value);
    return {static_cast<time_t>(Seconds.count()), static_cast<long>((Value - Seconds).count())};
}

Time get_Time(const timespec &Value)
{
    const Time Seconds = Value.tv_sec > 9'000'000'000 ? turn::NEVER / 2 : Value.tv_sec * Time{1s};
    return Seconds + Time{Value.tv_nsec};
}

bool is_WallClock(clockid_t Clock)
{
    return Clock == CLOCK_REALTIME || Clock == CLOCK_REALTIME_COARSE;
}

bool is_VirtualClock(clockid_t Clock)
{
    return is_WallClock(Clock) || Clock == CLOCK_MONOTONIC || Clock == CLOCK_MONOTONIC_COARSE ||
           Clock == CLOCK_MONOTONIC_RAW || Clock == CLOCK_BOOTTIME;
}

Time read_Clock(clockid_t Clock)
{
    const turn::Inside Guard;
    return turn::get_Now() + (is_WallClock(Clock) ? session::get_Date() : Time{});
}

void wait_Duration(Time Duration)
{
    const turn::Inside Guard;
    turn::wait_Duration(Duration);
}

// Result and errno of a wait that is passed on.
int wait_Really(clockid_t Clock, int Flags, const timespec *Duration, timespec *Left)
{
    return syscall(SYS_clock_nanosleep, Clock, Flags, Duration, Left) == 0 ? 0 : errno;
}

bool is_ValidDuration(const timespec *Duration)
{
    return Duration->tv_sec >= 0 && Duration->tv_nsec >= 0 && Duration->tv_nsec < 1'000'000'000;
}

// Files.

int open_Driver()
{
    const turn::Inside Guard;
    if (const std::optional<int> Failure = session::open_Driver()) {
        errno = EIO;
        return *Failure;
    }
    // The number stays the driver's own while it is open.
    DriverFd = next::open("/dev/null", O_RDWR, 0);
    return DriverFd;
}

bool is_Driver(const char *Path)
{
    return is_Simulated() && Path != nullptr && strcmp(Path, session::DRIVER_PATH) == 0;
}

int open_File(const char *Path, int Flags, mode_t Mode)
{
    return is_Driver(Path) ? open_Driver() : next::open(Path, Flags, Mode);
}

int open_FileAt(int Folder, const char *Path, int Flags, mode_t Mode)
{
    return is_Driver(Path) ? open_Driver()
                           : static_cast<int>(syscall(SYS_openat, Folder, Path, Flags, Mode));
}

// The mode is there only when the flags say so.
#define GET_MODE(Flags, Mode)                                                                      \
    mode_t Mode = 0;                                                                               \
    if (((Flags)&O_CREAT) != 0 || ((Flags)&O_TMPFILE) == O_TMPFILE) {                              \
        va_list Arguments;                                                                         \
        va_start(Arguments, Flags);                                                                \
        (Mode) = va_arg(Arguments, mode_t);                                                        \
        va_end(Arguments);                                                                         \
    }

} // namespace

#define EXPORTED extern "C" [[gnu::visibility("default")]]

EXPORTED int open(const char *Path, int Flags, ...)
{
    GET_MODE(Flags, Mode)
    return open_File(Path, Flags, Mode);
}

EXPORTED int open64(const char *Path, int Flags, ...)
{
    GET_MODE(Flags, Mode)
    return open_File(Path, Flags, Mode);
}

EXPORTED int openat(int Folder, const char *Path, int Flags, ...)
{
    GET_MODE(Flags, Mode)
    return open_FileAt(Folder, Path, Flags, Mode);
}

EXPORTED int openat64(int Folder, const char *Path, int Flags, ...)
{
    GET_MODE(Flags, Mode)
    return open_FileAt(Folder, Path, Flags, Mode);
}

// What a build with _FORTIFY_SOURCE calls when there is no mode.
EXPORTED int __open_2(const char *Path, int Flags)
{
    return open_File(Path, Flags, 0);
}

EXPORTED int __open64_2(const char *Path, int Flags)
{
    return open_File(Path, Flags, 0);
}

EXPORTED int close(int Fd)
{
    if (Fd == DriverFd && is_Simulated()) {
        const turn::Inside Guard;
        session::close_Driver();
        DriverFd = NO_DRIVER;
    }
    return next::close(Fd);
}

EXPORTED int ioctl(int Fd, unsigned long Request, ...) noexcept
{
    va_list Arguments;
    va_start(Arguments, Request);
    void *const Argument = va_arg(Arguments, void *);
    va_end(Arguments);
    if (Fd == DriverFd && Fd != NO_DRIVER && is_Simulated()) {
        const turn::Inside Guard;
        return session::request(Request, Argument);
    }
    return static_cast<int>(syscall(SYS_ioctl, Fd, Request, Argument));
}

EXPORTED int usleep(useconds_t Microseconds)
{
    const timespec Duration = make_Timespec(std::chrono::microseconds{Microseconds});
    return nanosleep(&Duration, nullptr);
}

EXPORTED unsigned sleep(unsigned Seconds)
{
    const timespec Duration{static_cast<time_t>(Seconds), 0};
    timespec Left{};
    return nanosleep(&Duration, &Left) == 0 ? 0 : static_cast<unsigned>(Left.tv_sec);
}

EXPORTED int nanosleep(const timespec *Duration, timespec *Left)
{
    const int Result = clock_nanosleep(CLOCK_MONOTONIC, 0, Duration, Left);
    errno = Result != 0 ? Result : errno;
    return Result == 0 ? 0 : -1;
}

EXPORTED int clock_nanosleep(clockid_t Clock, int Flags, const timespec *Duration, timespec *Left)
{
    if (!is_Simulated()) {
        return wait_Really(Clock, Flags, Duration, Left);
    }
    if (!is_ValidDuration(Duration) || !is_VirtualClock(Clock)) {
        return EINVAL;
    }
    const Time Given = get_Time(*Duration);
    wait_Duration((Flags & TIMER_ABSTIME) != 0 ? Given - read_Clock(Clock) : Given);
    return 0;
}

EXPORTED int pause()
{
    if (!is_Simulated()) {
        return static_cast<int>(syscall(SYS_ppoll, nullptr, 0, nullptr, nullptr, 0));
    }
    wait_Duration(turn::NEVER);
    errno = EINTR;
    return -1;
}

EXPORTED int clock_gettime(clockid_t Clock, timespec *Value) noexcept
{
    if (!is_Simulated() || !is_VirtualClock(Clock)) {
        return static_cast<int>(syscall(SYS_clock_gettime, Clock, Value));
    }
    *Value = make_Timespec(read_Clock(Clock));
    return 0;
}

EXPORTED int gettimeofday(timeval *Value, void *Zone) noexcept
{
    if (!is_Simulated()) {
        return static_cast<int>(syscall(SYS_gettimeofday, Value, Zone));
    }
    const timespec Now = make_Timespec(read_Clock(CLOCK_REALTIME));
    *Value = {Now.tv_sec, Now.tv_nsec / 1000};
    return 0;
}

EXPORTED time_t time(time_t *Value) noexcept
{
    timespec Now{};
    clock_gettime(CLOCK_REALTIME, &Now);
    if (Value != nullptr) {
        *Value = Now.tv_sec;
    }
    return Now.tv_sec;
}

EXPORTED int pthread_create(pthread_t *Handle, const pthread_attr_t *Attributes,
                            void *(*Start)(void *), void *Argument) noexcept
{
    return is_Simulated() ? turn::create_Thread(Handle, Attributes, Start, Argument)
                          : next::pthread_create(Handle, Attributes, Start, Argument);
}

EXPORTED int pthread_join(pthread_t Handle, void **Result)
{
    return is_Simulated() ? turn::join_Thread(Handle, Result) : next::pthread_join(Handle, Result);
}

// exit_group, which needs no handler of the process any more.
EXPORTED void _exit(int Status)
{
    const turn::Inside Guard;
    session::finish(Status);
    syscall(SYS_exit_group, Status);
    __builtin_unreachable();
}

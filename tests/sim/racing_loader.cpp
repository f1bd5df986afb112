// In the loader's place: two threads that share a counter without any order. However the simulator
// runs them, and although both call the driver all the time, the thread sanitizer must find the
// race. With an argument they first meet without calling anything: only threads that really run in
// parallel come past that.
#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

static constexpr unsigned long SYS_TIMER = 10;

static std::atomic<bool> Running{true};
static std::atomic<int> NbMet;
static bool Meeting;
static int Driver;
static int Counter;

static void meet()
{
    NbMet.fetch_add(1, std::memory_order_relaxed);
    while (Meeting && NbMet.load(std::memory_order_relaxed) < 2) {
    }
}

static void count()
{
    std::uint32_t Ticks = 0;
    ++Counter;
    ioctl(Driver, SYS_TIMER, &Ticks);
    usleep(1);
}

static void *count_WhileRunning(void *)
{
    meet();
    while (Running.load(std::memory_order_relaxed))
        count();
    return nullptr;
}

int main(int argc, char **)
{
    Meeting = argc > 1;
    Driver = open("/dev/cana", O_RDWR);
    if (Driver < 0)
        return 1;
    pthread_t Thread;
    pthread_create(&Thread, nullptr, count_WhileRunning, nullptr);
    meet();
    for (int i = 0; i < 1000; i++)
        count();
    Running = false;
    pthread_join(Thread, nullptr);
    return 0;
}

// In the loader's place: two threads that share a counter without any order. They take turns under
// the simulator; the thread sanitizer must find the race all the same.
#include <atomic>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

static std::atomic<bool> Running{true};
static int Counter;

static void *count(void *)
{
    while (Running.load(std::memory_order_relaxed)) {
        ++Counter;
        usleep(10000);
    }
    return nullptr;
}

int main()
{
    if (open("/dev/cana", O_RDWR) < 0)
        return 1;
    pthread_t Thread;
    pthread_create(&Thread, nullptr, count, nullptr);
    for (int i = 0; i < 1000; i++) {
        ++Counter;
        usleep(1);
    }
    Running = false;
    pthread_join(Thread, nullptr);
    return 0;
}

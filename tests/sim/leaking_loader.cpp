// In the loader's place: a block that nobody frees. The leak sanitizer must find it under the
// simulator, in whose file system and with whose stand-ins it looks.
#include <cstdlib>
#include <fcntl.h>

int main()
{
    if (open("/dev/cana", O_RDWR) < 0)
        return 1;
    // NOLINTNEXTLINE(clang-analyzer-*): the leak is the point
    void *volatile Lost = malloc(77);
    Lost = nullptr;
    return Lost != nullptr ? 1 : 0; // NOLINT(clang-analyzer-*)
}

#include "preload/Journal.h"
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qxsim
{

void write_Whole(int Fd, std::string_view Text)
{
    while (!Text.empty()) {
        const long Written = syscall(SYS_write, Fd, Text.data(), Text.size());
        if (Written < 0 && errno != EINTR) {
            return;
        }
        Text.remove_prefix(Written < 0 ? 0 : static_cast<std::size_t>(Written));
    }
}

bool Journal::open(const char *Path)
{
    Fd = static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, Path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    return Fd >= 0;
}

void Journal::append(std::string_view Text)
{
    if (Text.size() > Buffer.size() - Held) {
        flush();
    }
    if (Text.size() > Buffer.size()) {
        write_Whole(Fd, Text);
        return;
    }
    memcpy(Buffer.data() + Held, Text.data(), Text.size());
    Held += Text.size();
}

void Journal::flush()
{
    write_Whole(Fd, {Buffer.data(), Held});
    Held = 0;
}

} // namespace qxsim

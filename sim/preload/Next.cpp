#include "preload/Next.h"
#include <cstring>
#include <dlfcn.h>
#include <initializer_list>
#include <sys/syscall.h>
#include <sysexits.h>
#include <unistd.h>

// There in a program that was built with the thread sanitizer.
extern "C" {
[[gnu::weak]] void AnnotateIgnoreReadsBegin(const char *File, int Line);
[[gnu::weak]] void AnnotateIgnoreReadsEnd(const char *File, int Line);
[[gnu::weak]] void AnnotateIgnoreWritesBegin(const char *File, int Line);
[[gnu::weak]] void AnnotateIgnoreWritesEnd(const char *File, int Line);
[[gnu::weak]] void AnnotateIgnoreSyncBegin(const char *File, int Line);
[[gnu::weak]] void AnnotateIgnoreSyncEnd(const char *File, int Line);
}

namespace qxsim::next
{
namespace
{

// The function Name of the next library. (A static of its own type, looked up once: an initialiser
// would be guarded, and a guard is a synchronisation.)
template <typename F>
F *find(F *&Function, const char *Name)
{
    if (Function == nullptr) {
        Function = reinterpret_cast<F *>(dlsym(RTLD_NEXT, Name));
    }
    return Function;
}

} // namespace

int pthread_create(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                   void *Argument)
{
    static int (*Function)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    return find(Function, "pthread_create")(Handle, Attributes, Start, Argument);
}

int pthread_join(pthread_t Handle, void **Result)
{
    static int (*Function)(pthread_t, void **);
    return find(Function, "pthread_join")(Handle, Result);
}

int open(const char *Path, int Flags, mode_t Mode)
{
    static int (*Function)(const char *, int, ...);
    return find(Function, "open64")(Path, Flags, Mode);
}

int close(int Fd)
{
    static int (*Function)(int);
    return find(Function, "close")(Fd);
}

Unseen::Unseen()
{
    if (AnnotateIgnoreSyncBegin != nullptr) {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
        AnnotateIgnoreSyncBegin(__FILE__, __LINE__);
    }
}

Unseen::~Unseen()
{
    if (AnnotateIgnoreSyncEnd != nullptr) {
        AnnotateIgnoreSyncEnd(__FILE__, __LINE__);
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
}

void die(const char *Text)
{
    for (const char *Part : {"qxsim: ", Text, "\n"}) {
        syscall(SYS_write, STDERR_FILENO, Part, strlen(Part));
    }
    syscall(SYS_exit_group, EX_SOFTWARE);
    __builtin_unreachable();
}

} // namespace qxsim::next

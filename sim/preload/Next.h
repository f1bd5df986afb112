// The functions that the stand-ins stand before: the C library's, or a sanitizer's interceptors of
// them where the loader was built with one.
#pragma once

#include <pthread.h>
#include <sys/types.h>

namespace qxsim::next
{

int pthread_create(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                   void *Argument);
int pthread_join(pthread_t Handle, void **Result);
int open(const char *Path, int Flags, mode_t Mode);
int close(int Fd);

// While it lives, a thread sanitizer disregards what its thread does: the simulated machine has
// its own order, which must neither raise an alarm nor hide one in the loader.
class Unseen
{
  public:
    Unseen();
    ~Unseen();
    Unseen(const Unseen &) = delete;
    Unseen &operator=(const Unseen &) = delete;
};

// Ends the process at once with 70 (EX_SOFTWARE) after a message on standard error.
[[noreturn]] void die(const char *Text);

} // namespace qxsim::next

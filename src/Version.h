// The loader's version as the banner, the log and the result files print it.
#ifndef QX_VERSION_H
#define QX_VERSION_H

constexpr int VERSION_MAJOR = 1;
constexpr int VERSION_MINOR = 1;
constexpr int VERSION_PATCH = 6;
#define BUILD_DATE "Jan 22 2015"
#define BUILD_TIME "15:04:49"

#endif

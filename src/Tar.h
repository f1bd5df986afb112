// Whether an archive of tar and gzip is whole. The shell's tar and gzip write what fits when the
// memory that the working directories are made of is full; here it is seen before it reaches store
// or board.
#ifndef QX_TAR_H
#define QX_TAR_H

#include <cstdint>

// 1: the archive goes on to its end marker (POSIX.1-1988, ustar); 0: it does not, it is no archive,
// or it cannot be read.
int ctrl_Tar(const char *FileName);

// 1: the file made by gzip holds Size bytes, by its last four bytes (RFC 1952, ISIZE), which a file
// that breaks off lacks; 0: it does not, or it cannot be read.
int ctrl_Gzip(const char *FileName, int64_t Size);

// 0: a file of the archive lies in the current directory under its name with another size; 1: none
// does, as far as the archive can be read. Absent files, names that no path may have, and forms of
// tar that tell sizes otherwise are passed over; an end marker is not asked for. A software header
// that is cut because the archive breaks off in it counts as 1.
int ctrl_Unpacked(const char *FileName);

#endif

// Whether an archive of tar and gzip is whole. The shell's tar and gzip write what fits when the
// memory that the working directories are made of is full; here it is seen before it reaches store
// or board.
#ifndef QX_TAR_H
#define QX_TAR_H

#include <cstdint>

// 1: the archive goes on to its end marker (POSIX.1-1988, ustar); 0: it does not, it is no archive,
// or it cannot be read.
int ctrl_Tar(const char *FileName);

// Bytes that a file made by gzip holds, modulo 2^32, by its last four bytes (RFC 1952, ISIZE); of a
// file that breaks off some other number. -1: it has not four bytes, or cannot be read.
int64_t get_GzipSize(const char *FileName);

// Whether a file of the archive lies in the current directory under its name with another size. 1:
// none does, as far as the archive can be read; 0: one does; -1: one does, and the archive breaks
// off. Absent files, names that no path may have, and forms of tar that tell sizes otherwise are
// passed over; an end marker is not asked for. A software header that is cut because the archive
// breaks off in it counts as 1: its reader finds it.
int ctrl_Unpacked(const char *FileName);

#endif

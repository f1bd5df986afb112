// Files and directories on storage that may not be mounted, and the checks of names from outside.
//
// Three places are mounted only while something is done on them: the card under /home/user/save,
// the removable medium /mnt/removable and the network share /mnt/net. Every tool here mounts the
// storage of its path when it is not mounted, and unmounts it again when it mounted it itself. A
// path on no such storage is always there. Main thread only; nothing is remembered between calls.
//
// A copy onto such a storage is whole or not there: the power may go at any moment, the card be
// full. .NAME.copying beside the file marks it until it is written through.
//
// A failed condition of this module is reported and the log closed with its trailer before the
// process aborts. Paths are taken as they are: names from outside go through ctrl_SafeName first.
#ifndef QX_FILETOOLS_H
#define QX_FILETOOLS_H

#include <cstdint>
#include <cstdio>

// Name of the storage device that Path lies on, "/home/user/save" say, by the beginning of Path
// alone; null: none. The caller frees it.
char *get_DeviceName(const char *Path);

// 1 when the storage device Dev is mounted, or Dev is null or the working directory; 0: it is not.
int ctrl_mount(const char *Dev);

// Run the platform's command that mounts the device of exactly this name, unmounts the device that
// the name begins with. 0, or SYST_ERR_MOUNT, SYST_ERR_UMOUNT when the command failed; a name of
// no device runs nothing.
int mount(const char *Dev);
int umount(const char *Dev);

// 1: the file can be opened for reading; 0: it cannot, or the name is null; SYST_ERR_MOUNT. What a
// cut copy left of it is removed: 0.
int ctrl_FilePresence(const char *FileName);

// 1: it is a directory; 0: it is not; SYST_ERR_MOUNT. Names of up to 129 characters (asserted).
int ctrl_DirPresence(const char *DirName);

// Makes one directory, its parent must be there. 0: made, or there before; SYST_ERR_MKDIR,
// SYST_ERR_MOUNT.
int make_Dir(const char *DirName);

// Copies a file onto a file or into a directory and syncs; a copy that fails leaves no file on a
// storage. 0, also when both are the same text;
// GEN_ERR_NO_FILE, GEN_ERR_PRG_VANTREL (a name is null), SYST_ERR_COPY, SYST_ERR_MOUNT (when it
// was the target's, the source's storage stays mounted). Both names together have up to 129
// characters (asserted).
int copy_File(const char *Source, const char *Target);

// Reads up to Count bytes. Returns how many were there. Even a Count of 0 takes a byte from the
// file; it is dropped.
int read_Bytes_FromFile(FILE *pFile, uint8_t *Buffer, int Count);

// 1 when a line of the file holds Text, 0 when none does or the file cannot be read. Lines are
// searched in pieces of 99 characters. Flag as for strstr_case.
int grep(const char *Text, const char *FileName, int Flag);

// strstr when the low byte of Flag is 1, else stristr.
const char *strstr_case(const char *Haystack, const char *Needle, int Flag);

// strstr that takes upper and lower case (of ASCII) as equal.
const char *stristr(const char *Haystack, const char *Needle);

// 1 when a name that comes from a board, an archive or a file may reach a path or the shell, 0
// when it may not: it starts with '-' or '/', has an empty, "." or ".." component, or holds a
// control character, a blank, a backquote or any of " ' \ $ ; & | < > ( ) { } [ ] * ? ! # ~ ^
int ctrl_SafeName(const char *Name);

// The same for a distribution name, which may hold no slash either.
int ctrl_SafeDistributionName(const char *Name);

#endif

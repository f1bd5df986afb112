// Files and directories on storage that may not be mounted, and the checks of names from outside.
#ifndef QX_FILETOOLS_H
#define QX_FILETOOLS_H

#include <cstdint>
#include <cstdio>

char *get_DeviceName(const char *Path);
int ctrl_mount(const char *Dev);
int mount(const char *Dev);
int umount(const char *Dev);
int ctrl_FilePresence(const char *FileName);
int ctrl_DirPresence(const char *DirName);
int make_Dir(const char *DirName);
int copy_File(const char *Source, const char *Target);
int read_Bytes_FromFile(FILE *pFile, uint8_t *Buffer, int Count);
int grep(const char *Text, const char *FileName, int Flag);
const char *strstr_case(const char *Haystack, const char *Needle, int Flag);
const char *stristr(const char *Haystack, const char *Needle);

// 1 when a name that comes from a board, an archive or a file may reach a path or the shell, 0
// when it may not: it starts with '-' or '/', has an empty, "." or ".." component, or holds a
// control character, a blank, a backquote or any of " ' \ $ ; & | < > ( ) { } [ ] * ? ! # ~ ^
int ctrl_SafeName(const char *Name);

// The same for a distribution name, which may hold no slash either.
int ctrl_SafeDistributionName(const char *Name);

#endif

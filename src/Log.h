// The log, the reports and the assertions.
//
// The log survives restarts: each run cuts it to its last 20000 bytes and appends
//     (empty line)
//     (empty line)
//     Projet : qx
//     Sat Nov 14 23:09:01 2015                                                  header
//     Version : 1.1.6 - Jan 22 2015  15:04:49                                   version line
//     ../src/Config 504 : Sat Nov 14 23:09:01 Erreur de lecture.                one line a report
//     Fin - Sat Nov 14 23:09:07 2015                                            trailer
//     (empty line)
// A report is source path and line, time stamp (the first 20 characters of ctime), message (at most
// 120 characters, what is longer is cut). It goes to the log and, the same, to standard output.
//
// Both threads report; one lock keeps their lines apart. Nothing waits or ends the process while it
// holds the lock. Failed writes to the log are lost: there is nowhere to report them.
#ifndef QX_LOG_H
#define QX_LOG_H

#include "Paths.h"

extern int ErrorFile;                  // descriptor of the log; -1 after a failed open, -2 closed
extern char ErrString[TEXT_SIZE + 1];  // current line: time stamp and message
extern char ErrOutText[TEXT_SIZE + 1]; // prefix of the current line, header and trailer of the log
extern int UserFile;                   // the same for the user's log, which the loader never opens
extern char UserString[TEXT_SIZE + 1];
extern char UserOutText[TEXT_SIZE + 1];

// Shortens the file Path to its last Keep bytes; the cut may fall inside a line. 0: done, or
// nothing to do (no file, or no longer than Keep); -1: failed, the file is as it was (a side file
// Path_TAIL may remain).
int ErrorTail(const char *Path, int Keep);

// Opens the log, made with mode 0666 when it is missing, and writes its header. Returns the bytes
// written, -1 when it cannot be opened: the run then goes on without a log.
int ErrorInit(const char *Path);

// Writes the version line after the header, without time stamp.
void write_Version();

// Writes the trailer and closes the log; returns what close returned, so -1 after a failed open.
// While the log is closed it does nothing and returns 0, and reports go to standard output only.
int ErrorClose();

// As ErrorInit and ErrorClose, for the user's log.
int UserInit(const char *Path);
int UserClose();

// Prints to standard output and flushes it, so that whoever watches sees the running phase.
[[gnu::format(printf, 1, 2)]] void print_Out(const char *Format, ...);

// Writes one report line. Source is "../src/" and the module's name.
[[gnu::format(printf, 3, 4)]] void report_Error(const char *Source, int Line, const char *Format,
                                                ...);

// The same with the time stamp in the place of a text: the time stamp stands twice in the line,
// followed by Text.
void report_TimeStamp(const char *Source, int Line, const char *Text);

// Prints "qx: SOURCE:LINE: Assertion `TEXT' failed." on standard error and aborts. The log stays
// without its trailer.
[[noreturn]] void stop_Assertion(const char *Source, int Line, const char *Text);

// A module defines SOURCE ("../src/Config") before it uses these two. Text is the condition as the
// message quotes it. Assertions are never compiled out.
#define REPORT(...) report_Error(SOURCE, __LINE__, __VA_ARGS__)
#define ASSERT(Condition, Text)                                                                    \
    ((Condition) ? static_cast<void>(0) : stop_Assertion(SOURCE, __LINE__, Text))

#endif

// The log, the reports and the assertions.
//
// Every error anywhere is one line, written to the log and to standard output alike:
//     ../src/Config 504 : Sat Nov 14 23:09:01 Erreur de lecture.
// source path and line, time stamp (20 characters of ctime), message (at most 120 characters).
// Both threads report; one lock keeps their lines apart.
#ifndef QX_LOG_H
#define QX_LOG_H

#include "Paths.h"

extern int ErrorFile;                  // descriptor of the open log; -1 after a failed open
extern char ErrString[TEXT_SIZE + 1];  // current line: time stamp and message
extern char ErrOutText[TEXT_SIZE + 1]; // prefix of the current line, header and trailer of the log
extern int UserFile;                   // the same for the user's log, which the loader never opens
extern char UserString[TEXT_SIZE + 1];
extern char UserOutText[TEXT_SIZE + 1];

// Shortens the file Path to its last Keep bytes. 0: done, or nothing to do; -1: failed, the file
// is as it was (a side file Path_TAIL may remain).
int ErrorTail(const char *Path, int Keep);

// Opens the log and writes its header. Returns the bytes written, -1 when it cannot be opened.
int ErrorInit(const char *Path);

// Writes the version line after the header, without time stamp.
void write_Version();

// Writes the trailer and closes the log; returns what close returned. Before ErrorInit it does
// nothing and returns 0.
int ErrorClose();

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

// Prints the quoted condition on standard error and aborts.
[[noreturn]] void stop_Assertion(const char *Source, int Line, const char *Text);

// A module defines SOURCE ("../src/Config") before it uses these two. Text is the condition as the
// message quotes it. Assertions are never compiled out.
#define REPORT(...) report_Error(SOURCE, __LINE__, __VA_ARGS__)
#define ASSERT(Condition, Text)                                                                    \
    ((Condition) ? static_cast<void>(0) : stop_Assertion(SOURCE, __LINE__, Text))

#endif

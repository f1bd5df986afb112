// Reader of appl.todo, by which the application asks, for the next start, for given software
// distributions on given slaves, whatever these run. Text:
//     4698           # signature
//     1421934889     # date, must be there, is not looked at
//     2.0.3          # version of the application, the same
//     0              # version of the file format, any number
//     cana 2 1 PUMP.1.4.12
// From line 5 on one request a line: device name, FuncAddr1, FuncAddr2, distribution (without
// ".tar.gz"). Lines are read through a buffer of 129 bytes.
#ifndef QX_A2L_H
#define QX_A2L_H

#include "Tables.h"
#include <cstdio>

extern FILE *A2lFile; // appl.todo while it is open, else null

// Requested name a slave index (NbSlaves entries), "" none. Null when there are no requests;
// allocated with calloc by read_Todo_FromA2lFile, freed with free by exit_Variables.
extern char (*ForcedDistributions)[DISTRIBUTION_SIZE];

// Reads the file into ForcedDistributions and ForcedDownloadMask, then deletes it whatever was
// found, so that a request is carried out once. Once a run, with ForcedDownloadMask 0.
// From then to end_Request the file has another name. Without appl.todo a request found under it,
// which a power cut ended, is read instead, once; one that was cut twice is reported and dropped.
// 0: done, or no file. -496: bad header or unknown device; requests before it stay. -488: the file
// cannot be opened, or not be deleted. The process ends with -1000 when memory is out and with the
// answer of ctrl_FilePresence when that is neither 0 nor 1.
// A line is passed over when it is incomplete, names a slave that is not configured, or a
// distribution that is longer than 39 characters or no safe name. Of two requests for a slave the
// later counts.
int read_Todo_FromA2lFile();

// The request is carried out, or will not be: the next start must not repeat it. From any thread,
// any number of times.
void end_Request();

#endif

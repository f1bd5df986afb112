// Writers of the result files that the application reads after the loader. Their texts, comments
// included, are the format that the application parses. All begin with the same four lines:
//     4698              # File : /var/vantrel/config/loader.todo
//     1421934889        # Creation date of the file (time_t) : 22.01.2015 14:54:49
//     1.1.6             # Version of the Loader
//     0                 # File format
// The date in clear is local time. The writers return 0, or -488 when the file cannot be created;
// a file that cannot be written whole is reported and removed, which changes no status. Slaves are
// in the order of their index, each on a line
//     cana       002 001
// of device name and functional address. Main thread only.
#ifndef QX_L2A_H
#define QX_L2A_H

#include "Tables.h"
#include <cstdio>

extern FILE *L2aFile;           // the result file being written, else null
extern uint8_t A2l_L2a_Version; // file format version

// loader.versions: the header alone, its line 4 with the lowest and highest format understood. The
// folder is made when it is missing (-488 when that fails).
int create_Loader_Versions();

// loader.protocols: structure and level agreed on with each interface in use,
//     cana       002 003 000
// -1 (none) is written as 4294967295.
int create_Loader_Protocols();

// loader.conf: what the slaves in service tell of themselves, read over the bus: hardware items 0
// and 3..12, software items 0 and 2..10, loader items 0..9. The first item of a slave that cannot
// be read ends its lists; that is no failure of this function. (Reads mark the slave in the masks.)
int create_Loader_Config();

// loader.todo and loader.errors: a result chosen by the run's Status, then slaves by mask.
int create_Loader_Todo(int Status);
int create_Loader_Errors(int Status);

// Writes of loader.errors and loader.todo those that the run's Status and the masks call for.
int create_Loader_Files(int Status);

// Deletes what the previous run left; loader.versions stays. The process ends with the answer of
// ctrl_FilePresence when that is neither 0 nor 1.
void remove_L2a_Files();

// The common header, into L2aFile. Path (of the file being written) also chooses the fourth line.
void write_L2a_Header(const char *Path);

// The identity lines of the slaves in Mask. pFile must be open.
void write_SlavesIndentity(FILE *pFile, BM_SLAVE_CAST Mask);

#endif

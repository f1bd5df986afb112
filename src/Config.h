// Readers of what the application tells the loader: the machine it expects (appl.conf) and the
// protocols it speaks (appl.protocols); and the reading of text lines that every text format of
// the loader shares.
//
// Both files are text and start with the same four lines:
//     4698           # signature
//     1421934889     # creation date, seconds since 1970
//     2.0.3          # version of the application: must be there, is not looked at
//     0              # version of the file format: 0
// A number stands at the start of its line; what follows it is comment.
//
// appl.conf goes on with the number of slaves (1..247) and one line a slave: State, device name,
// BoardType, BoardNumber, FuncAddr1, FuncAddr2, HwInfo4, HwInfo9, DistName, three version numbers,
// TypeId:
//     2              # slaves
//     3 cana 2 1 2 1 100 3 PUMP 1 4 12 7
//     1 cana 2 2 2 2 100 3 PUMP 1 4 12 7
//
// appl.protocols goes on with one line a protocol structure that the application can speak on an
// interface: device name, structure, lowest and highest level:
//     cana  4  1  3
//
// Every error is reported where it is found. Main thread only.
#ifndef QX_CONFIG_H
#define QX_CONFIG_H

#include <cstdint>
#include <cstdio>

// --- Lines of text ---
// The conversions are those of scanf, bounded: blanks before a field are skipped, a carriage
// return is one. A number ends where its digits end. The cursor *pText is moved past what was
// converted, and stays in its line, which ends at the first NUL.

constexpr int LINE_SIZE = 140;            // line buffer; a longer line is read in pieces
constexpr uint16_t FILE_SIGNATURE = 4698; // first number of every file the application exchanges

// Converts a number in Base (10; 0 also knows 0x.. and 0..) and returns 1, 0 when there is none.
// A number beyond 64 bits gives the nearest value. Cast to uint16_t for the low 16 bits.
int scan_Number(const char **pText, int Base, int64_t *pValue);

// Converts a word into Word (Size bytes with its NUL) and returns 1; 0 when the line holds no more
// words, -1 when the word does not fit; Word is then empty.
int scan_Word(const char **pText, char *Word, int Size);

// Reads the next line (through a buffer of Size bytes, LINE_SIZE at most) and converts the number
// at its start: 1, 0 when there is none, -1 when there is no line. *pValue is kept unless 1.
int read_Number(FILE *pFile, int Size, int Base, int64_t *pValue);

// --- appl.conf ---

extern FILE *ConfigFile;       // appl.conf while it is open, else null
extern int16_t Config_Version; // file format version of the file read last, of either kind

// Opens, checks and closes the file. 0, -899 no file, or the status of open_ConfigFile.
int ctrl_ConfigFile();

// Opens the file, checks its first four lines and leaves it open at its beginning: 0.
// Else the file is closed: -500 cannot be opened; -499 a line is missing, or the signature or the
// version is no number; -898 wrong signature or version, no date, or a date in the future.
int open_ConfigFile();

// Harmless when nothing is open.
void close_ConfigFile();

// Sets NbSlaves. The file must be open and stays open, but for -488 (cannot be rewound), for -499
// when a line is missing or there are more than 247 slaves. -499 with the file open: no number.
// A count outside 1..255 stops the program.
int read_NbSlaves_FromConfig();

// Fills the NbSlaves records of Slave. The file must be open; it stays open on success and is
// closed on failure: -488 cannot be rewound, -499 a line is missing or malformed, names an unknown
// device, or its DistName is too long or no safe name. Records before the faulty line are filled.
// Numbers keep the low bits that their field holds.
int read_SlaveConfig();

// --- appl.protocols ---

extern FILE *ProtocolsFile; // appl.protocols while it is open, else null

// Opens the file and checks its first four lines. Returns 0 or not at all: the process ends with
// -899 no file, -500 cannot be opened, -499 or -898 as in open_ConfigFile. ConfigFile must be null.
int open_ProtocolsFile();

// Harmless when nothing is open.
void close_ProtocolsFile();

// Looks for the structure Broadcast[DeviceIndex].ProtocolStructure, or the highest one below it,
// among the lines of the interface (1..7). ProtocolStructure becomes what was found, -1 nothing,
// and ProtocolParam1 and ProtocolParam2 its levels (kept when nothing was found, 0xFFFF when the
// file has lost its header). A malformed line ends the process with -499; a header without a line
// feed at its end stops the program. The file must be open and stays open.
void read_Protocol_FromProtocolsFile(int DeviceIndex);

#endif

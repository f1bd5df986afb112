// Reader of sheader.bin, the header of a software distribution. The loader never writes one.
//
// Everything in the file is big-endian and unsigned:
//
//     offset  size
//          0     2  signature, 0x0601
//          2     4  size of the file in bytes
//          6     4  offset of the information table, below size
//         10     2  number of information records
//         12     4  offset of the file list, below size
//         16     2  number of files
//         18     4  not read
//         22     8  16-bit word, two bytes, 32-bit word: read, used by nothing
//
// Information record, packed: tag, L, type, L data bytes (at most 125), as the information service
// exchanges it (MT_Info.h). Tag 2 is the distribution's name; 3, 4 and 5 are its version numbers.
// Entry of the file list: 11 bytes that the loader skips, then the file's name with its NUL, a path
// relative to the distribution's root.
//
// The header is opened by the name "sheader.bin" in the current directory. It comes from a board
// or an archive: whatever it holds gives a status. The one exception: a header whose count of
// records is not above the largest tag asked for (5) stops the program by an assertion.
#ifndef QX_SHEADER_H
#define QX_SHEADER_H

#include <cstdint>
#include <cstdio>

struct SHEADER {
    uint16_t signature;
    uint32_t size;
    uint32_t offset_SwInfo;
    uint16_t nb_SwInfo;
    uint32_t offset_Files;
    uint16_t nb_Files;
    uint16_t Word22; // read and kept, used by nothing
    uint8_t Byte24;
    uint8_t Byte25;
    uint32_t Long26;
};

constexpr char SHEADER_NAME[] = "sheader.bin"; // the same on the master and on the slaves
constexpr int INFO_SW_SIZE = 128;              // of the buffer of one information record

extern FILE *SheaderFile; // the header while it is open, else null; one at a time

// 1 when a read or a seek of the header has failed since it was opened, not for want of bytes: what
// was or was not found in it proves nothing. Complete once it is closed.
extern uint8_t SheaderUnread;

// Opens, reads and checks the header. 0: SheaderFile is open, at offset 0; GEN_ERR_FOPEN;
// ERR_SHEADER. After a failure the caller calls close_SheaderFile: a file too short for its
// signature is left open.
int open_SheaderFile(SHEADER *pSHeader);

// Closes the header if it is open.
void close_SheaderFile();

// Copies the record of Tag into Buffer (INFO_SW_SIZE bytes). Returns its length with tag, L and
// type, 0 when the header has no such record, -1 when it is damaged. Tag must be below nb_SwInfo.
int read_InfoSw(const SHEADER *pSHeader, uint8_t Tag, uint8_t *Buffer);

// Opens the header, reads name and version numbers, closes it. SizeName counts the NUL. Returns 0
// or the status of the open; ERR_SHEADER also when a record is absent or does not convert, and
// when the name is not safe to be part of a path or a command.
int read_InfoSw_FromSheader(char *Name, int SizeName, uint16_t *pVersion1, uint16_t *pVersion2,
                            uint16_t *pVersion3);

// Writes "NAME.1.2.3" into DistributionName (DISTRIBUTION_SIZE bytes), the numbers as signed 16-bit
// ones: archives are only found again while each number is below 256. Returns 0, or a status and
// leaves DistributionName as it was.
int make_DistributionName_FromSheader(char *DistributionName);

#endif

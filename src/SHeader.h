// Reader of sheader.bin, the header of a software distribution.
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

extern FILE *SheaderFile; // the header while it is open, else null

int open_SheaderFile(SHEADER *pSHeader);
void close_SheaderFile();
int read_InfoSw(const SHEADER *pSHeader, uint8_t Tag, uint8_t *Buffer); // 128 bytes
int read_InfoSw_FromSheader(char *Name, int SizeName, uint16_t *pVersion1, uint16_t *pVersion2,
                            uint16_t *pVersion3);
int make_DistributionName_FromSheader(char *DistributionName); // DISTRIBUTION_SIZE bytes

#endif

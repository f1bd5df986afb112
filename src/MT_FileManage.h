// File service (MT 25): files of the slaves, whole-file transfers, distribution archives.
#ifndef QX_MT_FILEMANAGE_H
#define QX_MT_FILEMANAGE_H

#include "Interfaces.h"
#include <cstdio>

constexpr uint8_t MT_FILEMANAGE = 25;

constexpr uint8_t FILE_OPEN_READ = 0;
constexpr uint8_t FILE_OPEN_WRITE = 1;
constexpr uint8_t FILE_OPEN_APPEND = 2;

void cmd_FileOpen(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Mode, const char *Name);
void cmd_FileWrite(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, const uint8_t *pData,
                   uint16_t NbData);
void cmd_FileRead(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Count);
void cmd_FileSeek(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Origin, int32_t Offset);
void cmd_FileClose(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);

int32_t open_SlaveFile_Once(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName);
int32_t open_SlaveFile(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName);
int16_t write_SlaveFile(BM_SLAVE_CAST Slaves, FILE *File, uint16_t MaxBytes);
int read_SlaveFile(BM_SLAVE_CAST Slaves, uint16_t Count);
int close_SlaveFile(BM_SLAVE_CAST Slaves);

int get_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName);
int put_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName);

int get_SlaveDistribution(BM_SLAVE_CAST Slaves);
int put_SlaveDistribution(BM_SLAVE_CAST Slaves, const char *DistributionName);

#endif

// File service (MT 25): files of the slaves, whole-file transfers, distribution archives.
//
// Main thread only. Every operation but the builders speaks to one slave (Slaves holds one bit),
// blocks until the answer or the time-out, and uses Cmd and pAns2Cmd. A time-out puts the slave
// into TimeoutMask and gives ERR_TIMEOUT.
//
// An error answer (FLAG_ACK in Fn) carries the slave's file status in parameter byte 0:
//     128 file unknown            132 check sum wrong
//     129 no file is open         133 end of file, the normal end of a read
//     130 a file is already open  131, 135 refused writes
#ifndef QX_MT_FILEMANAGE_H
#define QX_MT_FILEMANAGE_H

#include "Interfaces.h"
#include <cstdio>

constexpr uint8_t MT_FILEMANAGE = 25;

constexpr uint8_t FILE_OPEN_READ = 0;
constexpr uint8_t FILE_OPEN_WRITE = 1;
constexpr uint8_t FILE_OPEN_APPEND = 2;

constexpr uint16_t NB_FILE_WRITE = 768; // bytes of the longest write
constexpr uint16_t NB_FILE_READ = 766;  // bytes asked for by a read

// Builders of a command: they fill pCmd and nothing else. Flag is FLAG_ACK, or 0 for a command
// without answer and without time-out. Numbers travel high byte first.
//
//     open   Fn 0   mode, name, NUL               1000 ticks
//     write  Fn 1   0 to 768 data bytes           1000 ticks
//     read   Fn 2   count u16                     1000 ticks
//     seek   Fn 3   origin u8, offset i32           40 ticks
//     close  Fn 4   -                               40 ticks
void cmd_FileOpen(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Mode, const char *Name);
void cmd_FileWrite(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, const uint8_t *pData,
                   uint16_t NbData);
void cmd_FileRead(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Count);
void cmd_FileSeek(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Origin, int32_t Offset);
void cmd_FileClose(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);

// Opens a slave's file. Returns its length (0 or more), the slave's status (128 to 255), which a
// caller cannot tell from a length, ERR_TIMEOUT or GEN_ERR_PRG_VANTREL (not sent). A negative
// length is reported and taken as 0.
int32_t open_SlaveFile_Once(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName);

// The same, but a file that the slave still holds open is closed and the open repeated, as often
// as the slave refuses with 130: a 130 returned here is a length. Ends the process when that close
// fails otherwise than by a time-out.
int32_t open_SlaveFile(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName);

// Sends the next bytes of File, at most MaxBytes (up to NB_FILE_WRITE), in one write; at the end of
// File a write without data. Returns the bytes sent, the slave's status, ERR_TIMEOUT or
// GEN_ERR_PRG_VANTREL.
int16_t write_SlaveFile(BM_SLAVE_CAST Slaves, FILE *File, uint16_t MaxBytes);

// Asks for Count bytes. 0: the answer is at pAns2Cmd, its bytes from 1 on are the data, and the
// caller gives it back; else the slave's status or ERR_TIMEOUT. A command that could not be sent
// shows as a time-out.
int read_SlaveFile(BM_SLAVE_CAST Slaves, uint16_t Count);

// 0, the slave's status, ERR_TIMEOUT or GEN_ERR_PRG_VANTREL.
int close_SlaveFile(BM_SLAVE_CAST Slaves);

// One attempt to copy a whole file, judged by its size alone; the master's names are relative to
// the current directory. Return 0, ERR_TIMEOUT, GEN_ERR_FOPEN, GEN_ERR_FCLOSE, and when the sizes
// differ ERR_FILE_SLAVE (get) or ERR_FILE_SIZE_PUT (put). After ERR_TIMEOUT or GEN_ERR_FOPEN the
// slave's file is still open there; the next open closes it. Any other answer of the slave ends the
// process with its status.
int get_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName);
int put_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName);

// Fetches the slave's sheader.bin and every file that it lists and packs them: on 0 the archive
// NAME.1.2.3.tar.gz, named by the header, is in DIR_WORK_SW. On failure no archive is there.
// Returns 0, the status of make_Dir, of get_SlaveFile, or of the header (ERR_SHEADER also for an
// unsafe or empty name, ERR_MASTER_OS when it cannot be opened). Changes the current directory.
int get_SlaveDistribution(BM_SLAVE_CAST Slaves);

// Unpacks DistributionName.tar.gz, which must be in DIR_WORK_SW and is used up, and sends its
// header and every file listed there. DistributionName must be safe (ctrl_SafeDistributionName).
// Returns as get_SlaveDistribution, or GEN_ERR_PRG_VANTREL when DIR_WORK cannot be entered.
int put_SlaveDistribution(BM_SLAVE_CAST Slaves, const char *DistributionName);

#endif

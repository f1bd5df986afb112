// Information service (MT 24): typed items of the slaves, hardware and software identity, versions,
// distribution name, supported protocols. The master reads them, and writes some.
//
// Command, Fn with FLAG_ACK, then the parameters:
//     read    Function Tag
//     write   Function Tag LenLow Type Data...    (more than four data bytes take several frames)
// Answer: parameter 0 is an answer code (in an error answer the error: 128 item unknown), then the
// information record:
//     Tag Len Type Value...     Type: bits 0..6 number, bit 7 unsigned; most significant byte first
//
//     Type  value         Len   Info2long                 Info2string (bit 7 set: empty text)
//     1     char          1     the byte, 0..255          the byte, "%i"
//     2     short         2     16 bits, not extended     signed, "%d"
//     3     long          4     32 bits                   signed, "%ld"
//     4     char ascii    1     fails                     the character
//     5     text          any   number it begins with     the text, up to a NUL
//     6, 8  byte array    any   fails                     " 01 0A"
//     7     float         4     truncated                 "%f"
//     9     time_t        4     32 bits, signed type only fails
//     else                any   0                         empty text
//
// `long` is 32 bits here on every host. Only one command is under way at a time: all of these use
// Cmd and pAns2Cmd. A caller gives an answer back with pAns2Cmd->Slaves = 0.
#ifndef QX_MT_INFO_H
#define QX_MT_INFO_H

#include "Interfaces.h"

constexpr uint8_t MT_INFO = 24; // 0x18

// Function of an item as the loader passes it: answer-wanted flag and information group.
constexpr uint8_t INFO_HARDWARE = 64;
constexpr uint8_t INFO_SOFTWARE = 65;
constexpr uint8_t INFO_LOADER = 67;
constexpr uint8_t INFO_WRITE_HARDWARE = 32;

// What a board answers in parameter 0 of an error answer for an item that it does not have.
constexpr uint8_t INFO_CODE_UNKNOWN = 128;

// Builders; Flag as in MT_BoardState.h, with it the command expires after 40 ticks.
//     Function|Flag Tag
void cmd_Info(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag);
//     Function|Flag Tag LenLow Type Data[Len]
// Only the low byte of Len travels, the length of the message tells the rest. Len is at most 765: a
// longer message is built cut to the buffer, with an NbP above 768, and send_Msg2Can's assertion
// stops it.
void cmd_setInfo(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag,
                 uint8_t Type, uint16_t Len, const uint8_t *pData);

// Reads one item of the one slave in Slaves.
//     0                     the answer is at pAns2Cmd, the caller gives it back
//     ERR_INFO_UNKNOWN      the slave does not know the item (answer given back)
//     ERR_INFO_ANSWER       another error answer (given back), slave now in ReplaceSlavesMask
//     ERR_TIMEOUT           no answer (pAns2Cmd is null), slave now in TimeoutMask
//     GEN_ERR_PRG_VANTREL   no slave or more than one in Slaves, or the command was not sent
int get_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag);

// Read an item and convert it; the answer is given back, clear_pAns is left to the caller.
//     0                  converted
//     ERR_INFO_UNKNOWN   the slave does not know the item
//     -1                 no answer, or (slave now in ReplaceSlavesMask) an error answer or a value
//                        that does not convert
// Anything else ends the process. *pValue and pText (SizeText bytes, NUL included) count with 0
// only.
int get_Long_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pValue);
int get_String_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, char *pText,
                              int SizeText);

// Reads an item of every slave in Slaves (not 0, asserted), one after the other, and keeps the
// smallest and the largest value, compared as signed. Every slave is asked, whatever the others
// answered. Returns 0 or the worst that happened: ERR_INFO_ANSWER, then ERR_TIMEOUT, then
// ERR_INFO_UNKNOWN (also for a value that does not convert). Without any value *pMin stays
// 2147483647 and *pMax -2147483648. Another failure ends the process.
int get_Info_MinMax_FromSlaves(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pMin,
                               int32_t *pMax);

// Writes an item. Returns 0, ERR_TIMEOUT (slave now in TimeoutMask), ERR_ANSWER_WRITE (slave now in
// ReplaceSlavesMask) or GEN_ERR_PRG_VANTREL. The answer is given back, clear_pAns is left to the
// caller.
int set_Info_ToSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, uint8_t Type,
                     uint16_t Len, const uint8_t *pData);

// Conversions of an information record: tag, Len, type, Len value bytes. NbRecord bytes of it are
// there, missing ones of the first three read as 0. Both return 0, or GEN_ERR_FORMAT after a
// report: Len is not the type's, says more than is there, the type does not convert, or the text
// does not fit. The result is then 0 or the empty text. SizeText is 1 or more and counts the NUL.
//
// Info2long: unsigned values of 32 bits keep their bit pattern. A number in a text that is beyond
// 32 bits gives the nearest value; behind a minus sign an unsigned one is negated, as "%lu" does. A
// float is clamped to the range of its signedness, NaN gives 0; above 2^31 (unsigned 2^32) it
// fails.
int Info2string(const uint8_t *pRecord, int NbRecord, char *pText, int SizeText);
int Info2long(const uint8_t *pRecord, int NbRecord, int32_t *pValue);

// The same on the record of the answer at pAns2Cmd (parameter bytes from 1 on).
int Ans2string(char *pText, int SizeText);
int Ans2long(int32_t *pValue);

// Distribution name of what the slave runs, "NAME.1.2.3" from software items 2 to 5, into pName of
// DISTRIBUTION_SIZE bytes. Returns 0, a status of get_Info_FromSlave, or GEN_ERR_FORMAT: an item
// does not convert, the name has 40 characters or more, or it may not reach a path or the shell.
// After a failure pName holds what was read so far and must not be used.
int make_DistributionName_FromSlave(BM_SLAVE_CAST Slaves, char *pName);

// Agrees with the slaves of an interface (index 1..7) on a level of its ProtocolStructure, which
// must be 0 or more. No slave may be in TimeoutMask, ReplaceSlavesMask or NoDistributionMask
// (asserted). Software item 11 of a slave is a byte array of triples: structure, lowest level,
// highest level. A triple at value byte j counts if j + 4 < Len (so the last of 3n bytes does not);
// Len 1, 4, 7, ... is unusable.
//     0                  ProtocolLevel is the highest level of the application and of all slaves
//     -1                 a slave lacks the structure, or there is no common level
//     ERR_INFO_UNKNOWN   slaves without a usable item, now in NoDistributionMask
//     ERR_TIMEOUT        slaves that did not answer, now in TimeoutMask
//     ERR_INFO_ANSWER    slaves with another error answer, now in ReplaceSlavesMask
//     GEN_ERR_PRG_VANTREL   the command was not sent
int get_Protocol_FromSlaves(int DeviceIndex);

#endif

// Information service (MT 24): typed items of the slaves.
#ifndef QX_MT_INFO_H
#define QX_MT_INFO_H

#include "Interfaces.h"

constexpr uint8_t MT_INFO = 24;

// Function of an item as the loader passes it: answer-wanted flag and information group.
constexpr uint8_t INFO_HARDWARE = 64;
constexpr uint8_t INFO_SOFTWARE = 65;
constexpr uint8_t INFO_LOADER = 67;
constexpr uint8_t INFO_WRITE_HARDWARE = 32;

void cmd_Info(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag);
void cmd_setInfo(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag,
                 uint8_t Type, uint16_t Len, const uint8_t *pData);

int get_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag);
int get_Long_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pValue);
int get_String_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, char *pText,
                              int SizeText);
int get_Info_MinMax_FromSlaves(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pMin,
                               int32_t *pMax);
int set_Info_ToSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, uint8_t Type,
                     uint16_t Len, const uint8_t *pData);

// Conversions of an information record: tag, Len, type, Len value bytes; NbRecord bytes of it are
// there. SizeText counts the NUL.
int Info2string(const uint8_t *pRecord, int NbRecord, char *pText, int SizeText);
int Info2long(const uint8_t *pRecord, int NbRecord, int32_t *pValue);

// The same on the record of the answer at pAns2Cmd (parameter bytes from 1 on).
int Ans2string(char *pText, int SizeText);
int Ans2long(int32_t *pValue);

int make_DistributionName_FromSlave(BM_SLAVE_CAST Slaves, char *pName); // DISTRIBUTION_SIZE bytes
int get_Protocol_FromSlaves(int DeviceIndex);

#endif

// Board state service (MT 22): life of the slave boards.
#ifndef QX_MT_BOARDSTATE_H
#define QX_MT_BOARDSTATE_H

#include "Interfaces.h"

constexpr uint8_t MT_BOARDSTATE = 22;

void cmd_IsBoardReady(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);
void cmd_getBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);
void cmd_setBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t State);
void cmd_setBoardRestart(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Delay);
void cmd_setNewAddress(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t First,
                       uint8_t Second);
void cmd_StartApplication(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t B0, uint8_t B1,
                          uint8_t B2, uint8_t B3, uint8_t B4, uint16_t Word);
int restart_AllSlaves();

#endif

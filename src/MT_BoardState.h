// Board state service (MT 22): life of the slave boards, from the readiness probe to the start of
// their application.
//
// The builders only fill *pCmd, whose pP must hold NB_PARAMETERS_MAX bytes; the caller sends it
// (send_Cmd) and waits (wait_pAns). Flag is FLAG_ACK when an answer is wanted, else 0. With it the
// command expires 40 driver ticks after it was sent, a state request 1000; without it, never.
#ifndef QX_MT_BOARDSTATE_H
#define QX_MT_BOARDSTATE_H

#include "Interfaces.h"

constexpr uint8_t MT_BOARDSTATE = 22; // 0x16

// The bytes below are those of one frame: Fn with FLAG_ACK, then the parameters.

// 40
// Readiness probe. Silence is what an absent board says: its time-out is not reported.
void cmd_IsBoardReady(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);

// 41
// Parameters 2 and 3 of the answer are the hardware and the software fault flag (0: sound).
void cmd_getBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag);

// 42 State
// State 0, 1 or 2. Any other value is reported and sent as 0.
void cmd_setBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t State);

// 43 DelayHigh DelayLow
void cmd_setBoardRestart(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Delay);

// 44 First Second
// New bus address: First is the board number (FuncAddr2), Second the board type (FuncAddr1).
void cmd_setNewAddress(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t First,
                       uint8_t Second);

// 45 80|1 B0 B1 B2 B3 B4 00, then 45 00 WordHigh WordLow: eight parameters take two frames
// Start of the application: B0 board type, B1 board number, B2 protocol structure, B3 protocol
// level, B4 0, Word the board's index of compatibility.
void cmd_StartApplication(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t B0, uint8_t B1,
                          uint8_t B2, uint8_t B3, uint8_t B4, uint16_t Word);

// Restarts every slave in service, gives the boards two seconds and drops what they answered.
// There must be a slave (asserted). Returns 0; a command that cannot be sent ends the process with
// the status of send_Cmd.
int restart_AllSlaves();

#endif

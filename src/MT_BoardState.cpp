#include "MT_BoardState.h"
#include "Exit.h"
#include "Log.h"
#include <algorithm>
#include <initializer_list>
#include <unistd.h>

static const char SOURCE[] = "../src/MT_BoardState";

// Functions of the service.
constexpr uint8_t FN_IS_READY = 0;
constexpr uint8_t FN_GET_STATE = 1;
constexpr uint8_t FN_SET_STATE = 2;
constexpr uint8_t FN_RESTART = 3;
constexpr uint8_t FN_NEW_ADDRESS = 4;
constexpr uint8_t FN_START_APPLICATION = 5;

// Driver ticks for an answer. A state request is answered by a board that looks at itself first.
constexpr uint32_t TIMEOUT_TICKS = 40;
constexpr uint32_t TIMEOUT_STATE_TICKS = 1000;

constexpr uint8_t STATE_MAX = 2;
constexpr unsigned RESTART_SECONDS = 2;

static void fill_Cmd(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function,
                     std::initializer_list<uint8_t> Parameters, uint32_t Ticks = TIMEOUT_TICKS)
{
    pCmd->MT = MT_BOARDSTATE;
    pCmd->Fn = Flag | Function;
    pCmd->Slaves = Slaves;
    pCmd->TimeOut = Flag != 0 ? Ticks : 0;
    pCmd->NbP = static_cast<int16_t>(Parameters.size());
    std::copy(Parameters.begin(), Parameters.end(), pCmd->pP);
}

static uint8_t get_HighByte(uint16_t Word)
{
    return static_cast<uint8_t>(Word >> 8);
}

static uint8_t get_LowByte(uint16_t Word)
{
    return static_cast<uint8_t>(Word & 0xFF);
}

void cmd_IsBoardReady(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag)
{
    fill_Cmd(pCmd, Slaves, Flag, FN_IS_READY, {});
}

void cmd_getBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag)
{
    fill_Cmd(pCmd, Slaves, Flag, FN_GET_STATE, {}, TIMEOUT_STATE_TICKS);
}

void cmd_setBoardState(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t State)
{
    if (State > STATE_MAX) {
        REPORT("Etat dans cmd_setBoardState inconnu : %i", State);
        State = 0;
    }
    fill_Cmd(pCmd, Slaves, Flag, FN_SET_STATE, {State});
}

void cmd_setBoardRestart(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Delay)
{
    fill_Cmd(pCmd, Slaves, Flag, FN_RESTART, {get_HighByte(Delay), get_LowByte(Delay)});
}

void cmd_setNewAddress(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t First, uint8_t Second)
{
    fill_Cmd(pCmd, Slaves, Flag, FN_NEW_ADDRESS, {First, Second});
}

void cmd_StartApplication(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t B0, uint8_t B1,
                          uint8_t B2, uint8_t B3, uint8_t B4, uint16_t Word)
{
    fill_Cmd(pCmd, Slaves, Flag, FN_START_APPLICATION,
             {B0, B1, B2, B3, B4, 0, get_HighByte(Word), get_LowByte(Word)});
}

int restart_AllSlaves()
{
    const BM_SLAVE_CAST Slaves = Broadcast[BROADCAST_ALL].Mask;

    ASSERT(Slaves != 0, "Broadcast[BROADCAST_ALL].Mask");
    cmd_setBoardRestart(&Cmd, Slaves, FLAG_ACK, 0);
    const int Status = send_Cmd(&Cmd);
    if (Status != 0) {
        REPORT("Envoi de la commande");
        exit_Process(Status);
    }
    // Some boards answer before they restart, others never: nobody waits for them.
    sleep(RESTART_SECONDS);
    clear_pAns();
    return 0;
}

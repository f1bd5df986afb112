// Commands and answers: the one outgoing command, the answer store filled by the receive thread,
// sending and waiting.
#ifndef QX_INTERFACES_H
#define QX_INTERFACES_H

#include "CanFrame.h"
#include "Tables.h"
#include <atomic>

constexpr int NB_PARAMETERS_MAX = 768; // parameter bytes of the longest message
constexpr uint8_t FLAG_ACK = 0x40; // in Fn: of a command, an answer is wanted; of an answer, error

struct MSG {
    uint8_t MT;           // service, 5 bits on the bus
    uint8_t Fn;           // function, bits 0..5; FLAG_ACK
    uint8_t *pP;          // parameter bytes
    int16_t NbP;          // how many, 0..768
    BM_SLAVE_CAST Slaves; // command: destinations; answer: the sender, 0 once it was given back
    uint32_t TimeOut;     // command, in driver ticks: before sending relative, after it absolute
};

// Answer classes.
constexpr int ANS_LONG = 0;
constexpr int ANS_SHORT = 1;
constexpr int NB_ANS = 2;
constexpr uint16_t ANS_NONE = 0xFFFF;

struct ANS_DEF {
    uint16_t Size;   // records of the class
    uint16_t Buffer; // bytes of a parameter buffer
    uint16_t Mask;   // of the ring positions
};

// One answer under reassembly.
struct ANS_CDM {
    uint16_t Num;      // frames still expected after the last one received
    uint16_t AnsIndex; // record in pAns of the class, ANS_NONE none
};

// The answers under reassembly of a class. Receive thread only.
struct ANS_TMP {
    uint16_t Size; // slots
    uint16_t Last; // live slots: 0..Last-1
    ANS_CDM *pCdm;
};

// Ring of record indices: one thread writes at Last, the other reads at First; empty when equal.
struct ANS_RING {
    uint16_t Size;
    uint16_t Mask;
    std::atomic<uint16_t> First;
    std::atomic<uint16_t> Last;
    uint16_t *pAnsIndex;
};

extern MSG Cmd;       // the command; its pP holds NB_PARAMETERS_MAX bytes
extern MSG *pAns2Cmd; // the answer that get_pAns found for it
extern ANS_DEF AnsDef[NB_ANS];
extern MSG *pAns[NB_ANS];
extern ANS_TMP AnsTmp[NB_ANS];
extern ANS_RING AnsFree[NB_ANS];   // main thread to receive thread
extern ANS_RING AnsTransf[NB_ANS]; // receive thread to main thread

int init_Interfaces();
int open_Interfaces(int DeviceIndex);
int close_Interfaces();

// Receive thread.
int fill_pAns(const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves);
int get_NewAnsCdmIndex(int AnsSize);
int find_AnsCdmIndex(int AnsSize, const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves);

// Main thread.
int send_Cmd(MSG *pCmd);
int get_pAns(MSG *pCmd, MSG **ppAns);
void clear_pAns();
int get_SlaveIndex(BM_SLAVE_CAST *pMask, uint16_t *pIndex);

// Polls get_pAns, asleep for a microsecond after each empty poll, until it returns something else
// than 0, and returns that.
int wait_pAns(MSG *pCmd, MSG **ppAns);

// Parameter byte Index (from 0) of an answer; bytes that the answer does not carry read as 0.
uint8_t get_Parameter(const MSG *pMsg, int Index);

#endif

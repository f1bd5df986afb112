// Commands and answers: the one outgoing command, the answer store filled by the receive thread,
// sending and waiting.
//
// How a service works: fill Cmd, send_Cmd, wait_pAns, read the answer at pAns2Cmd, give it back
// with `pAns2Cmd->Slaves = 0`, clear_pAns when the command is done. Until it is given back an
// answer stays at the head of its ring and every get_pAns of its command finds it again.
//
// How an answer record travels (records of a class are pAns[AnsSize][0..Size-1]):
//
//     state          where its index is             who owns the record
//     free           AnsFree                        nobody; put there by the main thread
//     reassembly     a live slot of AnsTmp          receive thread, from get_NewAnsCdmIndex on
//     complete       AnsTransf                      main thread, from the moment Last moves on
//     handed out     head of AnsTransf, pAns2Cmd    main thread, until Slaves is 0
//     free           AnsFree                        put back by get_pAns or clear_pAns
//
// The record and its parameters are written only by the owner. There is no lock: each ring has one
// producer and one consumer. The producer fills the record, writes its index at Last, then moves
// Last on with release; the consumer reads Last with acquire, so that it sees all of that, and
// moves First on. A ring is never overrun: there are fewer records on the way than positions.
//
// get_NewAnsCdmIndex leaves the last free record where it is, and one record never enters AnsFree:
// at most Size - 2 records of a class are in use at a time (30 long, 126 short).
//
// An answer whose remaining frames never come stays in AnsTmp until the end of the run. A message
// stream that is broken (a lone continuation, a wrong counter, no free record) ends the process on
// purpose: the loader does not try to resynchronise.
#ifndef QX_INTERFACES_H
#define QX_INTERFACES_H

#include "CanFrame.h"
#include "Tables.h"
#include <atomic>

constexpr int NB_PARAMETERS_MAX = 768; // parameter bytes of the longest message
constexpr uint8_t FLAG_ACK = 0x40; // in Fn: of a command, an answer is wanted; of an answer, error
constexpr uint8_t MASK_FUNCTION = 0x3F; // in Fn: the function

struct MSG {
    uint8_t MT;           // service, 5 bits on the bus
    uint8_t Fn;           // function, bits 0..5; FLAG_ACK
    uint8_t *pP;          // parameter bytes
    int16_t NbP;          // how many, 0..768
    BM_SLAVE_CAST Slaves; // command: destinations; answer: the sender, 0 once it was given back
    uint32_t TimeOut;     // command, in driver ticks: before sending relative, after it absolute
};

// Answer classes. A long record's pP is allocated for each answer, by its first frame, and freed
// when the record is put back; a short record keeps its buffer.
constexpr int ANS_LONG = 0;
constexpr int ANS_SHORT = 1;
constexpr int NB_ANS = 2;
constexpr uint16_t ANS_NONE = 0xFFFF;

struct ANS_DEF {
    uint16_t Size;   // records of the class: 32 long, 128 short
    uint16_t Buffer; // bytes of a parameter buffer: 768 at most, 7
    uint16_t Mask;   // of the ring positions, Size - 1
};

// One answer under reassembly.
struct ANS_CDM {
    uint16_t Num;      // frames still expected after the last one received
    uint16_t AnsIndex; // record in pAns of the class, ANS_NONE none
};

// The answers under reassembly of a class. Receive thread only.
struct ANS_TMP {
    uint16_t Size; // slots
    uint16_t Last; // live slots: 0..Last-1, packed, in no order
    ANS_CDM *pCdm;
};

// Ring of record indices: one thread writes at Last, the other reads at First; empty when equal.
struct ANS_RING {
    uint16_t Size;
    uint16_t Mask;
    std::atomic<uint16_t> First; // consumer's own: relaxed
    std::atomic<uint16_t> Last;  // producer: release, after position and record are written;
                                 // consumer: acquire, before it reads them
    uint16_t *pAnsIndex;         // a position of AnsTransf that was read is ANS_NONE
};

static_assert(std::atomic<uint16_t>::is_always_lock_free);

extern MSG Cmd;       // the command; its pP holds NB_PARAMETERS_MAX bytes
extern MSG *pAns2Cmd; // the answer that get_pAns found for it
extern ANS_DEF AnsDef[NB_ANS];
extern MSG *pAns[NB_ANS];
extern ANS_TMP AnsTmp[NB_ANS];
extern ANS_RING AnsFree[NB_ANS];   // main thread to receive thread
extern ANS_RING AnsTransf[NB_ANS]; // receive thread to main thread

// Prepares AnsTmp and opens CAN A if it has slaves. Slaves of every other interface are taken out
// of service (Device and BoardType 0, out of every group). Returns 0, SYST_ERR_ALLOC or what
// open_Can returned.
int init_Interfaces();

// Opens one interface: TTYS_0, CAN_A, or 0 (nothing). Returns its status, GEN_ERR_PRG_VANTREL for
// any other.
int open_Interfaces(int DeviceIndex);

// Stops the interfaces and frees the answer tables and Cmd.pP (all must be allocated). Returns 0
// when the receive thread joined; -1, with nothing freed, for an open interface it does not know.
int close_Interfaces();

// --- Receive thread ---

// Takes in a frame of the sender *pSlaves; the last one of an answer completes it. A frame too
// short for Fn, or for the sequence byte of a multi-frame message, is dropped; a length above 8
// counts as 8. Returns 0. A broken message stream ends the process.
int fill_pAns(const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves);

// Takes a free record and opens a slot of AnsTmp for it. Returns the slot. Three attempts, a
// microsecond apart, then the process ends with 1.
int get_NewAnsCdmIndex(int AnsSize);

// The first live slot with the sender, MT and Fn of the frame, -1 none. Two answers of one sender
// with the same MT and Fn cannot be told apart.
int find_AnsCdmIndex(int AnsSize, const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves);

// --- Main thread ---

// Sends the command to its Slaves, interface by interface; slaves of an interface that is not
// served are passed over. Slaves is not changed, TimeOut becomes the deadline. Returns 0, or
// GEN_ERR_PRG_VANTREL when a slave is on no interface (the others were sent to).
int send_Cmd(MSG *pCmd);

// Looks for an answer of one of pCmd->Slaves with the command's MT and function. Returns 1: found,
// at *ppAns; 0: nothing yet; ERR_TIMEOUT: and the deadline is over; GEN_ERR_PRG_VANTREL: no
// command. Answers ahead of it that do not match are put back, with a report unless they had been
// given back.
int get_pAns(MSG *pCmd, MSG **ppAns);

// Puts every complete answer back, read or not.
void clear_pAns();

// The first slave of *pMask in table order: its index to *pIndex, its bit out of *pMask. Returns
// 0, or -1 when there is none (*pIndex is 0xFFFF). Called again and again it walks the mask.
int get_SlaveIndex(BM_SLAVE_CAST *pMask, uint16_t *pIndex);

// Polls get_pAns, asleep for a microsecond after each empty poll, until it returns something else
// than 0, and returns that.
int wait_pAns(MSG *pCmd, MSG **ppAns);

// Parameter byte Index (from 0) of an answer; bytes that the answer does not carry read as 0.
uint8_t get_Parameter(const MSG *pMsg, int Index);

#endif

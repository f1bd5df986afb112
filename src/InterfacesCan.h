// Messages to CAN frames and back: addressing, framing, the receive thread of interface A.
//
// Identifier (29 bits):
//     24..28  MT, the service
//     19..23  destination board number, BN (0: all boards of the type)
//     14..18  destination board type, BT (0: all boards of the interface)
//      9..13  source board number
//      4..8   source board type
//      3      1 on every frame of a message of more than 7 parameter bytes
//      0..2   0
// The master's own source is BT 31, BN 1: Master = 1008.
//
// Frames, N = (NbP - 1) / 6:
//     NbP <= 7    Fn p0 .. p6                 one frame of NbP + 1 bytes
//     NbP >= 8    Fn 80|N p0 .. p5            first frame
//                 Fn N-k  p(6k) .. p(6k+5)    k = 1..N; the last has its remaining bytes + 2
// 768 parameter bytes take 128 frames, N = 127: what the sequence byte can hold.
//
// Threads: all runs on the main thread but read_CanA and Id2Mask. The two threads share the flag
// RunRxCanA and the published table of senders; both are atomic.
#ifndef QX_INTERFACESCAN_H
#define QX_INTERFACESCAN_H

#include "Interfaces.h"

constexpr uint32_t ID_MULTI_FRAME = 8;       // identifier bit 3
constexpr uint8_t SEQ_FIRST = 0x80;          // sequence byte of a first frame
constexpr uint8_t SEQ_COUNT = 0x7F;          // in the sequence byte: frames that follow
constexpr int CAN_DATA_MAX = 8;              // data bytes of a frame
constexpr int FRAME_PARAMETERS = 6;          // parameter bytes of a frame of a multi-frame message
constexpr int SINGLE_PARAMETERS = 7;         // parameter bytes of a single frame
constexpr uint32_t NO_DEADLINE = 0xFFFFFFFF; // TimeOut of a command that waits for ever

extern std::atomic<uint8_t> RunRxCanA; // 1 while the receive thread of interface A shall run
extern std::atomic<uint8_t> RunRxCanB; // kept for a second interface

// Opens interface A, resets its controller and starts its receive thread. Returns 0;
// GEN_ERR_FOPEN: no driver (File is -2, without a message), or it cannot be opened (File is
// negative) or reset (it stays open); SYST_ERR_THREAD; GEN_ERR_PRG_VANTREL: not CAN_A.
int open_Can(int DeviceIndex);

// Stops the receive thread of interface A and joins it, if it was started, and marks the interface
// closed (File = -10). The driver's descriptor stays open. Returns what the join returned, else 0.
int close_Can(int DeviceIndex);

// Sends the message to Slaves, slaves of this interface, by the widest addressing that fits: one
// message for the whole interface, else one a group (in table order) that lies wholly in what is
// left, then one a slave. Slaves that are still left are passed over. Then TimeOut becomes the
// absolute deadline: 0 gives NO_DEADLINE, else the system timer is added.
// Returns the result of the last frame sent, 0 when none was.
int send_Msg2Can(int DeviceIndex, BM_SLAVE_CAST Slaves, MSG *pMsg);

// Sends the message's frames to one identifier, back to back. Returns the result of the last one.
// A message that needs more than 128 frames ends the process with GEN_ERR_PRG_VANTREL.
int split_Msg2MsgCan(int DeviceIndex, uint32_t Identifier, const MSG *pMsg);

// Sends one frame on the open interface, control bytes set. Returns the driver's result, but for
// -1: that is reported with an advice to the operator, and is not an error for the caller.
int send_MsgCan(int DeviceIndex, CAN_FRAME *pFrame);

// Ticks of the interface's system timer; a timer that cannot be read counts as 0.
uint32_t get_SysTimer(int DeviceIndex);

// The sender of a frame: a slave's mask, a group's (BN 0), the interface's (BN and BT 0), 0 when
// it is unknown. Constant time, wait-free; reads what publish_Senders published last. Interfaces
// without frames have no senders: 0.
BM_SLAVE_CAST Id2Mask(int DeviceIndex, uint32_t Identifier);

// Publishes, for Id2Mask on the receive thread, who sends from which address, as Slave and
// Broadcast stand now: of two slaves (or groups) with one address the one later in the table.
// Main thread; to be called after every change of an address, a Device or a group's Mask. A sender
// that did not change reads the same throughout. Tables that do not exist have no senders.
void publish_Senders();

// Body of the receive thread: polls the driver, 10 ms asleep when nothing is waiting, and hands
// every frame of a known sender to fill_pAns, until RunRxCanA is 0. Arg is not used.
void *read_CanA(void *Arg);

#endif

// Messages to CAN frames and back: framing, addressing, the receive thread of interface A.
#ifndef QX_INTERFACESCAN_H
#define QX_INTERFACESCAN_H

#include "Interfaces.h"

extern std::atomic<uint8_t> RunRxCanA; // 1 while the receive thread of interface A shall run
extern std::atomic<uint8_t> RunRxCanB; // kept for a second interface

int open_Can(int DeviceIndex);
int close_Can(int DeviceIndex);
int send_Msg2Can(int DeviceIndex, BM_SLAVE_CAST Slaves, MSG *pMsg);
int split_Msg2MsgCan(int DeviceIndex, uint32_t Identifier, const MSG *pMsg);
int send_MsgCan(int DeviceIndex, CAN_FRAME *pFrame);
BM_SLAVE_CAST Id2Mask(int DeviceIndex, uint32_t Identifier);
void *read_CanA(void *Arg);

// Publishes, for Id2Mask on the receive thread, who sends from which address, as Slave and
// Broadcast stand now. Main thread; to be called after every change of an address, a Device or a
// group's Mask.
void publish_Senders();

#endif

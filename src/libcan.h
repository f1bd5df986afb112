// Thin access to the CAN character device: one function a driver request, each one ioctl on an
// open descriptor. Stateless; one descriptor may be used from both threads.
#ifndef QX_LIBCAN_H
#define QX_LIBCAN_H

#include "CanFrame.h"

constexpr int CAN_NOTHING = -10003; // from can_ReceiveNoBlock: no frame is waiting

int can_Open(const char *Name);
int can_Close(int Fd);
int can_Reset(int Fd);
int can_GetErrorCounter(int Fd);
int can_Receive(int Fd, CAN_FRAME *pFrame);
int can_Send(int Fd, CAN_FRAME *pFrame);
int can_ReceiveNoBlock(int Fd, CAN_FRAME *pFrame);
int can_SetOut(int Fd, int Value);
int can_ResOut(int Fd, int Value);
int can_SysTimer(int Fd, uint32_t *pTicks);
int can_GetInp(int Fd, int Ignored, int Value);
int can_WaitRx(int Fd, int Value);
int can_SendNoBlock(int Fd, CAN_FRAME *pFrame);

#endif

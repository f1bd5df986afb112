// Thin access to the CAN character device: one function a driver request, each one ioctl on an
// open descriptor. Stateless; one descriptor is used by both threads at the same time (the driver
// accepts that), and no lock is taken.
//
// Every function but can_Open and can_Close returns what the driver returned: 0 or more is
// success, a negative value is the failure. Nothing is reported here.
#ifndef QX_LIBCAN_H
#define QX_LIBCAN_H

#include "CanFrame.h"

constexpr int CAN_NOTHING = -10003; // from can_ReceiveNoBlock: no frame is waiting

// Opens "/dev/" Name for reading and writing. Returns the descriptor, or a negative value.
int can_Open(const char *Name);

// Closes the descriptor. Returns 0 always.
int can_Close(int Fd);

// Request 0: resets the controller.
int can_Reset(int Fd);

// Request 2: the controller's error counter is the result.
int can_GetErrorCounter(int Fd);

// Request 3: waits for a frame and copies it to *pFrame.
int can_Receive(int Fd, CAN_FRAME *pFrame);

// Request 4: sends a frame; returns when it is queued.
int can_Send(int Fd, CAN_FRAME *pFrame);

// Request 5: 0: a frame was copied to *pFrame; CAN_NOTHING: none is waiting, *pFrame is untouched;
// anything else is an error.
int can_ReceiveNoBlock(int Fd, CAN_FRAME *pFrame);

// Requests 8 and 9: sets and resets a digital output of the interface board.
int can_SetOut(int Fd, int Value);
int can_ResOut(int Fd, int Value);

// Request 10: the driver's system timer, in its own ticks, to *pTicks.
int can_SysTimer(int Fd, uint32_t *pTicks);

// Request 11: the digital inputs selected by Value; the middle argument is not used.
int can_GetInp(int Fd, int Ignored, int Value);

// Request 12: waits for reception.
int can_WaitRx(int Fd, int Value);

// Request 13: can_Send that does not wait for room.
int can_SendNoBlock(int Fd, CAN_FRAME *pFrame);

#endif

#include "libcan.h"
#include "Paths.h"
#include <cstdio>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

// Request numbers of the driver.
enum CAN_REQUEST : unsigned long {
    CAN_RESET = 0,
    CAN_GET_ERROR_COUNTER = 2,
    CAN_RECEIVE = 3,
    CAN_SEND = 4,
    CAN_RECEIVE_NO_BLOCK = 5,
    CAN_SET_OUT = 8,
    CAN_RES_OUT = 9,
    CAN_SYS_TIMER = 10,
    CAN_GET_INP = 11,
    CAN_WAIT_RX = 12,
    CAN_SEND_NO_BLOCK = 13,
};

int can_Open(const char *Name)
{
    char Path[TEXT_SIZE];
    if (snprintf(Path, sizeof(Path), "/dev/%s", Name) >= TEXT_SIZE)
        return -1;
    return open(Path, O_RDWR);
}

int can_Close(int Fd)
{
    close(Fd);
    return 0;
}

// The kernel takes the third argument as a word; a plain number is passed as one.
static int request_Value(int Fd, CAN_REQUEST Request, int Value)
{
    return ioctl(Fd, Request, static_cast<long>(Value));
}

int can_Reset(int Fd)
{
    return request_Value(Fd, CAN_RESET, 0);
}

int can_GetErrorCounter(int Fd)
{
    return request_Value(Fd, CAN_GET_ERROR_COUNTER, 0);
}

int can_Receive(int Fd, CAN_FRAME *pFrame)
{
    return ioctl(Fd, CAN_RECEIVE, pFrame);
}

int can_Send(int Fd, CAN_FRAME *pFrame)
{
    return ioctl(Fd, CAN_SEND, pFrame);
}

int can_ReceiveNoBlock(int Fd, CAN_FRAME *pFrame)
{
    return ioctl(Fd, CAN_RECEIVE_NO_BLOCK, pFrame);
}

int can_SetOut(int Fd, int Value)
{
    return request_Value(Fd, CAN_SET_OUT, Value);
}

int can_ResOut(int Fd, int Value)
{
    return request_Value(Fd, CAN_RES_OUT, Value);
}

int can_SysTimer(int Fd, uint32_t *pTicks)
{
    return ioctl(Fd, CAN_SYS_TIMER, pTicks);
}

int can_GetInp(int Fd, int /*Ignored*/, int Value)
{
    return request_Value(Fd, CAN_GET_INP, Value);
}

int can_WaitRx(int Fd, int Value)
{
    return request_Value(Fd, CAN_WAIT_RX, Value);
}

int can_SendNoBlock(int Fd, CAN_FRAME *pFrame)
{
    return ioctl(Fd, CAN_SEND_NO_BLOCK, pFrame);
}

// The real libcan, with the kernel's end of ioctl in the test's hands.
#include "libcan.h"
#include <cstdarg>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>

static std::tuple<int, unsigned long, long> Asked; // descriptor, request, the argument's whole word

extern "C" int ioctl(int Fd, unsigned long Request, ...) noexcept
{
    va_list Arguments;
    va_start(Arguments, Request);
    Asked = {Fd, Request, va_arg(Arguments, long)};
    va_end(Arguments);
    return -10007;
}

// A request of another number, an argument that is lost or half a word wide, a result of the driver
// that is judged.
TEST(libcan, Requests)
{
    CAN_FRAME Frame{};
    uint32_t Ticks = 0;
    const long pFrame = reinterpret_cast<long>(&Frame), pTicks = reinterpret_cast<long>(&Ticks);
    const std::tuple<unsigned long, long, std::function<int()>> Cases[] = {
        {0, 0, [] { return can_Reset(7); }},
        {2, 0, [] { return can_GetErrorCounter(7); }},
        {3, pFrame, [&] { return can_Receive(7, &Frame); }},
        {4, pFrame, [&] { return can_Send(7, &Frame); }},
        {5, pFrame, [&] { return can_ReceiveNoBlock(7, &Frame); }},
        {8, -2, [] { return can_SetOut(7, -2); }},
        {9, -2, [] { return can_ResOut(7, -2); }},
        {10, pTicks, [&] { return can_SysTimer(7, &Ticks); }},
        {11, -2, [] { return can_GetInp(7, 1, -2); }},
        {12, -2, [] { return can_WaitRx(7, -2); }},
        {13, pFrame, [&] { return can_SendNoBlock(7, &Frame); }},
    };
    for (const auto &[Request, Argument, Call] : Cases) {
        EXPECT_EQ(Call(), -10007) << Request;
        EXPECT_EQ(Asked, std::tuple(7, Request, Argument));
    }
}

// A device that can only be read, a descriptor that stays open, a long name that is cut.
TEST(libcan, Device)
{
    const std::string Longest = std::string(130, '/') + "null";
    const int Fd = can_Open(Longest.c_str());
    EXPECT_EQ(fcntl(Fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_EQ(can_Close(Fd), 0);
    EXPECT_EQ(fcntl(Fd, F_GETFL), -1);
    EXPECT_EQ(can_Close(Fd), 0);
    EXPECT_EQ(can_Open((Longest + "x").c_str()), -1);
}

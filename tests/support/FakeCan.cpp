#include "FakeCan.h"
#include <algorithm>

FAKE_CAN FakeCan;

void reset_FakeCan()
{
    FakeCan = {{}, nullptr, 0, 1000, 1};
}

CAN_FRAME make_AnswerFrame(uint8_t MT, uint8_t BoardType, uint8_t BoardNumber,
                           const std::vector<uint8_t> &Data, bool MultiFrame)
{
    CAN_FRAME Frame{};
    Frame.Identifier = (uint32_t(MT) << 24) | (1u << 19) | (31u << 14) |
                       (uint32_t(BoardNumber) << 9) | (uint32_t(BoardType) << 4) |
                       (MultiFrame ? 8u : 0u);
    Frame.Length = static_cast<uint8_t>(Data.size());
    std::copy(Data.begin(), Data.end(), Frame.Data);
    return Frame;
}

int can_Open(const char *)
{
    return 5;
}

int can_Close(int)
{
    return 0;
}

int can_Reset(int)
{
    return 0;
}

int can_Send(int, CAN_FRAME *pFrame)
{
    FakeCan.Sent.push_back(*pFrame);
    if (FakeCan.SendResult == 0 && FakeCan.OnSend)
        FakeCan.OnSend(CAN_FRAME(*pFrame));
    return FakeCan.SendResult;
}

int can_ReceiveNoBlock(int, CAN_FRAME *)
{
    return CAN_NOTHING;
}

int can_SysTimer(int, uint32_t *pTicks)
{
    *pTicks = FakeCan.Ticks;
    FakeCan.Ticks += FakeCan.TicksPerRead;
    return 0;
}

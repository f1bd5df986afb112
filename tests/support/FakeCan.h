// A CAN driver for unit tests, linked in the place of libcan: sent frames are kept, and a test may
// answer them on the spot. No thread, no time but what a test sets.
#ifndef QX_FAKECAN_H
#define QX_FAKECAN_H

#include "libcan.h"
#include <functional>
#include <vector>

struct FAKE_CAN {
    std::vector<CAN_FRAME> Sent;                   // every frame, in order
    std::function<void(const CAN_FRAME &)> OnSend; // called after each was kept
    int SendResult;                                // what can_Send returns
    uint32_t Ticks;                                // system timer
    uint32_t TicksPerRead;                         // how far a read of it moves it on
};

extern FAKE_CAN FakeCan;

// Forgets the frames; send succeeds, the timer starts at 1000 and moves one tick a read.
void reset_FakeCan();

// A frame as a board (BoardType, BoardNumber) sends it to the master: service MT, data bytes. First
// data byte is Fn. MultiFrame sets identifier bit 3.
CAN_FRAME make_AnswerFrame(uint8_t MT, uint8_t BoardType, uint8_t BoardNumber,
                           const std::vector<uint8_t> &Data, bool MultiFrame = false);

#endif

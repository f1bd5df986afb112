// The master's driver on the bus: queues with their bounds, counters, planned failures.
#include "driver/DriverPort.h"
#include <gtest/gtest.h>

using namespace qxsim;
using namespace std::chrono_literals;

namespace
{

constexpr Frame make_Frame(std::uint32_t Identifier)
{
    return {Identifier, 1, {0x40}};
}

} // namespace

// Frames that come back in another order, or from before the open; a loss that is not counted.
TEST(DriverPort, ReceivesInOrderAndCountsWhatItLoses)
{
    DriverSpec Spec;
    Spec.ReceiveQueue = 2;
    DriverPort Port{Spec};
    Port.receive_Frame(make_Frame(1), 0ms);
    Port.open();
    EXPECT_FALSE(Port.is_FrameWaiting());
    for (const std::uint32_t Identifier : {2U, 3U, 4U}) {
        Port.receive_Frame(make_Frame(Identifier), 1ms);
    }
    EXPECT_EQ(Port.take_Frame(), make_Frame(2));
    Port.receive_Frame(make_Frame(5), 2ms);
    EXPECT_EQ(Port.take_Frame(), make_Frame(3));
    EXPECT_EQ(Port.take_Frame(), make_Frame(5));
    EXPECT_EQ(Port.take_Frame(), std::nullopt);
    EXPECT_EQ(Port.get_Counters().Received, 3U);
    EXPECT_EQ(Port.get_Counters().Overflows, 1U);
}

// A command that is sent before it is there, out of order, or twice.
TEST(DriverPort, SendsFromAQueueOfItsOwnBound)
{
    DriverSpec Spec;
    Spec.TransmitQueue = 2;
    DriverPort Port{Spec};
    Port.open();
    EXPECT_EQ(Port.get_PendingFrame(0ms), nullptr);
    EXPECT_EQ(Port.get_NextTime(), std::nullopt);
    Port.send(make_Frame(7), 3ms);
    EXPECT_EQ(Port.get_NextTime(), 3ms);
    EXPECT_FALSE(Port.is_TransmitFull());
    Port.send(make_Frame(6), 4ms);
    EXPECT_TRUE(Port.is_TransmitFull());
    EXPECT_EQ(*Port.get_PendingFrame(4ms), make_Frame(7)); // a queue, no matter the priority
    Port.reset();                                          // 7 may be on the wire already
    Port.remove_PendingFrame(5ms);
    EXPECT_EQ(Port.get_PendingFrame(5ms), nullptr);
    EXPECT_EQ(Port.get_Counters().Sent, 1U);
}

// A planned failure that strikes another request, or the wrong time.
TEST(DriverPort, FailsTheNthRequestOfItsKind)
{
    DriverSpec Spec;
    Spec.Faults = {{DriverRequest::Send, 2, -7}, {DriverRequest::Timer, 0, -1}};
    DriverPort Port{Spec};
    EXPECT_EQ(Port.count_Request(DriverRequest::Receive), std::nullopt);
    EXPECT_EQ(Port.count_Request(DriverRequest::Send), std::nullopt);
    EXPECT_EQ(Port.count_Request(DriverRequest::Send), -7);
    EXPECT_EQ(Port.count_Request(DriverRequest::Send), std::nullopt);
    EXPECT_EQ(Port.count_Request(DriverRequest::Timer), -1);
    EXPECT_EQ(Port.count_Request(DriverRequest::Timer), -1);
}

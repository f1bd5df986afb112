#include "Bench.h"
#include "MT_BoardState.h"
#include "Reports.h"

// A builder with a wrong function, byte order or time-out.
TEST_F(BENCH, CommandsAreTheServicesBytes)
{
    EXPECT_EQ(build(cmd_IsBoardReady, FLAG_ACK), "16 40 40: ");
    EXPECT_EQ(build(cmd_getBoardState, FLAG_ACK), "16 41 1000: ");
    EXPECT_EQ(build(cmd_setBoardState, FLAG_ACK, 2), "16 42 40: 02");
    EXPECT_EQ(build(cmd_setBoardRestart, FLAG_ACK, 0x1234), "16 43 40: 12 34");
    EXPECT_EQ(build(cmd_setNewAddress, FLAG_ACK, 7, 12), "16 44 40: 07 0C");
    EXPECT_EQ(build(cmd_StartApplication, FLAG_ACK, 12, 7, 255, 4, 0, 300),
              "16 45 40: 0C 07 FF 04 00 00 01 2C");
    // Without an answer wanted there is no deadline, also where it is the long one.
    EXPECT_EQ(build(cmd_getBoardState, 0), "16 01 0: ");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(build(cmd_setBoardState, FLAG_ACK, 3), "16 42 40: 00"); }),
              "MT_BoardState: Etat dans cmd_setBoardState inconnu : 3\n");
}

// A restart that reached nobody and is taken for done.
TEST_F(BENCH, RestartThatCannotBeSentEndsTheProcess)
{
    Groups[CAN_A].Mask = 3; // board 2 is on no interface
    EXPECT_EXIT(restart_AllSlaves(), testing::ExitedWithCode(126), "");
}

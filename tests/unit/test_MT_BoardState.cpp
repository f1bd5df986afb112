#include "Bench.h"
#include "MT_BoardState.h"
#include "Status.h"

// The loader's two seconds for the restart pass at once.
static unsigned Slept;
extern "C" unsigned sleep(unsigned Seconds)
{
    Slept += Seconds;
    return 0;
}

// A builder with a wrong function, byte order or time-out.
TEST(MT_BoardState, CommandsAreTheServicesBytes)
{
    uint8_t Buffer[NB_PARAMETERS_MAX];
    MSG Built = {};
    Built.pP = Buffer;
    const auto Check = [&Built](uint8_t Fn, const char *Parameters, uint32_t TimeOut) {
        EXPECT_EQ(Built.MT, 22);
        EXPECT_EQ(Built.Fn, Fn);
        EXPECT_EQ(to_Hex(Built.pP, Built.NbP), Parameters) << "function " << int{Fn};
        EXPECT_EQ(Built.TimeOut, TimeOut) << "function " << int{Fn};
        EXPECT_EQ(Built.Slaves, 5u);
    };
    cmd_IsBoardReady(&Built, 5, FLAG_ACK);
    Check(0x40, "", 40);
    cmd_getBoardState(&Built, 5, FLAG_ACK);
    Check(0x41, "", 1000);
    cmd_setBoardState(&Built, 5, FLAG_ACK, 2);
    Check(0x42, "02", 40);
    cmd_setBoardRestart(&Built, 5, FLAG_ACK, 0x1234);
    Check(0x43, "12 34", 40);
    cmd_setNewAddress(&Built, 5, FLAG_ACK, 7, 12);
    Check(0x44, "07 0C", 40);
    cmd_StartApplication(&Built, 5, FLAG_ACK, 12, 7, 255, 4, 0, 300);
    Check(0x45, "0C 07 FF 04 00 00 01 2C", 40);
    // Without an answer wanted there is no deadline, also where it is the long one.
    cmd_getBoardState(&Built, 5, 0);
    Check(0x01, "", 0);

    testing::internal::CaptureStdout();
    cmd_setBoardState(&Built, 5, FLAG_ACK, 3);
    Check(0x42, "00", 40);
    EXPECT_NE(
        testing::internal::GetCapturedStdout().find("Etat dans cmd_setBoardState inconnu : 3"),
        std::string::npos);
}

// Answers of restarting boards that are taken for those of the first probe.
TEST_F(BENCH, RestartWaitsAndDropsWhatTheBoardsAnswered)
{
    Slept = 0;
    Script = {{{1, "03 00"}, {4, "03 00"}}};
    EXPECT_EQ(restart_AllSlaves(), 0);
    EXPECT_EQ(get_Sent(), (std::vector<std::string>{"160003F0#43 00 00"}));
    EXPECT_EQ(Slept, 2u);
    EXPECT_EQ(get_pAns(&Cmd, &pAns2Cmd), 0);
}

// A restart that reached nobody and is taken for done.
TEST_F(BENCH, RestartThatCannotBeSentEndsTheProcess)
{
    Groups[CAN_A].Mask = 3; // board 2 is on no interface
    EXPECT_EXIT(restart_AllSlaves(), testing::ExitedWithCode(GEN_ERR_PRG_VANTREL & 0xFF), "");
    Groups[BROADCAST_ALL].Mask = 0;
    EXPECT_DEATH(restart_AllSlaves(), "Broadcast\\[BROADCAST_ALL\\].Mask");
}

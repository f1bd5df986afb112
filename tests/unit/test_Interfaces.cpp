// The answer store, sending and waiting.
#include "Bench.h"
#include "Reports.h"
#include "Status.h"
#include <thread>
#include <unistd.h>

constexpr bool MULTI = true;

// A frame of service 24 by its data bytes.
static void feed(BM_SLAVE_CAST Sender, const std::string &Data, bool MultiFrame = false)
{
    const CAN_FRAME Frame = make_AnswerFrame(24, 1, 1, from_Hex(Data), MultiFrame);
    fill_pAns(&Frame, &Sender);
}

struct ANSWERS : BENCH {
    void SetUp() override
    {
        BENCH::SetUp();
        Cmd.MT = 24;
        Cmd.Fn = 0x41;
        Cmd.Slaves = 7;
        Cmd.TimeOut = 0xFFFFFFFF;
    }

    // The next answer as "slaves:Fn:parameters", given back; "" when there is none.
    static std::string take()
    {
        MSG *pMsg = nullptr;
        if (get_pAns(&Cmd, &pMsg) != 1)
            return "";
        char Head[32];
        snprintf(Head, sizeof Head, "%X:%02X:", static_cast<unsigned>(pMsg->Slaves), pMsg->Fn);
        std::string Text = Head + to_Hex(pMsg->pP, pMsg->NbP);
        pMsg->Slaves = 0;
        return Text;
    }
};

TEST_F(ANSWERS, LengthsOfFramesAreTakenAsFarAsTheyAreTrue)
{
    feed(1, "41");
    EXPECT_EQ(take(), "1:41:");
    feed(1, "41 01 02 03 04 05 06 07");
    EXPECT_EQ(take(), "1:41:01 02 03 04 05 06 07");
    const BM_SLAVE_CAST Sender = 2;
    CAN_FRAME Frame = make_AnswerFrame(24, 1, 1, from_Hex("41 01 02 03 04 05 06 07"));
    Frame.Length = 255; // would write behind the buffer of 7
    fill_pAns(&Frame, &Sender);
    EXPECT_EQ(take(), "2:41:01 02 03 04 05 06 07");
    Frame.Length = 0;
    fill_pAns(&Frame, &Sender);
    feed(2, "41", MULTI); // no sequence byte
    EXPECT_EQ(take(), "");
    feed(2, "41 80 01 02 03 04 05 06", MULTI); // announces none: complete at once, and short
    EXPECT_EQ(take(), "2:41:01 02 03 04 05 06");
    EXPECT_EQ(AnsTmp[ANS_SHORT].Last + AnsTmp[ANS_LONG].Last, 0);
}

TEST_F(ANSWERS, AnswersOfThreeBoardsAreReassembledSideBySide)
{
    feed(1, "41 82 10 11 12 13 14 15", MULTI);
    feed(2, "41 81 20 21 22 23 24 25", MULTI);
    feed(4, "41 82 30 31 32 33 34 35", MULTI);
    feed(1, "42 81 40 41 42 43 44 45", MULTI); // another function of the first board
    feed(4, "41 01 36 37 38 39 3A 3B", MULTI);
    feed(2, "41 00 26 27", MULTI); // its slot is closed: the last one moves in
    feed(1, "41 01 16 17 18 19 1A 1B", MULTI);
    feed(4, "41 00 3C", MULTI);
    feed(1, "41 00 1C 1D 1E", MULTI);
    EXPECT_EQ(take(), "2:41:20 21 22 23 24 25 26 27"); // in the order of their completion
    EXPECT_EQ(take(), "4:41:30 31 32 33 34 35 36 37 38 39 3A 3B 3C");
    EXPECT_EQ(take(), "1:41:10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E");
    EXPECT_EQ(take(), "");
    Cmd.Fn = 0x42;
    feed(1, "42 00 46 47", MULTI); // its slot has moved
    EXPECT_EQ(take(), "1:42:40 41 42 43 44 45 46 47");
    EXPECT_EQ(AnsTmp[ANS_LONG].Last, 0);
}

TEST_F(ANSWERS, TheLongestAnswerIsWhole)
{
    feed(1, "41 FF 00 00 00 00 00 00", MULTI);
    for (int Rest = 126; Rest >= 0; Rest--) {
        const auto Byte = static_cast<uint8_t>(Rest);
        const uint8_t Data[8] = {0x41, Byte, Byte, Byte, Byte, Byte, Byte, Byte};
        feed(1, to_Hex(Data, 8), MULTI);
    }
    MSG *pMsg = nullptr;
    ASSERT_EQ(get_pAns(&Cmd, &pMsg), 1);
    EXPECT_EQ(pMsg->NbP, 768);
    // The last two are not carried.
    for (const auto &[Index, Byte] :
         {std::pair(5, 0), {6, 126}, {761, 1}, {767, 0}, {768, 0}, {-1, 0}})
        EXPECT_EQ(get_Parameter(pMsg, Index), Byte) << Index;
}

TEST_F(ANSWERS, ABrokenStreamEndsTheProcess)
{
    feed(1, "41 84 01 02 03 04 05 06", MULTI);
    const std::tuple<BM_SLAVE_CAST, const char *, const char *> Cases[] = {
        {2, "41 03 01", // another sender's
         "Pas trouvé de chaîne correspondant au message\n"
         ".*Msg: Slave 0000000000000002   Id 180FC218    Fn 41\n"},
        {1, "42 03 01", "Pas trouvé"}, // another function's
        {1, "41 02 01", "CDM - Num reçu erronné\n"},
        {1, "41 04 01", "CDM - Num reçu erronné\n"},
    };
    for (const auto &[Sender, Data, Report] : Cases)
        EXPECT_EXIT((dup2(2, 1), feed(Sender, Data, MULTI)), testing::ExitedWithCode(255), Report);
}

TEST_F(ANSWERS, RecordsRunOutAtTwoBelowTheirNumber)
{
    const auto Exited = testing::ExitedWithCode(1);
    for (int i = 0; i < 126; i++)
        feed(1, "41 01");
    EXPECT_EXIT((dup2(2, 1), feed(1, "41 01")), Exited,
                "NbBoucle = 3\n.*NbBoucle = 2\n.*NbBoucle = 1\n.*AnsFree est vide.\n"
                "  Redimentionner les buffers pour les messages COURTS !"
                ".*First = 126\n\n.*Last = 127\n");
    for (int i = 0; i < 30; i++) // the same first frame again and again: a record each
        feed(1, "41 FF 01 02 03 04 05 06", MULTI);
    EXPECT_EXIT((dup2(2, 1), feed(1, "41 81 01", MULTI)), Exited, "messages LONGS !");
    clear_pAns(); // answers under reassembly are not touched
    EXPECT_EQ(AnsTmp[ANS_LONG].Last, 30);
    feed(1, "41 02");
    EXPECT_EQ(take(), "1:41:02");
}

TEST_F(ANSWERS, WhatDoesNotBelongToTheCommandIsDroppedWithAReport)
{
    Cmd.Slaves = 1;
    feed(2, "41 01"); // another board
    feed(1, "42 02"); // another function
    feed(3, "C1 03"); // a group with the board in it; bits 6, 7 do not count
    feed(4, "41 81 01 02 03 04 05 06", MULTI); // not asked for yet: behind the short ones
    feed(4, "41 00 07", MULTI);
    MSG *pMsg = nullptr;
    const std::string Dropped = "Interfaces: Message hors contexte :\nInterfaces:  Slave ";
    EXPECT_EQ(get_Reports([&] {
                  EXPECT_EQ(get_pAns(&Cmd, &pMsg), 1);
                  EXPECT_EQ(get_Parameter(pMsg, 0), 3);
                  EXPECT_EQ(get_pAns(&Cmd, &pMsg), 1) << "an answer stays until it is given back";
              }),
              Dropped + "0000000000000002  MT 18  Fun 41\n" + Dropped +
                  "0000000000000001  MT 18  Fun 42\n");
    pMsg->Slaves = 0; // given back: in silence
    EXPECT_EQ(get_Reports([&] { EXPECT_EQ(get_pAns(&Cmd, &pMsg), 0); }),
              Dropped + "0000000000000004  MT 18  Fun 41\n");
    EXPECT_EQ(pMsg, nullptr);
    EXPECT_EQ(pAns[ANS_LONG][0].pP, nullptr) << "the long answer's bytes are freed";
    EXPECT_EQ(get_pAns(nullptr, &pMsg), GEN_ERR_PRG_VANTREL);
}

TEST_F(ANSWERS, ATimeoutIsReportedButForTheReadinessProbe)
{
    MSG *pMsg = nullptr;
    FakeCan.TicksPerRead = 0;
    Cmd.TimeOut = FakeCan.Ticks; // the last tick is still in time
    EXPECT_EQ(get_pAns(&Cmd, &pMsg), 0);
    FakeCan.TicksPerRead = 1;
    EXPECT_EQ(get_Reports([&] {
                  EXPECT_EQ(wait_pAns(&Cmd, &pMsg), ERR_TIMEOUT);
                  Cmd.MT = 22;
                  Cmd.Fn = 0x40;
                  EXPECT_EQ(get_pAns(&Cmd, &pMsg), ERR_TIMEOUT);
              }),
              "Interfaces: Timeout : Slave = 0x0000000000000007  MT = 0x18  Fn = 0x41\n");
}

TEST_F(ANSWERS, SlavesOfOtherInterfacesGoOutOfService)
{
    BROADCAST Casts[FIRST_TYPE_GROUP + 3] = {};
    Boards[0].Device = 1;
    Boards[2].Device = 6;
    Broadcast = Casts;
    make_BroadcastMask();
    Casts[6].BoardType = 3;
    Cmd.NbP = 0;
    EXPECT_EQ(send_Cmd(&Cmd), 0); // not served: nothing sent, nothing said
    EXPECT_EQ(get_Sent().size(), 1u);
    EXPECT_EQ(Cmd.Slaves, 7u);

    Casts[CAN_A].Mask = 0; // nothing to open
    Device[CAN_A].File = -10;
    EXPECT_EQ(close_Interfaces(), 0);
    EXPECT_EQ(init_Variables(), 0);
    EXPECT_EQ(init_Interfaces(), 0);
    EXPECT_EQ(Casts[BROADCAST_ALL].Mask, 2u);
    EXPECT_EQ(Casts[9].Mask, 2u);
    EXPECT_EQ(Casts[8].Mask + Casts[10].Mask, 0u);
    EXPECT_EQ(Casts[6].Mask + Casts[6].BoardType, 0u);
    EXPECT_EQ(Boards[0].Device + Boards[2].Device + Boards[2].BoardType, 0);
    EXPECT_EQ(Boards[1].Device, CAN_A);

    Cmd.Slaves = 0xABCD0000 | 2;
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(send_Cmd(&Cmd), GEN_ERR_PRG_VANTREL); }),
              "Interfaces: Slaves inconnus: 0002\n");
}

TEST_F(ANSWERS, TheSlavesOfAMaskAreWalkedInTableOrder)
{
    Boards[0].Mask = 0; // has no bit: never found
    BM_SLAVE_CAST Mask = 0xFF;
    uint16_t Index = 0;
    for (const uint16_t Expected : std::initializer_list<uint16_t>{1, 2, 0xFFFF}) {
        EXPECT_EQ(get_SlaveIndex(&Mask, &Index), Expected == 0xFFFF ? -1 : 0);
        EXPECT_EQ(Index, Expected);
    }
    EXPECT_EQ(Mask, 0xF9u);
}

// Two threads as in the loader, three million answers: a record handed over before it is complete,
// or put back too early, shows as a wrong byte (and under a thread sanitizer as a race). Meanwhile
// the third board comes and goes: the senders of the others must read the same throughout.
TEST_F(ANSWERS, MillionsOfAnswersBetweenTwoThreads)
{
    constexpr uint32_t NB_ANSWERS = 3000000;
    publish_Senders();
    std::atomic<uint32_t> Taken{0}; // relaxed: keeps the pace, and orders nothing
    std::thread Receiver([&Taken] {
        const std::vector<uint8_t> Data = {0x41, 0, 0, 0, 0, 7, 8, 9};
        CAN_FRAME Frames[] = {make_AnswerFrame(24, 1, 1, Data), make_AnswerFrame(24, 1, 2, Data)};
        for (uint32_t i = 0; i < NB_ANSWERS; i++) {
            while (i - Taken.load(std::memory_order_relaxed) >= 100)
                std::this_thread::yield();
            CAN_FRAME *pFrame = &Frames[i % 2];
            memcpy(pFrame->Data + 1, &i, sizeof i);
            const BM_SLAVE_CAST Sender = Id2Mask(CAN_A, pFrame->Identifier);
            fill_pAns(pFrame, &Sender);
        }
    });
    uint32_t Errors = 0;
    for (uint32_t i = 0; i < NB_ANSWERS;) {
        MSG *pMsg = nullptr;
        if (get_pAns(&Cmd, &pMsg) != 1) {
            std::this_thread::yield();
            continue;
        }
        uint32_t Value = 0;
        memcpy(&Value, pMsg->pP, sizeof Value);
        if (Value != i || pMsg->NbP != 7 || pMsg->pP[6] != 9 || pMsg->Slaves != 1 + i % 2)
            Errors++;
        pMsg->Slaves = 0;
        if (++i % 4096 == 0) {
            Boards[2].Device = Boards[2].Device == 0 ? CAN_A : 0;
            publish_Senders();
        }
        Taken.store(i, std::memory_order_relaxed);
    }
    Receiver.join();
    EXPECT_EQ(Errors, 0u);
}

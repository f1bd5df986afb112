// Framing, addressing and senders, against frames written by hand.
#include "Bench.h"
#include "PrivateFolders.h"
#include "Status.h"
#include <unistd.h>

struct CAN_BENCH : BENCH {
    SLAVE Slaves[6] = {};
    BROADCAST Casts[11] = {};

    // Boards (BT, BN): (1,1) (1,2) (2,1) (2,2) (3,1) on CAN A, (1,1) on a serial line.
    void SetUp() override
    {
        BENCH::SetUp();
        const uint8_t Types[6] = {1, 1, 2, 2, 3, 1};
        const uint8_t Numbers[6] = {1, 2, 1, 2, 1, 1};
        for (unsigned i = 0; i < 6; i++) {
            Slaves[i].Mask = BM_SLAVE_CAST{1} << i;
            Slaves[i].Device = i < 5 ? CAN_A : TTYS_0;
            Slaves[i].BoardType = Types[i];
            Slaves[i].BoardNumber = Numbers[i];
        }
        Casts[BROADCAST_ALL] = {0x3F, 0, 0, -1, -1, 0, 0};
        Casts[TTYS_0] = {0x20, TTYS_0, 0, -1, -1, 0, 0};
        Casts[CAN_A] = {0x1F, CAN_A, 0, -1, -1, 0, 0};
        Casts[8] = {0x03, CAN_A, 1, -1, -1, 0, 0};
        Casts[9] = {0x0C, CAN_A, 2, -1, -1, 0, 0};
        Casts[10] = {0x10, CAN_A, 3, -1, -1, 0, 0};
        Slave = Slaves;
        NbSlaves = 6;
        Broadcast = Casts;
        NbBroadcasts = 11;
        publish_Senders();
        for (int i = 0; i < NB_PARAMETERS_MAX; i++)
            Cmd.pP[i] = static_cast<uint8_t>(i);
        Cmd.MT = 24;
        Cmd.Fn = 0x41;
    }

    std::vector<std::string> send(BM_SLAVE_CAST Mask, int16_t NbP)
    {
        FakeCan.Sent.clear();
        Cmd.NbP = NbP;
        Cmd.Slaves = Mask;
        EXPECT_EQ(send_Msg2Can(CAN_A, Mask, &Cmd), 0);
        return get_Sent();
    }
};

using FRAMES = std::vector<std::string>;

TEST_F(CAN_BENCH, FramesOfAMessageAtEveryEdgeOfItsLength)
{
    EXPECT_EQ(send(2, 0), FRAMES({"181043F0#41"}));
    EXPECT_EQ(send(2, 7), FRAMES({"181043F0#41 00 01 02 03 04 05 06"}));
    EXPECT_EQ(FakeCan.Sent[0].ControlA, 0);
    EXPECT_EQ(FakeCan.Sent[0].ControlB, 1);
    EXPECT_EQ(send(2, 8), FRAMES({"181043F8#41 81 00 01 02 03 04 05", "181043F8#41 00 06 07"}));
    EXPECT_EQ(send(2, 13), FRAMES({"181043F8#41 82 00 01 02 03 04 05",
                                   "181043F8#41 01 06 07 08 09 0A 0B", "181043F8#41 00 0C"}));
    const FRAMES Longest = send(2, 768);
    ASSERT_EQ(Longest.size(), 128u);
    EXPECT_EQ(Longest[0], "181043F8#41 FF 00 01 02 03 04 05");
    EXPECT_EQ(Longest[1], "181043F8#41 7E 06 07 08 09 0A 0B");
    EXPECT_EQ(Longest[126], "181043F8#41 01 F4 F5 F6 F7 F8 F9");
    EXPECT_EQ(Longest[127], "181043F8#41 00 FA FB FC FD FE FF");
}

TEST_F(CAN_BENCH, TheWidestAddressingThatFitsIsUsed)
{
    EXPECT_EQ(send(0x1F, 0), FRAMES({"180003F0#41"}));                // whole interface
    EXPECT_EQ(send(0x07, 0), FRAMES({"180043F0#41", "180883F0#41"})); // a group and a board
    EXPECT_EQ(send(0x0F, 0), FRAMES({"180043F0#41", "180083F0#41"})); // two groups
    EXPECT_EQ(send(0x05, 0), FRAMES({"180843F0#41", "180883F0#41"})); // no group lies inside
    EXPECT_EQ(send(0x10, 0), FRAMES({"1800C3F0#41"}));                // alone in its group
    EXPECT_EQ(send(0x100000, 0), FRAMES());                           // nobody: silence
    FakeCan.Ticks = 5000;
    Cmd.TimeOut = 40;
    send(0x05, 8);
    EXPECT_EQ(Cmd.TimeOut, 5040u) << "the deadline is set once, after all frames";
    Cmd.TimeOut = 0;
    send(0x05, 8);
    EXPECT_EQ(Cmd.TimeOut, 0xFFFFFFFFu);
    NbBroadcasts = 10; // a group that is not kept is not used
    EXPECT_EQ(send(0x10, 0), FRAMES({"1808C3F0#41"}));
}

TEST_F(CAN_BENCH, ACableFaultIsReportedAndIsNoFailure)
{
    FakeCan.SendResult = -1;
    CAN_FRAME Frame{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(send_MsgCan(CAN_A, &Frame), 25);
    const std::string Out = testing::internal::GetCapturedStdout();
    EXPECT_NE(Out.find("Erreur : can_Send\n\nContrôlez le câblage CAN et si le problème persiste"),
              std::string::npos);
    EXPECT_NE(Out.find("changez la carte Master.\n"), std::string::npos);
    FakeCan.SendResult = -3; // any other failure is passed on
    EXPECT_EQ(send_MsgCan(CAN_A, &Frame), -3);
}

TEST_F(CAN_BENCH, AMessageBeyondTheCounterEndsTheProcess)
{
    Cmd.NbP = 769;
    Cmd.Slaves = 2;
    auto Split = [] {
        dup2(2, 1);
        split_Msg2MsgCan(CAN_A, 0, &Cmd);
    };
    const auto Exited = testing::ExitedWithCode(-898 & 0xFF);
    EXPECT_EXIT(Split(), Exited,
                "Commande trop longue\n.*Device: 5 - Slave: 0000000000000002\n"
                ".*MT: 18 - Fn: 41 - NbP: 769\n");
    Cmd.NbP = -1; // would read and write outside every buffer
    EXPECT_EXIT(Split(), Exited, "NbP: -1\n");
}

TEST_F(CAN_BENCH, SendersAreFoundAsASearchOfTheTablesFindsThem)
{
    // Bits 9..13 BN, 4..8 BT; service, destination and low bits do not count.
    EXPECT_EQ(Id2Mask(CAN_A, 0x18FFC410 | 0xF), 0x02u); // (1,2)
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0x01u);            // (1,1), not its double on another line
    EXPECT_EQ(Id2Mask(CAN_A, 0x000), 0x1Fu);            // the interface
    EXPECT_EQ(Id2Mask(CAN_A, 0x020), 0x0Cu);            // group of type 2
    EXPECT_EQ(Id2Mask(CAN_A, 0x090), 0u);               // a type without a group
    EXPECT_EQ(Id2Mask(CAN_A, 0x610), 0u);               // no board
    EXPECT_EQ(Id2Mask(TTYS_0, 0x210), 0u);

    Slaves[4].BoardType = 1;  // a second (1,1): the later one wins
    Slaves[3].BoardType = 33; // does not fit the identifier: must not be taken for type 1
    Slaves[5].Device = CAN_A; // nor does its number: must not reach outside the table
    Slaves[5].BoardNumber = 200;
    Slaves[2].BoardNumber = 0; // no board's number: must not hide the group
    Casts[10].BoardType = 2;   // a second group of type 2
    Casts[9].BoardType = 0;    // not a group: must not hide the interface
    Casts[8].BoardType = 34;   // does not fit either: must not be taken for a board (2,1)
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0x01u) << "before it is published";
    publish_Senders();
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0x10u);
    EXPECT_EQ(Id2Mask(CAN_A, 0x410), 0x02u);
    EXPECT_EQ(Id2Mask(CAN_A, 0x020), 0x10u);
    EXPECT_EQ(Id2Mask(CAN_A, 0x000), 0x1Fu);
    EXPECT_EQ(Id2Mask(CAN_A, 0x220), 0u);
    Slaves[4].Mask = 0; // out of reach of the masks, yet it is the one that is found
    publish_Senders();
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0u);

    Slave = nullptr;
    Broadcast = nullptr;
    publish_Senders();
    EXPECT_EQ(Id2Mask(CAN_A, 0x000) | Id2Mask(CAN_A, 0x410), 0u);
}

struct CAN_OPEN : CAN_BENCH {
    const std::string Folder = testing::TempDir() + "qx_grep." + std::to_string(getpid());
    const std::string Path = getenv("PATH");

    // The host's own modules do not count: grep finds the driver, or does not.
    void set_Driver(bool Present)
    {
        write_Script(Folder + "/grep", Present ? "exit 0" : "exit 1");
        setenv("PATH", (Folder + ":" + Path).c_str(), 1);
    }

    void TearDown() override
    {
        setenv("PATH", Path.c_str(), 1);
        unlink((Folder + "/grep").c_str());
        rmdir(Folder.c_str());
        CAN_BENCH::TearDown();
    }
};

TEST_F(CAN_OPEN, ACloseRightAfterTheOpenStopsTheThread)
{
    set_Driver(true);
    for (int i = 0; i < 5; i++) { // an early close that is undone never returns
        ASSERT_EQ(open_Can(CAN_A), 0);
        EXPECT_EQ(Device[CAN_A].File, 5);
        EXPECT_EQ(close_Can(CAN_A), 0);
        EXPECT_EQ(Device[CAN_A].File, -10);
        EXPECT_EQ(RunRxCanA, 0);
    }
    EXPECT_EQ(close_Can(CAN_A), 0); // nothing to join
}

TEST_F(CAN_OPEN, RefusedInterfacesAreMarked)
{
    set_Driver(false);
    EXPECT_EQ(open_Can(CAN_A), GEN_ERR_FOPEN);
    EXPECT_EQ(Device[CAN_A].File, -2);
    set_Driver(true);
    EXPECT_EQ(open_Can(TTYS_0), GEN_ERR_PRG_VANTREL);
    EXPECT_EQ(Device[TTYS_0].File, -1);
    close_Can(TTYS_0);
    EXPECT_EQ(Device[TTYS_0].File, -10);
}

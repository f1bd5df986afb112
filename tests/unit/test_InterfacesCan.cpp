// Framing, addressing and senders, against frames written by hand.
#include "Bench.h"
#include "InterfacesTtys.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include "Status.h"
#include <numeric>
#include <unistd.h>

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

using FRAMES = std::vector<std::string>;

struct CAN_BENCH : BENCH {
    SLAVE Slaves[6] = {};
    BROADCAST Casts[FIRST_TYPE_GROUP + 6] = {};

    // Boards (BT, BN): (1,1) (1,2) (2,1) (2,2) (3,1) on CAN A, (1,1) on a serial line.
    void SetUp() override
    {
        BENCH::SetUp();
        const uint8_t Places[6][2] = {{1, 1}, {1, 2}, {2, 1}, {2, 2}, {3, 1}, {1, 1}};
        for (unsigned i = 0; i < 6; i++) {
            Slaves[i].Mask = BM_SLAVE_CAST{1} << i;
            Slaves[i].Device = i < 5 ? CAN_A : TTYS_0;
            Slaves[i].BoardType = Places[i][0];
            Slaves[i].BoardNumber = Places[i][1];
        }
        Slave = Slaves;
        NbSlaves = 6;
        Broadcast = Casts;
        make_BroadcastMask(); // groups 8 to 10 of the types 1 to 3 on CAN A, 11 on the serial line
        std::iota(Cmd.pP, Cmd.pP + NB_PARAMETERS_MAX, uint8_t{0});
        Cmd.MT = 24;
        Cmd.Fn = 0x41;
        write_Script("/mnt/bin/grep", "exit 0"); // finds the driver, whatever the host's modules
        setenv("PATH", "/mnt/bin:/usr/bin:/bin", 1);
    }

    FRAMES send(BM_SLAVE_CAST Mask, int16_t NbP)
    {
        FakeCan.Sent.clear();
        Cmd.NbP = NbP;
        Cmd.Slaves = Mask;
        EXPECT_EQ(send_Msg2Can(CAN_A, Mask, &Cmd), 0);
        return get_Sent();
    }
};

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
    CAN_FRAME Frame{};
    FakeCan.SendResult = -1;
    EXPECT_EQ(get_Reports([&] { EXPECT_EQ(send_MsgCan(CAN_A, &Frame), 25); }),
              "InterfacesCan: Erreur : can_Send\n\n"
              "Contrôlez le câblage CAN et si le problème persistechangez la carte Master.\n");
    FakeCan.SendResult = -3; // any other failure is passed on
    EXPECT_EQ(send_MsgCan(CAN_A, &Frame), -3);
}

TEST_F(CAN_BENCH, AMessageBeyondTheCounterEndsTheProcess)
{
    Cmd.Slaves = 2;
    for (const int16_t NbP :
         std::initializer_list<int16_t>{769, -1}) { // -1 would read and write outside every buffer
        Cmd.NbP = NbP;
        EXPECT_EXIT((dup2(2, 1), split_Msg2MsgCan(CAN_A, 0, &Cmd)),
                    testing::ExitedWithCode(-898 & 0xFF),
                    "Commande trop longue\n.*Device: 5 - Slave: 0000000000000002\n"
                    ".*MT: 18 - Fn: 41 - NbP: " +
                        std::to_string(NbP) + "\n");
    }
}

TEST_F(CAN_BENCH, SendersAreFoundAsASearchOfTheTablesFindsThem)
{
    // The interface, groups of types 2 and 9, boards (1,1), (1,2), (2,1) and (0,1). Bits 9..13 BN,
    // 4..8 BT; service, destination and low bits do not count.
    const auto Find = [] {
        std::vector<BM_SLAVE_CAST> Found;
        for (const uint32_t Id : {0x000u, 0x020u, 0x090u, 0x210u, 0x18FFC41Fu, 0x220u, 0x200u})
            Found.push_back(Id2Mask(CAN_A, Id));
        return Found;
    };
    using MASKS = std::vector<BM_SLAVE_CAST>;
    EXPECT_EQ(Find(), (MASKS{0x1F, 0x0C, 0, 0x01, 0x02, 0x04, 0}));
    EXPECT_EQ(Id2Mask(TTYS_0, 0x210), 0u);

    Slaves[4].BoardType = 1;  // a second (1,1): the later one wins
    Slaves[3].BoardType = 33; // does not fit the identifier: must not be taken for type 1
    Slaves[5].Device = CAN_A; // nor does its number: must not reach outside the table
    Slaves[5].BoardNumber = 32;
    Slaves[2].BoardNumber = 0; // no board's number: must not hide the group
    Casts[10].BoardType = 2;   // a second group of type 2
    Casts[9].BoardType = 0;    // not a group: must not hide the interface
    Casts[8].BoardType = 32;   // does not fit either: must not be taken for a board (0,1)
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0x01u) << "before it is published";
    publish_Senders();
    EXPECT_EQ(Find(), (MASKS{0x1F, 0x10, 0, 0x10, 0x02, 0, 0}));
    Slaves[4].Mask = 0; // out of reach of the masks, yet it is the one that is found
    publish_Senders();
    EXPECT_EQ(Id2Mask(CAN_A, 0x210), 0u);

    Slave = nullptr;
    Broadcast = nullptr;
    publish_Senders();
    EXPECT_EQ(Find(), MASKS(7));
}

TEST_F(CAN_BENCH, ACloseRightAfterTheOpenStopsTheThread)
{
    for (int i = 0; i < 5; i++) { // an early close that is undone never returns
        ASSERT_EQ(open_Interfaces(CAN_A), 0);
        EXPECT_EQ(Device[CAN_A].File, 5);
        EXPECT_EQ(close_Can(CAN_A), 0);
        EXPECT_EQ(Device[CAN_A].File, -10);
        EXPECT_EQ(RunRxCanA, 0);
    }
    EXPECT_EQ(close_Can(CAN_A), 0); // nothing to join
}

// An interface that is taken for another one, or for open.
TEST_F(CAN_BENCH, RefusedInterfaces)
{
    write_Script("/mnt/bin/grep", "exit 1");
    EXPECT_EQ(open_Interfaces(CAN_A), GEN_ERR_FOPEN);
    EXPECT_EQ(Device[CAN_A].File, -2);
    write_Script("/mnt/bin/grep", "exit 0");
    Device[TTYS_0].File = 0;
    EXPECT_EQ(open_Interfaces(0) + open_Interfaces(TTYS_0) + Device[TTYS_0].File, 0);
    EXPECT_EQ(open_Can(TTYS_0), GEN_ERR_PRG_VANTREL);
    EXPECT_EQ(Device[TTYS_0].File, -1);
    EXPECT_EQ(get_Reports([] {
                  EXPECT_EQ(close_Can(TTYS_0), 0);
                  EXPECT_EQ(close_Ttys(TTYS_0), 0);
                  EXPECT_EQ(open_Interfaces(6), GEN_ERR_PRG_VANTREL);
                  Device[6].File = 5;
                  EXPECT_EQ(close_Interfaces(), -1);
                  Device[6].File = -10;
              }),
              "L'interface can 3 est inconnue.\n\n\n\nL'interface 6 est inconnue de ce programme.\n"
              "  Vérifiez le fichier de configuration !\n"
              "\nL'interface 6 est inconnue de ce programme.\n");
    EXPECT_EQ(Device[TTYS_0].File, -10);
    EXPECT_DEATH(close_Ttys(CAN_A), "DeviceIndex == TTYS_0");
    Casts[1] = {1, NB_INTERFACES, 0, -1, -1, 0, 0};
    Cmd.Slaves = 1;
    EXPECT_EXIT((dup2(2, 1), send_Cmd(&Cmd)), testing::ExitedWithCode(-898 & 0xFF),
                "Interface inconnue: 8\n");
}

// Linked with wrapped malloc and calloc, so that the n-th allocation of the loader can fail.
#include "Config.h"
#include "Exit.h"
#include "Init.h"
#include "Interfaces.h"
#include "Log.h"
#include "PrivateFolders.h"
#include "Status.h"
#include <filesystem>

static int AllocationsLeft = -1; // successful ones before one that fails; below 0 none fails

extern "C" {
void *__real_malloc(size_t Size);
void *__real_calloc(size_t Count, size_t Size);
void *__wrap_malloc(size_t Size)
{
    return AllocationsLeft-- == 0 ? nullptr : __real_malloc(Size);
}
void *__wrap_calloc(size_t Count, size_t Size)
{
    return AllocationsLeft-- == 0 ? nullptr : __real_calloc(Count, Size);
}
}

namespace
{

testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// Device, board type and number, functional address of a slave.
struct PLACE {
    uint8_t Device, BoardType, BoardNumber, FuncAddr1, FuncAddr2;
};

struct Tables : testing::Test {
    void make_Slaves(const std::vector<PLACE> &Places)
    {
        exit_All();
        NbSlaves = static_cast<uint8_t>(Places.size());
        Slave = static_cast<SLAVE *>(calloc(NbSlaves, sizeof(SLAVE)));
        for (size_t i = 0; i < NbSlaves; i++) {
            const PLACE &P = Places[i];
            Slave[i].Mask = BM_SLAVE_CAST{1} << i;
            Slave[i].Device = P.Device;
            Slave[i].BoardType = P.BoardType;
            Slave[i].BoardNumber = P.BoardNumber;
            Slave[i].FuncAddr1 = P.FuncAddr1;
            Slave[i].FuncAddr2 = P.FuncAddr2;
        }
        init_Variables_Broadcasts();
    }
    void TearDown() override
    {
        exit_All();
    }
};

void expect_Group(int Group, BM_SLAVE_CAST Mask, int DeviceIndex, int BoardType)
{
    EXPECT_EQ(Broadcast[Group].Mask, Mask) << Group;
    EXPECT_EQ(Broadcast[Group].Device, DeviceIndex) << Group;
    EXPECT_EQ(Broadcast[Group].BoardType, BoardType) << Group;
}

// Groups out of order, a pair merged over interfaces, a dropped slave that stays in a group, and
// protocol numbers lost when the groups are built again.
TEST_F(Tables, GroupsFollowTheSlavesInService)
{
    make_Slaves({{CAN_A, 2, 1, 2, 1}, {CAN_A, 3, 1, 3, 1}, {CAN_A, 2, 2, 2, 2}, {4, 2, 1, 2, 1}});
    EXPECT_EQ(NbBroadcasts, 11);
    expect_Group(BROADCAST_ALL, 0b1111, 0, 0);
    expect_Group(4, 0b1000, 4, 0);
    expect_Group(CAN_A, 0b0111, CAN_A, 0);
    expect_Group(8, 0b0101, CAN_A, 2);
    expect_Group(9, 0b0010, CAN_A, 3);
    expect_Group(10, 0b1000, 4, 2);
    EXPECT_EQ(Broadcast[8].ProtocolLevel, -1);
    EXPECT_EQ(Broadcast[8].ProtocolParam2, 0xFFFF);

    Slave[1].Device = 0;
    Broadcast[CAN_A].ProtocolLevel = 7;
    make_BroadcastMask();
    EXPECT_EQ(NbBroadcasts, 10);
    expect_Group(BROADCAST_ALL, 0b1101, 0, 0);
    expect_Group(CAN_A, 0b0101, CAN_A, 0);
    expect_Group(8, 0b0101, CAN_A, 2);
    expect_Group(9, 0b1000, 4, 2);
    EXPECT_EQ(Broadcast[CAN_A].ProtocolLevel, 7);
}

TEST_F(Tables, TypeGroupRefusesMixedTypes)
{
    make_Slaves({{0, 9, 1, 9, 1}, {CAN_A, 2, 1, 2, 1}, {CAN_A, 2, 2, 2, 2}, {CAN_A, 3, 1, 3, 1}});
    EXPECT_EQ(make_BroadcastMask_ForSlaveType(8, 0, 3), 0);
    expect_Group(8, 0b0110, CAN_A, 2);
    EXPECT_EQ(make_BroadcastMask_ForSlaveType(8, 0, 1), 0);
    expect_Group(8, 0, 0, 9);
    EXPECT_EQ(make_BroadcastMask_ForSlaveType(8, 2, 4), -1);
}

// A collision that is missed, or seen between two interfaces.
TEST_F(Tables, AddressesAreUniqueOnAnInterface)
{
    make_Slaves({{CAN_A, 2, 1, 4, 1}, {4, 2, 1, 4, 1}, {CAN_A, 4, 1, 2, 1}});
    EXPECT_EQ(ctrl_AddressUnicity(), 0);
    make_Slaves({{CAN_A, 1, 1, 1, 1}, {CAN_A, 2, 1, 2, 1}, {CAN_A, 2, 1, 2, 2}});
    testing::internal::CaptureStdout();
    EXPECT_EQ(ctrl_AddressUnicity(), -899);
    make_Slaves({{0, 1, 1, 2, 1}, {0, 2, 1, 2, 1}});
    EXPECT_EQ(ctrl_AddressUnicity(), -899);
    const std::string Out = testing::internal::GetCapturedStdout();
    EXPECT_LT(Out.find("Erreur Config : adresses physiques identiques\n"),
              Out.find("Erreur Config : adresses fonctionnelles identiques\n"));
}

// ---- The whole start

const char CONFIG[] = "4698\n0\nappl 1.0\n0\n2\n"
                      "3 cana 2 1 2 1 100 200 NAME 1 2 3 40\n"
                      "1 ttyS1 2 1 2 1 100 200 NAME 1 2 3 40\n";

struct Start : testing::Test {
    void SetUp() override
    {
        write_File(PATH_APPL_CONF, CONFIG);
        std::filesystem::create_directories(DIR_WORK "/config");
        set_CanModule(true);
    }
    // The driver is there when grep finds the kernel's module.
    void set_CanModule(bool Loaded)
    {
        write_Script("/mnt/bin/grep", Loaded ? "exit 0" : "exit 1");
        setenv("PATH", "/mnt/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    }
};

// Tables that differ from their initial state, and a run that leaves some behind for the next.
TEST_F(Start, BuildsAndFreesAllTables)
{
    for (int Run = 0; Run < 2; Run++) {
        ASSERT_EQ(init_All(), 0);
        EXPECT_EQ(Master, 1008);
        EXPECT_EQ(NbSlaves, 2);
        EXPECT_EQ(Slave[0].IndexOfCompatibility, 0xFFFF);
        EXPECT_EQ(Slave[1].Device, 0); // no serial line is served
        EXPECT_EQ(Broadcast[BROADCAST_ALL].Mask, 1u);
        EXPECT_EQ(AnsDef[ANS_LONG].Buffer, 768);
        EXPECT_EQ(AnsDef[ANS_SHORT].Buffer, 7);
        EXPECT_EQ(AnsFree[ANS_LONG].Last, 31);
        EXPECT_EQ(AnsFree[ANS_SHORT].Last, 127);
        EXPECT_EQ(AnsFree[ANS_SHORT].Mask, 127);
        EXPECT_EQ(AnsFree[ANS_SHORT].pAnsIndex[126], 126);
        EXPECT_EQ(AnsTransf[ANS_SHORT].First, AnsTransf[ANS_SHORT].Last);
        EXPECT_EQ(pAns[ANS_LONG][0].pP, nullptr);
        EXPECT_NE(pAns[ANS_SHORT][127].pP, nullptr);
        EXPECT_EQ(exit_All(), 0);
        EXPECT_EQ(Slave, nullptr);
        EXPECT_EQ(Cmd.pP, nullptr);
    }
}

// The largest table: slaves from 64 on are in no group, and the counts fit.
TEST_F(Start, SlavesBeyondTheMaskAreInNoGroup)
{
    std::string Config = "4698\n0\nappl 1.0\n0\n247\n";
    for (int i = 1; i <= 247; i++)
        Config += "3 cana 1 " + std::to_string(i) + " 1 " + std::to_string(i) +
                  " 100 200 NAME 1 2 3 40\n";
    write_File(PATH_APPL_CONF, Config);
    ASSERT_EQ(init_All(), 0);
    EXPECT_EQ(NbBroadcasts, 9);
    expect_Group(BROADCAST_ALL, ~BM_SLAVE_CAST{0}, 0, 0);
    expect_Group(8, ~BM_SLAVE_CAST{0}, CAN_A, 1);
    EXPECT_EQ(Slave[63].Mask, 0x8000000000000000);
    EXPECT_EQ(Slave[64].Mask, 0u);
    EXPECT_EQ(get_NbSlavesFromMask(Broadcast[8].Mask), 64u);
    EXPECT_EQ(get_NbSlavesFromMask(0x8000000000000001), 2u);
    exit_All();
}

// Every allocation of a start fails once: a null pointer that is used, a wrong status or report,
// and (under a leak checker) what a half-built start leaves behind.
TEST_F(Start, SurvivesEveryFailedAllocation)
{
    const int NbAnswerTables = 1 + 3 + 3 + 128;
    for (int Failing = 0;; Failing++) {
        testing::internal::CaptureStdout();
        if (Failing == NbAnswerTables + 1) {
            AllocationsLeft = Failing;
            EXPECT_EXIT(init_All(), testing::ExitedWithCode(24), ""); // -1000
            EXPECT_NE(testing::internal::GetCapturedStdout().find("Allocation pour Broadcast\n"),
                      std::string::npos);
            continue;
        }
        AllocationsLeft = Failing;
        const int Status = init_All();
        AllocationsLeft = -1;
        EXPECT_EQ(exit_All(), 0);
        const std::string Out = testing::internal::GetCapturedStdout();
        if (Status == 0) {
            EXPECT_EQ(Failing, NbAnswerTables + 4);
            break;
        }
        EXPECT_EQ(Status, Failing <= NbAnswerTables ? -489 : -488) << Failing;
        EXPECT_NE(Out.find(Failing == 0                ? "Erreur d'allocation : Cmd.pP\n"
                           : Failing == 1              ? "Erreur d'allocation : pAns[0]\n"
                           : Failing == 5              ? "Erreur d'allocation : pAns[1][0].pP\n"
                           : Failing == NbAnswerTables ? "Allocation : Slave\n"
                           : Failing > NbAnswerTables  ? "Erreur : init_Interfaces = -1000\n"
                                                       : "Erreur d'allocation : "),
                  std::string::npos)
            << Failing << Out;
    }
}

// A failed start that does not come back with the status of the result files.
TEST_F(Start, GivesTheStatusOfTheResultFiles)
{
    set_CanModule(false);
    testing::internal::CaptureStdout();
    EXPECT_EQ(init_All(), -488);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Erreur : init_Interfaces = -891\n"),
              std::string::npos);
    EXPECT_EQ(exit_All(), 0);

    write_File(PATH_APPL_CONF, "4698\n0\nappl 1.0\n0\n2\n3 cana 2 1 2 1 100 200 NAME 1 2 3 40\n");
    EXPECT_EQ(init_All(), -489);
    EXPECT_EQ(ConfigFile, nullptr);
    EXPECT_EQ(exit_All(), 0);
}

// What must stop a start does: a missing directory, no or a foreign configuration, two slaves at
// one address.
TEST_F(Start, StopsOnWhatCannotBeUsed)
{
    std::filesystem::remove(DIR_WORK "/config");
    EXPECT_DEATH(init_All(), "Assertion `ctrl_Directories\\(\\) == 0' failed");
    std::filesystem::create_directory(DIR_WORK "/config");
    const std::string Line = "3 cana 2 1 2 1 100 200 NAME 1 2 3 40\n";
    write_File(PATH_APPL_CONF, "4698\n0\nappl 1.0\n0\n2\n" + Line + Line);
    EXPECT_DEATH(init_All(), "Assertion `ctrl_AddressUnicity\\(\\) == 0' failed");
    write_File(PATH_APPL_CONF, "4699\n");
    EXPECT_EXIT(init_All(), testing::ExitedWithCode(126), ""); // -898
    std::filesystem::remove(PATH_APPL_CONF);
    EXPECT_EXIT(init_All(), testing::ExitedWithCode(125), ""); // -899
    EXPECT_DEATH(exit_Variables_Slaves(), "Assertion `Slave != \\(\\(void \\*\\)0\\)' failed");
}

} // namespace

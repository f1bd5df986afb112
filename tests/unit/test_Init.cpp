// Linked with wrapped malloc and calloc, so that the n-th allocation of the loader can fail.
#include "Config.h"
#include "Exit.h"
#include "Init.h"
#include "Interfaces.h"
#include "Log.h"
#include "PrivateFolders.h"
#include "Reports.h"
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

// A configuration by the device, board type and number and functional address of its slaves.
void write_Config(const std::vector<std::string> &Places)
{
    std::string Text = "4698\n0\nappl 1.0\n0\n" + std::to_string(Places.size()) + "\n";
    for (const std::string &Place : Places)
        Text += "3 " + Place + " 100 200 NAME 1 2 3 40\n";
    write_File(PATH_APPL_CONF, Text);
}

struct Start : testing::Test {
    void SetUp() override
    {
        write_Config({"cana 2 1 2 1", "ttyS1 2 1 2 1"});
        std::filesystem::create_directories(DIR_WORK "/config");
        write_Script("/mnt/bin/grep", "exit 0"); // the kernel has the CAN driver's module
        setenv("PATH", "/mnt/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    }
    void TearDown() override
    {
        exit_All();
    }
    // The slaves and groups alone: every interface stays in service.
    void make_Tables(const std::vector<std::string> &Places)
    {
        write_Config(Places);
        ASSERT_EQ(init_Variables_Slaves(), 0);
        init_Variables_Broadcasts();
    }
};

// The groups of slaves and all type groups: "group:mask/device/type" each.
std::string get_Groups()
{
    std::ostringstream Text;
    for (int i = 0; i < NbBroadcasts; i++) {
        const BROADCAST &B = Broadcast[i];
        if (B.Mask != 0 || i >= FIRST_TYPE_GROUP)
            Text << ' ' << i << ':' << std::hex << B.Mask << std::dec << '/' << +B.Device << '/'
                 << +B.BoardType;
    }
    return Text.str();
}

// Groups out of order, a pair merged over interfaces, a dropped slave that stays in a group,
// protocol numbers lost when the groups are built again, a type group of mixed types.
TEST_F(Start, GroupsFollowTheSlavesInService)
{
    make_Tables({"cana 2 1 2 1", "cana 3 1 3 1", "cana 2 2 2 2", "ttyS1 2 1 2 1"});
    EXPECT_EQ(get_Groups(), " 0:f/0/0 4:8/4/0 5:7/5/0 8:5/5/2 9:2/5/3 10:8/4/2");
    EXPECT_EQ(Broadcast[8].ProtocolLevel, -1);
    EXPECT_EQ(Broadcast[8].ProtocolParam2, 0xFFFF);

    Slave[1].Device = 0;
    Broadcast[CAN_A].ProtocolLevel = 7;
    make_BroadcastMask();
    EXPECT_EQ(get_Groups(), " 0:d/0/0 4:8/4/0 5:5/5/0 8:5/5/2 9:8/4/2");
    EXPECT_EQ(Broadcast[CAN_A].ProtocolLevel, 7);

    EXPECT_EQ(make_BroadcastMask_ForSlaveType(8, 1, 3), 0);
    EXPECT_EQ(make_BroadcastMask_ForSlaveType(9, 1, 2), 0);
    EXPECT_EQ(get_Groups(), " 0:d/0/0 4:8/4/0 5:5/5/0 8:4/5/2 9:0/0/3");
    EXPECT_EQ(make_BroadcastMask_ForSlaveType(9, 2, 4), -1);
}

// A collision that is missed, also out of service, or seen between two interfaces (the start would
// stop).
TEST_F(Start, AddressesAreUniqueOnAnInterface)
{
    make_Tables({"cana 2 1 4 1", "ttyS1 2 1 4 1", "cana 4 1 2 1"});
    Slave[0].Device = Slave[1].Device = 0;
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(ctrl_AddressUnicity(), -899); }),
              "Init: Erreur Config : adresses physiques identiques\n");
    Slave[1].BoardNumber = 2;
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(ctrl_AddressUnicity(), -899); }),
              "Init: Erreur Config : adresses fonctionnelles identiques\n");
}

// The largest table: slaves from 64 on are in no group, and the counts fit.
TEST_F(Start, SlavesBeyondTheMaskAreInNoGroup)
{
    std::vector<std::string> Places;
    for (int i = 1; i <= 247; i++)
        Places.push_back("cana 1 " + std::to_string(i) + " 1 " + std::to_string(i));
    make_Tables(Places);
    EXPECT_EQ(get_Groups(),
              " 0:ffffffffffffffff/0/0 5:ffffffffffffffff/5/0 8:ffffffffffffffff/5/1");
    EXPECT_EQ(Slave[63].Mask, 0x8000000000000000);
    EXPECT_EQ(Slave[64].Mask, 0u);
    EXPECT_EQ(get_NbSlavesFromMask(0x8000000000000001), 2u);
}

// Every allocation of a start fails once: a null pointer that is used, a wrong status or report,
// and (under a leak checker) what a start, half-built or whole, leaves behind.
TEST_F(Start, SurvivesEveryFailedAllocation)
{
    std::vector<std::string> Tables = {"Cmd.pP", "pAns[0]", "AnsTransf", "AnsFree", "pAns[1]"};
    for (int i = 0; i < 128; i++)
        Tables.push_back("pAns[1][" + std::to_string(i) + "].pP");
    Tables.insert(Tables.end(), {"AnsTransf", "AnsFree", "Slave", "Broadcast", "AnsTmp", "AnsTmp"});
    int Status = 0;
    for (size_t i = 0; i < Tables.size(); i++) {
        const std::string Reports = get_Reports([&] {
            AllocationsLeft = static_cast<int>(i);
            if (Tables[i] == "Broadcast")
                EXPECT_EXIT(init_All(), testing::ExitedWithCode(24), ""); // -1000
            else
                Status = init_All();
            AllocationsLeft = -1;
            exit_All();
        });
        EXPECT_EQ(Status, Tables[i] == "AnsTmp" ? -488 : -489) << i;
        EXPECT_NE(Reports.find(" " + Tables[i] + "\n"), std::string::npos) << i << Reports;
    }
    AllocationsLeft = static_cast<int>(Tables.size());
    EXPECT_EQ(init_All(), 0);
    AllocationsLeft = -1;
    EXPECT_EQ(Master, 1008);
    EXPECT_EQ(Slave[0].IndexOfCompatibility, 0xFFFF);
    EXPECT_EQ(get_Groups(), " 0:1/0/0 5:1/5/0 8:1/5/2 9:0/4/2"); // no serial line is served
    EXPECT_EQ(exit_All(), 0);
}

// Half a configuration whose slaves seem to collide; what must stop a start does.
TEST_F(Start, StopsOnWhatCannotBeUsed)
{
    write_File(PATH_APPL_CONF, "4698\n0\nappl 1.0\n0\n3\n3 cana 2 1 2 1 100 200 NAME 1 2 3 40\n");
    EXPECT_EQ(init_All(), -489);
    EXPECT_EQ(exit_All(), 0);
    write_Config({"cana 2 1 2 1", "cana 2 1 2 1"});
    EXPECT_DEATH(init_All(),
                 "^qx: \\.\\./src/Init:[0-9]+: Assertion `ctrl_AddressUnicity\\(\\) == 0' "
                 "failed\\.\n$");
    std::filesystem::remove(DIR_WORK "/config");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(ctrl_Directories(), -899); }),
              "Init: Erreur : dir /home/user/vantrel/config\n");
}

} // namespace

#include "Bench.h"
#include "L2a.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <cstdlib>
#include <ctime>
#include <filesystem>

using std::string;

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// The master's clock: 13:54:49 UTC.
extern "C" time_t time(time_t *) noexcept
{
    return 1421934889;
}

static const string DIR = "/var/vantrel/config/";

// The three boards at functional addresses 2 1, 3 255 (on another interface) and 4 1.
struct L2a : BENCH {
    void SetUp() override
    {
        BENCH::SetUp();
        setenv("TZ", "CET-1", 1);
        std::filesystem::remove_all(DIR);
        std::filesystem::create_directories(DIR);
        MultipleSlavesOnAddMask = NewSlavesMask = 0;
        Boards[0] = {1, 0, 0, 5, 1, 1, 2, 1, 7, 65535, "PUMP", {0, 0, 12}, 0, 0};
        Boards[1] = {2, 0, 0, 7, 1, 2, 3, 255, 0, 0, "", {}, 0, 0};
        Boards[2] = {4, 0, 0, 5, 2, 1, 4, 1, 0, 0, "ABCDEFGHIJK", {}, 0, 0};
    }
};

// What a shell command in the folder of the files prints.
static string run(const string &Command)
{
    EXPECT_EQ(system(("cd " + DIR + " && (" + Command + ") > /home/out").c_str()), 0);
    return read_File("/home/out");
}

// A date in another time zone; numbers that were never agreed on are written sign-extended. What
// cannot be made is a failure, in the words of each file, and ends the writing.
TEST_F(L2a, HeadersAndProtocols)
{
    Groups[3] = {1, 3, 0, -1, -1, 0, 0};
    Groups[5] = {6, 5, 0, 2, 30, 0, 0};
    std::filesystem::remove_all(DIR); // is made when it is missing
    EXPECT_EQ(create_Loader_Versions() + create_Loader_Protocols(), 0);
    EXPECT_EQ(run("sed -n 2p loader.versions; tail -n +5 loader.protocols"),
              "1421934889        # Creation date of the file (time_t) : 22.01.2015 14:54:49\n"
              "ttyS0      4294967295 4294967295 000\ncana       002 030 000\n");

    std::filesystem::remove_all("/var/vantrel");
    NewSlavesMask = 1;
    EXPECT_EQ(get_Reports([] {
                  EXPECT_EQ(create_Loader_Versions(), -488);
                  EXPECT_EQ(create_Loader_Config(), -488);
                  EXPECT_EQ(create_Loader_Protocols(), -488);
                  EXPECT_EQ(create_Loader_Files(-1), -488);
              }),
              R"(FileTools: Erreur : test -d "/var/vantrel/config/"
L2a: Erreur : make_Dir(/var/vantrel/config/) = -994
L2a: Error : creation off /var/vantrel/config/loader.conf
L2a: Erreur : création de /var/vantrel/config/loader.protocols
L2a: Erreur : création de /var/vantrel/config/loader.errors
)");
}

// Answers every item with its group's letter and its tag, but for hardware item 12 (255 bytes).
// Board 0 does not know hardware item 5, board 1 not item 0.
static void answer_Item(const CAN_FRAME &Frame)
{
    const bool Type2 = ((Frame.Identifier >> 14) & 31) == 2;
    const BM_SLAVE_CAST Sender = Type2 ? 4 : (Frame.Identifier >> 19) & 31;
    const auto Function = static_cast<char>(Frame.Data[0] & 0x3F);
    const string Text = "HS?L"[int{Function}] + std::to_string(Frame.Data[1]);
    string Message = {Function, 0, 0, static_cast<char>(Text.size()), 5};
    if ((Sender == 1 && Text == "H5") || (Sender == 2 && Text == "H0"))
        Message = "\x40\x80";
    else if (Text == "H12")
        Message = string("\0\0\0\xFF\6", 5) + string(255, '\xA5');
    else
        Message += Text;
    const auto *pBytes = reinterpret_cast<const uint8_t *>(Message.data());
    BENCH::receive(24, {Sender, to_Hex(pBytes, static_cast<int>(Message.size()))});
}

// The lists hold the right items of the right group, whole; a slave's first unreadable item ends
// its lists, leaves the titles and does not touch the next slave.
TEST_F(L2a, Config)
{
    FakeCan.OnSend = answer_Item;
    EXPECT_EQ(create_Loader_Config(), 0);
    EXPECT_EQ(run("sed '1,4d; s/( A5){255}/<255 bytes>/' -E *"),
              "3                 # Nb slaves\n"
              "cana       002 001\nHW  H0                H3  H4  \nSW  \nLD  \n"
              "internal_keypad 003 255\nHW  \nSW  \nLD  \n"
              "cana       004 001\n"
              "HW  H0                H3  H4  H5  H6  H7  H8  H9  H10  H11  <255 bytes>  \n"
              "SW  S0                S2  S3  S4  S5  S6  S7  S8  S9  S10  \n"
              "LD  L0                L1  L2  L3  L4  L5  L6  L7  L8  L9  \n");
}

// The texts that the application parses, without slaves and with.
TEST_F(L2a, TodoAndErrors)
{
    Slave = nullptr; // as after a failed start: empty sections must not need it
    EXPECT_EQ(create_Loader_Todo(-1), create_Loader_Errors(-494));
    EXPECT_EQ(run("tail -n +5 *"), R"(==> loader.errors <==
Result unknown : -494
0                 # NO slave with addresse error
0                 # NO slave with timeout
0                 # NO slave to replace

==> loader.todo <==
Result unknown : -1
0                 # NO slave modified
0                 # NO slaves needing distribution package
)");
    Slave = Boards;
    NewSlavesMask = ReplaceSlavesMask = 5;
    NoDistributionMask = TimeoutMask = 2;
    MultipleSlavesOnAddMask = 1;
    EXPECT_EQ(create_Loader_Files(0), 0);
    EXPECT_EQ(run("tail -n +5 *"), R"(==> loader.errors <==
000  OK
1                 # Nb slaves with addresse errors
cana       002 001
1                 # Nb slaves with timeout
internal_keypad 003 255
2                 # Nb slaves to replace
cana       002 001
cana       004 001

==> loader.todo <==
000  OK
2                 # Nb modify slaves
cana       002 001 00007 065535 PUMP       000 000 012
cana       004 001 00000 000000 ABCDEFGHIJK 000 000 000
1                 # Nb slaves needing distribution packages
internal_keypad 003 255
)");
}

// A file that is missing, too many or left from an earlier run, or another result, makes the
// application draw the wrong conclusion. loader.versions stays.
TEST_F(L2a, Files)
{
    run("touch loader.conf loader.errors loader.protocols loader.todo loader.versions");
    remove_L2a_Files();
    EXPECT_EQ(run("ls"), "loader.versions\n");
    // The status, the mask that is not empty, and the result in each file that there is then.
    const std::tuple<int, BM_SLAVE_CAST *, string> Cases[] = {
        {0, &UpdateSwMask, ""},
        {-494, &UpdateSwMask, "loader.todo: 001  Slaves data base absent\n"},
        {-486, &UpdateSwMask, "loader.todo: 002  Master non volatile memory full\n"},
        {-489, &UpdateSwMask, "loader.errors: 501  Master board : hardware default\n"},
        {-488, &UpdateSwMask, "loader.errors: 502  Master board : OS default\n"},
        {0, &MultipleSlavesOnAddMask, "loader.errors: 000  OK\n"},
        {-496, &NewSlavesMask,
         "loader.errors: 503  Master software incompatibily\nloader.todo: Result unknown : -496\n"},
    };
    for (const auto &[Status, pMask, Files] : Cases) {
        *pMask = 1;
        EXPECT_EQ(create_Loader_Files(Status), 0);
        *pMask = 0;
        EXPECT_EQ(run("awk 'FNR == 5 {print FILENAME \": \" $0}' *"), Files);
        remove_L2a_Files();
    }
}

#include "Bench.h"
#include "L2a.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <cstdlib>
#include <cstring>
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
        for (uint8_t i = 0; i < 3; i++) {
            Boards[i].FuncAddr1 = static_cast<uint8_t>(i + 2);
            Boards[i].FuncAddr2 = i == 1 ? 255 : 1;
        }
        Boards[1].Device = 7;
    }
};

// What a file holds after the common header, which is checked here.
static string read_Body(const string &Name)
{
    const string Header =
        "4698              # File : /var/vantrel/config/" + Name +
        "\n"
        "1421934889        # Creation date of the file (time_t) : 22.01.2015 14:54:49\n"
        "1.1.6             # Version of the Loader\n";
    const string Text = read_File(DIR + Name);
    EXPECT_EQ(Text.substr(0, Header.size()), Header);
    return Text.substr(std::min(Header.size(), Text.size()));
}

static const string FORMAT = "0                 # File format\n";

// A wrong fourth line would tell the application of other formats; a missing folder is made. What
// cannot be made is a failure, in the words of each file, and ends the writing.
TEST_F(L2a, Versions)
{
    std::filesystem::remove_all(DIR);
    EXPECT_EQ(create_Loader_Versions(), 0);
    EXPECT_EQ(read_Body("loader.versions"), "0     0     0     # File format (Used  Min  Max)\n");
    std::filesystem::remove_all("/var/vantrel");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(create_Loader_Versions(), -488); }),
              "FileTools: Erreur : test -d \"/var/vantrel/config/\"\n"
              "L2a: Erreur : make_Dir(/var/vantrel/config/) = -994\n");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(create_Loader_Config(), -488); }),
              "L2a: Error : creation off /var/vantrel/config/loader.conf\n");
    NewSlavesMask = 1;
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(create_Loader_Files(-1), -488); }),
              "L2a: Erreur : création de /var/vantrel/config/loader.errors\n");
}

// An unused group has no line; numbers that were never agreed on are written sign-extended.
TEST_F(L2a, Protocols)
{
    Groups[3] = {1, 3, 0, -1, -1, 0, 0};
    Groups[5] = {6, 5, 0, 2, 30, 0, 0};
    EXPECT_EQ(create_Loader_Protocols(), 0);
    EXPECT_EQ(read_Body("loader.protocols"), FORMAT + "ttyS0      4294967295 4294967295 000\n"
                                                      "cana       002 030 000\n");
}

// Answers every item with its group's letter and its tag, but for hardware item 12 of board 0 (255
// bytes), hardware item 5 of board 1 (unknown) and software item 0 of board 2 (an error).
static void answer_Item(const CAN_FRAME &Frame)
{
    const auto Function = static_cast<uint8_t>(Frame.Data[0] & 0x3F);
    const bool Type2 = ((Frame.Identifier >> 14) & 31) == 2;
    const int Board = Type2 ? 2 : static_cast<int>((Frame.Identifier >> 19) & 31) - 1;
    const string Text = "HS?L"[Function] + std::to_string(Frame.Data[1]);
    string Record = {0, 0, static_cast<char>(Text.size()), 5};
    if (Board == 0 && Text == "H12")
        Record = string("\0\0\xFF\6", 4) + string(255, '\xA5');
    else
        Record += Text;
    std::vector<uint8_t> Message = {Function};
    for (char Byte : Record)
        Message.push_back(static_cast<uint8_t>(Byte));
    if (Board == 1 && Text == "H5")
        Message = {0x40, 128};
    else if (Board == 2 && Text == "S0")
        Message = {0x41, 7};
    BENCH::receive(24, {BM_SLAVE_CAST{1} << Board, to_Hex(Message.data(), int(Message.size()))});
}

// The lists hold the right items of the right group, whole; a slave's first unreadable item ends
// its lists, leaves the titles and does not touch the next slave. No slaves, no requests.
TEST_F(L2a, Config)
{
    FakeCan.OnSend = answer_Item;
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(create_Loader_Config(), 0); }), "MT_Info: Erreur : 0\n");
    string Bytes;
    for (int i = 0; i < 255; i++)
        Bytes += " A5";
    EXPECT_EQ(read_Body("loader.conf"),
              FORMAT +
                  "3                 # Nb slaves\n"
                  "cana       002 001\n"
                  "HW  H0                H3  H4  H5  H6  H7  H8  H9  H10  H11  " +
                  Bytes +
                  "  \n"
                  "SW  S0                S2  S3  S4  S5  S6  S7  S8  S9  S10  \n"
                  "LD  L0                L1  L2  L3  L4  L5  L6  L7  L8  L9  \n"
                  "internal_keypad 003 255\n"
                  "HW  H0                H3  H4  \n"
                  "SW  \n"
                  "LD  \n"
                  "cana       004 001\n"
                  "HW  H0                H3  H4  H5  H6  H7  H8  H9  H10  H11  H12  \n"
                  "SW  \n"
                  "LD  \n");
    FakeCan.Sent.clear();
    Groups[BROADCAST_ALL].Mask = 0;
    EXPECT_EQ(create_Loader_Config(), 0);
    EXPECT_EQ(read_Body("loader.conf"), FORMAT + "0                 # Nb slaves\n");
    EXPECT_TRUE(FakeCan.Sent.empty());
}

using RESULTS = std::vector<std::pair<int, string>>;

// The texts that the application parses, with and without slaves, for every known result.
TEST_F(L2a, TodoAndErrors)
{
    NewSlavesMask = ReplaceSlavesMask = 5;
    NoDistributionMask = TimeoutMask = 2;
    MultipleSlavesOnAddMask = 1;
    Boards[0].HwInfo4 = 7;
    Boards[0].HwInfo9 = 65535;
    memcpy(Boards[0].DistName, "PUMP", 5);
    Boards[0].DistVersion[2] = 12;
    memcpy(Boards[2].DistName, "ABCDEFGHIJK", 12);
    EXPECT_EQ(create_Loader_Files(0), 0);
    EXPECT_EQ(read_Body("loader.todo"),
              FORMAT + "000  OK\n"
                       "2                 # Nb modify slaves\n"
                       "cana       002 001 00007 065535 PUMP       000 000 012\n"
                       "cana       004 001 00000 000000 ABCDEFGHIJK 000 000 000\n"
                       "1                 # Nb slaves needing distribution packages\n"
                       "internal_keypad 003 255\n");
    EXPECT_EQ(read_Body("loader.errors"), FORMAT +
                                              "000  OK\n"
                                              "1                 # Nb slaves with addresse errors\n"
                                              "cana       002 001\n"
                                              "1                 # Nb slaves with timeout\n"
                                              "internal_keypad 003 255\n"
                                              "2                 # Nb slaves to replace\n"
                                              "cana       002 001\n"
                                              "cana       004 001\n");

    NewSlavesMask = NoDistributionMask = 0;
    MultipleSlavesOnAddMask = TimeoutMask = ReplaceSlavesMask = 0;
    Slave = nullptr; // as after a failed start: empty sections must not need it
    for (const auto &[Status, Text] : RESULTS{{-494, "001  Slaves data base absent\n"},
                                              {-486, "002  Master non volatile memory full\n"},
                                              {-1, "Result unknown : -1\n"}}) {
        create_Loader_Todo(Status);
        EXPECT_EQ(read_Body("loader.todo"),
                  FORMAT + Text + "0                 # NO slave modified\n" +
                      "0                 # NO slaves needing distribution package\n");
    }
    for (const auto &[Status, Text] : RESULTS{{-1, "000  OK\n"},
                                              {-489, "501  Master board : hardware default\n"},
                                              {-488, "502  Master board : OS default\n"},
                                              {-496, "503  Master software incompatibily\n"},
                                              {-494, "Result unknown : -494\n"}}) {
        create_Loader_Errors(Status);
        EXPECT_EQ(read_Body("loader.errors"),
                  FORMAT + Text + "0                 # NO slave with addresse error\n" +
                      "0                 # NO slave with timeout\n" +
                      "0                 # NO slave to replace\n");
    }
    ReplaceSlavesMask = 15; // more than the table has
    EXPECT_DEATH(create_Loader_Errors(0), "\\(i != 0\\) && \\(i <= NbSlaves\\)");
}

// A file that is missing, too many or left from an earlier run makes the application draw the
// wrong conclusion. loader.versions stays.
TEST_F(L2a, Files)
{
    write_File(DIR + "loader.versions", "");
    const auto get_Files = [](int Status, BM_SLAVE_CAST *pMask) {
        string Files;
        for (const char *Name : {"conf", "errors", "protocols", "todo"})
            write_File(DIR + "loader." + Name, "");
        remove_L2a_Files();
        *pMask = 1;
        EXPECT_EQ(create_Loader_Files(Status), 0);
        *pMask = 0;
        for (const char *Name : {"conf", "errors", "protocols", "todo", "versions"})
            Files += std::filesystem::exists(DIR + "loader." + Name) ? Name[0] : ' ';
        return Files;
    };
    EXPECT_EQ(get_Files(0, &UpdateSwMask), "    v");
    EXPECT_EQ(get_Files(-494, &UpdateSwMask), "   tv");
    EXPECT_EQ(get_Files(-486, &UpdateSwMask), "   tv");
    EXPECT_EQ(get_Files(-1, &UpdateSwMask), " e  v");
    EXPECT_EQ(get_Files(0, &TimeoutMask), " e  v");
    EXPECT_EQ(get_Files(0, &ReplaceSlavesMask), " e  v");
    EXPECT_EQ(get_Files(-494, &MultipleSlavesOnAddMask), " e tv");
    EXPECT_EQ(get_Files(0, &NoDistributionMask), "   tv");
    EXPECT_EQ(get_Files(-1, &NewSlavesMask), " e tv");
}

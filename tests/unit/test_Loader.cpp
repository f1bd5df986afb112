#include "Bench.h"
#include "Loader.h"
#include "Paths.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include "Status.h"
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>

using std::string;

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// The pauses of the polls pass at once.
extern "C" int usleep(useconds_t)
{
    return 0;
}

// The bench with groups, a card, and boards that answer by service, Fn and tag: "18 40 04" to the
// answer; none: silence.
struct LOADER : BENCH {
    BROADCAST AllGroups[FIRST_TYPE_GROUP + 3] = {};
    std::map<string, string> Answers[3];
    std::map<string, int> NbAsked;

    void SetUp() override
    {
        BENCH::SetUp();
        Broadcast = AllGroups;
        make_BroadcastMask();
        clear_Masks();
        FakeCan.OnSend = [this](const CAN_FRAME &Frame) { answer(Frame); };
        setenv("PATH", "/mnt/bin:/usr/bin:/bin", 1);
        write_Script("/mnt/bin/ins_cf", "exit 0");
        write_Script("/mnt/bin/rm_cf", "exit 0");
    }

    static void clear_Masks()
    {
        TimeoutMask = ReplaceSlavesMask = NewSlavesMask = NoDistributionMask = 0;
        UpdateSwMask = ForcedDownloadMask = 0;
    }

    // Status of a phase and what it leaves in the masks: "-1 Timeout 2".
    static string get_Result(int Status)
    {
        string Result = std::to_string(Status);
        const std::pair<const char *, BM_SLAVE_CAST> Masks[] = {
            {" Timeout ", TimeoutMask}, {" Replace ", ReplaceSlavesMask},
            {" New ", NewSlavesMask},   {" NoDist ", NoDistributionMask},
            {" Update ", UpdateSwMask}, {" Forced ", ForcedDownloadMask}};
        for (const auto &[Name, Mask] : Masks)
            Result += Mask != 0 ? Name + std::to_string(Mask) : "";
        return Result;
    }

    void answer(const CAN_FRAME &Frame)
    {
        const unsigned Id = Frame.Identifier, Number = Id >> 19 & 31, Type = Id >> 14 & 31;
        const unsigned i =
            Type == 2 ? 2 : Number - 1; // the boards' addresses as the bench has them
        const uint8_t Bytes[] = {uint8_t(Id >> 24), Frame.Data[0], Frame.Data[1]};
        const string Question = to_Hex(Bytes, 3);
        NbAsked[Question]++;
        receive(Bytes[0], {1u << i, Answers[i][Question]});
    }

    void set_All(const string &Key, const string &A, const string &B, const string &C)
    {
        Answers[0][Key] = A;
        Answers[1][Key] = B;
        Answers[2][Key] = C;
    }

    // The answer with a short item.
    static string make_Short(const string &Key, int Value)
    {
        const uint8_t Bytes[] = {2, 2, uint8_t(Value >> 8), uint8_t(Value)};
        return "0" + Key.substr(4, 1) + " 00 " + Key.substr(6) + " " + to_Hex(Bytes, sizeof Bytes);
    }

    void set_Shorts(const string &Key, int A, int B, int C)
    {
        set_All(Key, make_Short(Key, A), make_Short(Key, B), make_Short(Key, C));
    }

    // Board 12, letter D, versions 9 and 9, thrice, and a compressed database on the card.
    void set_Database(const string &Text)
    {
        const string Letter = "00 00 05 02 05 44 00";
        set_Shorts("18 40 04", 12, 12, 12);
        set_All("18 40 05", Letter, Letter, Letter);
        set_Shorts("18 40 06", 9, 9, 9);
        set_Shorts("18 40 07", 9, 9, 9);
        write_File(PATH_SLAVES_DB, Text);
        ASSERT_EQ(system("gzip -f " PATH_SLAVES_DB), 0);
    }
};

// Digits weighed the wrong way round, small letters taken, a pair read beyond the text's end.
TEST(Loader, HexaByte)
{
    const std::pair<const char *, int> Bytes[] = {{"", 0},     {" 1", -1}, {"\t1", -1}, {"7", 7},
                                                  {"A0", 160}, {"0a", 10}, {"1F9", 31}, {"0b", -2},
                                                  {"g1", -2},  {"1 ", -2}};
    for (const auto &[Text, Byte] : Bytes)
        EXPECT_EQ(get_HexaByte(Text), Byte) << '"' << Text << '"';
    EXPECT_EQ(get_Reports([] { get_HexaByte("0b12"); }), "Loader: b12\n");
}

// Bits counted from the wrong end; a short map that passes for one that forbids the type.
TEST(Loader, TypeId)
{
    const uint8_t Map[] = {0x80, 0x02};
    EXPECT_EQ(ctrl_TypeId(9, Map, 1), -1);
    EXPECT_EQ(ctrl_TypeId(9, Map, 2), 1);
    EXPECT_EQ(ctrl_TypeId(7, Map, 2), 1);
    EXPECT_EQ(ctrl_TypeId(0, Map, 2), 0);
}

// The tests of the reader in another order, or a field read as another one.
TEST_F(LOADER, DatabaseChoice)
{
    const string Head = "4699\n1421280000\n", Ones(1534, '1');
    const string Cases[][3] = {
        // the map, or the status
        {"letter resets versions", Head + "card 12 A 3 4 01\ncard 12 B 2 2 FF\n", "FF"},
        {"lower letter, higher A", Head + "card 12 B 2 2 FF\ncard 12 A 3 4 01\n", "01"},
        {"lower A, higher B", Head + "card 12 3 4 0F\ncard 12 2 9 F0\n", "F0"},
        {"equal: the later", Head + "card 12 A 3 4 0102\ncard 12 A 3 4 02\n", "02"},
        {"B below best", Head + "card 12 A 3 4 01\ncard 12 A 3 3 02\n", "01"},
        {"too high", Head + "c 12 E 1 1 01\nc 12 A 10 1 01\nc 12 A 1 10 01\n", "0"},
        {"other identity", Head + "card 13 A 1 1 01\n", "0"},
        {"16 bits", Head + "card 65548 Drev 9 9 0C\n", "0C"},
        {"not entries", Head + "# 12 A 1 1 1\n\r\n\nc 12 A 1 1\nc 12\nc 12 A 1 1 0A\r\n", "0A"},
        {"odd digits", Head + "card 12 A 1 1 0FF", "0F 0F"},
        {"bad digit", Head + "card 12 A 1 1 010b\ncard 12 A 1 1 01\n", "-494"},
        {"too long", Head + "card 12 A 1 1 " + Ones + "11\n", "-494"},
        {"signature", "4698\n1\n", "-494"},
        {"no signature", "x\n1\n", "-494"},
        {"no date", "4699\n", "-494"},
        {"blank before date", "4699\n 1\n", "-494"},
    };
    uint8_t Map[TYPE_MAP_SIZE];
    char Date[DB_DATE_SIZE];
    for (const auto &[Fault, Text, Expected] : Cases) {
        set_Database(Text);
        write_File(DIR_WORK_HW "/slaves_db.txt", "left by a cut run");
        const int Count = read_HwTypeId_FromDbFile(2, Date, Map);
        EXPECT_EQ(Count > 0 ? to_Hex(Map, Count) : std::to_string(Count), Expected) << Fault;
        EXPECT_TRUE(Count < 0 || strcmp(Date, "1421280000") == 0) << Fault;
        EXPECT_TRUE(std::filesystem::is_empty(DIR_WORK_HW)) << Fault;
    }
    set_Database(Head + "card 12 A 1 1 " + Ones + "\n");
    EXPECT_EQ(get_Result(read_HwTypeId_FromDbFile(1, Date, Map)), "767");
    Answers[0]["18 40 05"] = "00 00 05 01 05 44"; // a letter without its NUL
    EXPECT_EQ(get_Result(read_HwTypeId_FromDbFile(1, Date, Map)), "-490 Replace 1");
    std::filesystem::remove(PATH_SLAVES_DB ".gz");
    EXPECT_EQ(read_HwTypeId_FromDbFile(2, Date, Map), -494);
}

// A board condemned by a database that is older than its own; dates asked for again and again; the
// end of the checks at a board that knows neither its map nor its identity.
TEST_F(LOADER, HardwareTypeWithoutEntry)
{
    const string Date = "00 00 02 04 03 54 B7 03 00", Later = "00 00 02 04 03 54 B7 03 01";
    Boards[0].TypeId = Boards[1].TypeId = 9;
    set_Database("4699\n1421280000\ncard 13 A 1 1 0002\n");
    set_All("18 40 01", "40 80", "00 00 01 01 06 FF", "00 00 01 01 06 FF");
    set_All("18 40 02", Date, Later, Date); // Date is 1421280000
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-494");
    set_All("18 40 02", Date, Date, Date);
    NbAsked.clear();
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 3");
    EXPECT_EQ(NbAsked["18 40 02"], 3);

    clear_Masks();
    Answers[0]["18 40 06"] = "40 80";
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 1");
    clear_Masks();
    Answers[0]["18 40 01"] = "00 00 01 01 06 FF"; // knows a map: the checks go on
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 3");
}

// Boards that are not saved because one before them breaks off.
TEST_F(LOADER, BrokenUpload)
{
    const string Name = "01 00 02 02 05 41 42", Opened = "00 00 00 00 00 20", Ended = "42 85";
    set_All("18 41 02", Name, Name, Name);
    for (const char *Key : {"18 41 03", "18 41 04", "18 41 05"})
        set_Shorts(Key, 1, 1, 1);
    set_All("19 40 00", Opened, Opened, Opened);
    set_All("19 42 02", Ended, Ended, Ended);
    set_All("19 44 00", "04 00", "04 00", "04 00");
    EXPECT_EQ(get_Result(upload_Distributions_FromSlaves()), "0 Update 7");
}

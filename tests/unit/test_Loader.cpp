#include "Bench.h"
#include "Loader.h"
#include "Paths.h"
#include "PrivateFolders.h"
#include "Reports.h"
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

// The bench with groups, a card, and boards that answer alike by service, Fn and tag: "18 40 04"
// to the answer; none: silence.
struct LOADER : BENCH {
    BROADCAST AllGroups[FIRST_TYPE_GROUP + 3] = {};
    std::map<string, string> Answers;

    void SetUp() override
    {
        BENCH::SetUp();
        Broadcast = AllGroups;
        make_BroadcastMask();
        UpdateSwMask = 0;
        FakeCan.OnSend = [this](const CAN_FRAME &Frame) { answer(Frame); };
        setenv("PATH", "/mnt/bin:/usr/bin:/bin", 1);
        write_Script("/mnt/bin/ins_cf", "exit 0");
        write_Script("/mnt/bin/rm_cf", "exit 0");
    }

    void answer(const CAN_FRAME &Frame)
    {
        const unsigned Id = Frame.Identifier, Number = Id >> 19 & 31, Type = Id >> 14 & 31;
        const BM_SLAVE_CAST Sender = Type == 2 ? 4 : Number; // as the bench has its boards
        const uint8_t Bytes[] = {uint8_t(Id >> 24), Frame.Data[0], Frame.Data[1]};
        receive(Bytes[0], {Sender, Answers[to_Hex(Bytes, 3)]});
    }

    // Board 12, letter D, versions 9 and 9, and a compressed database on the card.
    void set_Database(const string &Text)
    {
        Answers = {{"18 40 04", "00 00 04 02 02 00 0C"},
                   {"18 40 05", "00 00 05 02 05 44 00"},
                   {"18 40 06", "00 00 06 02 02 00 09"},
                   {"18 40 07", "00 00 07 02 02 00 09"}};
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

// Bits counted from the wrong end; a short map that passes for one that forbids the type; the first
// byte of an answer's map passed over.
TEST_F(LOADER, TypeId)
{
    const uint8_t Map[] = {0x80, 0x02};
    EXPECT_EQ(ctrl_TypeId(9, Map, 1), -1);
    EXPECT_EQ(ctrl_TypeId(9, Map, 2), 1);
    EXPECT_EQ(ctrl_TypeId(0, Map, 2), 0);
    for (int i = 0; i < 3; i++)
        Boards[i].TypeId = uint8_t(7 - 3 * i);
    Answers = {{"18 40 01", "00 00 01 01 06 92"}};
    EXPECT_EQ(ctrl_HwTypeIdCompatibility(), 0);
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
    EXPECT_EQ(read_HwTypeId_FromDbFile(1, Date, Map), 767);
    std::filesystem::remove(PATH_SLAVES_DB ".gz");
    EXPECT_EQ(read_HwTypeId_FromDbFile(2, Date, Map), -494);
    Answers["18 40 05"] = "00 00 05 01 05 44"; // a letter without its NUL
    EXPECT_EQ(read_HwTypeId_FromDbFile(1, Date, Map), -490);
    EXPECT_EQ(ReplaceSlavesMask, 1u);
}

// Boards that are not saved because one before them breaks off.
TEST_F(LOADER, BrokenUpload)
{
    Answers = {{"18 41 02", "01 00 02 02 05 41 42"},
               {"18 41 03", "01 00 03 01 01 01"},
               {"18 41 04", "01 00 04 01 01 01"},
               {"18 41 05", "01 00 05 01 01 01"},
               {"19 40 00", "00 00 00 00 00 20"}, // 32 bytes
               {"19 42 02", "42 85"},             // the end of the file
               {"19 44 00", "04 00"}};
    EXPECT_EQ(upload_Distributions_FromSlaves(), 0);
    EXPECT_EQ(UpdateSwMask, 7u);
}

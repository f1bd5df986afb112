#include "A2l.h"
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

// The bench with groups, a store, and boards that answer by what they are asked: "service Fn tag"
// or "service Fn" to their answers, one a question (the last one stays); "|" parts answers that
// come together, "" is silence.
struct LOADER : BENCH {
    BROADCAST AllGroups[FIRST_TYPE_GROUP + 3] = {};
    std::map<string, std::deque<string>> Answers[3];
    string Question, Asked; // "board service Fn tag, " in order
    char Forced[3][DISTRIBUTION_SIZE] = {};

    void SetUp() override
    {
        BENCH::SetUp();
        Broadcast = AllGroups;
        make_BroadcastMask();
        clear_Masks();
        FakeCan.OnSend = [this](const CAN_FRAME &Frame) { answer(Frame); };
        ForcedDistributions = Forced;
        setenv("PATH", "/mnt/bin:/usr/bin:/bin", 1);
        write_Script("/mnt/bin/ins_cf", "exit 0");
        write_Script("/mnt/bin/rm_cf", "exit 0");
        std::filesystem::remove_all(DIR_STORE);
        std::filesystem::create_directories(DIR_STORE);
    }

    void TearDown() override
    {
        ForcedDistributions = nullptr;
        BENCH::TearDown();
    }

    static void clear_Masks()
    {
        MultipleSlavesOnAddMask = TimeoutMask = ReplaceSlavesMask = NewSlavesMask = 0;
        NoDistributionMask = UpdateSwMask = ForcedDownloadMask = 0;
    }

    // Status of a phase and what it leaves in the masks: "-1 Timeout 2".
    static string get_Result(int Status)
    {
        string Result = std::to_string(Status);
        const std::pair<const char *, BM_SLAVE_CAST> Masks[] = {
            {" Multiple ", MultipleSlavesOnAddMask}, {" Timeout ", TimeoutMask},
            {" Replace ", ReplaceSlavesMask},        {" New ", NewSlavesMask},
            {" NoDist ", NoDistributionMask},        {" Update ", UpdateSwMask},
            {" Forced ", ForcedDownloadMask}};
        for (const auto &[Name, Mask] : Masks)
            Result += Mask != 0 ? Name + std::to_string(Mask) : "";
        return Result;
    }

    void answer(const CAN_FRAME &Frame)
    {
        const unsigned Id = Frame.Identifier, Number = Id >> 19 & 31, Type = Id >> 14 & 31;
        const size_t Start = (Id & 8) != 0 ? 2 : 1;
        if (Start == 1 || (Frame.Data[1] & 0x80) != 0) {
            const uint8_t Bytes[] = {uint8_t(Id >> 24), Frame.Data[0], Frame.Data[Start]};
            Question = to_Hex(Bytes, Frame.Length > 1 ? 3 : 2);
        }
        for (unsigned i = 0; i < 3 && (Start == 1 || Frame.Data[1] == 0); i++) {
            if ((Type == 0 || Type == 1 + i / 2) && (Number == 0 || Number == 1 + i % 2))
                answer_As(i, Id); // the boards' addresses as the bench has them
        }
    }

    void answer_As(unsigned i, unsigned Id)
    {
        Asked += std::to_string(i) + " " + Question + ", ";
        const string Service = Question.substr(0, 5);
        std::deque<string> &Next = Answers[i][Answers[i].count(Question) ? Question : Service];
        if (Next.empty())
            return;
        std::istringstream Messages(Next.front());
        for (string Message; std::getline(Messages, Message, '|');)
            receive(uint8_t(Id >> 24), {1u << i, Message});
        if (Next.size() > 1)
            Next.pop_front();
    }

    int count_Asked(const string &Text) const
    {
        int Count = 0;
        for (size_t At = 0; (At = Asked.find(Text, At)) != string::npos; At++)
            Count++;
        return Count;
    }

    void set_All(const string &Key, const string &A, const string &B, const string &C)
    {
        Answers[0][Key] = {A};
        Answers[1][Key] = {B};
        Answers[2][Key] = {C};
    }

    // A short item, as all boards or each of them have it.
    void set_Shorts(const string &Key, int A, int B, int C)
    {
        string Messages[3];
        for (int i = 0; i < 3; i++) {
            const int Value = i == 0 ? A : i == 1 ? B : C;
            const uint8_t Bytes[] = {2, 2, uint8_t(Value >> 8), uint8_t(Value)};
            Messages[i] = (Key[4] == '1' ? "01 00 " : "00 00 ") + Key.substr(6) + " " +
                          to_Hex(Bytes, sizeof Bytes);
        }
        set_All(Key, Messages[0], Messages[1], Messages[2]);
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

    // An archive with nothing but a header.
    static void store_Archive(const string &Name, const string &Header)
    {
        write_File("/mnt/archive/sheader.bin", Header);
        const string Command = "tar -C /mnt/archive -czf " DIR_STORE "/" + Name + ".tar.gz .";
        ASSERT_EQ(system(Command.c_str()), 0);
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
    const struct {
        const char *Fault;
        string Text, Map; // the map, or the status
    } Cases[] = {
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
    for (const auto &Case : Cases) {
        set_Database(Case.Text);
        write_File(DIR_WORK_HW "/slaves_db.txt", "left by a cut run");
        const int Count = read_HwTypeId_FromDbFile(2, Date, Map);
        EXPECT_EQ(Count > 0 ? to_Hex(Map, Count) : std::to_string(Count), Case.Map) << Case.Fault;
        EXPECT_TRUE(Count < 0 || strcmp(Date, "1421280000") == 0) << Case.Fault;
        EXPECT_TRUE(std::filesystem::is_empty(DIR_WORK_HW)) << Case.Fault;
    }
    set_Database(Head + "card 12 A 1 1 " + Ones + "\n");
    EXPECT_EQ(get_Result(read_HwTypeId_FromDbFile(1, Date, Map)), "767");
    Answers[0]["18 40 05"] = {"00 00 05 01 05 44"}; // a letter without its NUL
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
    Asked.clear();
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 3");
    EXPECT_EQ(count_Asked("18 40 02"), 3);

    clear_Masks();
    Answers[0]["18 40 06"] = {"40 80"};
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 1");
    clear_Masks();
    Answers[0]["18 40 01"] = {"00 00 01 01 06 FF"}; // knows a map: the checks go on
    EXPECT_EQ(get_Result(ctrl_HwTypeIdCompatibility()), "-1 Replace 3");
}

static const char *const NAME_AB = "01 00 02 02 05 41 42";
static const char *const NAME_LONG = "01 00 02 0C 05 41 42 43 44 45 46 47 48 49 4A 4B 39";

// Forced requests that lose against an update, are lost when done or deleted with a bad archive.
TEST_F(LOADER, Download)
{
    // A header of 32 bytes that lists no files, and one that is none.
    store_Archive("AB.1.1.1", string("\6\1\0\0\0\x20\0\0\0\x1E\0\0\0\0\0\x1F", 16) + string(16, 0));
    store_Archive("BAD.1.1.1", "xx");
    set_All("19 40", "00 00 00 00 00 00", "00 00 00 00 00 00", "00 00 00 00 00 00");
    set_All("19 41", "01 00", "01 00", "01 00");
    set_All("19 44", "04 00", "04 00", "04 00");
    for (SLAVE &Board : Boards) {
        snprintf(Board.DistName, sizeof Board.DistName, "%s", &Board == &Boards[1] ? "AB" : "BAD");
        memset(Board.DistVersion, 1, 3);
    }
    snprintf(Forced[0], sizeof Forced[0], "%s", "AB.1.1.1");
    snprintf(Forced[1], sizeof Forced[1], "%s", "BAD.1.1.1");
    UpdateSwMask = 5;
    ForcedDownloadMask = 3;
    EXPECT_EQ(get_Result(download_Distributions_ToSlaves()), "0 NoDist 4 Forced 1");
    EXPECT_EQ(count_Asked("0 19 44") * 10 + count_Asked("1 19 44"), 12);
    EXPECT_FALSE(std::filesystem::exists(DIR_STORE "/BAD.1.1.1.tar.gz"));

    // What the store lacks is passed over; what the board does not keep ends the phase.
    Answers[1]["19 41"] = {"41 87"};
    clear_Masks();
    UpdateSwMask = 7;
    EXPECT_EQ(get_Result(download_Distributions_ToSlaves()), "-1 Replace 2 NoDist 1 Update 4");
    ReplaceSlavesMask = 0;
    write_Script("/mnt/bin/ins_cf", "exit 1");
    EXPECT_EQ(download_Distributions_ToSlaves(), ERR_MASTER_OS);
}

// Boards read out for nothing, or not marked when they cannot be read out.
TEST_F(LOADER, Upload)
{
    store_Archive("AB.1.1.1", "");
    set_All("18 41 02", NAME_AB, "41 80", NAME_AB);
    for (const char *Key : {"18 41 03", "18 41 04", "18 41 05"})
        set_Shorts(Key, 1, 1, 2);
    Answers[2]["19 40"] = {"00 00 00 00 00 20"};
    Answers[2]["19 42"] = {"42 85"}; // the end of a file that has 32 bytes
    Answers[2]["19 44"] = {"04 00"};
    EXPECT_EQ(get_Result(upload_Distributions_FromSlaves()), "0 Update 6");
    EXPECT_EQ(count_Asked("0 19 40") * 10 + count_Asked("2 19 40"), 2);
    clear_Masks();
    Answers[2].erase("19 42");
    UpdateSwMask = 2;
    EXPECT_EQ(get_Result(upload_Distributions_FromSlaves()), "-1 Timeout 4 Update 2");
    EXPECT_EQ(count_Asked("1 18 41 02"), 1) << "a board to be updated is not saved";

    // The header of AB.2.2.2, with no files; a card that is full in the middle of its archive.
    const string Archive = DIR_STORE "/AB.2.2.2.tar.gz";
    Answers[2]["19 40"] = {"00 00 00 00 00 37"};
    write_Script("/mnt/bin/cp", "echo half >" + Archive + "; exit 1");
    for (const int Expected : {-486, 0}) {
        clear_Masks();
        Answers[2]["19 42"] = {
            "02 00 06 01 00 00 00 37 00 00 00 1E 00 06 00 00 00 1E 00 00 00 00 00 00 00 00 00 00 "
            "00 00 00 00 01 00 06 02 02 05 41 42 03 01 01 02 04 01 01 02 05 02 02 00 02 0A 01 01 "
            "00",
            "42 85"};
        EXPECT_EQ(upload_Distributions_FromSlaves(), Expected);
        EXPECT_EQ(std::filesystem::exists(Archive), Expected == 0);
        std::filesystem::remove("/mnt/bin/cp");
    }
    EXPECT_TRUE(std::filesystem::is_empty(DIR_WORK_SW));
    clear_Masks();
    write_Script("/mnt/bin/ins_cf", "exit 1");
    EXPECT_EQ(upload_Distributions_FromSlaves(), ERR_MASTER_OS);
    EXPECT_EQ(pAns2Cmd, nullptr) << "an answer that was given back is not looked at again";
}

// A long mnemonic whose end is taken for the version; a slot that expects what was forced out.
TEST_F(LOADER, NamesAfterForcedDownloads)
{
    set_All("18 41 02", NAME_AB, NAME_LONG, "");
    set_Shorts("18 41 03", 3, 1, 1);
    set_Shorts("18 41 04", 4, 1, 1);
    set_Shorts("18 41 05", 5, 1, 1);
    ForcedDownloadMask = 7;
    EXPECT_EQ(get_Result(update_SlavesInfo_Sw()), "-1 Timeout 4 New 1 Update 2");
    EXPECT_EQ(string(Boards[0].DistName) + to_Hex(Boards[0].DistVersion, 3), "AB03 04 05");
    EXPECT_EQ(string(Boards[1].DistName) + to_Hex(Boards[1].DistVersion, 3), "00 00 00");
    TimeoutMask = 0;
    ForcedDownloadMask = 1;
    set_Shorts("18 41 04", 256, 0, 0);
    EXPECT_DEATH(update_SlavesInfo_Sw(), "tmpInt\\[1\\] < 256");
}

#include "Bench.h"
#include "MT_FileManage.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>
#include <map>
#include <unistd.h>

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

constexpr BM_SLAVE_CAST SLAVE_0 = 1;
constexpr char SW[] = "/home/user/vantrel/slave_sw/";
constexpr char MASTER[] = "/home/user/vantrel/tmp/master";
static const std::string ARCHIVE = std::string(SW) + "ABC.1.2.3.tar.gz";

// Board 0 keeps files and answers the file service as a board does, but for the answers that a test
// puts in its mouth.
struct FILES : BENCH {
    std::map<std::string, std::string> Stored;
    // By function: hexadecimal answers in the place of its own, "" silence, "own" its own.
    std::map<int, std::deque<std::string>> Forced;
    std::string Calls;   // a letter a command: open, write, read, seek, close
    std::string Endless; // when not empty, the answer to every read
    std::string *pOpen = nullptr;
    size_t Position = 0;
    std::vector<uint8_t> Command;

    void SetUp() override
    {
        BENCH::SetUp();
        FakeCan.OnSend = [this](const CAN_FRAME &Frame) { take_Frame(Frame); };
        std::filesystem::remove_all(SW);
        std::filesystem::current_path("/home/user/vantrel/tmp");
    }

    void take_Frame(const CAN_FRAME &Frame)
    {
        const bool Multi = (Frame.Identifier & 8) != 0;
        if (!Multi || (Frame.Data[1] & 0x80) != 0)
            Command = {Frame.Data[0]};
        Command.insert(Command.end(), Frame.Data + (Multi ? 2 : 1), Frame.Data + Frame.Length);
        if (Multi && (Frame.Data[1] & 0x7F) != 0)
            return;
        const int Function = Command[0] & 0x3F;
        Calls += "owrsc"[Function];
        std::string Answer = "own";
        if (!Forced[Function].empty()) {
            Answer = Forced[Function].front();
            Forced[Function].pop_front();
        }
        if (Answer == "own")
            Answer = answer_Command(Function);
        if (!Answer.empty())
            receive(MT_FILEMANAGE, {SLAVE_0, Answer});
    }

    std::string answer_Command(int Function)
    {
        const std::string Data(Command.begin() + 1, Command.end());
        switch (Function) {
        case 0: {
            const std::string Name = Data.substr(1, Data.size() - 2);
            if (pOpen)
                return "40 82";
            if (Data[0] == FILE_OPEN_READ && !Stored.contains(Name))
                return "40 80";
            pOpen = &Stored[Name];
            Position = 0;
            if (Data[0] == FILE_OPEN_WRITE)
                pOpen->clear();
            const auto Length = static_cast<uint32_t>(pOpen->size());
            const uint8_t Bytes[] = {0, 0xEE, 0, 0, uint8_t(Length >> 8), uint8_t(Length)};
            return to_Hex(Bytes, sizeof Bytes);
        }
        case 1:
            pOpen->append(Data);
            return "01 00";
        case 2: {
            if (!Endless.empty())
                return Endless;
            if (!pOpen || Position == pOpen->size())
                return "42 85";
            const std::string Block = "\x02\xEE" + pOpen->substr(Position, 766);
            Position += Block.size() - 2;
            return to_Hex(reinterpret_cast<const uint8_t *>(Block.data()), int(Block.size()));
        }
        default:
            pOpen = nullptr;
            return "04 00";
        }
    }

    int get()
    {
        return get_SlaveFile(SLAVE_0, "master", "slave");
    }

    int put()
    {
        return put_SlaveFile(SLAVE_0, "master", "slave");
    }
};

static std::string make_Content(size_t Size)
{
    std::string Content;
    for (size_t i = 0; i < Size; i++)
        Content += static_cast<char>(i * 7 + i / 251);
    return Content;
}

TEST_F(FILES, BuildersGiveTheBytesOnTheWire)
{
    const auto Check = [](uint8_t Fn, uint32_t TimeOut, const char *Parameters) {
        EXPECT_EQ(Cmd.MT, 25);
        EXPECT_EQ(Cmd.Fn, Fn);
        EXPECT_EQ(Cmd.TimeOut, TimeOut);
        EXPECT_EQ(Cmd.Slaves, 4u);
        EXPECT_EQ(to_Hex(Cmd.pP, Cmd.NbP), Parameters);
    };
    const uint8_t Data[] = {0xDE, 0xAD};
    cmd_FileOpen(&Cmd, 4, FLAG_ACK, FILE_OPEN_APPEND, "a.b");
    Check(0x40, 1000, "02 61 2E 62 00");
    cmd_FileWrite(&Cmd, 4, FLAG_ACK, Data, 2);
    Check(0x41, 1000, "DE AD");
    cmd_FileWrite(&Cmd, 4, FLAG_ACK, nullptr, 0);
    Check(0x41, 1000, "");
    cmd_FileRead(&Cmd, 4, FLAG_ACK, 766);
    Check(0x42, 1000, "02 FE");
    cmd_FileSeek(&Cmd, 4, FLAG_ACK, 2, -2);
    Check(0x43, 40, "02 FF FF FF FE");
    cmd_FileClose(&Cmd, 4, FLAG_ACK);
    Check(0x44, 40, "");
    cmd_FileClose(&Cmd, 4, 0); // without answer there is nothing to wait for
    Check(0x04, 0, "");
}

// Off by one at the limits of a read or a write, lost or doubled blocks.
TEST_F(FILES, CopiesEverySizeBothWays)
{
    for (const size_t Size : {0u, 1u, 130u, 765u, 766u, 767u, 768u, 769u, 1536u}) {
        SCOPED_TRACE(Size);
        Stored = {{"slave", make_Content(Size)}};
        Calls = "";
        EXPECT_EQ(get(), 0);
        EXPECT_EQ(read_File("master"), make_Content(Size));
        EXPECT_EQ(Calls, "o" + std::string((Size + 765) / 766 + 1, 'r') + "c");

        Stored = {{"slave", "old"}};
        Calls = "";
        EXPECT_EQ(put(), 0);
        EXPECT_EQ(Stored["slave"], make_Content(Size));
        EXPECT_EQ(Calls, "o" + std::string(Size / 768 + 1, 'w') + "c");
    }
}

// An outcome of a transfer: the answers forced to opens, reads or writes, and closes.
struct OUTCOME {
    const char *Fault;
    std::map<int, std::deque<std::string>> Forced;
    bool Put;
    int Status;
    const char *Calls;
    const char *Report;
};

TEST_F(FILES, EveryAnswerHasItsOutcome)
{
    const OUTCOME Outcomes[] = {
        {"open not waited for", {{0, {""}}}, false, -493, "o", "Timeout"},
        {"read not waited for", {{2, {""}}}, false, -493, "or", "Timeout"},
        {"close not waited for", {{4, {""}}}, false, -493, "orrc", "Timeout"},
        {"refused open taken for its length", {{0, {"40 80"}}}, false, -485, "orc", "sizeof("},
        {"forgotten file not closed",
         {{0, {"40 82", "40 82"}}},
         false,
         0,
         "ococorrc",
         "Erreur : un fichier est déjà ouvert (cas FILE_OPEN_READ) !\n"
         "MT_FileManage: Slave: 0000000000000001   SlaveFileName: slave\n"},
        {"close before the reopening", {{0, {"40 82"}}, {4, {""}}}, false, -493, "oc", "Timeout"},
        {"length read as unsigned",
         {{0, {"00 00 FF FF FF FF"}}},
         false,
         0,
         "orc",
         "La longueur du fichier slave est négative !"},
        {"length of a short answer", {{0, {"00 EE 00 00"}}}, false, 0, "orc", ""},
        {"answer without data", {{2, {"02 00"}}}, false, 0, "orrrc", ""},
        {"error 0 of a read", {{2, {"42 00"}}}, false, 0, "orrrc", ""},
        {"file shorter than announced",
         {{2, {"42 85"}}},
         false,
         -485,
         "orc",
         "sizeof(Fichier master) != sizeof(Fichier slave)"},
        {"open of a put", {{0, {""}}}, true, -493, "o", "Timeout"},
        {"write not waited for", {{1, {""}}}, true, -493, "ow", "Timeout"},
        {"close of a put", {{4, {""}}}, true, -493, "owc", "Timeout"},
        {"refused write taken for done", {{1, {"41 83"}}}, true, -484, "owc", "sizeof("},
        {"forgotten file at a put", {{0, {"40 82"}}}, true, 0, "ocowc", "(cas FILE_OPEN_WRITE) !"},
    };
    for (const OUTCOME &Each : Outcomes) {
        SCOPED_TRACE(Each.Fault);
        write_File(MASTER, "bytes");
        Stored = {{"slave", "bytes"}};
        Calls = "";
        pOpen = nullptr;
        Forced = Each.Forced;
        TimeoutMask = 0;
        int Status = 1;
        const std::string Reports = get_Reports([&] { Status = Each.Put ? put() : get(); });
        EXPECT_EQ(Status, Each.Status);
        EXPECT_EQ(Calls, Each.Calls);
        EXPECT_NE(Reports.find(Each.Report), std::string::npos) << Reports;
        EXPECT_EQ(TimeoutMask, Each.Status == -493 ? SLAVE_0 : 0);
        EXPECT_EQ(ReplaceSlavesMask, 0u);
    }
}

// A board that never says "end of file" must not fill the memory or hold the start for ever.
TEST_F(FILES, RunawayReadEnds)
{
    Stored["slave"] = "";
    Endless = "02 00 " + to_Hex(std::vector<uint8_t>(766, 0xAA).data(), 766);
    EXPECT_EQ(get(), -485);
    EXPECT_EQ(Calls, "o" + std::string(86, 'r') + "c"); // 85 * 766 < 65536 < 86 * 766
    EXPECT_EQ(read_File("master").size(), 86u * 766);
    Endless = "02 00";
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(pOpen, nullptr);
}

TEST_F(FILES, MasterSideFailuresAreTold)
{
    Stored["slave"] = "bytes";
    EXPECT_EQ(get_SlaveFile(SLAVE_0, "missing/master", "slave"), -891);
    EXPECT_NE(pOpen, nullptr);                                     // left to the next open
    EXPECT_EQ(get_SlaveFile(SLAVE_0, "/dev/full", "slave"), -485); // what was lost counts
    EXPECT_EQ(put_SlaveFile(SLAVE_0, "missing", "slave"), -891);
    EXPECT_EQ(put_SlaveFile(SLAVE_0, "/tmp", "slave"), -891); // a directory has no end
}

// What must end the process, and with which status.
TEST_F(FILES, UnexpectedAnswersEndTheProcess)
{
    struct END {
        BM_SLAVE_CAST Slaves;
        std::map<int, std::deque<std::string>> Forced;
        bool Put;
        int Status;
    };
    const END Ends[] = {
        {8, {}, false, 0}, // an unknown slave: the open is not sent
        {8, {}, true, -898 & 0xFF},
        {1, {{2, {"42 87"}}}, false, 135},
        {1, {{4, {"44 81"}}}, false, 129},
        {1, {{4, {"44 81"}}}, true, 129},
        {1, {{4, {"44 83"}}}, true, 131},
        {1, {{0, {"40 82"}}, {4, {"44 81"}}}, false, 129},
        {1, {{0, {"40 82"}}, {4, {"44 80"}}}, true, 128},
    };
    Stored["slave"] = "bytes";
    write_File(MASTER, "bytes");
    for (const END &Each : Ends) {
        Forced = Each.Forced;
        EXPECT_EXIT(Each.Put ? put_SlaveFile(Each.Slaves, "master", "slave")
                             : get_SlaveFile(Each.Slaves, "master", "slave"),
                    testing::ExitedWithCode(Each.Status), "");
    }
    EXPECT_EQ(read_SlaveFile(8, 766), -493); // the one that does not look whether it was sent
}

// The part of a header before its file list: the distribution ABC.1.2.3.
static const char *const HEADER = "06 01 00 00 00 00 00 00 00 1E 00 06 00 00 00 38 00 00 "
                                  "00 00 00 00 00 00 00 00 00 00 00 00 01 00 06 "
                                  "02 03 05 41 42 43 03 01 01 01 04 01 01 02 "
                                  "05 02 02 00 03 0A 01 01 00";

struct DISTRIBUTIONS : FILES {
    static std::string make_Header(const std::vector<std::string> &Names)
    {
        const std::vector<uint8_t> Fixed = from_Hex(HEADER);
        std::string Header(Fixed.begin(), Fixed.end());
        for (const std::string &Name : Names)
            Header += std::string(11, 'x') + Name + '\0';
        Header[4] = static_cast<char>(Header.size() >> 8);
        Header[5] = static_cast<char>(Header.size());
        Header[15] = Names.empty() ? 0x1E : 0x38; // the offset must lie in the header
        Header[17] = static_cast<char>(Names.size());
        return Header;
    }

    // Runs a command of the shell in the archive's folder.
    static void run(const std::string &Command)
    {
        std::filesystem::create_directories(SW);
        ASSERT_EQ(system(("cd " + std::string(SW) + " && " + Command).c_str()), 0);
    }

    static void expect_NothingLeft()
    {
        EXPECT_TRUE(std::filesystem::is_empty(SW));
        EXPECT_EQ(std::filesystem::current_path(), "/home/user/vantrel");
    }
};

// The whole way out of a board and back, over what cut runs have left: an older archive of the
// name, a hidden file that the shell's * does not see, an unpacked archive.
TEST_F(DISTRIBUTIONS, GoOutAndBack)
{
    const std::map<std::string, std::string> Original = {
        {"sheader.bin", make_Header({"b.dat", "a"})}, {"a", ""}, {"b.dat", make_Content(2000)}};
    Stored = Original;
    write_File(ARCHIVE, "old");
    write_File(SW + std::string("OTHER.1.1.1.tar.gz"), "old");
    write_File(SW + std::string("tmp/.hidden"), "old");
    EXPECT_EQ(get_SlaveDistribution(SLAVE_0), 0);
    EXPECT_EQ(Calls, "orrcorrrrcorc"); // the header, then its list in its order
    EXPECT_FALSE(std::filesystem::exists(SW + std::string("OTHER.1.1.1.tar.gz")));
    run("test \"`tar -tzf ABC.1.2.3.tar.gz | tr '\\n' ' '`\" = 'a b.dat sheader.bin '");

    Stored.clear();
    write_File(SW + std::string("ABC.1.2.3.tar"), "old");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(put_SlaveDistribution(SLAVE_0, "ABC.1.2.3"), 0); }),
              "\nput_SlaveDistribution - Slave = 0000000000000001     ABC.1.2.3\n");
    EXPECT_EQ(Stored, Original);
    expect_NothingLeft();

    Stored = {{"sheader.bin", make_Header({})}};
    EXPECT_EQ(get_SlaveDistribution(SLAVE_0), 0);
    run("test `tar -tzf ABC.1.2.3.tar.gz` = sheader.bin");
}

// A read that fails must not leave an archive, neither its own nor one that was there before.
TEST_F(DISTRIBUTIONS, FailedReadLeavesNoArchive)
{
    struct READ {
        std::vector<std::string> Names;
        std::map<int, std::deque<std::string>> Forced;
        int Status;
        const char *Report;
    };
    const std::string Long(128, 'n');
    const READ Reads[] = {
        {{"a"}, {{0, {"", ""}}}, -493, ": get_SlaveFile() = -493   Retry = 0\n"}, // name not shown
        {{"a"}, {{2, {"own", "own", ""}}, {4, {"own", ""}}}, -493, "(a) = -493   Retry = 0\n"},
        {{"a", "gone"}, {}, -485, "get_SlaveFile(gone) = -485   Retry = 1\n"},
        {{"a", "sub/dir"}, {}, -891, "Erreur : fopen(sub/dir)\n"},
        {{"a", ""}, {}, -495, "Erreur de lecture du nom de fichier : 1\n"},
        {{"../a"}, {}, -495, "Erreur de lecture du nom de fichier : 0\n"},
        {{"a;reboot"}, {}, -495, "Erreur de lecture du nom de fichier : 0\n"},
        {{Long + "n"}, {}, -495, "Erreur de lecture du nom de fichier : 0\n"},
        {{"no header"}, {}, -495, "Erreur : open_SheaderFile() = -495\n"},
    };
    for (const READ &Each : Reads) {
        SCOPED_TRACE(Each.Report);
        Stored = {{"sheader.bin", make_Header(Each.Names)}, {"a", "bytes"}, {"sub/dir", ""}};
        if (Each.Names[0] == "no header")
            Stored["sheader.bin"][0] = 7;
        write_File(ARCHIVE, "old");
        pOpen = nullptr;
        Forced = Each.Forced;
        int Status = 1;
        const std::string Reports = get_Reports([&] { Status = get_SlaveDistribution(SLAVE_0); });
        EXPECT_EQ(Status, Each.Status);
        EXPECT_NE(Reports.find(Each.Report), std::string::npos) << Reports;
        expect_NothingLeft();
    }
    // A lost answer is made good by the second attempt; the longest name is taken.
    Stored = {{"sheader.bin", make_Header({Long})}, {Long, "bytes"}};
    Forced = {{2, {"own", ""}}};
    EXPECT_EQ(get_SlaveDistribution(SLAVE_0), 0);
    EXPECT_TRUE(std::filesystem::exists(ARCHIVE));
}

TEST_F(DISTRIBUTIONS, WriteSendsWhatTheArchiveHolds)
{
    // A path below the root is the archive's own affair; a file of a cut run is none of it.
    run("mkdir -p in/sub tmp");
    write_File(SW + std::string("in/sheader.bin"), make_Header({"sub/dir", ".hidden"}));
    write_File(SW + std::string("in/sub/dir"), "bytes");
    write_File(SW + std::string("tmp/.hidden"), "old");
    run("tar -C in -czf ABC.1.2.3.tar.gz . && rm -R in");
    EXPECT_EQ(put_SlaveDistribution(SLAVE_0, "ABC.1.2.3"), -891);
    EXPECT_EQ(Stored["sub/dir"], "bytes");
    EXPECT_EQ(Stored[".hidden"], "");
    expect_NothingLeft();

    // No archive, and a damaged one, beside what a cut run had unpacked.
    for (const char *Archive : {"", "damaged"}) {
        run("echo old >sheader.bin && tar -cf ABC.1.2.3.tar sheader.bin && rm sheader.bin");
        if (*Archive)
            write_File(ARCHIVE, Archive);
        Stored.clear();
        pOpen = nullptr;
        EXPECT_EQ(put_SlaveDistribution(SLAVE_0, "ABC.1.2.3"), -891);
        EXPECT_EQ(Stored["sheader.bin"], "");
    }
}

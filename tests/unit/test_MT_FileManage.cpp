#include "Bench.h"
#include "MT_FileManage.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

constexpr BM_SLAVE_CAST SLAVE_0 = 1;
constexpr char MASTER[] = "/home/user/vantrel/tmp/master";
static const std::string SW = "/home/user/vantrel/slave_sw/";
static const std::string ARCHIVE = SW + "ABC.1.2.3.tar.gz";

struct FILES : BENCH {
    void SetUp() override
    {
        BENCH::SetUp();
        std::filesystem::remove_all(SW);
        std::filesystem::current_path("/home/user/vantrel/tmp");
    }

    // Runs Call while board 0 gives these answers, each with a | behind it, an empty one for
    // silence. Returns "-485 orrc": the status and the open, read, write and close commands.
    template <typename CALL>
    std::string run(const std::string &Answers, CALL Call)
    {
        std::istringstream Text(Answers);
        Script.clear();
        for (std::string Answer; std::getline(Text, Answer, '|');)
            Script.push_back({{SLAVE_0, Answer}});
        FakeCan.Sent.clear();
        std::string Result = std::to_string(Call()) + " ";
        for (const CAN_FRAME &Frame : FakeCan.Sent) {
            if ((Frame.Identifier & 8) == 0 || Frame.Data[1] == 0)
                Result += "owrsc"[Frame.Data[0] & 0x3F];
        }
        EXPECT_TRUE(Script.empty()) << Script.size();
        return Result;
    }

    std::string get(const std::string &Answers, BM_SLAVE_CAST Slaves = SLAVE_0,
                    const char *Name = "master")
    {
        return run(Answers, [=] { return get_SlaveFile(Slaves, Name, "slave"); });
    }

    std::string put(const std::string &Answers, BM_SLAVE_CAST Slaves = SLAVE_0,
                    const char *Name = "master")
    {
        return run(Answers, [=] { return put_SlaveFile(Slaves, Name, "slave"); });
    }
};

// A builder with a wrong function, byte order or time-out.
TEST_F(FILES, BuildersGiveTheBytesOnTheWire)
{
    const uint8_t Data[] = {0xDE, 0xAD};
    EXPECT_EQ(build(cmd_FileOpen, FLAG_ACK, FILE_OPEN_APPEND, "a.b"), "19 40 1000: 02 61 2E 62 00");
    EXPECT_EQ(build(cmd_FileWrite, FLAG_ACK, Data, 2), "19 41 1000: DE AD");
    EXPECT_EQ(build(cmd_FileWrite, FLAG_ACK, nullptr, 0), "19 41 1000: ");
    EXPECT_EQ(build(cmd_FileRead, FLAG_ACK, 766), "19 42 1000: 02 FE");
    EXPECT_EQ(build(cmd_FileSeek, FLAG_ACK, 2, -2), "19 43 40: 02 FF FF FF FE");
    EXPECT_EQ(build(cmd_FileClose, FLAG_ACK), "19 44 40: ");
    EXPECT_EQ(build(cmd_FileClose, 0), "19 04 0: "); // no answer, nothing to wait for
}

// What each command of a whole transfer looks like; the write without data that ends a file of a
// whole number of writes.
TEST_F(FILES, TransfersOnTheWire)
{
    using Frames = std::vector<std::string>;
    EXPECT_EQ(get("00 EE 00 00 00 02|02 EE DE AD|42 85|04 00|"), "0 orrc");
    EXPECT_EQ(get_Sent(), (Frames{"190843F0#40 00 73 6C 61 76 65 00", "190843F0#42 02 FE",
                                  "190843F0#42 02 FE", "190843F0#44"}));
    EXPECT_EQ(read_File(MASTER), "\xDE\xAD");
    EXPECT_EQ(put("00 EE 00 00 00 09|01 00|04 00|"), "0 owc");
    EXPECT_EQ(get_Sent(),
              (Frames{"190843F0#40 01 73 6C 61 76 65 00", "190843F0#41 DE AD", "190843F0#44"}));
    write_File(MASTER, std::string(768, 'x'));
    EXPECT_EQ(put("00 EE 00 00 00 00|01 00|01 00|04 00|"), "0 owwc");
    EXPECT_EQ(get_Sent().end()[-2], "190843F0#41");
}

TEST_F(FILES, OddAnswersHaveTheirOutcome)
{
    const std::tuple<const char *, bool, const char *, const char *> Cases[] = {
        {"a second forgotten file not closed", false,
         "40 82|04 00|40 82|04 00|00 EE 00 00 00 00|42 85|04 00|", "0 ococorc"},
        {"a refused open taken for its length", false, "40 80|42 85|04 00|", "-485 orc"},
        {"the length of a short answer", false, "00 EE 00 00|42 85|04 00|", "0 orc"},
        {"error 0 taken for the end", false, "00 00 00 00 00 01|42 00|02 00 AA|42 85|04 00|",
         "0 orrrc"},
        {"a refused write taken for a faulty board", true, "00 00 00 00 00 00|41 83|04 00|",
         "-484 owc"},
        {"a lost write repeated", true, "00 00 00 00 00 00||", "-493 ow"},
    };
    for (const auto &[Fault, Put, Answers, Outcome] : Cases) {
        SCOPED_TRACE(Fault);
        write_File(MASTER, "bytes");
        EXPECT_EQ(Put ? put(Answers) : get(Answers), Outcome);
        EXPECT_EQ(ReplaceSlavesMask, 0u);
    }
    EXPECT_EQ(TimeoutMask, SLAVE_0);
}

// A board that never says "end of file" must not fill the memory or hold the start for ever.
TEST_F(FILES, RunawayReadEnds)
{
    const auto Repeat = [](int Times, const std::string &Answer) {
        std::string Answers = "00 00 00 00 00 00|";
        for (int i = 0; i < Times; i++)
            Answers += Answer + "|";
        return Answers + "04 00|";
    };
    const std::string Full = "02 00 " + to_Hex(std::vector<uint8_t>(766, 0xAA).data(), 766);
    // 85 * 766 < 65536 < 86 * 766
    EXPECT_EQ(get(Repeat(86, Full)), "-485 o" + std::string(86, 'r') + "c");
    EXPECT_EQ(read_File(MASTER).size(), 86u * 766);
    EXPECT_EQ(get(Repeat(65537, "02 00")).substr(0, 3), "0 o");
}

TEST_F(FILES, MasterSideFailuresAreTold)
{
    const std::string Open = "00 00 00 00 00 01|";
    EXPECT_EQ(get(Open, SLAVE_0, "missing/master"), "-891 o"); // left open, to the next open
    EXPECT_EQ(get(Open + "02 00 AA|42 85|04 00|", SLAVE_0, "/dev/full"), "-485 orrc"); // lost
    for (const char *Name : {"missing", "/tmp"}) // a directory has no end
        EXPECT_EQ(put(Open, SLAVE_0, Name), "-891 o");
}

// A command to nobody that passes for sent, a close that is repeated for ever.
TEST_F(FILES, UnexpectedAnswersEndTheProcess)
{
    write_File(MASTER, "bytes");
    EXPECT_EXIT(get("", 8), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(put("", 8), testing::ExitedWithCode(-898 & 0xFF), "");
    EXPECT_EXIT(put("40 82|44 80|"), testing::ExitedWithCode(128), "");
    EXPECT_EQ(read_SlaveFile(8, 766), -493); // the one that does not look whether it was sent
}

// The header of ABC.1.2.3 with these two files.
static std::string make_Header(const std::string &First, const std::string &Second)
{
    const std::vector<uint8_t> Fixed =
        from_Hex("06 01 00 00 00 00 00 00 00 1E 00 06 00 00 00 38 00 02 "
                 "00 00 00 00 00 00 00 00 00 00 00 00 01 00 06 "
                 "02 03 05 41 42 43 03 01 01 01 04 01 01 02 05 02 02 00 03 0A 01 01 00");
    std::string Header(Fixed.begin(), Fixed.end());
    for (const std::string &Name : {First, Second})
        Header += std::string(11, 'x') + Name + '\0';
    Header[5] = static_cast<char>(Header.size());
    return Header;
}

// The answers to the read of a small file.
static std::string make_Answers(const std::string &Content)
{
    const auto *const pBytes = reinterpret_cast<const uint8_t *>(Content.data());
    const auto Size = static_cast<uint8_t>(Content.size());
    return "00 00 00 00 00 " + to_Hex(&Size, 1) + "|02 00 " + to_Hex(pBytes, Size) +
           "|42 85|04 00|";
}

struct DISTRIBUTIONS : FILES {
    // Runs a command of the shell in the archive's folder.
    static void run_Shell(const std::string &Command)
    {
        std::filesystem::create_directories(SW);
        ASSERT_EQ(system(("cd " + SW + " && " + Command).c_str()), 0);
    }

    static void expect_NothingLeft()
    {
        EXPECT_TRUE(std::filesystem::is_empty(SW));
        EXPECT_EQ(std::filesystem::current_path(), "/home/user/vantrel");
    }
};

// What cut runs have left and a read takes along: an older archive of the name, which passes for
// that of a read that fails, another one, a hidden file that the shell's * does not see.
TEST_F(DISTRIBUTIONS, ReadPacksWhatItReceived)
{
    const auto Get = [] { return get_SlaveDistribution(SLAVE_0); };
    const std::string Header = make_Header("b.dat", "a");
    write_File(ARCHIVE, "old");
    write_File(SW + "OTHER.1.1.1.tar.gz", "old");
    write_File(SW + "tmp/.hidden", "old");
    EXPECT_EQ(run(make_Answers(Header) + make_Answers("bytes") + make_Answers("a"), Get),
              "0 orrcorrcorrc");
    run_Shell("test \"`ls`\" = ABC.1.2.3.tar.gz && tar -xzf * && "
              "test \"`tar -tzf * | tr '\\n' ' '`\" = 'a b.dat sheader.bin ' && "
              "test `cat a` = a && test `cat b.dat` = bytes && rm a b.dat sheader.bin");

    EXPECT_EQ(run("||", Get), "-493 oo"); // over the archive of before
    expect_NothingLeft();
    write_File(ARCHIVE, "old");
    EXPECT_EQ(run(make_Answers('\7' + Header.substr(1)), Get), "-495 orrc");
    expect_NothingLeft();
}

// A path below the root is the archive's own affair; a file of a cut run is none of it.
TEST_F(DISTRIBUTIONS, WriteSendsWhatTheArchiveHolds)
{
    const auto Put = [] { return put_SlaveDistribution(SLAVE_0, "ABC.1.2.3"); };
    const std::string Open = "00 00 00 00 00 00|";
    const std::string Written = Open + "01 00|04 00|";
    run_Shell("mkdir -p in/sub tmp");
    write_File(SW + "in/sheader.bin", make_Header("sub/dir", ".hidden"));
    write_File(SW + "in/sub/dir", "bytes");
    write_File(SW + "tmp/.hidden", "old");
    run_Shell("tar -C in -czf ABC.1.2.3.tar.gz . && rm -R in");
    const std::string Reports =
        get_Reports([&] { EXPECT_EQ(run(Written + Written + Open + Open, Put), "-891 owcowcoo"); });
    EXPECT_TRUE(
        Reports.starts_with("\nput_SlaveDistribution - Slave = 0000000000000001     ABC.1.2.3\n"));
    EXPECT_EQ(get_Sent().end()[-6], "190843F0#41 62 79 74 65 73");
    expect_NothingLeft();

    // No archive, and a damaged one, beside what a cut run had unpacked.
    for (const char *Archive : {"", "damaged"}) {
        run_Shell("echo old >sheader.bin && tar -cf ABC.1.2.3.tar sheader.bin && rm sheader.bin");
        if (*Archive)
            write_File(ARCHIVE, Archive);
        EXPECT_EQ(run(Open + Open, Put), "-891 oo");
    }
}

#include "Bench.h"
#include "MT_FileManage.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

constexpr BM_SLAVE_CAST SLAVE_0 = 1;
constexpr char MASTER[] = "/home/user/vantrel/tmp/master";
static const std::string SW = "/home/user/vantrel/slave_sw/";

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
    // A whole number of writes without the one that ends the file.
    write_File(MASTER, std::string(768, 'x'));
    EXPECT_EQ(put("00 EE 00 00 00 00|01 00|01 00|04 00|"), "0 owwc");
    EXPECT_EQ(get_Sent().end()[-2], "190843F0#41");
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

// What cut runs have left: archives that pass for that of a read that failed, one that is sent in
// the place of a damaged one, a hidden file in the place of one that the archive lacks.
TEST_F(FILES, LeftoversAreNobodys)
{
    const auto Leave = [](const std::string &Command) {
        ASSERT_EQ(system(("mkdir -p " + SW + "tmp && cd " + SW + " && " + Command).c_str()), 0);
    };
    const auto Put = [] { return put_SlaveDistribution(SLAVE_0, "ABC.1.2.3"); };
    const std::string Open = "00 00 00 00 00 00|";
    Leave("touch ABC.1.2.3.tar ABC.1.2.3.tar.gz");
    EXPECT_EQ(run("||", [] { return get_SlaveDistribution(SLAVE_0); }), "-493 oo");
    EXPECT_TRUE(std::filesystem::is_empty(SW));
    EXPECT_EQ(std::filesystem::current_path(), "/home/user/vantrel");

    const std::string Pack = "echo old >sheader.bin && tar -cf ABC.1.2.3.tar --remove-files *.bin";
    for (const char *Archive : {"", "; echo damaged >ABC.1.2.3.tar.gz"}) {
        Leave(Pack + Archive);
        EXPECT_EQ(run(Open + Open, Put), "-891 oo");
    }
    const auto Header =
        from_Hex("06 01 00 00 00 2C 00 00 00 1E 00 00 00 00 00 1E 00 01 " // lists .h
                 "00 00 00 00 00 00 00 00 00 00 00 00 "
                 "00 00 00 00 00 00 00 00 00 00 00 2E 68 00");
    write_File(SW + "sheader.bin", {Header.begin(), Header.end()});
    Leave("echo old >tmp/.h && tar -czf ABC.1.2.3.tar.gz --remove-files *.bin");
    EXPECT_EQ(run(Open + "01 00|04 00|" + Open + Open, Put), "-891 owcoo");
    EXPECT_TRUE(std::filesystem::is_empty(SW));
    EXPECT_EQ(std::filesystem::current_path(), "/home/user/vantrel");
}

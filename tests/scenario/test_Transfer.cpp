// Whole files between master and boards: contents of every size, and what each status of the file
// service comes to at each step.
#include "qxdist/Archive.h"
#include "Scenario.h"
#include <gtest/gtest.h>

namespace
{

// Bytes that neither repeat nor compress.
std::string make_Content(std::size_t Size)
{
    std::string Content;
    for (std::uint32_t State = 1; Content.size() < Size; State = State * 1664525 + 1013904223) {
        Content += static_cast<char>(State >> 24);
    }
    return Content;
}

// Sizes around the ends of the chunks (768 written, 766 read), and 130 and 131, which are also
// statuses of the file service.
std::map<std::string, std::string> make_Files()
{
    std::map<std::string, std::string> Files;
    for (const std::size_t Size : {0, 1, 130, 131, 766, 767, 768, 769, 1536, 200 * 1024}) {
        Files["f" + std::to_string(Size)] = make_Content(Size);
    }
    return Files;
}

std::map<std::string, std::string> make_Texts(const qxdist::FileTable &Files)
{
    std::map<std::string, std::string> Texts;
    for (const auto &[Name, Bytes] : Files) {
        Texts[Name].assign(Bytes.begin(), Bytes.end());
    }
    Texts.erase("sheader.bin");
    return Texts;
}

qxdist::FileTable read_Board(const Scenario &Machine)
{
    return qxdist::read_Folder(Machine.get_Folder() / "boards/left");
}

struct Strike {
    const char *Kind;
    unsigned Function; // 0 open, 1 write, 2 read, 4 close
    unsigned Nth;      // of the transfer of sheader.bin, then program.txt (900 bytes); 0: every one
    unsigned Code;
};

struct Step {
    std::vector<Strike> Strikes;
    const char *Outcome;
    const char *Report; // in the log
    const char *Left;   // of the upload in the store, of the download on the board
};

std::string make_Toml(const std::vector<Strike> &Strikes)
{
    std::string Text;
    for (const Strike &Each : Strikes) {
        Text += std::string{"[[board.fault]]\nkind = \""} + Each.Kind +
                "\"\nservice = 25\nfunction = " + std::to_string(Each.Function) +
                "\nnth = " + std::to_string(Each.Nth) + "\ncode = " + std::to_string(Each.Code) +
                "\n";
    }
    return Text;
}

// A board whose software the store lacks.
void build_Upload(Scenario &Machine)
{
    ScenarioBoard &Board = Machine.add_Board("left", 2, 17);
    Board.Runs.Files["program.txt"] = make_Content(900);
    Board.Stored = false;
}

// A board that runs 1.2.2, too old for its hardware, and is to run 1.2.3.
void build_Download(Scenario &Machine)
{
    ScenarioBoard &Board = Machine.add_Board("left", 2, 17);
    Board.Runs = {"PUMP", {1, 2, 2}, {20}, 1, 1, {{"program.txt", "old"}}, {}};
    Board.Expected.emplace().Files["program.txt"] = make_Content(900);
    Machine.store(*Board.Expected);
}

std::string describe_Store(const Scenario &Machine, const ScenarioRun &Run)
{
    if (Run.Store.empty()) {
        return "nothing";
    }
    const auto Archive = Machine.get_Folder() / "card/slave_sw" / Run.Store[0];
    return qxdist::verify_Archive(Archive).empty() &&
                   qxdist::read_Archive(Archive) == read_Board(Machine)
               ? "saved"
               : "wrong";
}

std::string describe_Board(const Scenario &Machine, const ScenarioRun &Run)
{
    const std::string Text = make_Texts(read_Board(Machine))["program.txt"];
    return (Text == make_Content(900) ? "new"
            : Text.size() < 10        ? Text
                                      : std::to_string(Text.size())) +
           (Run.Result.at("board.left.downloads") == "1" ? ", runs" : "");
}

void check_Steps(const std::vector<Step> &Steps, void (*Build)(Scenario &),
                 std::string (*Describe)(const Scenario &, const ScenarioRun &))
{
    for (const Step &Each : Steps) {
        Scenario Machine;
        Build(Machine);
        Machine.Boards[0].Toml = make_Toml(Each.Strikes);
        const ScenarioRun Run = Machine.run();
        SCOPED_TRACE(Machine.Boards[0].Toml + Run.Output + Run.Errors);
        EXPECT_EQ(Run.get_Outcome(), Each.Outcome);
        EXPECT_NE((Run.Log + Run.Errors).find(Each.Report), std::string::npos) << Each.Report;
        EXPECT_EQ(Describe(Machine, Run), Each.Left);
    }
}

} // namespace

// A byte lost, doubled or changed on one of the ways, or at the end of a chunk.
TEST(Transfer, EverySizeArrivesAsItWas)
{
    Scenario Machine;
    ScenarioBoard &Saved = Machine.add_Board("saved", 2, 17);
    Saved.Runs.Files = make_Files();
    Saved.Stored = false;
    ScenarioBoard &Left = Machine.add_Board("left", 3, 1);
    Left.Runs = {"HEAT", {1, 0, 0}, {20}, 1, 1, {}, {}};
    Left.Expected = {"HEAT", {2, 0, 0}, {20}, 1, 9, make_Files(), {}};
    Machine.store(*Left.Expected);
    const ScenarioRun Run = Machine.run();
    ASSERT_EQ(Run.get_Outcome(), "0 started") << Run.Output;
    EXPECT_EQ(Run.Output.find("Erreur"), std::string::npos) << Run.Output;

    const auto Archive = Machine.get_Folder() / "card/slave_sw/PUMP.1.2.3.tar.gz";
    EXPECT_EQ(qxdist::read_Archive(Archive),
              qxdist::read_Folder(Machine.get_Folder() / "boards/saved"));
    EXPECT_EQ(make_Texts(qxdist::read_Archive(Archive)), make_Files());
    EXPECT_EQ(make_Texts(read_Board(Machine)), make_Files());
}

// A status that is taken for another one, a retry too few or too many, a broken transfer that is
// taken for a whole one. A transfer that succeeds after a time-out still stops the next phase.
TEST(Transfer, EveryStatusOfAnUploadHasItsOutcome)
{
    check_Steps(
        {
            {{}, "0 started", "", "saved"},
            {{{"error", 0, 1, 128}}, "129", "FATAL - Status: 129 - Slave: 0000", "nothing"},
            {{{"silence", 0, 1, 0}}, "signal 6", "! TimeoutMask", "saved"},
            {{{"silence", 0, 0, 0}}, "0 timeout=1", "() = -493   Retry = 0", "nothing"},
            {{{"already_open", 0, 1, 0}}, "0 started", "(cas FILE_OPEN_READ) !", "saved"},
            {{{"already_open", 0, 2, 0}, {"error", 4, 2, 129}},
             "129",
             "FATAL - Status: 129 - Slave: 0000000000000001\n",
             "nothing"},
            {{{"already_open", 0, 2, 0}, {"error", 4, 2, 131}}, "131", "gérée : 131", "nothing"},
            {{{"already_open", 0, 2, 0}, {"silence", 4, 2, 0}},
             "signal 6",
             "get_SlaveFile(program.txt) = -493   Retry = 1",
             "saved"},
            {{{"negative_length", 0, 1, 0}}, "0 started", "sheader.bin est négative !", "saved"},
            {{{"negative_length", 0, 0, 0}}, "0 needing=1", "() = -485   Retry = 0", "nothing"},
            {{{"error", 2, 1, 133}}, "0 started", "() = -485   Retry = 1", "saved"},
            {{{"error", 2, 4, 133}}, "0 started", "(program.txt) = -485   Retry = 1", "saved"},
            {{{"error", 2, 0, 133}}, "0 needing=1", "!= sizeof(Fichier slave)", "nothing"},
            {{{"error", 2, 2, 131}}, "131", "FATAL - Status: 131", "nothing"},
            {{{"silence", 2, 4, 0}}, "signal 6", "(program.txt) = -493   Retry = 1", "saved"},
            {{{"silence", 2, 0, 0}}, "0 timeout=1", "() = -493   Retry = 0", "nothing"},
            {{{"no_data", 2, 1, 0}}, "0 started", "", "saved"},
            {{{"no_data", 2, 0, 0}}, "0 needing=1", "() = -485   Retry = 0", "nothing"},
            {{{"error", 4, 1, 129}}, "129", "MasterFileName: sheader.bin", "nothing"},
            {{{"error", 4, 2, 132}}, "132", "Erreur non gérée : 132", "nothing"},
            {{{"silence", 4, 1, 0}}, "signal 6", "() = -493   Retry = 1", "saved"},
            {{{"silence", 4, 0, 0}}, "0 timeout=1", "() = -493   Retry = 0", "nothing"},
        },
        build_Upload, describe_Store);
}

// The same on the way to a board; a board that does not keep what it was sent and is started.
TEST(Transfer, EveryStatusOfADownloadHasItsOutcome)
{
    check_Steps(
        {
            {{}, "0 started", "", "new, runs"},
            {{{"error", 0, 1, 128}}, "129", "FATAL - Status: 129 - Slave: 0000", "old"},
            {{{"silence", 0, 1, 0}}, "signal 6", "! TimeoutMask", "new, runs"},
            {{{"silence", 0, 0, 0}}, "0 timeout=1", "bin : Status = -493   Retry = 0", "old"},
            {{{"already_open", 0, 2, 0}}, "0 started", "(cas FILE_OPEN_WRITE) !", "new, runs"},
            {{{"negative_length", 0, 0, 0}}, "0 started", "txt est négative", "new, runs"},
            {{{"error", 1, 1, 131}}, "0 started", "bin : Status = -484   Retry = 1", "new, runs"},
            {{{"error", 1, 2, 135}}, "0 started", "(program.txt) = -484   Retry", "new, runs"},
            {{{"error", 1, 0, 131}}, "0 replace=1", "bin : Status = -484   Retry = 0", "old"},
            {{{"short_write", 1, 3, 9}}, "0 started", "", "891, runs"},
            {{{"short_write", 1, 1, 9}}, "0 needing=1", "", "new"},
            {{{"silence", 1, 3, 0}}, "signal 6", "(program.txt) = -493   Retry", "new, runs"},
            {{{"silence", 1, 0, 0}}, "0 timeout=1", "bin : Status = -493   Retry = 0", "old"},
            {{{"error", 4, 2, 129}}, "129", "MasterFileName: program.txt", "new"},
            {{{"error", 4, 1, 132}}, "132", "Erreur non gérée : 132", "old"},
            {{{"silence", 4, 1, 0}}, "signal 6", "bin : Status = -493   Retry = 1", "new, runs"},
            {{{"silence", 4, 0, 0}}, "0 timeout=1", "bin : Status = -493   Retry = 0", "old"},
        },
        build_Download, describe_Board);
}

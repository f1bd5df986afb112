// Whole files between master and boards: every size, and what each status of the file service comes
// to at each step.
#include "Scenario.h"
#include <gtest/gtest.h>
#include <sstream>

namespace
{

const std::string PROGRAM = make_Noise(900); // two chunks each way

struct Step {
    const char *Faults; // kind, function (0 open, 1 write, 2 read, 4 close), nth, code: of the
                        // commands for sheader.bin, then program.txt; nth 0: of every one
    const char *Outcome;
    const char *Report;
    std::size_t Left; // bytes of program.txt in the store, or on the board
};

// Before a download the board has three bytes.
void check_Steps(bool Download, const std::vector<Step> &Steps)
{
    for (const auto &[Faults, Outcome, Report, Left] : Steps) {
        SCOPED_TRACE(Faults);
        Scenario Machine;
        MachineBoard &Board = Machine.add_Board("left", 2, 17);
        Board.Stored = false;
        Board.Runs.Files["program.txt"] = PROGRAM;
        if (Download) { // the board's hardware is too new for what it runs
            Machine.store(*(Board.Expected = Board.Runs));
            Board.Runs = {"PUMP", {1, 2, 2}, {20}, 1, 1, {{"program.txt", PROGRAM.substr(0, 3)}}};
        }
        std::istringstream Text{Faults};
        std::string Word[4];
        while (Text >> Word[0] >> Word[1] >> Word[2] >> Word[3]) {
            Board.Toml += "[[board.fault]]\nservice = 25\nkind = \"" + Word[0] +
                          "\"\nfunction = " + Word[1] + "\nnth = " + Word[2] +
                          "\ncode = " + Word[3] + "\n";
        }
        const ScenarioRun Run = Machine.run_Expecting(Outcome, Report);
        qxdist::FileTable Files{};
        if (Download) {
            Files = qxdist::read_Folder(Machine.get_Folder() / "boards/left");
        } else if (!Run.Store.empty()) {
            Files = qxdist::read_Archive(Machine.get_Folder() / "card/slave_sw" / Run.Store[0]);
        }
        const qxdist::Bytes &Program = Files["program.txt"];
        EXPECT_EQ(Program.size(), Left);
        EXPECT_TRUE(PROGRAM.starts_with(std::string{Program.begin(), Program.end()}));
    }
}

} // namespace

// A byte lost, doubled or changed on one of the ways, or at the end of a chunk (768 written, 766
// read); a length of 130 or 131, which are statuses too, that is taken for one.
TEST(Transfer, EverySizeArrivesAsItWas)
{
    Scenario Machine;
    Software Big;
    for (const std::size_t Size : {0, 1, 130, 131, 766, 767, 768, 769, 1536, 200 * 1024}) {
        Big.Files["f" + std::to_string(Size)] = make_Noise(Size);
    }
    MachineBoard &Left = Machine.add_Board("left", 3, 1);
    Left.Runs = {"PUMP", {1, 0, 0}, {20}, 1, 1};
    Left.Expected = Big;
    Machine.store(Big);
    Big.Name = "SAVED";
    Machine.add_Board("saved", 2, 17).Runs = Big;
    Machine.Boards[1].Stored = false;
    const ScenarioRun Run = Machine.run_Expecting("0 started");
    EXPECT_EQ(Run.Output.find("Erreur"), std::string::npos) << Run.Output;

    const auto Folder = Machine.get_Folder();
    const qxdist::FileTable Received = qxdist::read_Folder(Folder / "boards/left");
    EXPECT_EQ(Received, qxdist::read_Archive(Folder / "card/slave_sw/PUMP.1.2.3.tar.gz"));
    EXPECT_EQ(Received.at("f204800"),
              (qxdist::Bytes{Big.Files["f204800"].begin(), Big.Files["f204800"].end()}));
    EXPECT_EQ(qxdist::read_Folder(Folder / "boards/saved"),
              qxdist::read_Archive(Folder / "card/slave_sw/SAVED.1.2.3.tar.gz"));
}

// A status that is taken for another one, a retry too few or too many, a broken transfer that
// passes for a whole one. A second attempt after a time-out succeeds, and still the next phase
// stops.
TEST(Transfer, EveryStatusOfAnUploadHasItsOutcome)
{
    check_Steps(false, {{"", "0 started", "", 900},
                        {"error 0 1 128", "129", "FATAL - Status: 129 - Slave: 0000", 0},
                        {"silence 0 1 0", "signal 6", "! TimeoutMask", 900},
                        {"silence 0 0 0", "0 timeout=1", "() = -493   Retry = 0", 0},
                        {"already_open 0 1 0", "0 started", "(cas FILE_OPEN_READ) !", 900},
                        {"already_open 0 2 0 error 4 2 129", "129", "FATAL", 0},
                        {"already_open 0 2 0 error 4 2 131", "131", "gérée : 131", 0},
                        {"already_open 0 2 0 silence 4 2 0", "signal 6", "m.txt) = -493", 900},
                        {"negative_length 0 1 0", "0 started", "sheader.bin est négative !", 900},
                        {"negative_length 0 0 0", "0 needing=1", "() = -485   Retry = 0", 0},
                        {"error 2 1 133", "0 started", "() = -485   Retry = 1", 900},
                        {"error 2 4 133", "0 started", "(program.txt) = -485   Retry = 1", 900},
                        {"error 2 0 133", "0 needing=1", "!= sizeof(Fichier slave)", 0},
                        {"error 2 2 131", "131", "FATAL - Status: 131", 0},
                        {"silence 2 4 0", "signal 6", "(program.txt) = -493   Retry = 1", 900},
                        {"silence 2 0 0", "0 timeout=1", "() = -493   Retry = 0", 0},
                        {"no_data 2 1 0", "0 started", "", 900},
                        {"no_data 2 0 0", "0 needing=1", "() = -485   Retry = 0", 0},
                        {"error 4 1 129", "129", "MasterFileName: sheader.bin", 0},
                        {"error 4 2 132", "132", "Erreur non gérée : 132", 0},
                        {"silence 4 1 0", "signal 6", "() = -493   Retry = 1", 900},
                        {"silence 4 0 0", "0 timeout=1", "() = -493   Retry = 0", 0}});
}

// The same on the way to a board; what a board has not kept shows only when its header has
// suffered.
TEST(Transfer, EveryStatusOfADownloadHasItsOutcome)
{
    check_Steps(true, {{"", "0 started", "", 900},
                       {"error 0 1 128", "129", "FATAL - Status: 129 - Slave: 0000", 3},
                       {"silence 0 1 0", "signal 6", "! TimeoutMask", 900},
                       {"silence 0 0 0", "0 timeout=1", "bin : Status = -493   Retry = 0", 3},
                       {"already_open 0 2 0", "0 started", "(cas FILE_OPEN_WRITE) !", 900},
                       {"negative_length 0 0 0", "0 started", "txt est négative", 900},
                       {"error 1 1 131", "0 started", "bin : Status = -484   Retry = 1", 900},
                       {"error 1 2 135", "0 started", "(program.txt) = -484   Retry", 900},
                       {"error 1 0 131", "0 replace=1", "bin : Status = -484   Retry = 0", 3},
                       {"short_write 1 3 9", "0 started", "", 891},
                       {"short_write 1 1 9", "0 needing=1", "", 900},
                       {"silence 1 3 0", "signal 6", "(program.txt) = -493   Retry", 900},
                       {"silence 1 0 0", "0 timeout=1", "bin : Status = -493   Retry = 0", 3},
                       {"error 4 2 129", "129", "MasterFileName: program.txt", 900},
                       {"error 4 1 132", "132", "Erreur non gérée : 132", 3},
                       {"silence 4 1 0", "signal 6", "bin : Status = -493   Retry = 1", 900},
                       {"silence 4 0 0", "0 timeout=1", "bin : Status = -493   Retry = 0", 3}});
}

// What the simulated machine puts around the loader: storage, the driver's failures, the ends of a
// process.
#include "Scenario.h"
#include <fstream>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace
{

bool has_Text(const std::string &Text, const std::string &Part)
{
    return Text.find(Part) != std::string::npos;
}

} // namespace

// Storage that only seems to be mounted: a card that is out is put in and taken out again for every
// use, and the log, which nobody mounts for, is lost.
TEST(Platform, ACardThatIsOutIsMountedOnDemand)
{
    Scenario Machine;
    Machine.Toml = "[card]\nmounted = false\n";
    Machine.add_Board("left", 2, 17).Stored = false;
    const ScenarioRun Run = Machine.run();
    EXPECT_EQ(Run.Exit, 255) << Run.Output; // the log was not open
    EXPECT_TRUE(has_Text(Run.Output, "Le fichier n'existe pas !"));
    EXPECT_EQ(Run.Log, "");
    EXPECT_EQ(Run.Store, std::vector<std::string>{"PUMP.1.2.3.tar.gz"});
}

// A script that cannot be made to fail: the store looks reachable for ever.
TEST(Platform, AScriptFailsFromTheCallThatIsNamed)
{
    Scenario Machine;
    Machine.Toml = "[card]\nmounted = false\n[scripts]\nins_cf = { exit_status = 3, from = 1 }\n";
    Machine.add_Board("left", 2, 17).Stored = false;
    const ScenarioRun Run = Machine.run();
    EXPECT_TRUE(has_Text(Run.Output, "Error : mount")) << Run.Output;
    EXPECT_TRUE(Run.Store.empty());
}

// A card that is bigger than it says; its contents lost with the run.
TEST(Platform, AFullCardRefusesAndKeepsWhatItHad)
{
    Scenario Machine;
    Machine.Toml = "[card]\nsize = 40960\n";
    fs::create_directory(Machine.get_Folder() / "card");
    std::ofstream{Machine.get_Folder() / "card/kept"} << std::string(20000, 'k');
    ScenarioBoard &Board = Machine.add_Board("left", 2, 17);
    Board.Stored = false;
    Board.Runs.Files["program.txt"] = make_Noise(60000);
    const ScenarioRun Run = Machine.run();
    EXPECT_TRUE(has_Text(Run.Output, "Erreur : SSD probablement pleine")) << Run.Output;
    EXPECT_TRUE(has_Text(Run.Log, "Projet : qx"));
    const fs::path Card = Machine.get_Folder() / "card";
    EXPECT_EQ(fs::file_size(Card / "kept"), 20000U);
    std::uintmax_t Size = 0;
    for (const fs::directory_entry &Entry : fs::recursive_directory_iterator{Card}) {
        Size += Entry.is_regular_file() ? Entry.file_size() : 0;
    }
    EXPECT_LE(Size, 40960U);
}

// A card that goes at another time than it says, or stays reachable.
TEST(Platform, ACardGoesWhileTheLoaderRuns)
{
    Scenario Machine;
    Machine.Toml = "[card]\ngone_ms = 2300\n";
    Machine.add_Board("left", 2, 17).Stored = false;
    const ScenarioRun Run = Machine.run();
    EXPECT_TRUE(has_Text(Run.Output, "SSD non accessible")) << Run.Output;
    EXPECT_TRUE(Run.Store.empty());
}

// A failure of the driver that does not reach the loader, or in another request.
TEST(Platform, TheDriverFailsWhereItIsTold)
{
    const std::pair<const char *, const char *> Cases[] = {
        {"[driver]\nmodule_loaded = false\n", "open_Can(5) = -891"},
        {"[[driver.fault]]\nrequest = \"open\"\n", "Connexion au cana"},
        {"[[driver.fault]]\nrequest = \"reset\"\nnth = 1\n", "Reset du cana"},
        {"[[driver.fault]]\nrequest = \"send\"\nnth = 2\n", "Erreur : can_Send"},
        {"[[driver.fault]]\nrequest = \"receive\"\nnth = 9\nresult = -5\n",
         "can_ReceiveNoBlock() = -5"},
    };
    for (const auto &[Toml, Report] : Cases) {
        Scenario Machine;
        Machine.Toml = Toml;
        Machine.add_Board("left", 2, 17);
        const ScenarioRun Run = Machine.run();
        EXPECT_TRUE(has_Text(Run.Log, Report)) << Toml << Run.Output;
    }
}

// A whole status cut to its low byte; an abort that loses the trace, the output or the report.
TEST(Platform, EveryEndOfTheProcessLeavesItsResults)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17);
    Machine.ApplConf = "4699\n";
    const ScenarioRun Refused = Machine.run();
    EXPECT_EQ(Refused.Status, -898);
    EXPECT_EQ(Refused.Exit, 126);

    Machine.ApplConf.reset();
    fs::remove_all(Machine.get_Folder() / "vantrel" / "tmp");
    const ScenarioRun Aborted = Machine.run();
    EXPECT_EQ(Aborted.Signal, 6);
    EXPECT_EQ(Aborted.Exit, 134);
    EXPECT_EQ(Aborted.Status, std::nullopt);
    EXPECT_TRUE(has_Text(Aborted.Errors, "ctrl_Directories() == 0")) << Aborted.Errors;
    EXPECT_EQ(Aborted.Result.at("time_ns"), "0");
}

// A second start that begins anew, or a machine's folder that a start without --keep touches.
TEST(Platform, AKeptStartGoesOnFromTheLast)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17).Runs.IndexHigh = 1; // less than the board's hardware
    Software Newer;
    Newer.Version = {1, 2, 4};
    Machine.Boards[0].Expected = Newer;
    Machine.store(Newer);
    const ScenarioRun First = Machine.run();
    EXPECT_EQ(First.Result.at("board.left.downloads"), "1") << First.Output;
    EXPECT_TRUE(fs::exists(Machine.get_Folder() / "state.toml"));
    EXPECT_FALSE(fs::exists(Machine.get_Folder() / "card" / "exe"));
    const ScenarioRun Second = Machine.run();
    EXPECT_EQ(Second.Status, 0);
    EXPECT_EQ(Second.Result.at("board.left.downloads"), "0") << Second.Output;
}

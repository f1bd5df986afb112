// What the simulated machine puts around the loader: time, the ends of a process, calls that fail,
// the power cut.
#include "Scenario.h"
#include <cstdlib>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace
{

// One board that is moved, one whose software is saved, one that is brought up to date.
void build_Machine(Scenario &Machine)
{
    Machine.add_Board("left", 2, 17).FuncAddr2 = 1;
    MachineBoard &Right = Machine.add_Board("right", 2, 18);
    Right.Runs.Name = "VALVE";
    Right.Runs.Files["program.txt"] = std::string(15000, 'v');
    Right.Stored = false;
    MachineBoard &Old = Machine.add_Board("old", 3, 1);
    Old.Runs = {"HEAT", {1, 0, 0}, {20}, 1, 1, {{"program.txt", "old\n"}}};
    Old.Expected = {"HEAT", {2, 0, 0}, {20}, 1, 9, {{"program.txt", std::string(5000, 'x')}}};
    Machine.store(*Old.Expected);
}

// A board whose software the store lacks: the loader reads it out and packs it.
MachineBoard &add_Unsaved(Scenario &Machine)
{
    MachineBoard &Board = Machine.add_Board("left", 2, 17);
    Board.Stored = false;
    return Board;
}

std::string make_Cut(const std::string &Call, unsigned Nth, const std::string &When)
{
    return "[cut]\ncall = \"" + Call + "\"\nnth = " + std::to_string(Nth) + "\nwhen = \"" + When +
           "\"\n";
}

} // namespace

// A wall clock, an address or a race of the threads that shows anywhere; a second start that begins
// anew; files of the simulator that stay on the card.
TEST(Platform, AKeptStartGoesOnFromTheLast)
{
    Scenario Machines[2];
    ScenarioRun Runs[2];
    for (int i = 0; i < 2; ++i) {
        build_Machine(Machines[i]);
        Runs[i] = Machines[i].run();
    }
    EXPECT_EQ(Runs[0].get_Outcome(), "0 started") << Runs[0].Output << Runs[0].Errors;
    EXPECT_EQ(Runs[0].Result.at("board.old.downloads"), "1");
    EXPECT_EQ(Runs[0].Trace, Runs[1].Trace);
    EXPECT_EQ(Runs[0].Output, Runs[1].Output);
    EXPECT_EQ(Runs[0].Log, Runs[1].Log);
    EXPECT_EQ(Runs[0].Files, Runs[1].Files);
    EXPECT_EQ(Runs[0].Result, Runs[1].Result);

    EXPECT_FALSE(fs::exists(Machines[0].get_Folder() / "card" / "exe"));
    EXPECT_EQ(Machines[0].run_Expecting("0 started").Result.at("board.old.downloads"), "0");
}

// A file that stays open on one of the ways through a start, a card that stays mounted; a list that
// is always empty.
TEST(Platform, ANormalEndLeavesTheDriverOnly)
{
    const std::string File = " /home/user/vantrel/slave_sw/tmp/sheader.bin (deleted)";
    const std::tuple<const char *, std::string, std::string, std::string> Cases[] = {
        {"", "", "0 started", ""},
        {"[card]\nmounted = false\n", "", "-1 started", ""}, // its log was not open
        // A transfer that is given up on a time-out keeps its file open, once a try.
        {"", "kind = \"silence\"\nservice = 25\nfunction = 2\n", "0 timeout=1", File + File},
    };
    for (const auto &[Toml, Fault, Outcome, Left] : Cases) {
        Scenario Machine;
        build_Machine(Machine);
        Machine.Toml = Toml;
        Machine.Boards[1].Toml = Fault.empty() ? "" : "[[board.fault]]\n" + Fault;
        const ScenarioRun Run = Machine.run_Expecting(Outcome);
        EXPECT_EQ(Run.Result.at("left.descriptors"), "/dev/cana" + Left);
        EXPECT_EQ(Run.Result.at("left.mounts"), "");
    }
}

// A staging folder that a failed upload could not remove, and that stays.
TEST(Platform, WhatAnUploadLeavesGoesWithIt)
{
    Scenario Machine;
    build_Machine(Machine);
    Machine.Boards[1].Toml = "[[board.fault]]\nkind = \"silence\"\nservice = 25\nfunction = 2\n";
    Machine.Toml = Machine.run().make_AtShell("[[outside.fault]]", "rm -R tmp", "");
    Machine.run_Expecting("0 timeout=1");
    EXPECT_FALSE(fs::exists(Machine.get_Folder() / "vantrel/slave_sw/tmp"));
}

// A whole status cut to its low byte; an abort that loses the trace, the output or the report; a
// loader that never ends.
TEST(Platform, EveryEndOfTheProcessLeavesItsResults)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17);
    Machine.ApplConf = "4699\n";
    const ScenarioRun Refused = Machine.run();
    EXPECT_EQ(Refused.Status, -898);
    EXPECT_EQ(Refused.Exit, 126);

    Machine.ApplConf.reset();
    const ScenarioRun Limited = Machine.run({"--limit", "1"});
    EXPECT_EQ(Limited.Exit, 124);
    EXPECT_EQ(Limited.Status, std::nullopt);
    EXPECT_EQ(Limited.Result.at("time_ns").substr(0, 3), "100"); // its first event at 1 s or later
    EXPECT_NE(Limited.Trace, "");

    fs::remove_all(Machine.get_Folder() / "vantrel" / "tmp");
    const ScenarioRun Aborted = Machine.run();
    EXPECT_EQ(Aborted.Signal, 6);
    EXPECT_EQ(Aborted.Exit, 134);
    EXPECT_EQ(Aborted.Status, std::nullopt);
    EXPECT_TRUE(Aborted.has_Report("ctrl_Directories() == 0")) << Aborted.Errors;
    EXPECT_EQ(Aborted.Result.at("time_ns"), "0");
}

// A kind that strikes another call, or only the counter; what the libraries call for themselves
// counted as the loader's; a failure of the driver in another request.
TEST(Platform, ACallFailsWhereItIsTold)
{
    const std::tuple<const char *, const char *, const char *, int> Cases[] = {
        {"outside", "call = \"open\"\nnth = 6", "Le fichier n'existe pas !", 0},
        {"outside", "call = \"read\"\nnth = 1\nerrno = \"EACCES\"", "Erreur de lecture de la", 0},
        {"outside", "call = \"mkdir\"\nerrno = \"EROFS\"", "mkdir: Read-only file system", 0},
        {"outside", "call = \"chdir\"\nnth = 1", "Assertion `Status >= 0'", 0},
        {"outside", "call = \"close\"", "fclose(sheader.bin)", 0},
        {"outside", "call = \"allocation\"\nnth = 1", "", 23},
        {"outside", "call = \"shell\"\nnth = 11\nexit_status = 3", "(Status = 768)", 0},
        {"outside", "call = \"driver\"\nnth = 1", "Connexion au cana", 0},
        {"outside", "call = \"thread\"", "", 24},
        {"driver", "request = \"open\"", "Connexion au cana", 0},
        {"driver", "request = \"reset\"\nnth = 1", "Reset du cana", 0},
        {"driver", "request = \"send\"\nnth = 2", "Erreur : can_Send", 0},
        {"driver", "request = \"receive\"\nnth = 9\nresult = -5", "can_ReceiveNoBlock() = -5", 0},
    };
    for (const auto &[Table, Keys, Report, Exit] : Cases) {
        Scenario Machine;
        add_Unsaved(Machine);
        Machine.Toml = std::string{"[["} + Table + ".fault]]\n" + Keys + "\n";
        const ScenarioRun Run = Machine.run();
        EXPECT_TRUE(Run.has_Report(Report)) << Keys << "\n" << Run.Output << Run.Errors;
        EXPECT_TRUE(Exit == 0 || Run.Exit == Exit) << Keys << "\n" << Run.Exit;
    }
}

// Half an archive in the store, half a file on a board, half a result file.
TEST(Platform, WhatAFullDiskCutsIsNotThere)
{
    Scenario Good;
    build_Machine(Good);
    const ScenarioRun Whole = Good.run_Expecting("0 started");
    const auto start_With = [](Scenario &Machine, const std::string &Fault, const char *Outcome,
                               const char *Report) {
        build_Machine(Machine);
        Machine.Toml = Fault;
        return Machine.run_Expecting(Outcome, Report);
    };
    const std::pair<const char *, const char *> Cases[] = {
        {"tar -cf", "archive incomplète : ../VALVE.1.2.3.tar"},
        {"gzip", "archive incomplète : ../VALVE.1.2.3.tar.gz"},
        {"tar -xf", "extraction incomplète : ../HEAT.2.0.0.tar"},
        {"gunzip", "extraction incomplète : ../HEAT.2.0.0.tar"},
    };
    for (const auto &[Command, Report] : Cases) {
        SCOPED_TRACE(Command);
        const bool Packing = Report[0] == 'a';
        Scenario Machine;
        start_With(Machine, Whole.make_AtShell("[[outside.fault]]", Command, "half = true"),
                   "0 started", Report);
        const fs::path Folder = Machine.get_Folder();
        EXPECT_EQ(fs::exists(Folder / "card/slave_sw/VALVE.1.2.3.tar.gz"), !Packing);
        EXPECT_EQ(qxdist::read_Folder(Folder / "boards/old")["program.txt"].size(),
                  4U); // untouched
    }
    // The last that are closed: loader.conf, loader.protocols, the log.
    const int Nth = std::stoi(Whole.Result.at("outside.close")) - 2;
    Scenario Machine;
    const ScenarioRun Run = start_With(
        Machine, "[[outside.fault]]\ncall = \"close\"\nnth = " + std::to_string(Nth) + "\n",
        "0 started", "Erreur : écriture de /var/vantrel/config/loader.conf");
    EXPECT_TRUE(Whole.Files.contains("loader.conf"));
    EXPECT_FALSE(Run.Files.contains("loader.conf"));
}

// An archive that an older loader stored from a full disk: it stops every start, or half of it is
// sent.
TEST(Platform, AnArchiveThatBreaksOffInItselfIsRemoved)
{
    Scenario Machine;
    build_Machine(Machine);
    const fs::path Archive = Machine.get_Folder() / "card/slave_sw/HEAT.2.0.0.tar.gz";
    const std::string Cut = "gunzip -c " + Archive.string() + " | head -c 3000 | gzip > " +
                            Archive.string() + ".cut && mv " + Archive.string() + ".cut " +
                            Archive.string();
    ASSERT_EQ(system(Cut.c_str()), 0);
    Machine.run_Expecting("0 needing=1", "extraction incomplète : ../HEAT.2.0.0.tar");
    EXPECT_FALSE(fs::exists(Archive));
    EXPECT_EQ(qxdist::read_Folder(Machine.get_Folder() / "boards/old")["program.txt"].size(), 4U);
}

// A cut that comes too early or late, loses what was written, or leaves the RAM disk.
TEST(Platform, ThePowerGoesAtACall)
{
    Scenario Machine;
    add_Unsaved(Machine);
    Machine.Toml = make_Cut("write", 2, "middle"); // the log: its header, then its version line
    const ScenarioRun Run = Machine.run();
    EXPECT_EQ(Run.Signal, 9);
    EXPECT_EQ(Run.Result.at("cut"), "1");
    EXPECT_EQ(Run.Result.at("outside.write"), "2");
    EXPECT_TRUE(Run.Log.ends_with("2026\nVersion : 1.1.6 - Ja")) << Run.Log;
    EXPECT_FALSE(fs::exists(Machine.get_Folder() / "vantrel"));
}

// Half an archive that passes for a board's software for ever, or a marker that stays.
TEST(Platform, AnArchiveThatWasCutIsReadAgain)
{
    const std::vector<std::vector<std::string>> Cases = {
        {make_Cut("shell", 11, "middle")},                                  // half a copy
        {make_Cut("shell", 11, "after")},                                   // whole, but marked
        {make_Cut("open", 20, "after")},                                    // not begun
        {make_Cut("shell", 11, "middle"), make_Cut("remove", 1, "before")}, // cleared up
        {make_Cut("shell", 11, "middle"), make_Cut("remove", 2, "before")},
        {"[[outside.fault]]\ncall = \"remove\"\n"}, // the marker of a whole copy stays
    };
    for (const std::vector<std::string> &Starts : Cases) {
        SCOPED_TRACE(Starts.back());
        Scenario Machine;
        add_Unsaved(Machine);
        for (const std::string &Toml : Starts) {
            Machine.Toml = Toml;
            EXPECT_EQ(Machine.run().Store.at(0), ".PUMP.1.2.3.tar.gz.copying") << Toml;
        }
        Machine.Toml = "";
        const ScenarioRun Run = Machine.run_Expecting("0 started");
        EXPECT_EQ(Run.Store, std::vector<std::string>{"PUMP.1.2.3.tar.gz"});
        const fs::path Archive = Machine.get_Folder() / "card/slave_sw/PUMP.1.2.3.tar.gz";
        EXPECT_EQ(qxdist::verify_Archive(Archive), std::vector<std::string>{});
    }
}

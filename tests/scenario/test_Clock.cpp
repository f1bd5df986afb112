// Virtual time: the order of everything that happens depends on the machine alone.
#include "Scenario.h"
#include <gtest/gtest.h>

namespace
{

// Two boards that are moved and uploaded, one that is brought up to date.
void build_Machine(Scenario &Machine)
{
    Machine.add_Board("left", 2, 17).FuncAddr2 = 1;
    ScenarioBoard &Right = Machine.add_Board("right", 2, 18);
    Right.FuncAddr2 = 2;
    Right.Runs.Name = "VALVE";
    Right.Stored = false;
    ScenarioBoard &Old = Machine.add_Board("old", 3, 1);
    Old.Runs = {"HEAT", {1, 0, 0}, {20}, 1, 1, {{"program.txt", "old\n"}}};
    Old.Expected = {"HEAT", {2, 0, 0}, {20}, 1, 9, {{"program.txt", std::string(5000, 'x')}}};
    Machine.store(*Old.Expected);
}

} // namespace

// A wall clock, an address or a race of the threads that shows anywhere.
TEST(Clock, TwoRunsOfOneMachineAreTheSameByteForByte)
{
    Scenario Machines[2];
    ScenarioRun Runs[2];
    for (int i = 0; i < 2; ++i) {
        build_Machine(Machines[i]);
        Runs[i] = Machines[i].run();
    }
    ASSERT_EQ(Runs[0].Status, 0) << Runs[0].Output << Runs[0].Errors;
    EXPECT_EQ(Runs[0].Result.at("board.old.downloads"), "1");
    EXPECT_GT(Runs[0].Frames.size(), 500U);
    EXPECT_EQ(Runs[0].Trace, Runs[1].Trace);
    EXPECT_EQ(Runs[0].Output, Runs[1].Output);
    EXPECT_EQ(Runs[0].Log, Runs[1].Log);
    EXPECT_EQ(Runs[0].Files, Runs[1].Files);
    EXPECT_EQ(Runs[0].Result, Runs[1].Result);
}

// The host's date in the loader's log or result files; a wait that takes another time than it says.
TEST(Clock, TheLoaderLivesInTheMachinesTime)
{
    Scenario Machine;
    Machine.Toml = "[clock]\ndate = 2031-05-06T07:08:09Z\n";
    Machine.add_Board("left", 2, 17);
    const ScenarioRun Run = Machine.run();
    ASSERT_EQ(Run.Status, 0) << Run.Output << Run.Errors;
    EXPECT_NE(Run.Log.find("Projet : qx\nTue May  6 07:08:09 2031\n"), std::string::npos);
    // The restart is followed by a sleep of two seconds.
    EXPECT_EQ(Run.Result.at("phase.restart_AllSlaves.ns").substr(0, 4), "2000");
}

// A loader that never ends hangs the test that runs it.
TEST(Clock, TheLimitEndsTheRun)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17);
    const ScenarioRun Run = Machine.run({"--limit", "1"});
    EXPECT_EQ(Run.Exit, 124);
    EXPECT_EQ(Run.Status, std::nullopt);
    EXPECT_EQ(Run.Result.at("time_ns").substr(0, 3), "100"); // its first event at 1 s or later
    EXPECT_FALSE(Run.Frames.empty());
}

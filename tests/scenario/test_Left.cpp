// What a normal end leaves behind: nothing but the driver's descriptor, which the end of the
// process closes.
#include "Scenario.h"
#include <gtest/gtest.h>

namespace
{

// One board is brought up to date, one has its software saved.
void build_Transfers(Scenario &Machine)
{
    Machine.add_Board("saved", 2, 17).Stored = false;
    ScenarioBoard &Old = Machine.add_Board("old", 3, 1);
    Old.Runs.Name = "HEAT";
    Old.Runs.IndexHigh = 1;
    Old.Expected.emplace().Name = "HEAT";
    Old.Expected->Version = {2, 0, 0};
    Machine.store(*Old.Expected);
}

} // namespace

// A file that stays open on one of the ways through a start, a card that stays mounted.
TEST(Left, ANormalEndLeavesTheDriverOnly)
{
    const struct {
        void (*Build)(Scenario &);
        const char *Toml;
        const char *Outcome;
    } Cases[] = {
        {[](Scenario &Machine) { Machine.add_Board("left", 2, 17); }, "", "0 started"},
        {build_Transfers, "", "0 started"},
        {build_Transfers, "[card]\nmounted = false\n", "-1 started"}, // its log was not open
    };
    for (const auto &[Build, Toml, Outcome] : Cases) {
        Scenario Machine;
        Build(Machine);
        Machine.Toml = Toml;
        const ScenarioRun Run = Machine.run();
        SCOPED_TRACE(Toml + Run.Output + Run.Errors);
        EXPECT_EQ(Run.get_Outcome(), Outcome);
        EXPECT_EQ(Run.Result.at("left.descriptors"), "/dev/cana");
        EXPECT_EQ(Run.Result.at("left.mounts"), "");
    }
}

// The counterpart: a transfer that is given up on a time-out keeps its file on the master open,
// once a try; a list that is always empty.
TEST(Left, AnAbandonedTransferKeepsItsFile)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17).Stored = false;
    Machine.Boards[0].Toml = "[[board.fault]]\nkind = \"silence\"\nservice = 25\nfunction = 2\n";
    const ScenarioRun Run = Machine.run();
    const std::string File = " /home/user/vantrel/slave_sw/tmp/sheader.bin (deleted)";
    EXPECT_EQ(Run.Result.at("left.descriptors"), "/dev/cana" + File + File) << Run.Output;
}

// The judge of the sweep: a sweep that can find nothing wrong is worth nothing.
#include "qxdist/Archive.h"
#include "sweep/Judge.h"
#include "sweep/Plan.h"
#include "sweep/SweepMachine.h"
#include <algorithm>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace qxstart;
using namespace qxsweep;

namespace
{

constexpr const char *ERRORS = "4698    # File\n1   # date\n1.1.6   # Version\n0   # format\n"
                               "000  OK\n0    # NO\n2   # timeout\ncana 002 001\ncana 002 002\n"
                               "0    # NO\n";

} // namespace

// A result file that lacks its end, a line of a list, or that has one too many.
TEST(Sweep, ResultFilesAreWholeOrTheyAreNot)
{
    const std::string Whole = ERRORS;
    EXPECT_EQ(check_ResultFile("loader.errors", Whole), "");
    EXPECT_NE(check_ResultFile("loader.errors", Whole.substr(0, Whole.size() - 1)), "");
    EXPECT_NE(check_ResultFile("loader.errors", Whole.substr(0, Whole.find("cana 002 002"))), "");
    EXPECT_NE(check_ResultFile("loader.errors", Whole + "0\n"), "");
    EXPECT_NE(check_ResultFile("loader.errors", ""), "");
    EXPECT_NE(check_ResultFile("loader.conf", Whole), ""); // the count there is no number
}

// Each way out of the contract, and the ways that are in it.
TEST(Sweep, EveryBreachOfTheContractIsSeen)
{
    const fs::path Machine = make_TemporaryFolder("test_qxsweep");
    make_Machine(Machine);
    write_Text(Machine / "Loader.cpp", "ASSERT(Mask == 0, \"! Mask\");");
    const auto Before = read_Store(Machine);
    Start Ended;
    Ended.Status = -491;
    Ended.InTime = true;
    Ended.Output = "Sortie du programme\n";
    const auto Judge = [&](const Start &Tried) {
        return judge_Start(Tried, Machine, Before, Machine).Breaches.size();
    };
    EXPECT_EQ(Judge(Ended), 0U);

    const auto Aborted = [&](const char *Text) {
        Start Tried = Ended;
        Tried.Status.reset();
        Tried.Signal = 6;
        Tried.Errors = Text;
        return Tried;
    };
    EXPECT_EQ(Judge(Aborted("qx: ../src/Loader:9: Assertion `! Mask' failed.\n")), 0U);
    EXPECT_EQ(Judge(Aborted("qx: ../src/Loader:9: Assertion `Mask' failed.\n")), 1U);
    EXPECT_EQ(Judge(Aborted("terminate called\n")), 1U);
    Start Wrong = Ended;
    Wrong.Status = -2;
    EXPECT_EQ(Judge(Wrong), 1U);
    Wrong.Errors = "==1==ERROR: AddressSanitizer: heap-use-after-free";
    EXPECT_EQ(Judge(Wrong), 1U);
    Wrong.Errors = "Tar.cpp:9: runtime error: shift";
    EXPECT_EQ(Judge(Wrong), 1U);
    Start Crashed = Aborted("");
    Crashed.Signal = 11;
    EXPECT_EQ(Judge(Crashed), 1U);
    Wrong = Ended;
    Wrong.InTime = false;
    EXPECT_EQ(Judge(Wrong), 1U);

    const fs::path Kept = Machine / "card/slave_sw/HEAT.2.1.0.tar.gz";
    const fs::path Half = Machine / "card/slave_sw/HEAT.2.2.0.tar.gz";
    fs::copy_file(Kept, Half);
    fs::resize_file(Half, fs::file_size(Half) / 2);
    EXPECT_EQ(Judge(Ended), 1U);
    fs::copy_file(Half, Kept, fs::copy_options::overwrite_existing); // there before, now damaged
    EXPECT_EQ(Judge(Ended), 2U);
    fs::remove(Kept);
    EXPECT_EQ(Judge(Ended), 2U);
    write_Text(Machine / "config/loader.todo", "4698 ");
    EXPECT_EQ(Judge(Ended), 3U);
    fs::remove_all(Machine);
}

// The results of a start that a cut has kept from telling something.
TEST(Sweep, AStartAfterACutTellsWhatAGoodOneTells)
{
    const std::array<Results, 2> Expected{Results{{"loader.todo", "2\n"}}, Results{}};
    EXPECT_EQ(check_Recovery(Expected[0], Expected, false), "");
    EXPECT_EQ(check_Recovery(Expected[1], Expected, true), "");
    EXPECT_NE(check_Recovery(Expected[1], Expected, false), "");
    EXPECT_NE(check_Recovery({{"loader.todo", "1\n"}}, Expected, true), "");
}

// A call that is not struck, or struck where it does nothing.
TEST(Sweep, CallsAreStruckWhereTheyReachAndCutWhereTheyChange)
{
    const std::vector<PlannedRun> Plan = plan_OutsideFaults({
        {"outside.read", "9000"},
        {"outside.read.reaching", "1-4,7001,7003-7004"},
        {"outside.read.changing", "7005"},
        {"outside.shell", "2"},
        {"outside.shell.reaching", "1-2"},
        {"outside.shell.changing", "1-2"},
        {"shell.1", "rm -R *"},
        {"shell.2", "tar -xf ../A.tar"},
    });
    const auto Count = [&Plan](const std::string &Kind, const std::string &Nth) {
        return std::count_if(Plan.begin(), Plan.end(), [&](const PlannedRun &Run) {
            return Run.Kind == Kind && Run.Place == "nth " + Nth;
        });
    };
    for (const char *Nth : {"4", "40", "7001", "7003", "7004"}) {
        EXPECT_EQ(Count("failing read", Nth), 1) << Nth;
    }
    EXPECT_EQ(Count("failing read", "7002") + Count("failing read", "7005"), 0);
    EXPECT_EQ(Count("cut at read when = \"before\"", "7005"), 1);
    EXPECT_EQ(Count("cut at read when = \"before\"", "7001"), 0);
    EXPECT_EQ(Count("failing shell half = true", "1"), 0);
    EXPECT_EQ(Count("failing shell half = true", "2"), 1);
}

// The judge of the sweep: a sweep that can find nothing wrong is worth nothing.
#include "qxdist/Archive.h"
#include "sweep/Judge.h"
#include "sweep/SweepMachine.h"
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
    Wrong = Ended;
    Wrong.InTime = false;
    EXPECT_EQ(Judge(Wrong), 1U);

    const fs::path Kept = Machine / "card/slave_sw/HEAT.2.1.0.tar.gz";
    const fs::path Half = Machine / "card/slave_sw/HEAT.2.2.0.tar.gz";
    fs::copy_file(Kept, Half);
    fs::resize_file(Half, fs::file_size(Half) / 2);
    EXPECT_EQ(Judge(Ended), 1U);
    fs::remove(Kept);
    EXPECT_EQ(Judge(Ended), 2U);
    write_Text(Machine / "config/loader.todo", "4698 ");
    EXPECT_EQ(Judge(Ended), 3U);
    fs::remove_all(Machine);
}

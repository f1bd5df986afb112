// Requests of the application in appl.todo, and the masks after a download.
#include "Scenario.h"
#include <gtest/gtest.h>

namespace
{

// Its one file holds the name of the distribution.
Software make_Software(const char *Name, unsigned Compilation, unsigned IndexHigh = 9)
{
    Software Made{Name, {1, 2, Compilation}, {20}, 1, IndexHigh};
    Made.Files["program.txt"] = Made.get_DistributionName();
    return Made;
}

enum Setting { GOOD, OLD, UNFIT, ABSENT, EXCHANGED, FLAGGED };
constexpr unsigned Expected[] = {3, 3, 7, 5, 5, 3}; // PUMP.1.2.n

// GOOD: the board runs what it is to run, PUMP.1.2.3. OLD: its hardware is too new for what it
// runs, UNFIT: also for what it is to run; ABSENT: the store lacks that; EXCHANGED: nor is it the
// board of appl.conf; FLAGGED: after the download it wants new software again and another board is
// silent.
void arrange(Scenario &Machine, Setting Set)
{
    MachineBoard &Board = Machine.add_Board("left", 2, 17);
    Board.FuncAddr2 = 1;
    const bool Old = Set == OLD || Set == UNFIT || Set == FLAGGED;
    Board.Runs = make_Software("PUMP", Old ? 2 : 3, Old ? 1 : 9);
    Board.Expected = make_Software("PUMP", Expected[Set]);
    if (Set == EXCHANGED) {
        Board.HardwareItems[9] = "{ short = 8 }";
    } else if (Set == FLAGGED) {
        const std::string Third = "[[board.fault]]\nservice = 22\nfunction = 1\nnth = 3\nkind = ";
        Board.Toml = Third + "\"wrong_value\"\nbytes = \"00 00 01\"\n";
        MachineBoard &Right = Machine.add_Board("right", 2, 18);
        Right.Runs = *Board.Expected;
        Right.Toml = Third + "\"silence\"\n";
    }
    Software Headless = make_Software("HEADLESS", 1);
    Headless.Header.emplace(40);
    Software OtherType = make_Software("TYPE", 1);
    OtherType.Types = {21};
    for (const Software &Stored :
         {make_Software("PUMP", 3), make_Software("PUMP", 4), make_Software("PUMP", 6, 1),
          make_Software("PUMP", 7, 1), make_Software("MORETHANELEVEN", 1), Headless, OtherType}) {
        Machine.store(Stored);
    }
    Machine.store("DAMAGED.1.2.1", "damaged");
}

struct Case {
    std::string Todo; // requests, or a whole appl.todo
    Setting Set;
    const char *Outcome;
    const char *Left; // what the board holds
    const char *Report;
};

void check_Cases(const std::vector<Case> &Cases)
{
    for (const auto &[Todo, Set, Outcome, Left, Report] : Cases) {
        SCOPED_TRACE(Todo + Outcome);
        Scenario Machine;
        arrange(Machine, Set);
        Machine.ApplTodo = (Todo[0] == '4' ? "" : "4698\n1\ntest\n0\n") + Todo;
        const ScenarioRun Run = Machine.run_Expecting(Outcome, Report);
        const auto Text = qxdist::read_Folder(Machine.get_Folder() / "boards/left")["program.txt"];
        EXPECT_EQ(std::string(Text.begin(), Text.end()), Left);
        EXPECT_FALSE(Run.Files.contains("appl.todo"));
        EXPECT_FALSE(Run.Files.contains(".appl.todo.cut"));
    }
}

} // namespace

// A request that is passed over, carried out twice or held against the board; a bad line or archive
// that takes the others along; a request that comes back at the next start.
TEST(Todo, EveryRequestHasItsOutcome)
{
    const std::string WANTED = "cana 2 1 PUMP.1.2.4\n";
    check_Cases({
        {"", GOOD, "0 started", "PUMP.1.2.3", ""},
        {WANTED, GOOD, "0 modify=1 started", "PUMP.1.2.4", ""},
        {"cana0 2 1 PUMP.1.2.4 x", GOOD, "0 modify=1 started", "PUMP.1.2.4", ""},
        {"cana 2 1 NONE.1.0.0\n" + WANTED, GOOD, "0 modify=1 started", "PUMP.1.2.4", ""},
        {WANTED, OLD, "0 modify=1 started", "PUMP.1.2.4", ""},
        {"cana 2 17 A\ncana 258 1 A\ninternal_lcd 2 1 A\ncana 2 1\ncana 2 A\ncana 2 1 ../A\n"
         "cana 2 1 PUMP.1.2.44444444444444444444444444444444444\n",
         GOOD, "0 started", "PUMP.1.2.3", ""},
        {WANTED + "canb 2 1 A\n", GOOD, "0 started", "PUMP.1.2.3", "Device unknown = canb"},
        {"4699\n1\ntest\n0\n" + WANTED, GOOD, "0 started", "PUMP.1.2.3", "La signature n'est pas"},
        {"4698\n1\ntest\n", GOOD, "0 started", "PUMP.1.2.3", "lecture de la version du fichier."},
        {"cana 2 1 NONE.1.0.0\n", GOOD, "0 needing=1", "PUMP.1.2.3", ""},
        {"cana 2 1 HEADLESS.1.2.1\n", GOOD, "0 started", "PUMP.1.2.3", "signature sheader.bin"},
        {"cana 2 1 HEADLESS.1.2.1\n", ABSENT, "0 needing=1", "PUMP.1.2.3", "signature sheader.bin"},
        {"cana 2 1 DAMAGED.1.2.1\n", GOOD, "0 started", "PUMP.1.2.3", "bin : Status = -891"},
    });
}

// A line of the arithmetic after a download that is left out.
TEST(Todo, TheMasksAfterADownload)
{
    check_Cases({
        // What still differs lacks a distribution, and is no longer forced.
        {"", UNFIT, "0 needing=1", "PUMP.1.2.7", ""},
        {"cana 2 1 PUMP.1.2.6\n", GOOD, "0 needing=1", "PUMP.1.2.6", ""},
        // A forced board lacks nothing, even an exchanged one, unless the last check says so.
        {"", EXCHANGED, "0 modify=1 needing=1", "PUMP.1.2.3", ""},
        {"cana 2 1 PUMP.1.2.4\n", EXCHANGED, "0 modify=1 started", "PUMP.1.2.4", ""},
        {"cana 2 1 TYPE.1.2.1\n", GOOD, "0 modify=1 needing=1", "TYPE.1.2.1", ""},
        // A name that no slot can hold: the configured distribution follows, if there is one.
        {"cana 2 1 MORETHANELEVEN.1.2.1\n", GOOD, "0 started", "PUMP.1.2.3", ""},
        {"cana 2 1 MORETHANELEVEN.1.2.1\n", ABSENT, "0 needing=1", "MORETHANELEVEN.1.2.1", ""},
        // Who differs is told also when the check after the download fails.
        {"", FLAGGED, "0 timeout=1 needing=1", "PUMP.1.2.3", ""},
    });
}

// A request that a power cut forgets, at any time before the application was told; one that is
// repeated although the start ended, or over a newer one; one that keeps a machine from coming up.
TEST(Todo, ARequestThatIsCutIsRepeatedOnce)
{
    const auto Switch_On = [](Scenario &Machine, const std::string &Fault) {
        Machine.Toml = Fault;
        return Machine.run();
    };
    const auto check_End = [&](Scenario &Machine, const char *Outcome, const char *Report) {
        const ScenarioRun Run = Switch_On(Machine, "");
        EXPECT_EQ(Run.get_Outcome(), Outcome) << Run.Output;
        EXPECT_EQ(Run.has_Report("Demande"), *Report != 0);
        EXPECT_TRUE(Run.has_Report(Report)) << Run.Output;
        const ScenarioRun Next = Switch_On(Machine, "");
        EXPECT_EQ(Next.Result.at("board.left.downloads"), "0");
        EXPECT_FALSE(Next.Files.contains(".appl.todo.cut") ||
                     Next.Files.contains(".appl.todo.repeated"));
    };
    const auto prepare = [](Scenario &Machine) {
        arrange(Machine, GOOD);
        Machine.Todo = {"cana 2 1 PUMP.1.2.4"};
    };
    Scenario Good;
    prepare(Good);
    const ScenarioRun Whole = Good.run_Expecting("0 modify=1 started");
    const std::string AfterRemoval =
        Whole.make_AtShell("[cut]", "rm /var/vantrel/config/appl.todo", "when = \"after\"");
    for (const std::string &Cut :
         {AfterRemoval, Whole.make_AtShell("[cut]", "tar -xf", "when = \"middle\""),
          "[cut]\ncall = \"close\"\nnth = " + Whole.Result.at("outside.close") +
              "\nwhen = \"before\"\n"}) {
        SCOPED_TRACE(Cut);
        Scenario Machine;
        prepare(Machine);
        EXPECT_TRUE(Switch_On(Machine, Cut).Files.contains(".appl.todo.cut"));
        check_End(Machine, "0 modify=1 started", "Demande interrompue, reprise");
    }
    Scenario Twice;
    prepare(Twice);
    Switch_On(Twice, AfterRemoval);
    EXPECT_TRUE(Switch_On(Twice, AfterRemoval).Files.contains(".appl.todo.repeated"));
    check_End(Twice, "0 started", "Demande interrompue deux fois, abandonnée");

    Scenario Newer;
    prepare(Newer);
    Switch_On(Newer, AfterRemoval);
    Newer.Todo = {"cana 2 1 NONE.1.0.0"};
    check_End(Newer, "0 needing=1", "");

    // A lost answer of the transfer ends the start by an assertion.
    Scenario Aborted;
    prepare(Aborted);
    Aborted.Boards[0].Toml =
        "[[board.fault]]\nkind = \"silence\"\nservice = 25\nfunction = 1\nnth = 1\n";
    EXPECT_EQ(Aborted.run().Signal, 6);
    Aborted.Boards[0].Toml = "";
    check_End(Aborted, "0 started", "");
}

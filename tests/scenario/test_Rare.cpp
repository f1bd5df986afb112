// What boards and the outside do so rarely that nothing else of the tests meets it.
#include "Findings.h"

namespace
{

// The left slot wants 21, which no board serves; the database knows none of the boards.
void want_UnknownType(Scenario &Machine)
{
    Machine.Boards[0].TypeId = 21;
    for (MachineBoard &Board : Machine.Boards)
        Board.HardwareItems[1] = "{ bytes = \"00 00 10\" }";
    Machine.Database = {"card 211 1 1 20"};
}

// The left board's software is asked for by appl.todo, in another version.
void force_Left(Scenario &Machine, const char *Name)
{
    Software Wanted = Machine.Boards[0].Runs;
    Wanted.Name = Name;
    Wanted.Version = {4, 5, 6};
    Machine.store(Wanted);
    Machine.Todo = {"cana 2 1 " + Wanted.get_DistributionName()};
}

// The left board's software is nowhere else, so that it is saved.
void save_Left(Scenario &Machine)
{
    Machine.Boards[0].Runs.Name = "ALONE";
    Machine.Boards[0].Stored = false;
}

std::string fail(const std::string &Call, int Nth)
{
    return "[[outside.fault]]\ncall = \"" + Call + "\"\nnth = " + std::to_string(Nth) + "\n";
}

struct Case {
    const char *Fault; // of the loader, that it would catch
    void (*change)(Scenario &);
    const char *Outcome;
    const char *Report = "";
};

void check_Cases(const std::vector<Case> &Cases)
{
    for (const auto &[Fault, change, Outcome, Report] : Cases) {
        SCOPED_TRACE(Fault);
        Line{change}.run_Expecting(Outcome, Report);
    }
}

} // namespace

TEST(Rare, Boards)
{
    check_Cases({
        {"a command to nobody", WITH(Left.Keys = Right.Keys = Heat.Keys = ABSENT), "0 timeout=3"},
        {"a board started that calls itself faulty", WITH(Left.Keys = "hardware_fault = 1\n"),
         "0 replace=1"},
        {"a board of the wrong type kept because another one has no date",
         WITH(want_UnknownType(Machine); Heat.HardwareItems[2] = ""), "0 replace=1"},
        {"a hardware index taken for 0", WITH(Left.HardwareItems[8] = ""), "0 replace=1"},
        {"an exchanged board taken that forgets its software's name",
         WITH(Left.HardwareItems[9] = "{ short = 8 }";
              Left.Toml = fault("error 24 1 tag=2\ncode=128\nnth=2")),
         "0 replace=1", "Erreur : SwMnemo inconnu !!!"},
        {"or garbles it",
         WITH(Left.HardwareItems[9] = "{ short = 8 }";
              Left.Toml = fault("wrong_type 24 1 tag=2\ncode=2\nnth=2")),
         "0 replace=1", "Erreur : conversion"},
        {"boards started that have no level in common",
         WITH(Left.SoftwareItems[11] = "{ bytes = \"04 01 01 00 00 00 00 00 00\" }";
              Right.SoftwareItems[11] = "{ bytes = \"04 02 02 00 00 00 00 00 00\" }"),
         "0 needing=3"},
        {"an item of loader.conf alone that is refused",
         WITH(Left.Toml = fault("error 24 0 tag=3\ncode=5")), "0 replace=1"},
        {"a forgotten file closed for ever",
         WITH(save_Left(Machine); Left.Toml = fault("already_open 25 0") + fault("silence 25 4")),
         "0 timeout=1"},
        {"a name of more than a mnemonic and three numbers taken after a forced download",
         WITH(force_Left(Machine, "A.B")), "0 needing=1"},
        {"a silent board after a forced download passed over",
         WITH(force_Left(Machine, "PUMP"); Left.Toml = fault("silence 24 1 tag=2\nnth=2")),
         "0 timeout=1"},
    });
    check("a slot that goes on to expect what was replaced", WITH(force_Left(Machine, "PUMP")),
          "0 modify=1" + STARTED.substr(1) + " todo:002 001 00210 000001 PUMP       004 005 006,");
}

TEST(Rare, Outside)
{
    check_Cases({
        {"a card that cannot be reached taken for a database without the board",
         WITH(want_UnknownType(Machine); Machine.Toml =
                                             "[card]\nmounted = false\n"
                                             "[scripts]\nins_cf = { exit_status = 1, from = 3 }\n"),
         "-1 started", "Erreur : SSD non accessible"},
    });
    // A log lost that could not be cut: what of the copy fails.
    for (const auto &[Call, Nth] :
         {std::pair{"write", 1}, {"write", 41}, {"close", 1}, {"rename", 1}}) {
        SCOPED_TRACE(fail(Call, Nth));
        Scenario Machine;
        Machine.add_Board("left", 2, 17);
        write_Text(Machine.get_Folder() / "card/log/loader.log", std::string(30000, 'x'));
        Machine.Toml = fail(Call, Nth);
        EXPECT_EQ(Machine.run_Expecting("0 started").Log.find_first_not_of('x'), 30000U);
    }
    // A version file that could not be written and a status that says it was.
    Scenario Machine;
    Machine.add_Board("left", 2, 17);
    Machine.Toml = fail("open", 5);
    EXPECT_EQ(Machine.run({}, {"-v"}).get_Outcome(), "-488");
}

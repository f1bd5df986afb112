// Whether boards and their software serve their slots.
#include "Findings.h"

// Boards are for type 20, software for 20 and 21; the left slot wants 21.
static void want_21(Scenario &Machine, const char *Entry = "card 210 B 2 0 000020")
{
    Machine.Boards[0].TypeId = 21;
    for (MachineBoard &Board : Machine.Boards) {
        Board.HardwareItems[1] = "{ bytes = \"00 00 10\" }";
        Board.Runs.Types = {20, 21};
    }
    Machine.Database = {"# comment", Entry};
}

TEST(Types, HardwareMaps)
{
    const std::string Map = "188883F0#60010306000020,";
    const std::string Date =
        "188883F8#6082020B05313730,188883F8#6001303030303030,188883F8#60003100,";
    check("other bytes, a board not examined again", WITH(want_21(Machine)), STARTED, "",
          "18.{6}#(60.*|4001)",
          "188883F0#4001," + Map + Date + "188883F0#4001,189083F0#4001,1800C3F0#4001,");
    check("an unknown map not written", WITH(want_21(Machine); Left.HardwareItems[1] = ""),
          STARTED);
    check("a board looked up for ever that does not keep its map; one accepted that refuses it",
          WITH(want_21(Machine); Right.TypeId = 21;
               Left.Toml = fault("wrong_value 24 0 tag=1\nbytes=\"10\"");
               Right.Toml = fault("error 24 32 code=5")),
          "0 replace=2 ctrl_HW, conf errors:002 001,002 002,", "MT_Info: Erreur : 0,", "18.*#60.*",
          Map + Date + "189083F0#60010306000020,");
    check("the next board looked up, or the one after it not",
          WITH(want_21(Machine); Right.TypeId = Heat.TypeId = 21),
          "0 replace=1 ctrl_HW, conf errors:002 002,", "", "18.*#600103.*",
          Map + "1800C3F0#60010306000020,");
    check("another board's entry, dates asked for again and again",
          WITH(want_21(Machine, "card 211 B 2 0 000020"); Right.TypeId = 21;
               Heat.HardwareItems[2] = "\"1700000001\""),
          "0 replace=2 ctrl_HW, conf errors:002 001,002 002,", "", "18.*#4002",
          "188883F0#4002,189083F0#4002,1800C3F0#4002,");
    check("further checks behind a board that knows neither its map nor its identity",
          WITH(want_21(Machine, "card 211 B 2 0 000020"); Right.TypeId = 21;
               Left.HardwareItems[1] = Left.HardwareItems[4] = ""),
          "0 replace=1 ctrl_HW, conf errors:002 001,");
    check("a map cut that no message holds",
          WITH(want_21(Machine, ("card 210 1 0 " + std::string(1532, 'F')).c_str())),
          "signal 6 ctrl_HW,");
    // Neither moved nor given a protocol, but started: no check has set a mask.
    check("a board condemned without a database", WITH(want_21(Machine); Machine.Database.clear()),
          UNCHECKED, "", "1.*#(4581.*|44.*)",
          "168883F8#45810211FFFF0000,169083F8#45810212FFFF0000,1600C3F8#45810301FFFF0000,");
    check("by an older one than a board's",
          WITH(want_21(Machine, "c 211 1 1 20"); Heat.HardwareItems[2] = "\"1700000002\""),
          UNCHECKED);
}

TEST(Types, SoftwareMapsAndIndices)
{
    check("software started of another type, or for newer hardware",
          WITH(Left.Runs.Types = {21}; Left.Runs.Name = "HEAT"; Right.Runs.IndexLow = 3),
          "0 needing=2 read_Todo_FromA2lFile, conf todo:002 001,002 002,");
    check("an unknown map accepted", WITH(Left.Toml = fault("error 24 1 tag=1\ncode=128")),
          "0 replace=1 ctrl_SW, conf errors:002 001,");
    check("bounds taken as exclusive or unsigned; an index that is not passed on",
          WITH(Left.HardwareItems[8] = "{ short = -2 }"; Left.Runs.IndexLow = 0xFFFE;
               Right.Runs.IndexLow = Right.Runs.IndexHigh = 2),
          STARTED, "", "1.*#4500.*", "160883F8#4500FFFE,161083F8#45000002,1600C3F8#45000002,");
    check("an unknown bound that does not end the checks; an old board, or a faulty one, left as "
          "it is",
          WITH(Left.Toml = fault("error 24 1 tag=9\ncode=128\nnth=1"); Right.Runs.IndexHigh = 1;
               Heat.Keys = "software_fault = 1\n"),
          "0 needing=1 download_Distributions_ToSlaves, conf todo:002 002,", "", "19.*#44",
          "190883F0#44,190883F0#44,1900C3F0#44,1900C3F0#44,");
}

// Whole runs: everything that a good start leaves, and machines that are large or broken.
#include "Findings.h"

// A phase, text, frame or line of a result more, less, or at another place.
TEST(Sequence, AStartToTheByte)
{
    Scenario Machine;
    Machine.add_Board("left", 2, 17).FuncAddr2 = 1;
    Machine.add_Board("heat", 3, 18).State = 1;
    write_Text(Machine.get_Folder() / "card/log/loader.log", "y" + std::string(20000, 'x'));
    ScenarioRun Run = Machine.run();

    std::string Output = "\nVersion : 1.1.6 - Jan 22 2015  15:04:49\n\n"
                         "Opening log file: /home/user/save/log/loader.log\n"
                         "Version qui fonctionne pas en remote !!!\nLancement du loader\n\n"
                         "init_All                                          \n"
                         "can 16384 1 - Live 0x00000000\nOuverture de CAN A    OK\n";
    for (std::string Phase :
         {"restart_AllSlaves", "ctrl_HW", "AdPhys2AdCan", "ctrl_NewSlavesPresence", "ctrl_SW",
          "upload_Distributions_FromSlaves", "ctrl_NewSlavesSw", "read_Todo_FromA2lFile",
          "ctrl_Protocols", "start_Applications", "create_Loader_Files"}) {
        Phase.resize(50, ' ');
        Output += "OK\n" + Phase;
    }
    EXPECT_EQ(Run.Output, Output + "OK\nSortie du programme\n");
    EXPECT_EQ(Run.Log, std::string(20000, 'x') + "\n\nProjet : qx\nSat Mar 14 06:30:00 2026\n"
                                                 "Version : 1.1.6 - Jan 22 2015  15:04:49\n"
                                                 "Fin - Sat Mar 14 06:30:03 2026\n\n");

    const std::string Form =
        "1.1.6             # Version of the Loader\n0                 # File format\n";
    const std::string Items =
        "HW  BOARD             SN-0001  210  B  2  0  2  1  24V  2024-06  4  \n"
        "SW  PUMP.1.2.3        PUMP  1  2  3  test  released  1  1  9  \n"
        "LD  BOOT               FE  BOOT  2  3  1  2022-05-17  HC12  1  9  \n";
    EXPECT_EQ(Run.Files["loader.conf"] + Run.Files["loader.protocols"],
              "4698              # File : /var/vantrel/config/loader.conf\n"
              "1773469802        # Creation date of the file (time_t) : 14.03.2026 06:30:02\n" +
                  Form + "2                 # Nb slaves\ncana       002 001\n" + Items +
                  "cana       003 018\n" + Items +
                  "4698              # File : /var/vantrel/config/loader.protocols\n"
                  "1773469803        # Creation date of the file (time_t) : 14.03.2026 06:30:03\n" +
                  Form + "cana       004 002 000\n");
    EXPECT_EQ(get_Findings(Run), "0 start_Applications, conf protocols:004 002 000,");

    // Each board is alone in the group of its type, the last one is not moved.
    const std::string All =
        "4000 4003 4004 4005 4006 4007 4008 4009 400A 400B 400C 4100 4102 4103 4104 "
        "4105 4106 4107 4108 4109 410A 4300 4301 4302 4303 4304 4305 4306 4307 4308 4309 ";
    std::istringstream Words{
        "160003F0# 430000 40 41 180083F0# 4001 1800C3F0# 4001 160083F0# 440102 180083F0# 4004 4009 "
        "1800C3F0# 4004 4009 160003F0# 41 180083F0# 4101 1800C3F0# 4101 180083F0# 4008 4109 410A "
        "1800C3F0# 4008 4109 410A 180083F0# 4102 4103 4104 4105 1800C3F0# 4102 4103 4104 4105 "
        "180003F0# 410B 180083F0# " +
        All + "1800C3F0# " + All + "160083F8# 4581020104020000 45000002 1600C3F0# 4202"};
    std::string Identifier, Frames;
    for (std::string Word; Words >> Word;)
        Word.back() == '#' ? Identifier = Word : Frames += Identifier + Word + ",";
    EXPECT_EQ(get_Frames(Run, ".*"), Frames);
}

// An answer of a burst that is lost, or taken for another board's (also for the thread sanitizer);
// boards beyond the masks that are spoken to.
TEST(Sequence, SixtyFourBoardsAndTwoBeyond)
{
    Scenario Machine;
    Machine.Toml = "[bus]\nbit_rate = 1000000\n"; // 198 frames are through within 40 ms
    for (unsigned i = 0; i < 66; ++i) {
        MachineBoard &Board = Machine.add_Board("b" + std::to_string(i), 1 + i / 22, 1 + i % 22);
        Board.FuncAddr1 += 10;
        Board.Keys = "response_us = 0\n";
    }
    const ScenarioRun Run = Machine.run();
    EXPECT_EQ(get_Findings(Run), "0 start_Applications, conf protocols:004 002 000,");
    EXPECT_EQ(get_Reports(Run), "");
    EXPECT_EQ(join_Matches(Run.Files.at("loader.conf"), "^cana +(01[123] 0..)$").size(), 64 * 8U);
    EXPECT_EQ(get_Frames(Run, "..(A8|B0)C.*"), ""); // to 3.21 and 3.22
}

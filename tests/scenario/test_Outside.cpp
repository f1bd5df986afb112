// What goes wrong around the loader's own calls, and the power cut: that each strikes where it is
// told, and what of a start it leaves.
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

// A board whose software the store lacks: the loader reads it out and packs it.
ScenarioBoard &add_Unsaved(Scenario &Machine)
{
    ScenarioBoard &Board = Machine.add_Board("left", 2, 17);
    Board.Stored = false;
    return Board;
}

std::string make_Cut(const std::string &Call, unsigned Nth, const std::string &When)
{
    return "[cut]\ncall = \"" + Call + "\"\nnth = " + std::to_string(Nth) + "\nwhen = \"" + When +
           "\"\n";
}

} // namespace

// A kind that strikes another call, or only the counter; what the libraries call for themselves
// counted as the loader's.
TEST(Outside, ACallFailsWhereItIsTold)
{
    const std::tuple<const char *, const char *, const char *> Cases[] = {
        {"open", "nth = 6", "Le fichier n'existe pas !"},
        {"read", "nth = 1\nerrno = \"EACCES\"", "Erreur de lecture de la signature."},
        {"mkdir", "errno = \"EROFS\"", "mkdir: Read-only file system"},
        {"chdir", "nth = 1", "Assertion `Status >= 0'"},
        {"close", "", "fclose(sheader.bin)"},
        {"allocation", "nth = 1", "exit=23"},
        {"shell", "nth = 11\nexit_status = 3", "(Status = 768)"},
        {"driver", "nth = 1", "Connexion au cana"},
        {"thread", "", "exit="},
    };
    for (const auto &[Call, Keys, Sign] : Cases) {
        Scenario Machine;
        add_Unsaved(Machine);
        Machine.Toml = std::string{"[[outside.fault]]\ncall = \""} + Call + "\"\n" + Keys + "\n";
        const ScenarioRun Run = Machine.run();
        std::string Seen = Run.Output + Run.Errors + "exit=" + std::to_string(Run.Exit);
        EXPECT_TRUE(has_Text(Seen, Sign)) << Call << "\n" << Seen;
    }
}

// A cut that comes too early or late, loses what was written, or leaves the RAM disk.
TEST(Outside, ThePowerGoesAtACall)
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
TEST(Outside, AnArchiveThatWasCutIsReadAgain)
{
    const std::vector<std::vector<std::string>> Cases = {
        {make_Cut("shell", 11, "middle")},                                  // half a copy
        {make_Cut("shell", 11, "after")},                                   // whole, but marked
        {make_Cut("open", 18, "after")},                                    // not begun
        {make_Cut("shell", 11, "middle"), make_Cut("remove", 1, "before")}, // cleared up
        {make_Cut("shell", 11, "middle"), make_Cut("remove", 2, "before")},
        {"[[outside.fault]]\ncall = \"remove\"\n"}, // the marker of a whole copy stays
    };
    for (const std::vector<std::string> &Starts : Cases) {
        Scenario Machine;
        add_Unsaved(Machine);
        for (const std::string &Toml : Starts) {
            Machine.Toml = Toml;
            const ScenarioRun Cut = Machine.run();
            EXPECT_EQ(Cut.Store.front(), ".PUMP.1.2.3.tar.gz.copying") << Toml;
        }
        Machine.Toml = "";
        const ScenarioRun Run = Machine.run();
        EXPECT_EQ(Run.Status, 0) << Starts.back() << Run.Output;
        EXPECT_EQ(Run.Store, std::vector<std::string>{"PUMP.1.2.3.tar.gz"}) << Starts.back();
        const fs::path Archive = Machine.get_Folder() / "card/slave_sw/PUMP.1.2.3.tar.gz";
        EXPECT_EQ(std::system(("gzip -t '" + Archive.string() + "'").c_str()), 0) << Starts.back();
    }
}

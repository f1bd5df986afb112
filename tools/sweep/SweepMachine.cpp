#include "sweep/SweepMachine.h"

#include "start/SmallMachine.h"
#include "start/Start.h"
#include <sstream>

namespace qxsweep
{

using namespace qxstart;

namespace
{

// Two files of 1 to 2 KB.
Software make_Software(const std::string &Name, unsigned Version, unsigned SubVersion = 0,
                       unsigned IndexHigh = 9)
{
    const unsigned Seed = static_cast<unsigned>(Name[0]) + 10 * Version + SubVersion;
    Software Made{Name, {Version, SubVersion, 0}, {20}, 1, IndexHigh};
    Made.Files = {{"program.bin", make_Noise(1700, Seed)}, {"table.bin", make_Noise(1100, ~Seed)}};
    return Made;
}

constexpr std::size_t LOG_SIZE = 21000; // more than the loader keeps: every start shortens it

std::string make_Log()
{
    std::string Text;
    for (int Line = 0; Text.size() < LOG_SIZE; ++Line) {
        Text += "Sat Mar 14 06:30:00 Line " + std::to_string(Line) + "\n";
    }
    return Text;
}

MachineBoard &add_Board(SmallMachine &Machine, const std::string &Name, unsigned BoardType,
                        unsigned BoardNumber, const Software &Runs)
{
    MachineBoard &Added = Machine.add_Board(Name, BoardType, BoardNumber);
    Added.Runs = Runs;
    Added.Stored = false;
    Added.Keys = "restart_ms = 300\nresponse_us = 400\n";
    return Added;
}

} // namespace

void make_Machine(const std::filesystem::path &Folder)
{
    SmallMachine Machine{Folder};
    const Software Axis = make_Software("AXIS", 1);
    add_Board(Machine, "axis_left", 2, 17, Axis).FuncAddr2 = 1;
    add_Board(Machine, "axis_right", 2, 18, Axis).FuncAddr2 = 2;
    Machine.store(make_Software("AXIS", 1, 1));
    Machine.Todo = {"cana 2 2 AXIS.1.1.0"};

    MachineBoard &Heater = add_Board(Machine, "heater", 3, 17, make_Software("HEAT", 2, 0, 2));
    Heater.FuncAddr2 = 1;
    Heater.HardwareItems[8] = "{ short = 3 }";
    Heater.Expected = make_Software("HEAT", 2, 1);
    Machine.store(*Heater.Expected);

    MachineBoard &Scale = add_Board(Machine, "scale", 4, 17, make_Software("SCALE", 1));
    Scale.Stored = true;
    Scale.FuncAddr2 = 1;
    Scale.HwInfo4 = 510;
    Scale.HardwareItems = {{1, ""}, {2, "\"0\""}, {7, "{ short = 1 }"}};
    Scale.LoaderItems[0] = ""; // old ones tell nothing of it
    Machine.Database = {"SCALE 510 A 1 0 000020", "SCALE 510 B 2 1 000010"};

    MachineBoard &Labeller = add_Board(Machine, "labeller", 5, 17, make_Software("LABEL", 1));
    Labeller.FuncAddr2 = 1;
    Labeller.State = 0;

    MachineBoard &Panel = add_Board(Machine, "panel", 6, 1, make_Software("PANEL", 1));
    Panel.Stored = true;
    Panel.State = 1;
    Panel.HardwareItems = {{4, "{ short = 211 }"}, {9, "{ short = 2 }"}};

    Machine.Protocols = {"cana 6 1 1", "cana 4 1 2"};
    Machine.write();
    write_Text(Folder / "card/log/loader.log", make_Log());
}

std::vector<std::string> find_Boards(const std::string &MachineToml)
{
    std::vector<std::string> Names;
    std::istringstream Text{MachineToml};
    bool Unnamed = false;
    for (std::string Line; std::getline(Text, Line);) {
        Unnamed = Unnamed || Line == "[[board]]";
        if (Unnamed && Line.starts_with("name = \"")) {
            Names.push_back(Line.substr(8, Line.find('"', 8) - 8));
            Unnamed = false;
        }
    }
    return Names;
}

std::string add_Tables(const std::string &MachineToml, const std::string &Board,
                       const std::string &Toml)
{
    // A table of a board stands behind its board and before the next one.
    const std::size_t Begin =
        Board.empty() ? std::string::npos : MachineToml.find("\nname = \"" + Board + "\"");
    const std::size_t End =
        std::min(Begin == std::string::npos ? Begin : MachineToml.find("\n[[board]]", Begin),
                 MachineToml.size());
    return MachineToml.substr(0, End) + "\n" + Toml + MachineToml.substr(End);
}

} // namespace qxsweep

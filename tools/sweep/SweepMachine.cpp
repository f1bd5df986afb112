#include "sweep/SweepMachine.h"

#include "qxdist/Archive.h"
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace qxsweep
{

namespace fs = std::filesystem;

namespace
{

constexpr const char *MACHINE_TOML = R"(name = "sweep"

[clock]
date = 2026-03-14T06:30:00Z

[model.any]
restart_ms = 300
response_us = 400
[model.any.hardware]
0 = "BOARD"
1 = { bytes = "00 00 10" }
2 = "1700000000"
3 = "SN-0001"
4 = { short = 210 }
5 = { type = 5, bytes = "42 00" }
6 = { short = 2 }
7 = { short = 0 }
8 = { short = 2 }
9 = { short = 1 }
10 = "24V"
11 = "2024-06"
12 = { char = 4 }
[model.any.loader]
0 = "BOOT"
1 = { bytes = "FE" }
2 = "BOOT"
3 = { short = 2 }
4 = { short = 3 }
5 = { short = 1 }
6 = "2022-05-17"
7 = "HC12"
8 = { char = 1 }
9 = { char = 9 }

[model.old.hardware]
0 = "SCALE"
2 = "0"
3 = "SN-0002"
4 = { short = 510 }
5 = { type = 5, bytes = "43 00" }
6 = { short = 2 }
7 = { short = 1 }
8 = { short = 2 }
9 = { short = 1 }
10 = "12V"
11 = "2016-02"
12 = { char = 1 }

[[board]]
name = "axis_left"
model = "any"
board_type = 2
board_number = 17

[[board]]
name = "axis_right"
model = "any"
board_type = 2
board_number = 18

[[board]]
name = "heater"
model = "any"
board_type = 3
board_number = 17
hardware = { 8 = { short = 3 } }

[[board]]
name = "scale"
model = "old"
board_type = 4
board_number = 17

[[board]]
name = "labeller"
model = "any"
board_type = 5
board_number = 17

[[board]]
name = "panel"
model = "any"
board_type = 6
board_number = 1
hardware = { 4 = { short = 211 }, 9 = { short = 2 } }
)";

constexpr const char *HEADER = "4698\n1773467100\nsweep\n0\n";

constexpr const char *CONF = "6\n"
                             "3 cana 2 17 2 1 210 1 AXIS 1 0 0 20\n"
                             "3 cana 2 18 2 2 210 1 AXIS 1 0 0 20\n"
                             "3 cana 3 17 3 1 210 1 HEAT 2 1 0 20\n"
                             "3 cana 4 17 4 1 510 1 SCALE 1 0 0 20\n"
                             "0 cana 5 17 5 1 210 1 LABEL 1 0 0 20\n"
                             "1 cana 6 1 6 1 210 1 PANEL 1 0 0 20\n";

constexpr const char *PROTOCOLS = "cana 6 1 1\ncana 4 1 2\n";

constexpr const char *TODO = "cana 2 2 AXIS.1.1.0\n";

constexpr const char *DATABASE =
    "4699\n1765000000\nSCALE 510 A 1 0 000020\nSCALE 510 C 2 1 000010\n";

constexpr std::size_t LOG_SIZE = 21000; // more than the loader keeps: every start shortens it

std::string make_Log()
{
    std::string Text;
    for (int Line = 0; Text.size() < LOG_SIZE; ++Line) {
        Text += "Sat Mar 14 06:30:00 Line " + std::to_string(Line) + "\n";
    }
    return Text;
}

// A program of about Size bytes that compresses badly, as real ones do.
qxdist::Bytes make_Program(unsigned Seed, std::size_t Size)
{
    qxdist::Bytes Program(Size);
    for (std::uint8_t &Byte : Program) {
        Seed = Seed * 1664525 + 1013904223;
        Byte = static_cast<std::uint8_t>(Seed >> 24);
    }
    return Program;
}

qxdist::Record make_Text(std::uint8_t Tag, const std::string &Text)
{
    return {Tag, qxdist::TYPE_TEXT, {Text.begin(), Text.end()}};
}

// Two files of 1 to 2 KB. The protocols: structure 4 with levels 1 to 2, structure 2 with level 1.
qxdist::FileTable make_Software(const std::string &Name, unsigned Version, unsigned SubVersion,
                                unsigned IndexHigh)
{
    using namespace qxdist;
    const unsigned Seed = static_cast<unsigned>(Name[0]) + 10 * Version + SubVersion;
    return make_Distribution(
        {make_Text(0, Name),
         make_TypesRecord({20}),
         make_Text(TAG_NAME, Name),
         make_ShortRecord(TAG_VERSION, Version),
         make_ShortRecord(TAG_VERSION + 1, SubVersion),
         make_ShortRecord(TAG_VERSION + 2, 0),
         make_Text(6, "sweep"),
         make_Text(7, "released"),
         make_ShortRecord(8, 1),
         make_ShortRecord(TAG_INDEX_LOW, 1),
         make_ShortRecord(TAG_INDEX_HIGH, IndexHigh),
         {11, TYPE_BYTES, {4, 1, 2, 2, 1, 1, 0, 0, 0}}},
        {{"program.bin", make_Program(Seed, 1700)}, {"table.bin", make_Program(~Seed, 1100)}});
}

} // namespace

void make_Machine(const fs::path &Folder)
{
    write_Text(Folder / "machine.toml", MACHINE_TOML);
    write_Text(Folder / "config/appl.conf", HEADER + std::string{CONF});
    write_Text(Folder / "config/appl.protocols", HEADER + std::string{PROTOCOLS});
    write_Text(Folder / "config/appl.todo", HEADER + std::string{TODO});

    const fs::path Store = Folder / "card/slave_sw";
    write_Text(Folder / "card/log/loader.log", make_Log());
    qxdist::write_Archive(Store / "AXIS.1.1.0.tar.gz", make_Software("AXIS", 1, 1, 9));
    qxdist::write_Archive(Store / "HEAT.2.1.0.tar.gz", make_Software("HEAT", 2, 1, 9));
    qxdist::write_Archive(Store / "SCALE.1.0.0.tar.gz", make_Software("SCALE", 1, 0, 9));
    qxdist::write_Archive(Store / "PANEL.1.0.0.tar.gz", make_Software("PANEL", 1, 0, 9));
    const fs::path Database = Folder / "card/slave_hw/slaves_db.txt";
    write_Text(Database, DATABASE);
    if (std::system(("gzip -9 -n '" + Database.string() + "'").c_str()) != 0) {
        throw std::runtime_error{"gzip failed"};
    }

    const fs::path Boards = Folder / "boards";
    qxdist::write_Folder(Boards / "axis_left", make_Software("AXIS", 1, 0, 9));
    qxdist::write_Folder(Boards / "axis_right", make_Software("AXIS", 1, 0, 9));
    qxdist::write_Folder(Boards / "heater", make_Software("HEAT", 2, 0, 2));
    qxdist::write_Folder(Boards / "scale", make_Software("SCALE", 1, 0, 9));
    qxdist::write_Folder(Boards / "labeller", make_Software("LABEL", 1, 0, 9));
    qxdist::write_Folder(Boards / "panel", make_Software("PANEL", 1, 0, 9));
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

std::string read_Text(const fs::path &Path)
{
    std::ifstream File{Path, std::ios::binary};
    return {std::istreambuf_iterator<char>{File}, {}};
}

void write_Text(const fs::path &Path, const std::string &Text)
{
    fs::create_directories(Path.parent_path());
    std::ofstream File{Path, std::ios::binary};
    File << Text;
    File.close();
    if (!File) {
        throw std::runtime_error{Path.string() + ": cannot be written"};
    }
}

} // namespace qxsweep

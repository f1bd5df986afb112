// Small machines described in a program: the folder that qxsim starts, with the master's files, the
// store and what the boards hold.
//
//     SmallMachine Machine{"/tmp/line"};
//     Machine.add_Board("pump", 2, 17).FuncAddr2 = 1;
//     Machine.Boards[0].Toml = "[[board.fault]]\nkind = \"silence\"\nservice = 24\n";
//     Machine.write();
//
// As it comes, a machine is one that the loader starts without a remark: every board is what
// appl.conf expects, its distribution is in the store, the protocols agree.
#pragma once

#include "qxdist/Archive.h"
#include <array>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qxstart
{

// Bytes that neither repeat nor compress, as those of real programs; the same for a seed.
std::string make_Noise(std::size_t Size, std::uint32_t Seed = 1);

// The software of a board, or an archive in the store. It speaks structure 4 with levels 1 to 2 and
// structure 2 with level 1.
struct Software {
    std::string Name{"PUMP"};
    std::array<unsigned, 3> Version{1, 2, 3}; // version, sub-version, compilation
    std::vector<std::uint8_t> Types{20};      // board types that it serves
    unsigned IndexLow{1};                     // hardware indices of compatibility that it accepts
    unsigned IndexHigh{9};
    std::map<std::string, std::string> Files{{"program.txt", "the program\n"}};
    std::optional<qxdist::Bytes> Header{}; // sheader.bin; nullopt: a right one

    std::string get_DistributionName() const; // "PUMP.1.2.3"
};

struct MachineBoard {
    std::string Name;
    unsigned BoardType{}; // physical address
    unsigned BoardNumber{};

    // Of its line in appl.conf.
    unsigned State{3};
    std::string Device{"cana"};
    unsigned FuncAddr1{}; // the physical address, unless set
    unsigned FuncAddr2{};
    unsigned HwInfo4{210};
    unsigned HwInfo9{1};
    std::optional<Software> Expected; // nullopt: Runs
    unsigned TypeId{20};

    Software Runs;     // what the board has
    bool Stored{true}; // the store has Runs, too

    // Items by tag as machine.toml writes them ("{ short = 4 }"); "" takes an item of the usual
    // board away. Software items are those of Runs, but for these.
    std::map<unsigned, std::string> HardwareItems;
    std::map<unsigned, std::string> SoftwareItems;
    std::map<unsigned, std::string> LoaderItems;

    std::string Keys; // further keys of [[board]], a line each: "present = false\n"
    std::string Toml; // further tables of the board: "[[board.fault]]\n..."
};

class SmallMachine
{
  public:
    // No board. The folder is made; what lies there already stays.
    explicit SmallMachine(std::filesystem::path Made);

    // The reference stays good.
    MachineBoard &add_Board(const std::string &Name, unsigned BoardType, unsigned BoardNumber);

    // Puts an archive into the store, at once.
    void store(const Software &Packed) const;
    void store(const std::string &DistributionName, const std::string &Content) const;

    // The whole folder; the next time, only what is set below: files of boards and card go on as
    // the starts in between left them.
    void write();

    const std::filesystem::path &get_Folder() const;

    std::deque<MachineBoard> Boards;
    std::string Toml;                         // further tables of machine.toml
    std::optional<std::string> ApplConf;      // instead of the text made from Boards; "": no file
    std::optional<std::string> ApplProtocols; // instead of the four lines and these:
    std::vector<std::string> Protocols{"cana 4 1 2"};
    std::vector<std::string> Todo;       // requests for the next start only, "cana 2 1 PUMP.1.2.4"
    std::optional<std::string> ApplTodo; // the whole file for the next start only
    std::vector<std::string> Database;   // entries, "card 210 A 1 0 0000FF"; none: no database

  private:
    void write_MachineToml() const;
    void write_Config();
    void write_Storage() const;

    std::filesystem::path Folder;
    bool Written{};
};

} // namespace qxstart

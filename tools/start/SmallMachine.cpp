#include "start/SmallMachine.h"

#include "start/Start.h"
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace qxstart
{

namespace fs = std::filesystem;

namespace
{

constexpr const char *POWER_ON = "[clock]\ndate = 2026-03-14T06:30:00Z\n";
constexpr const char *CONFIG_HEADER = "4698\n1770000000\ntest\n0\n";
constexpr const char *DATABASE_HEADER = "4699\n1700000001\n";

using ItemTexts = std::map<unsigned, std::string>;

// Of a usual board; 1, 4 and 9 are what appl.conf expects.
const ItemTexts HARDWARE{{0, "\"BOARD\""},     {2, "\"1700000000\""},
                         {3, "\"SN-0001\""},   {5, R"({ type = 5, bytes = "42 00" })"},
                         {6, "{ short = 2 }"}, {7, "{ short = 0 }"},
                         {8, "{ short = 2 }"}, {10, "\"24V\""},
                         {11, "\"2024-06\""},  {12, "{ char = 4 }"}};
const ItemTexts LOADER{{0, "\"BOOT\""},       {1, "{ bytes = \"FE\" }"}, {2, "\"BOOT\""},
                       {3, "{ short = 2 }"},  {4, "{ short = 3 }"},      {5, "{ short = 1 }"},
                       {6, "\"2022-05-17\""}, {7, "\"HC12\""},           {8, "{ char = 1 }"},
                       {9, "{ char = 9 }"}};

std::string join_Lines(const std::vector<std::string> &Lines)
{
    std::string Text;
    for (const std::string &Line : Lines) {
        Text += Line + "\n";
    }
    return Text;
}

qxdist::Record make_Text(std::uint8_t Tag, const std::string &Text)
{
    return {Tag, qxdist::TYPE_TEXT, {Text.begin(), Text.end()}};
}

// Header and files.
qxdist::FileTable make_Distribution(const Software &Made)
{
    using namespace qxdist;
    const std::vector<Record> Records{
        make_Text(0, Made.get_DistributionName()),
        make_TypesRecord(Made.Types),
        make_Text(TAG_NAME, Made.Name),
        make_ShortRecord(TAG_VERSION, Made.Version[0]),
        make_ShortRecord(TAG_VERSION + 1, Made.Version[1]),
        make_ShortRecord(TAG_VERSION + 2, Made.Version[2]),
        make_Text(6, "test"),
        make_Text(7, "released"),
        make_ShortRecord(8, 1),
        make_ShortRecord(TAG_INDEX_LOW, Made.IndexLow),
        make_ShortRecord(TAG_INDEX_HIGH, Made.IndexHigh),
        {11, TYPE_BYTES, {4, 1, 2, 2, 1, 1, 0, 0, 0}},
    };
    FileTable Files;
    for (const auto &[Name, Text] : Made.Files) {
        Files[Name].assign(Text.begin(), Text.end());
    }
    Files = qxdist::make_Distribution(Records, Files);
    if (Made.Header) {
        Files[NAME_HEADER] = *Made.Header;
    }
    return Files;
}

ItemTexts make_HardwareItems(const MachineBoard &Board)
{
    std::string Map;
    for (unsigned i = 0; i < Board.TypeId / 8; ++i) {
        Map += "00 ";
    }
    static constexpr const char *BITS[] = {"01", "02", "04", "08", "10", "20", "40", "80"};
    ItemTexts Items = HARDWARE;
    Items[1] = "{ bytes = \"" + Map + BITS[Board.TypeId % 8] + "\" }";
    Items[4] = "{ short = " + std::to_string(Board.HwInfo4) + " }";
    Items[9] = "{ short = " + std::to_string(Board.HwInfo9) + " }";
    return Items;
}

std::string make_ItemTable(const char *Name, ItemTexts Items, const ItemTexts &Own)
{
    for (const auto &[Tag, Value] : Own) {
        Items[Tag] = Value;
    }
    std::string Text = std::string{"[board."} + Name + "]\n";
    for (const auto &[Tag, Value] : Items) {
        Text += Value.empty() ? "" : std::to_string(Tag) + " = " + Value + "\n";
    }
    return Text;
}

std::string make_BoardToml(const MachineBoard &Board)
{
    return "\n[[board]]\nname = \"" + Board.Name +
           "\"\nboard_type = " + std::to_string(Board.BoardType) +
           "\nboard_number = " + std::to_string(Board.BoardNumber) + "\n" + Board.Keys +
           make_ItemTable("hardware", make_HardwareItems(Board), Board.HardwareItems) +
           make_ItemTable("software", {}, Board.SoftwareItems) +
           make_ItemTable("loader", LOADER, Board.LoaderItems) + Board.Toml;
}

std::string make_ConfigLine(const MachineBoard &Board)
{
    const Software &Expected = Board.Expected ? *Board.Expected : Board.Runs;
    std::ostringstream Line;
    Line << Board.State << ' ' << Board.Device << ' ' << Board.BoardType << ' ' << Board.BoardNumber
         << ' ' << Board.FuncAddr1 << ' ' << Board.FuncAddr2 << ' ' << Board.HwInfo4 << ' '
         << Board.HwInfo9 << ' ' << Expected.Name << ' ' << Expected.Version[0] << ' '
         << Expected.Version[1] << ' ' << Expected.Version[2] << ' ' << Board.TypeId;
    return Line.str();
}

} // namespace

std::string make_Noise(std::size_t Size, std::uint32_t Seed)
{
    std::string Noise;
    for (; Noise.size() < Size; Seed = Seed * 1664525 + 1013904223) {
        Noise += static_cast<char>(Seed >> 24);
    }
    return Noise;
}

std::string Software::get_DistributionName() const
{
    return Name + "." + std::to_string(Version[0]) + "." + std::to_string(Version[1]) + "." +
           std::to_string(Version[2]);
}

SmallMachine::SmallMachine(fs::path Made) : Folder{std::move(Made)}
{
    fs::create_directories(Folder);
}

MachineBoard &SmallMachine::add_Board(const std::string &Name, unsigned BoardType,
                                      unsigned BoardNumber)
{
    MachineBoard &Added = Boards.emplace_back();
    Added.Name = Name;
    Added.BoardType = Added.FuncAddr1 = BoardType;
    Added.BoardNumber = Added.FuncAddr2 = BoardNumber;
    return Added;
}

void SmallMachine::store(const Software &Packed) const
{
    const fs::path Store = Folder / "card" / "slave_sw";
    fs::create_directories(Store);
    qxdist::write_Archive(Store / (Packed.get_DistributionName() + ".tar.gz"),
                          make_Distribution(Packed));
}

void SmallMachine::store(const std::string &DistributionName, const std::string &Content) const
{
    write_Text(Folder / "card/slave_sw" / (DistributionName + ".tar.gz"), Content);
}

const fs::path &SmallMachine::get_Folder() const
{
    return Folder;
}

void SmallMachine::write_MachineToml() const
{
    std::string Text = "name = \"small\"\n";
    if (Toml.find("[clock]") == std::string::npos) {
        Text += POWER_ON;
    }
    Text += Toml;
    for (const MachineBoard &Board : Boards) {
        Text += make_BoardToml(Board);
    }
    write_Text(Folder / "machine.toml", Text);
}

void SmallMachine::write_Config()
{
    const std::string Header = CONFIG_HEADER;
    std::vector<std::string> Lines{std::to_string(Boards.size())};
    std::transform(Boards.begin(), Boards.end(), std::back_inserter(Lines), make_ConfigLine);
    if (ApplConf != "") {
        write_Text(Folder / "config/appl.conf", ApplConf.value_or(Header + join_Lines(Lines)));
    }
    write_Text(Folder / "config/appl.protocols",
               ApplProtocols.value_or(Header + join_Lines(Protocols)));
    if (!Todo.empty() || ApplTodo) {
        write_Text(Folder / "config/appl.todo", ApplTodo.value_or(Header + join_Lines(Todo)));
        Todo.clear();
        ApplTodo.reset();
    }
}

void SmallMachine::write_Storage() const
{
    for (const char *Name : {"log", "slave_hw", "slave_sw"}) {
        fs::create_directories(Folder / "card" / Name);
    }
    for (const MachineBoard &Board : Boards) {
        qxdist::write_Folder(Folder / "boards" / Board.Name, make_Distribution(Board.Runs));
        if (Board.Stored) {
            store(Board.Runs);
        }
    }
    if (!Database.empty()) {
        const fs::path Path = Folder / "card/slave_hw/slaves_db.txt";
        write_Text(Path, DATABASE_HEADER + join_Lines(Database));
        if (std::system(("gzip -9 -n '" + Path.string() + "'").c_str()) != 0) {
            throw std::runtime_error{"gzip failed"};
        }
    }
}

void SmallMachine::write()
{
    if (!Written) {
        write_Storage();
        Written = true;
    }
    write_Config();
    write_MachineToml();
}

} // namespace qxstart

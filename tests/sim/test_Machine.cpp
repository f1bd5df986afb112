// The machine's folder: what is read, how errors are named, what a kept run leaves.
#include "machine/MachineFolder.h"
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace qxsim;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

namespace
{

class MachineFolder : public testing::Test
{
  protected:
    void SetUp() override
    {
        std::string Template = fs::temp_directory_path() / "machine.XXXXXX";
        ASSERT_NE(mkdtemp(Template.data()), nullptr);
        Folder = Template;
    }

    void TearDown() override
    {
        fs::remove_all(Folder);
    }

    void write(const std::string &Name, const std::string &Text) const
    {
        fs::create_directories((Folder / Name).parent_path());
        std::ofstream{Folder / Name, std::ios::binary} << Text;
    }

    Machine read(const std::string &Toml) const
    {
        write("machine.toml", Toml);
        return read_Machine(Folder);
    }

    std::string get_Error(const std::string &Toml) const
    {
        try {
            read(Toml);
        } catch (const MachineError &Error) {
            return Error.what();
        }
        return "no error";
    }

    fs::path Folder;
};

constexpr const char *BOARD = "[[board]]\nname = \"b\"\nboard_type = 2\nboard_number = 1\n";

} // namespace

// A key that is read into the wrong field, or in the wrong unit: of those that no scenario uses.
TEST_F(MachineFolder, EveryKeyReachesItsField)
{
    const Machine Read = read(R"(
[bus]
interface = "can0"
[clock]
date = 1970-01-02T01:00:00+01:00
quantum_us = 50
[driver]
receive_queue = 8
transmit_queue = 2
tick_us = 500
call_cost_us = 7
[scripts]
rm_cf = {}
[[board]]
name = "pump"
board_type = 31
board_number = 30
[[board.fault]]
kind = "other_board"
other = "fan"
)");
    EXPECT_EQ(Read.Interface, "can0");
    EXPECT_EQ(Read.Clock.Date, 86400);
    EXPECT_EQ(Read.Clock.Quantum, 50us);
    EXPECT_EQ(Read.Driver.ReceiveQueue, 8U);
    EXPECT_EQ(Read.Driver.TransmitQueue, 2U);
    EXPECT_EQ(Read.Driver.Tick, 500us);
    EXPECT_EQ(Read.Driver.CallCost, 7us);
    EXPECT_EQ(Read.Scripts.at("rm_cf").From, 1U);
    EXPECT_EQ(Read.Boards.at(0).Faults.at(0).Kind, FaultKind::OtherBoard);
    EXPECT_EQ(Read.Boards.at(0).Faults.at(0).Other, "fan");
}

// A value in the wrong byte order, width or type number.
TEST_F(MachineFolder, ItemsAreAsOnTheWire)
{
    const Machine Read = read(std::string{BOARD} + R"(
software = { 2 = "PUMP", 11 = { bytes = "04 01 02" } }
loader = { 200 = { type = 136, bytes = "7F" } }
[board.hardware]
1 = { char = -2 }
2 = { short = -2 }
3 = { long = 66051 }
4 = { ascii = "K" }
5 = { text = "é" }
7 = { float = 1.5 }
9 = { time = 1970-01-01T00:01:05Z }
10 = { uchar = 200 }
11 = { ushort = 65535 }
12 = { ulong = 4294967295 }
)");
    const ItemTable Expected{
        {{0, 1}, {1, {0xFE}}},
        {{0, 2}, {2, {0xFF, 0xFE}}},
        {{0, 3}, {3, {0x00, 0x01, 0x02, 0x03}}},
        {{0, 4}, {4, {'K'}}},
        {{0, 5}, {5, {0xC3, 0xA9}}},
        {{0, 7}, {7, {0x00, 0x00, 0xC0, 0x3F}}}, // IEEE 754 single, least significant byte first
        {{0, 9}, {9, {0x00, 0x00, 0x00, 0x41}}},
        {{0, 10}, {0x81, {0xC8}}},
        {{0, 11}, {0x82, {0xFF, 0xFF}}},
        {{0, 12}, {0x83, {0xFF, 0xFF, 0xFF, 0xFF}}},
        {{1, 2}, {5, {'P', 'U', 'M', 'P'}}},
        {{1, 11}, {6, {4, 1, 2}}},
        {{3, 200}, {0x88, {0x7F}}},
    };
    EXPECT_EQ(Read.Boards[0].Items, Expected);
}

// A model that wins over the board's own keys, or the first model over the second.
TEST_F(MachineFolder, ABoardRefinesItsModels)
{
    const Machine Read = read(R"(
[model.any]
response_us = 100
hardware = { 0 = "ANY", 3 = "NONE" }
[model.axis]
board_type = 2
hardware = { 0 = "AXIS" }
[[board]]
name = "a"
model = ["any", "axis"]
board_number = 1
hardware = { 3 = "A-1" }
)");
    EXPECT_EQ(Read.Boards[0].BoardType, 2);
    EXPECT_EQ(Read.Boards[0].ResponseTime, 100us);
    EXPECT_EQ(Read.Boards[0].Items.at({0, 0}).Value, (Bytes{'A', 'X', 'I', 'S'}));
    EXPECT_EQ(Read.Boards[0].Items.at({0, 3}).Value, (Bytes{'A', '-', '1'}));
}

// Software items that have to be written twice, in the header and in machine.toml; a header that
// overrides what a test put there on purpose.
TEST_F(MachineFolder, SoftwareItemsComeFromTheHeaderOfTheFiles)
{
    // Signature, size 36, one record at 30, no file (list at 35), 12 bytes unused; the record: tag
    // 2, length 2, text "AB".
    const std::string Header{"\x06\x01\0\0\0\x24\0\0\0\x1E\0\x01\0\0\0\x23\0\0"
                             "\0\0\0\0\0\0\0\0\0\0\0\0"
                             "\x02\x02\x05"
                             "AB\0",
                             36};
    write("boards/b/sheader.bin", Header);
    const Machine Read = read(BOARD);
    EXPECT_EQ(Read.Boards[0].Items, (ItemTable{{{1, 2}, {5, {'A', 'B'}}}}));
    const Machine Own = read(std::string{BOARD} + "software = { 2 = \"CD\" }\n");
    EXPECT_EQ(Own.Boards[0].Items, (ItemTable{{{1, 2}, {5, {'C', 'D'}}}}));
}

// A mistake in a machine file that is passed over, or that nobody finds.
TEST_F(MachineFolder, ErrorsNameFileLineAndKey)
{
    const std::pair<std::string, std::string> Cases[] = {
        {"[[board]]\nname = \"b\"\nboard_type = 32\nboard_number = 1",
         "machine.toml:3: board.board_type: must be 1 to 31"},
        {"[[board]]\nname = \"b\"\nboard_number = 1",
         "machine.toml:1: board.board_type: is missing"},
        {"[[board]]\nname = \"../x\"",
         "machine.toml:2: board.name: must be of letters, digits and _ . -"},
        {std::string{BOARD} + BOARD, "machine.toml:6: board.name: another board bears it"},
        {std::string{BOARD} + "model = \"axis\"",
         "machine.toml:5: board.model: there is no [model.axis]"},
        {"\n[clock]\ndat = 1", "machine.toml:3: clock.dat: unknown key"},
        {"[clock]\nquantum_us = 0", "machine.toml:1: clock.quantum_us: must not be 0"},
        {"[clock]\ndate = \"today\"", "machine.toml:2: clock.date: must be a date as in "
                                      "2026-03-14T06:30:00Z, or seconds since 1970"},
        {"[bus]\nbit_rate = \"fast\"", "machine.toml:2: bus.bit_rate: must be 1000 to 1000000"},
        {"card = 1", "machine.toml:1: card: must be a table"},
        {"[driver]\nfault = 1", "machine.toml:2: driver.fault: must be an array of tables"},
        {"[[driver.fault]]\nrequest = \"write\"",
         "machine.toml:2: driver.fault.request: must be one of open reset send receive timer"},
        {"name = 1", "machine.toml:1: name: must be a text"},
        {std::string{BOARD} + "hardware = { 256 = \"x\" }",
         "machine.toml:5: board.hardware.256: the tag of an item must be 0 to 255"},
        {std::string{BOARD} + "hardware = { 1 = { char = 128 } }",
         "machine.toml:5: board.hardware.1.char: must be -128 to 127"},
        {std::string{BOARD} + "hardware = { 1 = { bytes = \"0 1\" } }",
         "machine.toml:5: board.hardware.1.bytes: must be bytes as in \"02 1F\""},
        {std::string{BOARD} + "hardware = { 1 = { char = 1, short = 2 } }",
         "machine.toml:5: board.hardware.1.item: must be a text, { FORM = value } or { type = n, "
         "bytes = \"..\" }"},
        {"name = ", "machine.toml:1: "},
    };
    for (const auto &[Toml, Expected] : Cases) {
        EXPECT_EQ(get_Error(Toml).substr(0, Expected.size()), Expected) << Toml;
    }
    fs::remove(Folder / "machine.toml");
    EXPECT_THROW(read_Machine(Folder), MachineError);
}

// A second start that does not go on from the first: an item, a file or a fault that is lost, a
// removed file or item that is there again; a name from the bus that leaves the board's folder.
TEST_F(MachineFolder, StateIsReadBackAsItWasLeft)
{
    write("boards/b/sub/old.txt", "old");
    Machine Kept = read(std::string{BOARD} + "hardware = { 0 = \"HW\", 1 = { char = 1 } }\n");
    BoardSpec &Board = Kept.Boards[0];
    EXPECT_EQ(Board.Files, (FileTable{{"sub/old.txt", {'o', 'l', 'd'}}}));
    Board.Items.erase({0, 1});
    Board.Items[{0, 9}] = {6, {0x00, 0x1F, 0xFF}};
    Board.Items[{3, 255}] = {0x85, {}};
    Board.SoftwareFault = 7;
    Board.Files = {{"a/b.bin", {0, 255, 10}}, {"empty", {}}, {"../../escape", {1}}};
    write_State(Folder, Kept.Boards);

    const Machine Read = read_Machine(Folder);
    EXPECT_EQ(Read.Boards[0].Items, Board.Items);
    EXPECT_EQ(Read.Boards[0].SoftwareFault, 7);
    EXPECT_EQ(Read.Boards[0].Files, (FileTable{{"a/b.bin", {0, 255, 10}}, {"empty", {}}}));
    EXPECT_FALSE(fs::exists(Folder / "escape"));
}

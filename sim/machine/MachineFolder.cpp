#include "machine/MachineFolder.h"
#include "board/SoftwareHeader.h"
#include "machine/Section.h"
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::int64_t BYTE_MAX = 0xFF;
constexpr std::int64_t ITEM_SIZE_MAX = 255;
constexpr std::uint8_t TYPE_TEXT = 5;
constexpr std::uint8_t UNSIGNED = 0x80;

struct ItemForm {
    const char *Key;
    std::uint8_t Type;
    unsigned Size; // bytes of an integer, big endian; 0: another form
    std::int64_t Min;
    std::int64_t Max;
};

// The forms { KEY = value } of an item. A plain text is { text = ... }.
constexpr ItemForm ItemForms[] = {
    {"char", 1, 1, -128, 127},
    {"short", 2, 2, -32768, 32767},
    {"long", 3, 4, -2147483648LL, 2147483647},
    {"ascii", 4, 0, 0, 0},
    {"text", TYPE_TEXT, 0, 0, 0},
    {"bytes", 6, 0, 0, 0},
    {"float", 7, 0, 0, 0},
    {"time", 9, 4, 0, 4294967295},
    {"uchar", 1 | UNSIGNED, 1, 0, 255},
    {"ushort", 2 | UNSIGNED, 2, 0, 65535},
    {"ulong", 3 | UNSIGNED, 4, 0, 4294967295},
};

struct GroupName {
    const char *Key;
    std::uint8_t Group;
};

constexpr GroupName Groups[] = {{"hardware", 0}, {"software", 1}, {"loader", 3}};

struct FaultName {
    const char *Name;
    FaultKind Kind;
};

constexpr FaultName FaultNames[] = {
    {"silence", FaultKind::Silence},
    {"error", FaultKind::Error},
    {"late", FaultKind::Late},
    {"duplicate", FaultKind::Duplicate},
    {"wrong_type", FaultKind::WrongType},
    {"wrong_length", FaultKind::WrongLength},
    {"wrong_value", FaultKind::WrongValue},
    {"wrong_counter", FaultKind::WrongCounter},
    {"lone_continuation", FaultKind::LoneContinuation},
    {"truncated", FaultKind::Truncated},
    {"other_board", FaultKind::OtherBoard},
    {"unsolicited", FaultKind::Unsolicited},
    {"short_write", FaultKind::ShortWrite},
    {"negative_length", FaultKind::NegativeLength},
    {"no_data", FaultKind::NoData},
    {"already_open", FaultKind::AlreadyOpen},
};

struct RequestName {
    const char *Name;
    DriverRequest Request;
};

constexpr RequestName RequestNames[] = {
    {"open", DriverRequest::Open},   {"reset", DriverRequest::Reset},
    {"send", DriverRequest::Send},   {"receive", DriverRequest::Receive},
    {"timer", DriverRequest::Timer},
};

struct MomentName {
    const char *Name;
    CutMoment When;
};

constexpr MomentName MomentNames[] = {
    {"before", CutMoment::Before}, {"middle", CutMoment::Middle}, {"after", CutMoment::After}};

constexpr const char *ScriptNames[] = {"ins_cf", "rm_cf", "usbmount", "mount_net", "umount_net"};

// The entry of Names that the text at Key names; the key must be there.
template <typename T, std::size_t N>
const T &read_Name(Section &Read, const char *Key, const T (&Names)[N])
{
    Read.require(Key);
    std::string Text;
    Read.read(Key, Text);
    std::string Rule = "must be one of";
    for (const T &Name : Names) {
        if (Text == Name.Name) {
            return Name;
        }
        Rule += std::string{" "} + Name.Name;
    }
    Read.fail(*Read.find(Key), Key, Rule);
}

void append_BigEndian(std::vector<std::uint8_t> &Bytes, std::uint32_t Value, unsigned Size)
{
    while (Size-- > 0) {
        Bytes.push_back(static_cast<std::uint8_t>(Value >> (8 * Size)));
    }
}

std::int64_t get_Seconds(const toml::date_time &Date)
{
    const std::chrono::sys_days Day{std::chrono::year{Date.date.year} / Date.date.month /
                                    Date.date.day};
    const auto Clock = std::chrono::hours{Date.time.hour} + std::chrono::minutes{Date.time.minute} +
                       std::chrono::seconds{Date.time.second};
    const std::chrono::minutes Offset{Date.offset ? Date.offset->minutes : 0};
    return std::chrono::seconds{Day.time_since_epoch() + Clock - Offset}.count();
}

// Seconds since 1970, also from a date as TOML writes it (without an offset: UTC).
std::int64_t read_Date(Section &Read, std::string_view Key, std::int64_t Max)
{
    const toml::node &Found = *Read.find(Key);
    const auto *Date = Found.as_date_time();
    if (Date == nullptr && !Found.is_integer()) {
        Read.fail(Found, Key, "must be a date as in 2026-03-14T06:30:00Z, or seconds since 1970");
    }
    const std::int64_t Seconds =
        Date != nullptr ? get_Seconds(Date->get()) : Found.as_integer()->get();
    if (Seconds < 0 || Seconds > Max) {
        Read.fail(Found, Key, "must be 0 to " + std::to_string(Max) + " seconds since 1970");
    }
    return Seconds;
}

std::vector<std::uint8_t> read_ItemValue(Section &Read, const ItemForm &Form)
{
    std::vector<std::uint8_t> Value;
    const std::string_view Key = Form.Key;
    if (Key == "time") {
        append_BigEndian(Value, static_cast<std::uint32_t>(read_Date(Read, Key, Form.Max)), 4);
    } else if (Form.Size > 0) {
        std::int64_t Number = 0;
        Read.read(Key, Number, Form.Min, Form.Max);
        append_BigEndian(Value, static_cast<std::uint32_t>(Number), Form.Size);
    } else if (Key == "bytes") {
        Read.read(Key, Value);
    } else if (Key == "float") {
        // The bytes lie in the master's order, which is little endian.
        const double Number = Read.get<double>(*Read.find(Key), Key, "must be a float");
        const auto Bits = std::bit_cast<std::uint32_t>(static_cast<float>(Number));
        for (unsigned i = 0; i < 4; ++i) {
            Value.push_back(static_cast<std::uint8_t>(Bits >> (8 * i)));
        }
    } else {
        std::string Text;
        Read.read(Key, Text);
        if (Key == "ascii" && Text.size() != 1) {
            Read.fail(*Read.find(Key), Key, "must be one character");
        }
        Value.assign(Text.begin(), Text.end());
    }
    return Value;
}

// { short = 12 }, or { type = 8, bytes = "01 02" } for what has no form of its own.
Item read_ItemForm(Section &Read)
{
    Item Made;
    if (Read.find("type") != nullptr) {
        Read.require("bytes");
        Read.read("type", Made.Type, 0, BYTE_MAX);
        Read.read("bytes", Made.Value);
        return Made;
    }
    for (const ItemForm &Form : ItemForms) {
        if (Read.find(Form.Key) != nullptr) {
            Made = {Form.Type, read_ItemValue(Read, Form)};
            break;
        }
    }
    if (Made.Type == 0 || Read.get_Table().size() != 1) {
        Read.fail(Read.get_Table(), "item",
                  "must be a text, { FORM = value } or { type = n, bytes = \"..\" }");
    }
    return Made;
}

std::uint8_t get_Tag(const Section &Read, const toml::node &Where, std::string_view Key)
{
    unsigned Tag = 0;
    const char *End = Key.data() + Key.size();
    const auto Result = std::from_chars(Key.data(), End, Tag);
    if (Result.ec != std::errc{} || Result.ptr != End || Tag > BYTE_MAX) {
        Read.fail(Where, Key, "the tag of an item must be 0 to 255");
    }
    return static_cast<std::uint8_t>(Tag);
}

void read_Items(Section &Read, std::uint8_t Group, ItemTable &Items)
{
    for (const auto &[Key, Value] : Read.get_Table()) {
        const std::uint8_t Tag = get_Tag(Read, Value, Key.str());
        Item Made{TYPE_TEXT, {}};
        if (const auto *Text = Value.as_string()) {
            Made.Value.assign(Text->get().begin(), Text->get().end());
            Read.find(Key.str());
        } else {
            Read.read_Table(Key.str(), [&](Section &Form) { Made = read_ItemForm(Form); });
        }
        if (Made.Value.size() > ITEM_SIZE_MAX) {
            Read.fail(Value, Key.str(), "an item has at most 255 bytes");
        }
        Items[{Group, Tag}] = std::move(Made);
    }
}

// What machine.toml and state.toml both say of a board.
void read_BoardContents(Section &Read, BoardSpec &Board)
{
    Read.read("hardware_fault", Board.HardwareFault, 0, BYTE_MAX);
    Read.read("software_fault", Board.SoftwareFault, 0, BYTE_MAX);
    for (const GroupName &Group : Groups) {
        Read.read_Table(Group.Key,
                        [&](Section &Items) { read_Items(Items, Group.Group, Board.Items); });
    }
}

template <typename T>
void read_Optional(Section &Read, const char *Key, std::optional<T> &Value, std::int64_t Max)
{
    if (Read.find(Key) != nullptr) {
        Value.emplace();
        Read.read(Key, *Value, 0, Max);
    }
}

Fault read_Fault(Section &Read)
{
    Fault Made;
    Made.Kind = read_Name(Read, "kind", FaultNames).Kind;
    read_Optional(Read, "service", Made.Service, 31);
    read_Optional(Read, "function", Made.Function, 63);
    read_Optional(Read, "tag", Made.Tag, BYTE_MAX);
    Read.read("nth", Made.Nth, 0, std::numeric_limits<int>::max());
    Read.read("code", Made.Code, 0, BYTE_MAX);
    Read.read("delay_ms", Made.Delay, 1ms);
    Read.read("bytes", Made.Bytes);
    Read.read("other", Made.Other);
    return Made;
}

// The name is also the name of the folder of the board's files.
void read_BoardName(Section &Read, const Machine &Made, BoardSpec &Board)
{
    Read.require("name");
    Read.read("name", Board.Name);
    const toml::node &Found = *Read.find("name");
    if (Board.Name.empty() || Board.Name.front() == '.' ||
        Board.Name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                     "0123456789_.-") != std::string::npos) {
        Read.fail(Found, "name", "must be of letters, digits and _ . -");
    }
    for (const BoardSpec &Other : Made.Boards) {
        if (Other.Name == Board.Name) {
            Read.fail(Found, "name", "another board bears it");
        }
    }
}

// What a board and a model can both say.
void read_BoardKeys(Section &Read, BoardSpec &Board)
{
    Read.read("board_type", Board.BoardType, 1, 31);
    Read.read("board_number", Board.BoardNumber, 1, 31);
    Read.read("present", Board.Present);
    Read.read("response_us", Board.ResponseTime, 1us);
    Read.read("restart_ms", Board.RestartTime, 1ms);
    read_Optional(Read, "flood", Board.Flood, 31);
    read_BoardContents(Read, Board);
    Read.read_Tables("fault", [&](Section &Fault) { Board.Faults.push_back(read_Fault(Fault)); });
}

using Models = std::map<std::string, const toml::table *, std::less<>>;

void read_Models(Section &Read, Models &Known)
{
    for (const auto &[Key, Value] : Read.get_Table()) {
        Known[std::string{Key.str()}] = Value.as_table();
        BoardSpec Checked;
        Read.read_Table(Key.str(), [&](Section &Model) { read_BoardKeys(Model, Checked); });
    }
}

void apply_Model(Section &Read, const toml::node &Name, const Models &Known, BoardSpec &Board)
{
    const auto Text = Read.get<std::string>(Name, "model", "must be a text or an array of texts");
    const auto Found = Known.find(Text);
    if (Found == Known.end()) {
        Read.fail(Name, "model", "there is no [model." + Text + "]");
    }
    Section Model{*Found->second, "machine.toml", "model." + Text + "."};
    read_BoardKeys(Model, Board);
}

// Models in their order, then the board's own keys: what comes later wins, item by item.
void read_Board(Section &Read, const Models &Known, Machine &Made)
{
    BoardSpec Board;
    read_BoardName(Read, Made, Board);
    const toml::node *const Named = Read.find("model");
    if (Named != nullptr && Named->is_array()) {
        for (const toml::node &Name : *Named->as_array()) {
            apply_Model(Read, Name, Known, Board);
        }
    } else if (Named != nullptr) {
        apply_Model(Read, *Named, Known, Board);
    }
    read_BoardKeys(Read, Board);
    for (const auto &[Key, Given] :
         {std::pair{"board_type", Board.BoardType}, {"board_number", Board.BoardNumber}}) {
        if (Given == 0) {
            Read.fail(Read.get_Table(), Key, "is missing");
        }
    }
    Made.Boards.push_back(std::move(Board));
}

void read_Driver(Section &Read, DriverSpec &Driver)
{
    static constexpr std::int64_t QUEUE_MAX = 1'000'000;
    Read.read("receive_queue", Driver.ReceiveQueue, 1, QUEUE_MAX);
    Read.read("transmit_queue", Driver.TransmitQueue, 1, QUEUE_MAX);
    Read.read("tick_us", Driver.Tick, 1us);
    Read.read("call_cost_us", Driver.CallCost, 1us);
    if (Driver.Tick <= Time{} || Driver.CallCost <= Time{}) {
        Read.fail(Read.get_Table(), Driver.Tick <= Time{} ? "tick_us" : "call_cost_us",
                  "must not be 0"); // virtual time would stand still
    }
    Read.read("module_loaded", Driver.ModuleLoaded);
    Read.read_Tables("fault", [&](Section &Faults) {
        DriverFault Made;
        Made.Request = read_Name(Faults, "request", RequestNames).Request;
        Faults.read("nth", Made.Nth, 0, std::numeric_limits<int>::max());
        Faults.read("result", Made.Result, std::numeric_limits<int>::min(),
                    std::numeric_limits<int>::max());
        Driver.Faults.push_back(Made);
    });
}

void read_Clock(Section &Read, ClockSpec &Clock)
{
    if (Read.find("date") != nullptr) {
        Clock.Date = read_Date(Read, "date", std::numeric_limits<std::uint32_t>::max());
    }
    Read.read("quantum_us", Clock.Quantum, 1us);
    if (Clock.Quantum <= Time{}) {
        Read.fail(Read.get_Table(), "quantum_us", "must not be 0");
    }
}

void read_Card(Section &Read, CardSpec &Card)
{
    Read.read("mounted", Card.Mounted);
    read_Optional(Read, "size", Card.Size, std::int64_t{1} << 40);
    if (Read.find("gone_ms") != nullptr) {
        Card.Gone.emplace();
        Read.read("gone_ms", *Card.Gone, 1ms);
    }
}

void read_Scripts(Section &Read, Machine &Made)
{
    for (const char *Name : ScriptNames) {
        Read.read_Table(Name, [&](Section &Script) {
            ScriptSpec &Spec = Made.Scripts[Name];
            Spec = {1, 1}; // a script that is named fails at once, unless it says otherwise
            Script.read("exit_status", Spec.ExitStatus, 1, 125);
            Script.read("from", Spec.From, 0, std::numeric_limits<int>::max());
        });
    }
}

// Value: the number of the error that the text at Key names, "EIO" say.
void read_Errno(Section &Read, std::string_view Key, int &Value)
{
    static constexpr int ERRNO_MAX = 133;
    std::string Name;
    Read.read(Key, Name);
    for (int Number = 1; !Name.empty() && Number <= ERRNO_MAX; ++Number) {
        const char *const Known = strerrorname_np(Number);
        if (Known != nullptr && Name == Known) {
            Value = Number;
            return;
        }
    }
    if (Read.get_Table().contains(Key)) {
        Read.fail(*Read.find(Key), Key, "must be the name of an error, as EIO");
    }
}

OutsideFault read_OutsideFault(Section &Read)
{
    OutsideFault Made;
    const OutsideCallName &Named = read_Name(Read, "call", OutsideCallNames);
    Made.Call = Named.Call;
    Made.Errno = Named.Errno;
    Read.read("nth", Made.Nth, 0, std::numeric_limits<int>::max());
    if (Made.Call == OutsideCall::Shell) {
        Read.read("exit_status", Made.ExitStatus, 1, 255);
        Read.read("run", Made.Run);
        Read.read("half", Made.Half);
    } else {
        read_Errno(Read, "errno", Made.Errno);
    }
    return Made;
}

PowerCut read_Cut(Section &Read)
{
    PowerCut Made;
    Made.Call = read_Name(Read, "call", OutsideCallNames).Call;
    Made.When = read_Name(Read, "when", MomentNames).When;
    Read.read("nth", Made.Nth, 1, std::numeric_limits<int>::max());
    return Made;
}

void read_MachineToml(Section &Read, Machine &Made)
{
    Read.read("name", Made.Name);
    Read.read_Table("bus", [&](Section &Bus) {
        Bus.read("bit_rate", Made.BitRate, 1'000, 1'000'000);
        Bus.read("interface", Made.Interface);
    });
    Read.read_Table("clock", [&](Section &Clock) { read_Clock(Clock, Made.Clock); });
    Read.read_Table("driver", [&](Section &Driver) { read_Driver(Driver, Made.Driver); });
    Read.read_Table("card", [&](Section &Card) { read_Card(Card, Made.Card); });
    Read.read_Table("outside", [&](Section &Outside) {
        Outside.read_Tables("fault", [&](Section &Fault) {
            Made.OutsideFaults.push_back(read_OutsideFault(Fault));
        });
    });
    Read.read_Table("cut", [&](Section &Cut) { Made.Cut = read_Cut(Cut); });
    Read.read_Table("scripts", [&](Section &Scripts) { read_Scripts(Scripts, Made); });
    Models Known;
    Read.read_Table("model", [&](Section &Table) { read_Models(Table, Known); });
    Read.read_Tables("board", [&](Section &Board) { read_Board(Board, Known, Made); });
}

// Boards that machine.toml no longer has are passed over.
void read_StateToml(Section &Read, Machine &Made)
{
    Read.read_Tables("board", [&](Section &State) {
        BoardSpec Passed;
        std::string Name;
        State.read("name", Name);
        BoardSpec *Board = &Passed;
        for (BoardSpec &Candidate : Made.Boards) {
            Board = Candidate.Name == Name ? &Candidate : Board;
        }
        Board->Items.clear();
        read_BoardContents(State, *Board);
    });
}

template <typename Reader>
void read_Toml(const fs::path &Path, Reader Read)
{
    const std::string Name = Path.filename();
    std::ifstream File{Path, std::ios::binary};
    if (!File) {
        throw MachineError{Name + ": cannot be read"};
    }
    const std::string Text{std::istreambuf_iterator<char>{File}, {}};
    toml::table Table;
    try {
        Table = toml::parse(Text);
    } catch (const toml::parse_error &Error) {
        throw MachineError{Name + ":" + std::to_string(Error.source().begin.line) + ": " +
                           std::string{Error.description()}};
    }
    Section Top{Table, Name, ""};
    Read(Top);
    Top.refuse_UnknownKeys();
}

std::vector<std::uint8_t> read_File(const fs::path &Path)
{
    std::ifstream File{Path, std::ios::binary};
    if (!File) {
        throw MachineError{Path.string() + ": cannot be read"};
    }
    return {std::istreambuf_iterator<char>{File}, {}};
}

FileTable read_Files(const fs::path &Folder)
{
    FileTable Files;
    if (fs::is_directory(Folder)) {
        for (const fs::directory_entry &Entry : fs::recursive_directory_iterator{Folder}) {
            if (Entry.is_regular_file()) {
                Files[Entry.path().lexically_relative(Folder).string()] = read_File(Entry.path());
            }
        }
    }
    return Files;
}

// A board's software items are those of its software's header, but for what machine.toml says.
void add_HeaderItems(BoardSpec &Board)
{
    const auto File = Board.Files.find(NAME_SHEADER);
    if (File == Board.Files.end()) {
        return;
    }
    if (const std::optional<SoftwareHeader> Header = parse_SoftwareHeader(File->second)) {
        Board.Items.insert(Header->Items.begin(), Header->Items.end());
    }
}

// A name that the loader sent becomes a path only when it stays inside the board's folder.
bool is_Inside(const fs::path &Name)
{
    if (Name.empty() || !Name.has_filename() || Name.is_absolute()) {
        return false;
    }
    return std::none_of(Name.begin(), Name.end(),
                        [](const fs::path &Part) { return Part == ".." || Part == "."; });
}

void write_Files(const fs::path &Folder, const FileTable &Files)
{
    fs::remove_all(Folder);
    for (const auto &[Name, Bytes] : Files) {
        const fs::path Path = Folder / Name;
        if (!is_Inside(Name) || Name.find('\0') != std::string::npos) {
            continue;
        }
        fs::create_directories(Path.parent_path());
        std::ofstream File;
        File.exceptions(std::ios::failbit | std::ios::badbit);
        File.open(Path, std::ios::binary);
        File.write(reinterpret_cast<const char *>(Bytes.data()),
                   static_cast<std::streamsize>(Bytes.size()));
    }
}

std::string make_ItemLine(std::uint8_t Tag, const Item &Written)
{
    static constexpr char DIGITS[] = "0123456789ABCDEF";
    std::string Bytes;
    for (const std::uint8_t Byte : Written.Value) {
        Bytes += Bytes.empty() ? "" : " ";
        Bytes += {DIGITS[Byte >> 4], DIGITS[Byte & 15]};
    }
    return std::to_string(Tag) + " = { type = " + std::to_string(Written.Type) + ", bytes = \"" +
           Bytes + "\" }\n";
}

std::string make_BoardState(const BoardSpec &Board)
{
    std::string Text = "\n[[board]]\nname = \"" + Board.Name +
                       "\"\nhardware_fault = " + std::to_string(Board.HardwareFault) +
                       "\nsoftware_fault = " + std::to_string(Board.SoftwareFault) + "\n";
    for (const GroupName &Group : Groups) {
        Text += std::string{"[board."} + Group.Key + "]\n";
        for (const auto &[Key, Written] : Board.Items) {
            Text += Key.Group == Group.Group ? make_ItemLine(Key.Tag, Written) : "";
        }
    }
    return Text;
}

} // namespace

Machine read_Machine(const fs::path &Folder)
{
    Machine Made;
    read_Toml(Folder / "machine.toml", [&](Section &Read) { read_MachineToml(Read, Made); });
    const bool Kept = fs::exists(Folder / "state.toml");
    if (Kept) {
        read_Toml(Folder / "state.toml", [&](Section &Read) { read_StateToml(Read, Made); });
    }
    for (BoardSpec &Board : Made.Boards) {
        Board.Files = read_Files(Folder / "boards" / Board.Name);
        if (!Kept) {
            add_HeaderItems(Board);
        }
    }
    return Made;
}

void write_State(const fs::path &Folder, const std::vector<BoardSpec> &Boards)
{
    std::ofstream File;
    File.exceptions(std::ios::failbit | std::ios::badbit);
    File.open(Folder / "state.toml", std::ios::binary);
    File << "# What the boards hold after the last kept run. Without this file they hold what\n"
            "# machine.toml says.\n";
    for (const BoardSpec &Board : Boards) {
        File << make_BoardState(Board);
        write_Files(Folder / "boards" / Board.Name, Board.Files);
    }
}

} // namespace qxsim

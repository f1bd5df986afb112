#include "Scenario.h"
#include "qxdist/Archive.h"
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace
{

constexpr std::int64_t POWER_ON = 1773469800; // 2026-03-14T06:30:00Z
constexpr const char *FILE_DATE = "1770000000";

std::string read_Text(const fs::path &Path)
{
    std::ifstream File{Path, std::ios::binary};
    return {std::istreambuf_iterator<char>{File}, {}};
}

void write_Text(const fs::path &Path, const std::string &Text)
{
    fs::create_directories(Path.parent_path());
    std::ofstream{Path, std::ios::binary} << Text;
}

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

// Header and files. Structure 4 with levels 1 to 2, structure 2 with level 1.
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

// The items of a board that appl.conf and the store expect as they are.
std::map<unsigned, std::string> make_HardwareItems(const ScenarioBoard &Board)
{
    std::string Map;
    for (unsigned i = 0; i < Board.TypeId / 8; ++i) {
        Map += "00 ";
    }
    static constexpr const char *BITS[] = {"01", "02", "04", "08", "10", "20", "40", "80"};
    return {{0, "\"BOARD\""},
            {1, "{ bytes = \"" + Map + BITS[Board.TypeId % 8] + "\" }"},
            {2, "\"1700000000\""},
            {3, "\"SN-1\""},
            {4, "{ short = " + std::to_string(Board.HwInfo4) + " }"},
            {5, R"({ type = 5, bytes = "42 00" })"},
            {6, "{ short = 2 }"},
            {7, "{ short = 0 }"},
            {8, "{ short = 2 }"},
            {9, "{ short = " + std::to_string(Board.HwInfo9) + " }"},
            {10, "\"24V\""},
            {11, "\"2024\""},
            {12, "{ char = 1 }"}};
}

std::map<unsigned, std::string> make_LoaderItems()
{
    std::map<unsigned, std::string> Items{{0, "\"BOOT\""}};
    for (unsigned Tag = 1; Tag <= 9; ++Tag) {
        Items[Tag] = "{ char = " + std::to_string(Tag) + " }";
    }
    return Items;
}

std::string make_ItemTable(const char *Name, std::map<unsigned, std::string> Items,
                           const std::map<unsigned, std::string> &Own)
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

std::string make_BoardToml(const ScenarioBoard &Board)
{
    return "\n[[board]]\nname = \"" + Board.Name +
           "\"\nboard_type = " + std::to_string(Board.BoardType) +
           "\nboard_number = " + std::to_string(Board.BoardNumber) + "\n" + Board.Keys +
           make_ItemTable("hardware", make_HardwareItems(Board), Board.HardwareItems) +
           make_ItemTable("software", {}, Board.SoftwareItems) +
           make_ItemTable("loader", make_LoaderItems(), Board.LoaderItems) + Board.Toml;
}

std::string make_ConfigLine(const ScenarioBoard &Board)
{
    const Software &Expected = Board.Expected ? *Board.Expected : Board.Runs;
    std::ostringstream Line;
    Line << Board.State << ' ' << Board.Device << ' ' << Board.BoardType << ' ' << Board.BoardNumber
         << ' ' << Board.FuncAddr1 << ' ' << Board.FuncAddr2 << ' ' << Board.HwInfo4 << ' '
         << Board.HwInfo9 << ' ' << Expected.Name << ' ' << Expected.Version[0] << ' '
         << Expected.Version[1] << ' ' << Expected.Version[2] << ' ' << Board.TypeId;
    return Line.str();
}

std::string quote(const std::string &Word)
{
    std::string Quoted = "'";
    for (const char Letter : Word) {
        Quoted += Letter == '\'' ? std::string{"'\\''"} : std::string{Letter};
    }
    return Quoted + "'";
}

std::string quote_All(const std::vector<std::string> &Words)
{
    std::string Text;
    for (const std::string &Word : Words) {
        Text += " " + quote(Word);
    }
    return Text;
}

// How such a run ends depends on chance, but not that it does: within the virtual time that a run
// has, and a minute. A thread that still runs at the end has a moment to show its races.
void run_InParallel(const char *Loader, const fs::path &Folder,
                    const std::vector<std::string> &Options,
                    const std::vector<std::string> &Arguments)
{
    const fs::path Output = Folder.parent_path() / "parallel.output";
    const fs::path Result = Folder.parent_path() / "parallel.result";
    fs::remove(Result);
    const std::string Line = "TSAN_OPTIONS=atexit_sleep_ms=100 timeout -s KILL 60" +
                             quote_All({QXSIM_PROGRAM, "--parallel", "--quiet", "--loader", Loader,
                                        "--result", Result}) +
                             quote_All(Options) + quote_All({Folder, "--"}) + quote_All(Arguments) +
                             " >" + quote(Output) + " 2>&1";
    (void)!std::system(Line.c_str());

    const bool Limited = std::count(Options.begin(), Options.end(), "--limit") != 0;
    const std::string Ended = Limited ? "limit_reached=" : "limit_reached=0\n";
    const std::string Text = read_Text(Output);
    if (Text.find("ThreadSanitizer") != std::string::npos) {
        throw std::runtime_error{"in parallel the sanitizer finds\n" + Text};
    }
    if (read_Text(Result).find(Ended) == std::string::npos) {
        throw std::runtime_error{"in parallel the loader does not end\n" + Text};
    }
}

std::vector<TracedFrame> read_Frames(const std::string &Trace, std::int64_t PowerOn)
{
    std::vector<TracedFrame> Frames;
    std::istringstream Text{Trace};
    std::string Stamp;
    std::string Interface;
    std::string Frame;
    while (Text >> Stamp >> Interface >> Frame) { // (1773469800.000395) cana 160003F0#430000
        TracedFrame Read;
        Read.Micros = (std::stoll(Stamp.substr(1, 10)) - PowerOn) * 1'000'000 +
                      std::stoll(Stamp.substr(12, 6));
        Read.Identifier = static_cast<std::uint32_t>(std::stoul(Frame.substr(0, 8), nullptr, 16));
        for (std::size_t i = 9; i < Frame.size(); i += 2) {
            Read.Data.push_back(
                static_cast<std::uint8_t>(std::stoul(Frame.substr(i, 2), nullptr, 16)));
        }
        Frames.push_back(std::move(Read));
    }
    return Frames;
}

void read_Result(const fs::path &Path, ScenarioRun &Run)
{
    std::istringstream Text{read_Text(Path)};
    std::string Line;
    while (std::getline(Text, Line)) {
        Run.Result[Line.substr(0, Line.find('='))] = Line.substr(Line.find('=') + 1);
    }
    if (Run.Result.contains("status")) {
        Run.Status = std::stoi(Run.Result["status"]);
    }
    if (Run.Result.contains("signal")) {
        Run.Signal = std::stoi(Run.Result["signal"]);
    }
}

} // namespace

std::string make_Noise(std::size_t Size)
{
    std::string Noise;
    for (std::uint32_t State = 1; Noise.size() < Size; State = State * 1664525 + 1013904223) {
        Noise += static_cast<char>(State >> 24);
    }
    return Noise;
}

std::string Software::get_DistributionName() const
{
    return Name + "." + std::to_string(Version[0]) + "." + std::to_string(Version[1]) + "." +
           std::to_string(Version[2]);
}

std::vector<TracedFrame> ScenarioRun::find_Frames(std::uint8_t MT, std::uint8_t Fn) const
{
    std::vector<TracedFrame> Found;
    std::copy_if(Frames.begin(), Frames.end(), std::back_inserter(Found),
                 [MT, Fn](const TracedFrame &Frame) {
                     return Frame.Identifier >> 24 == MT && !Frame.Data.empty() &&
                            Frame.Data[0] == Fn;
                 });
    return Found;
}

std::string ScenarioRun::get_Outcome() const
{
    static constexpr const char *LISTS[] = {"addresse", "timeout", "replace", "modify", "needing"};
    std::string Text = Signal != 0 ? "signal " + std::to_string(Signal)
                       : Status    ? std::to_string(*Status)
                                   : "exit " + std::to_string(Exit);
    for (const char *Name : {"loader.errors", "loader.todo"}) {
        std::istringstream Lines{Files.contains(Name) ? Files.at(Name) : ""};
        std::string Line;
        while (std::getline(Lines, Line)) {
            const std::string Number = Line.substr(0, Line.find(' '));
            for (const char *Word : LISTS) {
                const bool Listed =
                    Line.find("# Nb ") != std::string::npos && Line.find(Word) != std::string::npos;
                Text += Listed ? std::string{" "} + Word + "=" + Number : "";
            }
            const bool First = Number.size() == 3 && Line.find('#') == std::string::npos;
            Text += First && Number != "000" ? " " + Number : "";
        }
    }
    const bool Started = std::all_of(Result.begin(), Result.end(), [](const auto &Each) {
        return !Each.first.ends_with(".state") || Each.second == "started";
    });
    return Text + (Started ? " started" : "");
}

Scenario::Scenario()
{
    std::string Template = fs::temp_directory_path() / "scenario.XXXXXX";
    if (mkdtemp(Template.data()) == nullptr) {
        throw std::runtime_error{"no temporary folder"};
    }
    Base = Template;
    Folder = Base / "machine";
    fs::create_directory(Folder);
}

Scenario::~Scenario()
{
    std::error_code Ignored;
    fs::remove_all(Base, Ignored);
}

ScenarioBoard &Scenario::add_Board(const std::string &Name, unsigned BoardType,
                                   unsigned BoardNumber)
{
    ScenarioBoard &Added = Boards.emplace_back();
    Added.Name = Name;
    Added.BoardType = Added.FuncAddr1 = BoardType;
    Added.BoardNumber = Added.FuncAddr2 = BoardNumber;
    return Added;
}

void Scenario::store(const Software &Packed)
{
    const fs::path Store = Folder / "card" / "slave_sw";
    fs::create_directories(Store);
    qxdist::write_Archive(Store / (Packed.get_DistributionName() + ".tar.gz"),
                          make_Distribution(Packed));
}

void Scenario::store(const std::string &DistributionName, const std::string &Content)
{
    write_Text(Folder / "card/slave_sw" / (DistributionName + ".tar.gz"), Content);
}

const fs::path &Scenario::get_Folder() const
{
    return Folder;
}

std::string Scenario::make_MachineToml() const
{
    std::string Text = "name = \"scenario\"\n";
    if (Toml.find("[clock]") == std::string::npos) {
        Text += "[clock]\ndate = " + std::to_string(POWER_ON) + "\n";
    }
    Text += Toml;
    for (const ScenarioBoard &Board : Boards) {
        Text += make_BoardToml(Board);
    }
    return Text;
}

void Scenario::write_Config()
{
    const std::string Header = std::string{"4698\n"} + FILE_DATE + "\ntest\n0\n";
    std::vector<std::string> Lines{std::to_string(Boards.size())};
    std::transform(Boards.begin(), Boards.end(), std::back_inserter(Lines), make_ConfigLine);
    write_Text(Folder / "config/appl.conf", ApplConf.value_or(Header + join_Lines(Lines)));
    write_Text(Folder / "config/appl.protocols",
               ApplProtocols.value_or(Header + join_Lines(Protocols)));
    if (!Todo.empty() || ApplTodo) {
        write_Text(Folder / "config/appl.todo", ApplTodo.value_or(Header + join_Lines(Todo)));
        Todo.clear();
        ApplTodo.reset();
    }
}

// What later starts find as the earlier ones left it.
void Scenario::write_Storage()
{
    for (const char *Name : {"log", "slave_hw", "slave_sw"}) {
        fs::create_directories(Folder / "card" / Name);
    }
    for (const ScenarioBoard &Board : Boards) {
        qxdist::write_Folder(Folder / "boards" / Board.Name, make_Distribution(Board.Runs));
        if (Board.Stored) {
            store(Board.Runs);
        }
    }
    if (!Database.empty()) {
        const fs::path Path = Folder / "card/slave_hw/slaves_db.txt";
        write_Text(Path, "4699\n1700000001\n" + join_Lines(Database));
        if (std::system(("gzip -n " + quote(Path)).c_str()) != 0) {
            throw std::runtime_error{"gzip failed"};
        }
    }
}

ScenarioRun Scenario::run(const std::vector<std::string> &Options,
                          const std::vector<std::string> &Arguments)
{
    if (!Started) {
        write_Storage();
        Started = true;
    }
    write_Config();
    write_Text(Folder / "machine.toml", make_MachineToml());

    if (const char *const Loader = getenv("QX_PARALLEL_LOADER")) {
        run_InParallel(Loader, Folder, Options, Arguments);
    }
    const std::string Line = quote_All({QXSIM_PROGRAM, "--loader", QX_PROGRAM, "--quiet", "--keep",
                                        "--trace", Base / "trace", "--result", Base / "result"}) +
                             quote_All(Options) + quote_All({Folder, "--"}) + quote_All(Arguments) +
                             " >" + quote(Base / "output") + " 2>" + quote(Base / "errors");
    const auto Begin = std::chrono::steady_clock::now();
    const int WaitStatus = std::system(Line.c_str());

    ScenarioRun Run;
    Run.RealSeconds =
        std::chrono::duration<double>{std::chrono::steady_clock::now() - Begin}.count();
    Run.Exit = WIFEXITED(WaitStatus) ? WEXITSTATUS(WaitStatus) : -1;
    read_Result(Base / "result", Run);
    Run.Output = read_Text(Base / "output");
    Run.Errors = read_Text(Base / "errors");
    Run.Log = read_Text(Folder / "card/log/loader.log");
    Run.Trace = read_Text(Base / "trace");
    Run.Frames =
        read_Frames(Run.Trace, Run.Result.contains("date") ? std::stoll(Run.Result["date"]) : 0);
    for (const auto &Entry : fs::directory_iterator{Folder / "config"}) {
        Run.Files[Entry.path().filename()] = read_Text(Entry.path());
    }
    for (const auto &Entry : fs::directory_iterator{Folder / "card/slave_sw"}) {
        Run.Store.push_back(Entry.path().filename());
    }
    std::sort(Run.Store.begin(), Run.Store.end());
    return Run;
}

ScenarioRun Scenario::run_Expecting(const std::string &Outcome, const std::string &Report)
{
    ScenarioRun Run = run();
    EXPECT_EQ(Run.get_Outcome(), Outcome) << Run.Output << Run.Errors;
    EXPECT_NE((Run.Log + Run.Output + Run.Errors).find(Report), std::string::npos) << Report << "\n"
                                                                                   << Run.Output;
    return Run;
}

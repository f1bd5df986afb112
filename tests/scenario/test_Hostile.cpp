// Boards, archives and files that mean harm. Whatever they say, the loader touches nothing outside
// its working folders, gives the shell no command that it did not mean, and comes to its end.
#include "Findings.h"
#include "qxdist/Header.h"
#include <algorithm>
#include <functional>

namespace fs = std::filesystem;

namespace
{

// None of these may be taken.
const std::vector<std::string> NAMES{"../../bait",
                                     "/etc/passwd",
                                     "-rf",
                                     "$(touch${IFS}/tmp/x)",
                                     "a;touch\t/var/x",
                                     "`id`>/tmp/x",
                                     "|sh",
                                     "a b",
                                     "*a",
                                     "~root",
                                     "a\n../src/Loader 1 : FORGED",
                                     "\x1b[2J\x9b",
                                     "\r",
                                     "--checkpoint-action=exec=sh",
                                     std::string(129, 'n'),
                                     std::string(255, 'n')};
constexpr const char *BAITED[] = {"config", "vantrel", "vantrel/tmp", "vantrel/config", "card"};

// All that the loader may say to the shell; DIST is the name of a distribution that may be taken.
constexpr const char *COMMANDS[] = {
    "grep can /proc/modules",
    R"-(test -d "/home/user/vantrel(/tmp/|/config|/slave_sw|/slave_sw/tmp)?")-",
    R"(rm /var/vantrel/config/(appl\.todo|loader\.(conf|errors|protocols|todo)))",
    R"(rm -R (\*|tmp|/home/user/vantrel/slave_sw/tmp))",
    R"(rm /home/user/vantrel/slave_sw/(\*|DIST\.tar))",
    R"(rm /home/user/save/slave_sw/DIST\.tar\.gz)",
    R"(tar -cf \.\./DIST\.tar \*)",
    R"(gzip -f \.\./DIST\.tar)",
    R"(gunzip -f DIST\.tar\.gz)",
    R"(tar -xf \.\./DIST\.tar)",
    R"(cp "/home/user/vantrel/slave_sw/DIST\.tar\.gz" "/home/user/save/slave_sw")",
    R"(cp "/home/user/save/slave_sw/DIST\.tar\.gz" "/home/user/vantrel/slave_sw")",
};

// All that it may open or try to open; DIST as above, FILE is a file of a distribution.
constexpr const char *OPENED[] = {
    "/dev/cana",
    "/proc/mounts",
    R"(/var/vantrel/config/(appl\.(conf|protocols|todo)|loader\.(conf|errors|protocols|todo)))",
    R"(/mnt/cf/log/loader\.log(_TAIL)?)",
    R"(/mnt/cf/slave_sw/(DIST\.tar\.gz|\.DIST\.tar\.gz\.copying))",
    R"(/home/user/vantrel/slave_sw/(DIST\.tar(\.gz)?|tmp/FILE))",
};

// What a start may make, change or remove in the machine's folder; boards and state are qxsim's.
constexpr const char *PRODUCTS[] = {
    R"(state\.toml|boards/b\d+(/.*)?|boards/stranger)",
    R"(config/(appl\.todo|loader\.(conf|errors|protocols|todo)))",
    R"(card/log/loader\.log)",
    R"(card/slave_sw/(DIST\.tar\.gz|\.DIST\.tar\.gz\.copying))",
    R"(vantrel/slave_sw(/(DIST\.tar(\.gz)?|tmp(/FILE)?))?)",
};

// Whether one of Forms describes the whole of Text.
template <std::size_t N>
bool is_OneOf(const std::string &Text, const char *const (&Forms)[N])
{
    return std::any_of(std::begin(Forms), std::end(Forms), [&Text](const char *Form) {
        std::string Pattern =
            std::regex_replace(Form, std::regex{"DIST"}, "[\\w%:.][\\w%:.-]{0,38}");
        Pattern = std::regex_replace(Pattern, std::regex{"FILE"}, "[\\w.]{1,128}");
        return std::regex_match(Text, std::regex{Pattern});
    });
}

// Everything below Folder by path: files with their contents, folders, links and pipes.
std::map<std::string, std::string> read_Tree(const fs::path &Folder)
{
    std::map<std::string, std::string> Tree;
    for (const auto &Entry : fs::recursive_directory_iterator{Folder}) {
        const auto Kind = Entry.symlink_status().type();
        Tree[Entry.path().lexically_relative(Folder)] =
            Kind == fs::file_type::regular ? read_Text(Entry.path())
                                           : std::to_string(static_cast<int>(Kind));
    }
    return Tree;
}

// Header of version 1.2.3 with Lie at Offset; the files are listed only.
qxdist::Bytes make_Header(const std::string &Name, const std::vector<std::string> &Files,
                          std::size_t Offset, const qxdist::Bytes &Lie)
{
    using namespace qxdist;
    Header Made{{make_TypesRecord({20}),
                 {TAG_NAME, TYPE_TEXT, {Name.begin(), Name.end()}},
                 {11, TYPE_BYTES, {4, 1, 2, 2, 1, 1, 0, 0, 0}}},
                {}};
    for (const auto &[Tag, Value] : {std::pair{3, 1U}, {4, 2U}, {5, 3U}, {8, 1U}, {9, 1U}}) {
        Made.Records.push_back(make_ShortRecord(static_cast<std::uint8_t>(Tag), Value));
    }
    Made.Records.push_back(make_ShortRecord(TAG_INDEX_HIGH, 9));
    for (const std::string &File : Files) {
        Made.Files.push_back({File, 0});
    }
    qxdist::Bytes Written = qxdist::make_Header(Made);
    std::copy(Lie.begin(), Lie.end(), Written.begin() + static_cast<std::ptrdiff_t>(Offset));
    return Written;
}

struct HostileMachine : Scenario {
    HostileMachine()
    {
        for (const char *Name : BAITED) { // where ways out of the working folders lead to
            write_Text(get_Folder() / Name / "bait", "BAIT");
        }
    }

    MachineBoard &add()
    {
        const auto Number = static_cast<unsigned>(Boards.size());
        return add_Board("b" + std::to_string(Number), 2, 1 + Number);
    }

    // A board whose software is read out; the store has a good archive of what is expected.
    void upload(const std::string &Name, const std::vector<std::string> &Files,
                std::size_t Offset = 0, const qxdist::Bytes &Lie = {})
    {
        MachineBoard &Board = add();
        Board.Stored = false;
        Board.Runs.Header = make_Header(Name, Files, Offset, Lie);
        store(*(Board.Expected = Software{}));
    }

    // A board that is sent an archive of its own, to which Script has added members.
    void download(const std::string &File, const std::string &Script = "true",
                  std::size_t Offset = 0, const qxdist::Bytes &Lie = {})
    {
        MachineBoard &Board = add();
        Software Packed{"P" + std::to_string(Boards.size())};
        Packed.Header = make_Header(Packed.Name, {File}, Offset, Lie);
        store(*(Board.Expected = Packed));
        Board.Keys = "software_fault = 1\n";
        const std::string Store = get_Folder() / "card/slave_sw";
        const std::string Line =
            "cd " + Store + " && gunzip " + Packed.Name + ".* && " + Script + " && gzip *.tar";
        ASSERT_EQ(std::system(Line.c_str()), 0);
    }

    // A board, whose software the store lacks, that answers with faults of these keys.
    void fault(const std::string &Keys, int Number = 1)
    {
        MachineBoard &Board = add();
        Board.Stored = false;
        Board.Runs.Files["long"] = std::string(100'000, 'l');
        for (int i = 0; i < Number; ++i) {
            Board.Toml += "[[board.fault]]\n" + Keys + "\n";
        }
    }

    void flood(int Service, bool Known)
    {
        add();
        ApplConf = "4698\n1\nx\n0\n1\n3 cana 2 1 2 1 210 1 PUMP 1 2 3 20\n";
        (Known ? Boards[0] : add_Board("stranger", 4, 4)).Keys =
            "restart_ms = 0\nflood = " + std::to_string(Service) + "\n";
    }

    ScenarioRun check(const std::string &Outcome)
    {
        SCOPED_TRACE(Outcome);
        write();
        const auto Before = read_Tree(get_Folder());
        ScenarioRun Run = run({"--limit", "120"});
        EXPECT_EQ(Run.get_Outcome(), Outcome) << Run.Output << Run.Errors;
        EXPECT_EQ(("\n" + Run.Log).find("\n../src/Loader 1 "), std::string::npos);
        EXPECT_EQ(Run.Log.find_first_of("\x1b\r\x7f\x9b"), std::string::npos) << Run.Log;
        EXPECT_TRUE(Run.Result.contains("opened.1") && Run.Result.contains("shell.1"));
        for (const auto &[Key, Value] : Run.Result) {
            EXPECT_FALSE(Key.starts_with("stray.")) << Value;
            EXPECT_TRUE(!Key.starts_with("shell.") || is_OneOf(Value, COMMANDS)) << Value;
            EXPECT_TRUE(!Key.starts_with("opened.") || is_OneOf(Value, OPENED)) << Value;
        }
        std::map<std::string, std::string> After = read_Tree(get_Folder());
        for (const auto &[Path, Content] : Before) {
            EXPECT_TRUE(After.contains(Path) || is_OneOf(Path, PRODUCTS)) << "removed " << Path;
        }
        for (const auto &[Path, Content] : After) {
            const auto Old = Before.find(Path);
            const bool Kept = Old != Before.end() && Old->second == Content;
            EXPECT_TRUE(Kept || is_OneOf(Path, PRODUCTS)) << "made or changed " << Path;
        }
        return Run;
    }
};

// One machine for cases that cannot share one.
void check_Alone(const std::string &Outcome, const std::function<void(HostileMachine &)> &Prepare)
{
    HostileMachine Machine;
    Prepare(Machine);
    Machine.check(Outcome);
}

} // namespace

// A name that reaches a path or the shell unchecked, from any of its ways in.
TEST(Hostile, Names)
{
    HostileMachine Said;
    HostileMachine Named;
    HostileMachine Read;
    HostileMachine Sent;
    for (const std::string &Name : NAMES) {
        Said.upload(Name, {});
        Named.upload(Name, {}); // the board itself says another name than its header
        Named.Boards.back().SoftwareItems[2] = "\"PUMR\"";
        Read.upload("PUMQ", {Name});
        Sent.download(Name);
        if (Name.find_first_of(" \n\t\r") == std::string::npos) {
            Read.Todo.push_back("cana 2 " + std::to_string(Read.Boards.size()) + " " + Name);
        }
    }
    const auto count = [](const ScenarioRun &Run, const char *Report) {
        return join_Matches(Run.Log, Report).size() / 2;
    };
    EXPECT_EQ(count(Said.check("0 started"), " Erreur : -89(5)$"), NAMES.size());
    EXPECT_EQ(count(Named.check("0 started"), "_FromSheader\\(\\) = -49(5)$"), NAMES.size());
    EXPECT_EQ(count(Read.check("0 started"), "nom de fichier : (0)$"), NAMES.size());
    Sent.check("0 needing=16");
    for (const std::string &Name : {NAMES[0], NAMES[2], NAMES[3], NAMES[14]}) {
        check_Alone("-489 501",
                    [&](auto &Machine) { Machine.add().Expected = Software{.Name = Name}; });
    }
}

// A length or a count of a header that is believed, a link that is followed.
TEST(Hostile, Archives)
{
    HostileMachine Read;
    Read.upload("PUM:b", {}); // a remote archive for tar
    Read.upload("", {});
    Read.upload("PUM%s%n%n", {});
    Read.upload("PUMQ", {}, 63, {0x80, 0, 5, 2, 2, 0xFF, 0xFF}); // versions 32768 and 65535
    Read.upload(std::string(128, 'n'), {});
    Read.add().Expected.emplace().Version = {32768, 65535, 3};
    Read.upload(".x", {}); // the last one: what it leaves ends the phase
    Read.check("0 started");
    check_Alone("-892", [](auto &Machine) {
        Machine.upload("PUMP", {});
        Machine.Boards[0].SoftwareItems = {{3, "{ short = -32768 }"}, {4, "{ short = -1 }"}};
    });
    check_Alone("129", [](auto &Machine) { Machine.upload("PUMQ", {std::string(128, 'n')}); });

    HostileMachine Refused;
    Refused.download("f", "true", 2, {0xFF, 0xFF});            // header's size
    Refused.download("sheader.bin", "true", 16, {0xFF, 0xFF}); // number of files
    Refused.check("0 needing=2");

    // Each ends the phase.
    check_Alone("0 started", // number of records
                [](auto &Machine) {
                    Machine.download("f", "true", 10, {0xFF, 0xFF});
                });
    const std::pair<std::string, const char *> ADDED[] = {
        {std::string(128, 'n'), "true"},
        {"f", "ln -s ../../bait f && tar -rf *.tar f && rm f"},
        {"d/bait", "ln -s ../.. d && tar -rf *.tar d && rm d"},
        {"f", "mkfifo f && tar -rf *.tar f && rm f"},
        {"f", "touch f && tar -rPf *.tar --transform s,f,../../f, f && "
              "tar -rPf *.tar --transform s,f,/tmp/f, f && rm f"},
    };
    for (const auto &Each : ADDED) {
        check_Alone("0 started", [&](auto &Machine) { Machine.download(Each.first, Each.second); });
    }
}

// A length or an answer that is believed, answers without end.
TEST(Hostile, Answers)
{
    const std::string LENGTH = "kind = \"wrong_length\"\ncode = 255\nservice = 24\nfunction = ";
    const std::string SIZE = "kind = \"wrong_value\"\nservice = 25\nfunction = 0\nbytes = ";
    HostileMachine Hardware;
    Hardware.fault(LENGTH + "0\ntag = 4"); // identity
    Hardware.add().HardwareItems[4] = R"("\n../src/Loader 1 : FORGED\u001b[2J\u007f")";
    Hardware.check("0 replace=2");

    HostileMachine Files;
    Files.fault(SIZE + "\"7F FF FF FF\"");
    Files.fault(SIZE + "\"00 00 00 01\"");
    Files.check("0 needing=2");
    HostileMachine Lengths;
    Lengths.fault(LENGTH + "0\ntag = 1");  // type map
    Lengths.fault(LENGTH + "1\ntag = 11"); // protocols
    Lengths.check("0 started");

    check_Alone("0 replace=1 needing=1",
                [&](auto &Machine) { Machine.fault(LENGTH + "1\ntag = 2"); }); // name
    check_Alone("exit 124",
                [](auto &Machine) { Machine.fault("kind = \"already_open\"\nservice = 25"); });
    std::string Chunk;
    for (int i = 0; i < 766; ++i) {
        Chunk += " 41";
    }
    HostileMachine Endless; // a file that never ends
    const std::string READ = "\n[[board.fault]]\nservice = 25\nfunction = 2\nkind = ";
    Endless.fault(SIZE + "\"7F FF FF FF\"" + READ + "\"no_data\"" + READ +
                  "\"wrong_value\"\nbytes = \"" + Chunk.substr(1) + "\"");
    Endless.check("exit 124");
    EXPECT_GT(fs::file_size(Endless.get_Folder() / "vantrel/slave_sw/tmp/sheader.bin"), 100'000U);
    check_Alone("-1 addresse=1", [](auto &Machine) {
        Machine.fault("kind = \"unsolicited\"\nservice = 22\nfunction = 0\nnth = 1", 126);
    });
    const std::tuple<const char *, int, bool> Floods[] = {
        {"1", 22, true}, {"1", 31, true}, {"0 timeout=1", 22, false}, {"0 started", 31, false}};
    for (const auto &[Outcome, Service, Known] : Floods) {
        HostileMachine Machine;
        Machine.flood(Service, Known);
        const ScenarioRun Run = Machine.check(Outcome);
        const double Load = std::stod(Run.Result.at("bus.busy_ns"));
        EXPECT_GT(Load, 0.98 * std::stod(Run.Result.at("time_ns"))) << Outcome;
    }
}

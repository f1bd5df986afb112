// Boards, archives and files that mean harm. Whatever they say, the loader touches nothing outside
// its working folders, gives the shell no command that it did not mean, and comes to its end.
#include "qxdist/Header.h"
#include "Scenario.h"
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <regex>

namespace fs = std::filesystem;

namespace
{

// None of these may be taken.
const std::string NAMES[] = {"../../bait",
                             "/etc/passwd",
                             "-rf",
                             "$(touch${IFS}/tmp/x)",
                             "a;touch\t/var/x",
                             "`id`>/tmp/x",
                             "|sh",
                             "a b",
                             "*",
                             "~root",
                             "a\n../src/Loader 1 : FORGED",
                             "\x1b[2J\x9b",
                             "\r",
                             "--checkpoint-action=exec=sh",
                             std::string(129, 'n'),
                             std::string(255, 'n')};
constexpr const char *BAITED[] = {"config", "vantrel", "vantrel/tmp", "vantrel/config", "card"};

const std::regex COMMAND{std::regex_replace(
    std::string{R"(grep can /proc/modules|test -d "/home/user/vantrel[/\w]*"|rm -R (\*|tmp)|)"
                R"(cp "/home/user/\w+/slave_sw/@\.tar\.gz" "/home/user/(save|vantrel)/slave_sw"|)"
                R"(rm -R /home/user/vantrel/slave_sw/tmp|rm /home/user/save/slave_sw/@\.tar\.gz|)"
                R"(rm /home/user/vantrel/slave_sw/(\*|@\.tar)|rm /var/vantrel/config/\w+\.\w+|)"
                R"(gunzip -f @\.tar\.gz|gzip -f \.\./@\.tar|tar -(cf|xf) \.\./@\.tar( \*)?)"},
    std::regex{"@"}, R"([\w.:%][-\w.:%]*)")};
const std::regex PRODUCT{R"((machine|state).toml|boards.*|config(/(appl|loader)\.\w+)?|.*/bait|)"
                         R"(card(/(log(/loader\.log)?|slave_hw|slave_sw(/[-\w.:%]+\.gz)?))?|)"
                         R"(vantrel(/(tmp|config|slave_sw.*))?)"};
const std::regex FORGED{"\n../src/Loader 1 |[\x01-\x08\x0b-\x1f\x7f\x9b]"};

// Header of PUMP.1.2.3, but for the name; the files are listed only.
qxdist::Bytes make_Header(const std::string &Name, const std::vector<std::string> &Files)
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
    return qxdist::make_Header(Made);
}

using Prepare = std::function<void(Scenario &)>;

// Lie stands at Offset of the header.
qxdist::Bytes make_Lie(const std::string &Name, const std::vector<std::string> &Files,
                       std::size_t Offset, const qxdist::Bytes &Lie)
{
    qxdist::Bytes Header = make_Header(Name, Files);
    std::copy(Lie.begin(), Lie.end(), Header.begin() + static_cast<std::ptrdiff_t>(Offset));
    return Header;
}

// The board's software is read out; the store has a good archive of what is expected.
Prepare upload(const std::string &Name, const std::vector<std::string> &Files,
               std::size_t Offset = 0, const qxdist::Bytes &Lie = {})
{
    return [=](Scenario &Machine) {
        Machine.Boards[0].Stored = false;
        Machine.Boards[0].Runs.Header = make_Lie(Name, Files, Offset, Lie);
        Machine.Boards[0].Expected = Software{};
        Machine.store(Software{});
    };
}

// An archive, to which Script has added members, is sent to the board.
Prepare download(const std::string &File, const std::string &Script = "true",
                 std::size_t Offset = 0, const qxdist::Bytes &Lie = {})
{
    return [=](Scenario &Machine) {
        Software Packed;
        Packed.Version = {1, 2, 4};
        Packed.Header = make_Lie("PUMP", {File}, Offset, Lie);
        Machine.store(Packed);
        Machine.Boards[0].Expected = Packed;
        Machine.Boards[0].Keys = "software_fault = 1\n";
        const std::string Store = Machine.get_Folder() / "card/slave_sw";
        const std::string Line = "cd " + Store + " && gunzip *.gz && " + Script + " && gzip *.tar";
        ASSERT_EQ(std::system(Line.c_str()), 0);
    };
}

// The board, whose software the store lacks, answers with faults of these keys.
Prepare fault(const std::string &Keys, int Number = 1)
{
    return [=](Scenario &Machine) {
        Machine.Boards[0].Stored = false;
        Machine.Boards[0].Runs.Files["long"] = std::string(100'000, 'l');
        for (int i = 0; i < Number; ++i) {
            Machine.Boards[0].Toml += "[[board.fault]]\n" + Keys + "\n";
        }
    };
}

Prepare flood(int Service, bool Known)
{
    return [=](Scenario &Machine) {
        Machine.ApplConf = "4698\n1\nx\n0\n1\n3 cana 2 17 2 17 210 1 PUMP 1 2 3 20\n";
        (Known ? Machine.Boards[0] : Machine.add_Board("stranger", 4, 4)).Keys =
            "flood = " + std::to_string(Service) + "\n";
    };
}

void run(const std::string &Trace, const std::string &Outcome, const Prepare &Prepared)
{
    SCOPED_TRACE(Trace);
    Scenario Machine;
    for (const char *Name : BAITED) { // where ways out of the working folders lead to
        fs::create_directories(Machine.get_Folder() / Name);
        std::ofstream{Machine.get_Folder() / Name / "bait"} << "BAIT";
    }
    Machine.add_Board("left", 2, 17);
    Prepared(Machine);
    const ScenarioRun Run = Machine.run({"--limit", "120"});
    EXPECT_EQ(Run.get_Outcome(), Outcome) << Run.Output << Run.Errors;
    EXPECT_FALSE(std::regex_search(Run.Log, FORGED)) << Run.Log;
    for (const auto &[Key, Value] : Run.Result) {
        EXPECT_FALSE(Key.starts_with("stray.")) << Value;
        EXPECT_TRUE(!Key.starts_with("shell.") || std::regex_match(Value, COMMAND)) << Value;
    }
    for (const auto &Entry : fs::recursive_directory_iterator{Machine.get_Folder()}) {
        const std::string Path = Entry.path().lexically_relative(Machine.get_Folder());
        EXPECT_TRUE(std::regex_match(Path, PRODUCT)) << Path;
    }
    std::string Sent; // to files of the board
    for (const TracedFrame &Frame : Run.find_Frames(25, 0x41)) {
        Sent.append(Frame.Data.begin() + 1, Frame.Data.end());
    }
    EXPECT_EQ(Sent.find("BAIT"), std::string::npos);
    for (const char *Name : BAITED) {
        std::string Text;
        EXPECT_TRUE(std::ifstream{Machine.get_Folder() / Name / "bait"} >> Text && Text == "BAIT");
    }
}

} // namespace

// A name that reaches a path or the shell unchecked, from any of its ways in.
TEST(Hostile, Names)
{
    for (const std::string &Name : NAMES) {
        run("distribution " + Name, "0 started", upload(Name, {}));
        run("file " + Name, "0 started", upload("PUMQ", {Name}));
        run("archive " + Name, "0 needing=1", download(Name));
        if (Name.find_first_of(" \n\t\r") == std::string::npos) {
            run("appl.conf " + Name, "-489 501",
                [&](Scenario &Machine) { Machine.Boards[0].Expected = Software{.Name = Name}; });
            run("appl.todo " + Name, "0 started",
                [&](Scenario &Machine) { Machine.Todo = {"cana 2 17 " + Name}; });
        }
    }
}

// A length, a count or an answer that is believed, a link that is followed.
TEST(Hostile, AnswersAndArchives)
{
    const std::string LENGTH = "kind = \"wrong_length\"\ncode = 255\nservice = 24\nfunction = ";
    const std::string SIZE = "kind = \"wrong_value\"\nservice = 25\nfunction = 0\nbytes = ";
    constexpr std::size_t VERSION = 30 + 6 + 7 + 12 + 8; // the sub-version's value in the header
    const std::string ASKED = "service = 22\nfunction = 0\nnth = 1\n";
    const std::tuple<const char *, const char *, Prepare> Cases[] = {
        {"a remote archive for tar", "0 started", upload("PUM:b", {})},
        {"a hidden archive", "0 started", upload(".x", {})},
        {"an empty name", "0 started", upload("", {})},
        {"formats", "0 started", upload("PUM%s%n%n", {})},
        {"name of 128", "129", upload("PUMQ", {std::string(128, 'n')})},
        {"versions 32768 and 65535", "0 started",
         upload("PUMQ", {}, VERSION, {0x80, 0, 5, 2, 2, 0xFF, 0xFF})},
        {"header's size", "0 needing=1", download("f", "true", 2, {0xFF, 0xFF})},
        {"number of records", "0 started", download("f", "true", 10, {0xFF, 0xFF})},
        {"number of files", "0 needing=1", download("sheader.bin", "true", 16, {0xFF, 0xFF})},
        {"identity's length", "0 replace=1", fault(LENGTH + "0\ntag = 4")},
        {"type map's length", "0 started", fault(LENGTH + "0\ntag = 1")},
        {"name's length", "0 replace=1 needing=1", fault(LENGTH + "1\ntag = 2")},
        {"protocols' length", "0 started", fault(LENGTH + "1\ntag = 11")},
        {"file of 2 GiB", "0 needing=1", fault(SIZE + "\"7F FF FF FF\"")},
        {"file longer than it says", "0 needing=1", fault(SIZE + "\"00 00 00 01\"")},
        {"already open for ever", "exit 124", fault("kind = \"already_open\"\nservice = 25")},
        {"126 unasked", "-1 addresse=1", fault("kind = \"unsolicited\"\n" + ASKED, 126)},
        {"flood first", "1", flood(22, true)},
        {"flood last", "1", flood(31, true)},
        {"stranger's flood first", "0 timeout=1", flood(22, false)},
        {"stranger's flood last", "0 started", flood(31, false)},
        {"link", "0 started", download("f", "ln -s ../../bait f && tar -rf *.tar f && rm f")},
        {"folder's link", "0 started",
         download("d/bait", "ln -s ../.. d && tar -rf *.tar d && rm d")},
        {"pipe", "0 started", download("f", "mkfifo f && tar -rf *.tar f && rm f")},
        {"members outside", "0 started",
         download("f", "touch f && tar -rPf *.tar --transform s,f,../../f, f && "
                       "tar -rPf *.tar --transform s,f,/tmp/f, f && rm f")},
        {"forged line", "0 replace=1",
         [](Scenario &Machine) {
             Machine.Boards[0].HardwareItems[4] = R"("\n../src/Loader 1 : FORGED\u001b[2J\u007f")";
         }},
    };
    for (const auto &[Trace, Outcome, Prepared] : Cases) {
        run(Trace, Outcome, Prepared);
    }
}

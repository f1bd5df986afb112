#include "board/Board.h"
#include "Station.h"
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace
{

using Bytes = std::vector<std::uint8_t>;

// The board of these tests is type 2, number 3. A command to it has 1883F0 below the service, its
// answer 0FC620; with the multi-frame flag 1883F8 and 0FC628.
BoardSpec make_Spec()
{
    BoardSpec Spec;
    Spec.Name = "pump";
    Spec.BoardType = 2;
    Spec.BoardNumber = 3;
    Spec.HardwareFault = 4;
    Spec.SoftwareFault = 5;
    Spec.Items[{0, 4}] = {0x82, {0x12, 0x34}};
    Spec.Items[{1, 2}] = {5, {'P', 'U', 'M', 'P', '_', 'A', 'B', 'C'}};
    Spec.Items[{1, 11}] = {6, {2, 1, 3}};
    Spec.Files["dir/f"] = {0xA0, 0xA1, 0xA2};
    return Spec;
}

const std::vector<BoardSpec> NOBODY;

// What the board sends of itself from Now on, one frame a line.
Texts collect(Board &Asked, Time Now)
{
    Asked.advance_To(Now);
    Texts Frames;
    while (const Frame *Pending = Asked.get_PendingFrame(Now)) {
        Frames.push_back(show_Frame(*Pending));
        Asked.remove_PendingFrame(Now);
    }
    return Frames;
}

// The answer to a command of one or more frames, 1 ms later.
Texts ask(Board &Asked, const Texts &Command, Time Now = 0ms)
{
    for (const std::string &Text : Command) {
        Asked.receive_Frame(read_Frame(Text), Now);
    }
    return collect(Asked, Now + 1ms);
}

// Each exchange: "command frames > answer frames".
void check(Board &Asked, const Texts &Exchanges)
{
    for (const std::string &Exchange : Exchanges) {
        std::istringstream Words{Exchange};
        std::string Word, Seen;
        while (Words >> Word && Word != ">") {
            Asked.receive_Frame(read_Frame(Word), 0ms);
            Seen += Word + " ";
        }
        Seen += ">";
        for (const std::string &Answer : collect(Asked, 1ms)) {
            Seen += " " + Answer;
        }
        EXPECT_EQ(Seen, Exchange);
    }
}

// Writes a small file as the master does; the frames of its name are given.
void download(Board &To, const Texts &Open, const Bytes &Content)
{
    ask(To, Open);
    for (const std::uint8_t Byte : Content) {
        char Text[24];
        std::snprintf(Text, sizeof Text, "191883F0#41%02X", Byte);
        ask(To, {Text});
    }
    EXPECT_EQ(ask(To, {"191883F0#44"}), (Texts{"190FC620#0400"}));
}

const Texts OPEN_SHEADER = {"191883F8#4082017368656164", "191883F8#400165722E62696E",
                            "191883F8#400000"};

} // namespace

// Commands for others, and frames that are not the master's, must not be answered; a frame of a
// group must be.
TEST(Board, Addressing)
{
    Board Pump{make_Spec(), NOBODY};
    check(Pump, {"161883F0#40 > 160FC620#0000",
                 "160083F0#40 > 160FC620#0000",                  // type 2
                 "160003F0#40 > 160FC620#0000",                  // all
                 "161903F0#40 >",                                // type 4
                 "162083F0#40 >",                                // number 4
                 "161803F0#40 >",                                // number 3 of no type
                 "161883E0#40 >",                                // from type 30
                 "161883F0#00 >",                                // no answer is wanted
                 "161883F0# >", "1F1883F0#41 > 1F0FC620#4180"}); // no such service
    EXPECT_EQ(Pump.get_NbCommands(), 5U);

    BoardSpec Absent = make_Spec();
    Absent.Present = false;
    Board Gone{Absent, NOBODY};
    EXPECT_EQ(ask(Gone, {"160003F0#40"}), Texts{});
}

// Each function of service 22, its bytes and what it leaves behind.
TEST(Board, StateService)
{
    Board Pump{make_Spec(), NOBODY};
    check(Pump, {"161883F0#41 > 160FC620#0100000405", "161883F0#4202 > 160FC620#0200",
                 "161883F0#4203 > 160FC620#4280", "161883F0#41 > 160FC620#0100020405",
                 "161883F8#4581020301040000 161883F8#4500012C > 160FC620#0500",
                 "161883F0#41 > 160FC620#0100030405", "161883F0#46 > 160FC620#4680",
                 // number 9, type 7: answered from the old address, then only the new one counts
                 "161883F0#440907 > 160FC620#0400", "161883F0#40 >", "1649C3F0#40 > 160FD270#0000",
                 "1649C3F0#442001 > 160FD270#4480", // no number 32
                 "1649C3F0#430000 > 160FD270#0300"});
    EXPECT_EQ(Pump.get_StartParameters(), (Bytes{2, 3, 1, 4, 0, 0, 1, 0x2C}));
    EXPECT_EQ(Pump.get_State(), BoardState::Restarting);
    EXPECT_STREQ(get_BoardStateName(Pump.get_State()), "restarting");
    // 600 ms of silence at any address, then the physical one
    EXPECT_EQ(Pump.get_NextTime(), std::optional<Time>{600ms});
    EXPECT_EQ(ask(Pump, {"160003F0#40"}, 599ms), Texts{});
    EXPECT_EQ(ask(Pump, {"161883F0#41"}, 600ms), (Texts{"160FC620#0100000405"}));
}

// An answer before its time or never; a restart that leaves an older
// answer, half a command or an open file behind.
TEST(Board, TimeOfAnswers)
{
    Board Pump{make_Spec(), NOBODY};
    Pump.receive_Frame(read_Frame("161883F0#40"), 10ms);
    EXPECT_EQ(Pump.get_NextTime(), std::optional<Time>{10500us});
    EXPECT_EQ(collect(Pump, 10499us), Texts{});
    EXPECT_EQ(collect(Pump, 10500us), (Texts{"160FC620#0000"}));
    EXPECT_EQ(Pump.get_NextTime(), std::nullopt);

    EXPECT_EQ(ask(Pump, {"191883F0#40006469722F6600"}, 20ms).size(), 1U);
    ask(Pump, {"181883F8#6081010806112233"}, 30ms);
    EXPECT_EQ(ask(Pump, {"161883F0#41", "161883F0#430000"}, 31ms), (Texts{"160FC620#0300"}));
    EXPECT_EQ(ask(Pump, {"181883F8#60004455667788"}, 700ms), Texts{});
    EXPECT_EQ(ask(Pump, {"191883F0#44"}, 700ms), (Texts{"190FC620#4481"}));
}

// Groups that are mixed up, signs and lengths, answers and commands of two frames.
TEST(Board, InformationService)
{
    Board Pump{make_Spec(), NOBODY};
    check(Pump, {"181883F0#4004 > 180FC620#00000402821234", "181883F0#4104 > 180FC620#4180",
                 "181883F0#4004FF > 180FC620#00000402821234", "181883F0#40 > 180FC620#4080",
                 "181883F0#4102 > 180FC628#0181000208055055 180FC628#01004D505F414243",
                 // write 8 bytes as item 1, then read them
                 "181883F8#6081010806112233 181883F8#60004455667788 > 180FC620#2000",
                 "181883F0#4001 > 180FC628#0081000108061122 180FC628#0000334455667788",
                 "181883F0#6001030611 > 180FC620#6081", // says 3 bytes, has 2
                 "181883F0#6001010677 > 180FC620#2000", "181883F0#4001 > 180FC620#000001010677"});
}

// Continuations that must not be taken: without a start, out of order, of another message.
TEST(Board, BrokenCommands)
{
    Board Pump{make_Spec(), NOBODY};
    const std::string Start = "181883F8#6081010806112233 ";
    check(Pump, {"181883F8#60004455667788 >", Start + "181883F8#60014455667788 >",
                 "181883F8#60004455667788 >", // the start is forgotten by then
                 Start + "180003F8#60004455667788 >", Start + "181883F8#61004455667788 >",
                 "181883F8#60 >", Start + Start + "181883F8#60004455667788 > 180FC620#2000",
                 "181883F8#608001010699 > 180FC620#2000"}); // N = 0: complete at once
    EXPECT_EQ(Pump.get_NbCommands(), 2U);
}

// Every function of service 25 with every status it gives.
TEST(Board, FileService)
{
    Board Pump{make_Spec(), NOBODY};
    check(Pump, {"191883F0#40006E00 > 190FC620#4080", // no file "n"
                 "191883F0#4000 > 190FC620#4083",     // no name
                 "191883F0#40016E > 190FC620#4083",   // no NUL
                 "191883F0#40036E00 > 190FC620#4083", // no mode 3
                 "191883F0#40012F6E00 > 190FC620#4083",
                 "191883F0#40012E2E2F6E00 > 190FC620#4083",
                 "191883F0#44 > 190FC620#4481",
                 "191883F0#42FFFF > 190FC620#4281",
                 "191883F0#4111 > 190FC620#4183",
                 "191883F0#40006469722F6600 > 190FC620#000000000003",
                 "191883F0#40006469722F6600 > 190FC620#4082",
                 "191883F0#420002 > 190FC620#0200A0A1",
                 "191883F0#4111 > 190FC620#4183", // open for reading
                 "191883F0#4202FE > 190FC620#0200A2",
                 "191883F0#4202FE > 190FC620#4285",
                 "191883F0#4301FFFFFFFE > 190FC620#0300", // 2 back
                 "191883F0#420001 > 190FC620#0200A1",
                 "191883F0#430200000001 > 190FC620#4383", // beyond the end
                 "191883F0#44 > 190FC620#0400",
                 "191883F0#40026469722F6600 > 190FC620#000000000003", // append
                 "191883F0#41B0B1 > 190FC620#0100",
                 "191883F0#420001 > 190FC620#4283", // open for writing
                 "191883F0#430000000001 > 190FC620#0300",
                 "191883F0#41C1 > 190FC620#0100",
                 "191883F0#41 > 190FC620#0100", // nothing to write
                 "191883F0#44 > 190FC620#0400",
                 "191883F0#40016E00 > 190FC620#000000000000",
                 "191883F0#45 > 190FC620#4580"});
    EXPECT_EQ(Pump.get_Spec().Files.at("dir/f"), (Bytes{0xA0, 0xC1, 0xA2, 0xB0, 0xB1}));
    EXPECT_EQ(Pump.get_Spec().Files.at("n"), Bytes{});
}

// A distribution takes effect with its last file, not before; a broken header never does.
TEST(Board, Download)
{
    const Bytes Header = {0x06, 0x01, 0, 0,   0,   68, 0, 0, 0, 30, 0, 3,    0, 0,
                          0,    42,                                                // to offset 16
                          0,    2,    0, 0,   0,   0,  0, 0, 0, 0,  0, 0,    0, 0, // to offset 30
                          2,    2,    5, 'O', 'K', 3,  1, 1, 7, 4,  0, 0x81,       // three records
                          0,    0,    0, 0,   0,   0,  0, 0, 0, 0,  0, 'a',  0,    // "a"
                          0,    0,    0, 0,   0,   0,  0, 0, 0, 0,  0, 'b',  0};   // "b"
    const Texts OpenA = {"191883F0#40016100"};
    const Texts OpenB = {"191883F0#40016200"};

    // Cut short, a wrong signature, records and names that run out of the file, an offset outside.
    const std::pair<std::size_t, std::uint8_t> Damages[] = {{5, 67},  {1, 2},  {11, 99},
                                                            {67, 65}, {17, 3}, {15, 68}};
    for (const auto &[Offset, Value] : Damages) {
        Board Pump{make_Spec(), NOBODY};
        Bytes Broken = Header;
        Broken[Offset] = Value;
        download(Pump, OPEN_SHEADER, Broken);
        download(Pump, OpenA, {1});
        download(Pump, OpenB, {2});
        EXPECT_EQ(Pump.get_NbDownloads(), 0U) << Offset;
        EXPECT_EQ(Pump.get_Spec().Items, make_Spec().Items) << Offset;
        EXPECT_EQ(Pump.get_Spec().SoftwareFault, 5) << Offset;
    }

    Board Pump{make_Spec(), NOBODY};
    download(Pump, OPEN_SHEADER, Header);
    download(Pump, OpenB, {2});
    EXPECT_EQ(Pump.get_NbDownloads(), 0U);
    download(Pump, OpenA, {1});
    EXPECT_EQ(Pump.get_NbDownloads(), 1U);
    const ItemTable Expected = {{{0, 4}, {0x82, {0x12, 0x34}}},
                                {{1, 2}, {5, {'O', 'K'}}},
                                {{1, 3}, {1, {7}}},
                                {{1, 4}, {0x81, {}}}};
    EXPECT_EQ(Pump.get_Spec().Items, Expected);
    EXPECT_EQ(ask(Pump, {"161883F0#41"}), (Texts{"160FC620#0100000400"}));
    download(Pump, OpenA, {3}); // a file alone is no distribution
    EXPECT_EQ(Pump.get_NbDownloads(), 1U);
}

// What each fault makes of an answer, but for those on which the outcome of a scenario depends.
TEST(Board, Faults)
{
    const Texts Read = {"181883F0#4004"};
    const Texts ReadText = {"181883F0#4102"};
    const std::string Good = "180FC620#00000402821234";
    const std::string Text0 = "180FC628#0181000208055055";
    const std::string Text1 = "180FC628#01004D505F414243";
    const struct {
        FaultKind Kind;
        std::uint8_t Code;
        Bytes Values;
        Texts Command;
        Texts Answer;
    } CASES[] = {
        {FaultKind::Late, 0, {}, Read, {}}, // 2 ms late
        {FaultKind::Duplicate, 0, {}, ReadText, {Text0, Text1, Text0, Text1}},
        {FaultKind::WrongType, 6, {}, Read, {"180FC620#00000402061234"}},
        {FaultKind::WrongLength, 200, {}, Read, {"180FC620#000004C8821234"}},
        {FaultKind::WrongValue, 0, {0x77}, Read, {"180FC620#000004018277"}},
        {FaultKind::WrongValue, 0, {1, 0, 9}, {"161883F0#41"}, {"160FC620#0100010009"}},
        {FaultKind::WrongCounter, 0, {}, ReadText, {Text0, "180FC628#01014D505F414243"}},
        {FaultKind::LoneContinuation, 0, {}, Read, {"180FC628#0000000000000000", Good}},
        {FaultKind::Truncated, 0, {}, Read, {"180FC620#000004028212"}},
        {FaultKind::Truncated, 0, {}, ReadText, {Text0}},
        {FaultKind::OtherBoard, 0, {}, Read, {"180FC850#00000402821234"}}, // type 5, number 4
        {FaultKind::OtherBoard, 0, {5, 6}, Read, {"180FCC50#00000402821234"}},
        {FaultKind::Unsolicited, 0, {}, Read, {"180FC620#3F00", Good}},
        // faults that do not fit the answer
        {FaultKind::WrongType, 6, {}, {"181883F0#4009"}, {"180FC620#4080"}},
        {FaultKind::WrongCounter, 0, {}, Read, {Good}},
    };
    BoardSpec Other = make_Spec();
    Other.Name = "fan";
    Other.BoardType = 5;
    Other.BoardNumber = 4;
    const std::vector<BoardSpec> Machine = {Other};
    for (const auto &Case : CASES) {
        BoardSpec Spec = make_Spec();
        Spec.Faults = {{Case.Kind, {}, {}, {}, 0, Case.Code, 2ms, Case.Values, "fan"}};
        Board Pump{Spec, Machine};
        EXPECT_EQ(ask(Pump, Case.Command), Case.Answer) << static_cast<int>(Case.Kind);
        const Texts Later = Case.Kind == FaultKind::Late ? Texts{Good} : Texts{};
        EXPECT_EQ(collect(Pump, 2500us), Later) << static_cast<int>(Case.Kind);
    }
}

// A fault that strikes other commands than those it names, or more often.
TEST(Board, FaultsOfChosenCommands)
{
    BoardSpec Spec = make_Spec();
    Spec.Faults = {{FaultKind::Error, 24, 0, 4, 2, 0x90, {}, {}, {}},
                   {FaultKind::Error, 22, 4, {}, 1, 0x82, {}, {}, {}}};
    Board Pump{Spec, NOBODY};
    const std::string Good = "181883F0#4004 > 180FC620#00000402821234";
    check(Pump, {Good, "181883F0#4104 > 180FC620#4180", // another function: not counted
                 "181883F0#4004 > 180FC620#4090", Good,
                 "161883F0#440907 > 160FC620#4482", // has not moved
                 Good});
}

// Any sequence of frames: nothing is read or written where it should not be, no frame that is no
// frame leaves the board, and the board still answers afterwards.
TEST(Board, AnyFrames)
{
    std::mt19937 Random{1};
    const auto draw = [&](unsigned Limit) { return static_cast<std::uint32_t>(Random() % Limit); };
    BoardSpec Spec = make_Spec();
    Spec.RestartTime = 1ms;
    for (int Kind = 0; Kind <= static_cast<int>(FaultKind::AlreadyOpen); ++Kind) {
        const unsigned Nth = 50U + static_cast<unsigned>(Kind) * 7;
        Spec.Faults.push_back(
            {static_cast<FaultKind>(Kind), {}, {}, {}, Nth, 9, 1ms, {1}, "nobody"});
    }
    Board Pump{Spec, NOBODY};
    Time Now{};
    for (int i = 0; i < 100'000; ++i) {
        Frame Next;
        Next.Identifier = (22 + draw(4)) << 24 | (draw(2) == 0 ? 0x1883F0U : 0x3F0U) | draw(2) << 3;
        if (draw(20) == 0) {
            Next.Identifier = static_cast<std::uint32_t>(Random());
        }
        Next.Length = static_cast<std::uint8_t>(draw(50) == 0 ? draw(256) : draw(9));
        for (std::uint8_t &Byte : Next.Data) {
            Byte = static_cast<std::uint8_t>(draw(3) == 0 ? draw(256) : draw(4) | draw(2) << 6);
        }
        Pump.receive_Frame(Next, Now);
        Now += 300us;
        for (const std::string &Sent : collect(Pump, Now)) {
            ASSERT_TRUE(Sent.size() >= 11 && Sent.size() <= 25) << Sent;
        }
    }
    EXPECT_GT(Pump.get_NbCommands(), 20'000U);
    ask(Pump, {"160003F0#430000"}, Now + 1s);
    EXPECT_EQ(ask(Pump, {"161883F0#40"}, Now + 2s), (Texts{"160FC620#0000"}));
}

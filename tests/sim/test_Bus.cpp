#include "Station.h"
#include <gtest/gtest.h>

// A wrong CRC, a stuff bit too many or too few. The figures were counted bit by bit on the written
// out frames.
TEST(Bus, FrameLengths)
{
    const struct {
        const char *Text;
        unsigned Unstuffed;
        unsigned Bits;
    } CASES[] = {
        // 0 x12, 11, 0 x25 and the CRC 100011000010000: stuff bits 2 + 5
        {"00000000#", 67, 74},
        // start of frame and 000, then alternating bits: none
        {"02AAAAAA#AAAAAAAAAAAAAAAA", 131, 131},
        {"00000000#0000000000000000", 131, 150},
        {"1FFFFFFF#FFFFFFFFFFFFFFFF", 131, 149},
        // runs of four that begin with a stuff bit: close to the worst that a frame can be
        {"0E0CFCF8#3C3C3C3C3C3C3C3C", 131, 155},
        // the CRC 101001010100000 ends with a fifth equal bit, which is still followed by one
        {"000E233B#", 67, 72},
        {"160003F0#40", 75, 81},
    };
    for (const auto &Case : CASES) {
        EXPECT_EQ(count_UnstuffedFrameBits(read_Frame(Case.Text)), Case.Unstuffed) << Case.Text;
        EXPECT_EQ(count_FrameBits(read_Frame(Case.Text)), Case.Bits) << Case.Text;
    }
    Frame TooLong = read_Frame("0AAAAAAA#AAAAAAAAAAAAAAAA");
    TooLong.Length = 200; // a damaged record must not be read beyond its 8 bytes
    EXPECT_EQ(count_FrameBits(TooLong), 131U);
}

// The order on the wire: lowest identifier, then the node attached first; a frame that becomes
// ready while the wire is busy contends at the end of the interframe space, not before.
TEST(Bus, Arbitration)
{
    Station Listener, Left, Right;
    Bus Wire{1'000'000}; // 1 us a bit
    Wire.attach_Node(Listener);
    Wire.attach_Node(Left);
    Wire.attach_Node(Right);
    Left.plan(100us, "0AAAAAAA#AAAAAAAAAAAAAAAA"); // 131 bits
    Left.plan(100us, "00000000#");                 // 74 bits, sent after its own first frame only
    Right.plan(100us, "15555555#5555555555555555");
    Right.plan(100us, "00000000#");
    Wire.advance_To(99us);
    EXPECT_EQ(Wire.get_NextTime(), std::optional<Time>{100us});
    EXPECT_TRUE(Listener.Received.empty());

    Wire.advance_To(1ms);
    // Frames end 3 bits before their length is over: 228 = 100 + 131 - 3, 302 = 100 + 131 + 74 - 3.
    const Texts Expected = {"228 0AAAAAAA#AAAAAAAAAAAAAAAA", "302 00000000#",
                            "433 15555555#5555555555555555", "507 00000000#"};
    EXPECT_EQ(Listener.Received, Expected);
    EXPECT_EQ(Right.Received, (Texts{Expected[0], Expected[1]})) << "a node hears itself";
    EXPECT_EQ(Wire.get_NextTime(), std::nullopt);

    // Both are ready in the interframe space of the last frame (up to 1072 us): the later one wins.
    Left.plan(1000us, "000E233B#"); // 72 bits
    Wire.advance_To(1068us);
    Left.plan(1069us, "15555555#5555555555555555");
    Right.plan(1070us, "0AAAAAAA#AAAAAAAAAAAAAAAA");
    Wire.advance_To(2ms);
    EXPECT_EQ(Listener.Received.at(5), "1200 0AAAAAAA#AAAAAAAAAAAAAAAA");

    Station Tied;
    Wire.attach_Node(Tied);
    Tied.plan(2ms, "00000000#01");
    Left.plan(2ms, "00000000#02");
    Wire.advance_To(3ms);
    EXPECT_EQ(Listener.Received.at(7).substr(5), "00000000#02");
    EXPECT_EQ(Listener.Received.at(8).substr(5), "00000000#01");
}

// What is measured and traced; a node's acceptance filter; steps that end in the middle of a frame.
TEST(Bus, LoadTraceAndFilter)
{
    Station Sender, Deaf;
    Deaf.Accepted = {0x3FF0, 0x3F0};
    Bus Wire{250'000}; // 4 us a bit
    Wire.attach_Node(Sender);
    Wire.attach_Node(Deaf);
    Texts Traced;
    Wire.set_Trace([&](const Frame &Sent, Time At) {
        Traced.push_back(std::to_string(At / 1us) + " " + show_Frame(Sent));
    });
    Sender.plan(0us, "00000000#");   // 74 bits
    Sender.plan(0us, "160003F0#40"); // 81 bits
    for (Time Until{}; Until <= 1ms; Until += 7us) {
        Wire.advance_To(Until);
    }
    EXPECT_EQ(Traced, (Texts{"284 00000000#", "608 160003F0#40"}));
    EXPECT_EQ(Deaf.Received, (Texts{"608 160003F0#40"}));
    EXPECT_EQ(Wire.get_Load().Frames, 2U);
    EXPECT_EQ(Wire.get_Load().Bits, 155U);
    EXPECT_EQ(Wire.get_Load().Busy, Time{620us});
    EXPECT_THROW(Bus{0}, std::invalid_argument);
}

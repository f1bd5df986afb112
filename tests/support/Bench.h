// A bench for tests of what talks to the boards: three boards on CAN A (types 1, 1 and 2) and a
// script that answers the commands on the spot, through the loader's own reassembly.
#ifndef QX_BENCH_H
#define QX_BENCH_H

#include "FakeCan.h"
#include "Init.h"
#include "InterfacesCan.h"
#include <cstdio>
#include <deque>
#include <gtest/gtest.h>
#include <string>

// "18 41 02" to bytes and back.
inline std::vector<uint8_t> from_Hex(const std::string &Text)
{
    std::vector<uint8_t> Bytes;
    for (size_t i = 0; i < Text.size(); i += 3)
        Bytes.push_back(static_cast<uint8_t>(std::stoi(Text.substr(i, 2), nullptr, 16)));
    return Bytes;
}

inline std::string to_Hex(const uint8_t *pBytes, int Count)
{
    std::string Text;
    char Byte[4];
    for (int i = 0; i < Count; i++) {
        snprintf(Byte, sizeof Byte, i == 0 ? "%02X" : " %02X", pBytes[i]);
        Text += Byte;
    }
    return Text;
}

// What a command's builder makes of its parameters for the slaves 5: "19 43 40: 02 FF", service and
// function hexadecimal, time-out, bytes. Cmd must be allocated.
template <typename... PARAMETERS>
std::string build(void (*Builder)(MSG *, BM_SLAVE_CAST, PARAMETERS...),
                  std::type_identity_t<PARAMETERS>... Parameters)
{
    Builder(&Cmd, 5, Parameters...);
    EXPECT_EQ(Cmd.Slaves, 5u);
    const uint8_t Head[] = {Cmd.MT, Cmd.Fn};
    return to_Hex(Head, 2) + " " + std::to_string(Cmd.TimeOut) + ": " + to_Hex(Cmd.pP, Cmd.NbP);
}

struct ANSWER {
    BM_SLAVE_CAST Sender;
    std::string Message; // hexadecimal: Fn, then the parameters; empty: silence
};

struct BENCH : testing::Test {
    SLAVE Boards[3] = {};
    BROADCAST Groups[FIRST_TYPE_GROUP] = {};
    std::deque<std::vector<ANSWER>> Script; // the answers to each command, in order; none: silence

    void SetUp() override
    {
        reset_FakeCan();
        FakeCan.TicksPerRead = 10; // a deadline of 40 ticks passes within a few polls
        FakeCan.OnSend = [this](const CAN_FRAME &Frame) { play_Script(Frame); };
        TimeoutMask = ReplaceSlavesMask = NoDistributionMask = 0;
        Slave = Boards;
        Broadcast = Groups;
        NbSlaves = 3;
        NbBroadcasts = FIRST_TYPE_GROUP;
        ASSERT_EQ(init_Variables(), 0);
        ASSERT_EQ(init_Interfaces(), 0); // no mask yet: it opens nothing
        Master = 1008;
        for (uint8_t i = 0; i < 3; i++) {
            Boards[i].Mask = BM_SLAVE_CAST{1} << i;
            Boards[i].Device = CAN_A;
            Boards[i].BoardType = i == 2 ? 2 : 1;
            Boards[i].BoardNumber = i == 1 ? 2 : 1;
        }
        Groups[BROADCAST_ALL].Mask = Groups[CAN_A].Mask = 7;
        Groups[CAN_A].Device = CAN_A;
        Device[CAN_A].File = 5;
    }

    void TearDown() override
    {
        Device[CAN_A].File = -10; // no receive thread to stop
        close_Interfaces();
        Slave = nullptr;
        Broadcast = nullptr;
    }

    // Every frame sent, "identifier#bytes".
    static std::vector<std::string> get_Sent()
    {
        std::vector<std::string> Sent;
        for (const CAN_FRAME &Frame : FakeCan.Sent) {
            char Identifier[16];
            snprintf(Identifier, sizeof Identifier, "%08X#",
                     static_cast<unsigned>(Frame.Identifier));
            Sent.push_back(Identifier + to_Hex(Frame.Data, Frame.Length));
        }
        return Sent;
    }

    void play_Script(const CAN_FRAME &Frame)
    {
        const bool Last = (Frame.Identifier & 8) == 0 || Frame.Data[1] == 0;
        if (!Last || Script.empty())
            return;
        const std::vector<ANSWER> Answers = Script.front();
        Script.pop_front();
        for (const ANSWER &Answer : Answers)
            receive(static_cast<uint8_t>(Frame.Identifier >> 24), Answer);
    }

    static void receive(uint8_t MT, const ANSWER &Answer)
    {
        const std::vector<uint8_t> Message = from_Hex(Answer.Message);
        CAN_FRAME Frame = make_AnswerFrame(MT, 1, 1, {});
        if (Message.empty())
            return;
        if (Message.size() <= 8) {
            Frame = make_AnswerFrame(MT, 1, 1, Message);
            fill_pAns(&Frame, &Answer.Sender);
            return;
        }
        const size_t Following = (Message.size() - 2) / 6;
        for (size_t k = 0; k <= Following; k++) {
            const auto Count = static_cast<uint8_t>(k == 0 ? 0x80 | Following : Following - k);
            std::vector<uint8_t> Data = {Message[0], Count};
            for (size_t i = 1 + 6 * k; i < Message.size() && i < 7 + 6 * k; i++)
                Data.push_back(Message[i]);
            Frame = make_AnswerFrame(MT, 1, 1, Data, true);
            fill_pAns(&Frame, &Answer.Sender);
        }
    }
};

#endif

// Frames into the reassembly, with the main thread's side in between. The input is a row of records
// of 13 bytes: identifier (least significant byte first), length, 8 data bytes. Identifier bit 31,
// which no frame on the bus has, marks a step of the main thread instead, chosen by bits 29 and 30;
// its command is for the sender that the identifier names.
//     0  looks for an answer to MT (of the identifier), Fn (data 0)
//     1  gives the answer that it holds back
//     2  clears all answers
//     3  reads the item data 1 of the group data 0; of several slaves, their protocols. The frames
//        up to the next step arrive between sending and waiting.
#include "InterfacesCan.h"
#include "MT_Info.h"
#include "Support.h"
#include <bit>
#include <cstring>

constexpr uint32_t ID_STEP = 1u << 31;

static const uint8_t *pNext;
static const uint8_t *pEnd;
static volatile uint8_t Sink; // what was read was there

// Takes the next record when it is of this kind: ID_STEP, or 0 for a frame.
static bool take_Record(uint32_t Kind, CAN_FRAME *pFrame)
{
    if (pEnd - pNext < 13 || (pNext[3] & 0x80) != Kind >> 24)
        return false;
    *pFrame = {};
    for (int i = 3; i >= 0; i--)
        pFrame->Identifier = pFrame->Identifier << 8 | pNext[i];
    pFrame->Length = pNext[4];
    memcpy(pFrame->Data, pNext + 5, 8);
    pNext += 13;
    return true;
}

// Every record of a class is in exactly one place: free, under reassembly, or complete.
static void ctrl_Store()
{
    for (int AnsSize = 0; AnsSize < NB_ANS; AnsSize++) {
        const int Mask = AnsDef[AnsSize].Mask;
        int Count = AnsTmp[AnsSize].Last;
        for (const ANS_RING *pRing : {&AnsFree[AnsSize], &AnsTransf[AnsSize]})
            Count += (pRing->Last.load() - pRing->First.load()) & Mask;
        require(Count == Mask, "answer records lost or doubled");
    }
}

// The receive thread: takes frames up to the next step of the main thread.
static void receive_Frames()
{
    CAN_FRAME Frame;
    while (take_Record(0, &Frame)) {
        const BM_SLAVE_CAST Sender = Id2Mask(CAN_A, Frame.Identifier);
        if (Sender != 0)
            fill_pAns(&Frame, &Sender);
        ctrl_Store();
    }
}

static void find_Answer(const CAN_FRAME &Step, BM_SLAVE_CAST Slaves)
{
    char Text[3 * UINT8_MAX + 1];
    int32_t Value;
    Cmd.MT = Step.Identifier >> 24 & 0x1F;
    Cmd.Fn = Step.Data[0];
    Cmd.Slaves = Slaves;
    Cmd.TimeOut = Step.Data[2] != 0 ? NO_DEADLINE : 0;
    if (get_pAns(&Cmd, &pAns2Cmd) != 1)
        return;
    require(pAns2Cmd->NbP >= 0 && pAns2Cmd->NbP <= NB_PARAMETERS_MAX, "NbP");
    require((pAns2Cmd->Slaves & Slaves) != 0 && pAns2Cmd->MT == Cmd.MT, "an answer to another");
    Ans2string(Text, sizeof Text);
    Ans2long(&Value);
    for (int i = 0; i < pAns2Cmd->NbP; i++)
        Sink = pAns2Cmd->pP[i];
}

static void ask(const CAN_FRAME &Step, BM_SLAVE_CAST Slaves)
{
    char Text[3 * UINT8_MAX + 1];
    FakeCan.OnSend = [](const CAN_FRAME &) { receive_Frames(); };
    if (std::has_single_bit(Slaves)) {
        get_String_Info_FromSlave(Slaves, Step.Data[0], Step.Data[1], Text, sizeof Text);
        return;
    }
    TimeoutMask = ReplaceSlavesMask = NoDistributionMask = 0;
    Broadcast[CAN_A].ProtocolStructure = Step.Data[0];
    get_Protocol_FromSlaves(CAN_A);
}

static void do_Step(const CAN_FRAME &Step)
{
    const BM_SLAVE_CAST Slaves = Id2Mask(CAN_A, Step.Identifier);
    switch (Step.Identifier >> 29 & 3) {
    case 0:
        find_Answer(Step, Slaves);
        break;
    case 1:
        if (pAns2Cmd != nullptr)
            pAns2Cmd->Slaves = 0;
        break;
    case 2:
        pAns2Cmd = nullptr; // given back
        clear_pAns();
        break;
    default:
        ask(Step, Slaves);
        pAns2Cmd = nullptr; // given back
        break;
    }
    ctrl_Store();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    pNext = pData;
    pEnd = pData + Size;
    start_Machine(65);
    // A broken stream; no free record; a board that answers twice to the question for protocols.
    run_Loader({"exit -1", "exit 1", "tmpSlaves & pAns2Cmd->Slaves"}, [] {
        CAN_FRAME Step;
        for (receive_Frames(); take_Record(ID_STEP, &Step); receive_Frames())
            do_Step(Step);
    });
    stop_Machine();
    return 0;
}

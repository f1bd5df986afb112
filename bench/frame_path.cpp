// The way of a frame through the loader, both directions, for bench_instructions to count: the
// master has 64 boards, one of them sends (or gets) messages of 768 bytes in 128 frames.
//
//     frame_path received|sent     prints the number of frames
//
// The driver's functions stand here in the place of libcan. What happens in them is not counted,
// so they also do what belongs to others: make the frames, and consume the answers as the main
// thread does.
#include "Exit.h"
#include "Init.h"
#include "InterfacesCan.h"
#include "libcan.h"
#include <cstdio>
#include <cstring>

static constexpr uint8_t NB_BOARDS = 64;
static constexpr uint8_t NB_TYPES = 8;
static constexpr int SENDER = 40; // any board, but neither the first nor the last
static constexpr int NB_MESSAGES = 100;
static constexpr int NB_FRAMES = 128; // of a message
static constexpr uint8_t MT = 22;
static constexpr uint8_t FN = 9;

static SLAVE Boards[NB_BOARDS];
static BROADCAST Groups[FIRST_TYPE_GROUP + NB_TYPES];

static int NbReceived;
static int NbSent;

static void stop_Wrong(const char *What)
{
    fprintf(stderr, "frame_path: %s\n", What);
    exit_Process(1);
}

// --- The driver ---------------------------------------------------------------------------------

// The answer of the message before is there, whole.
static void consume_Answer()
{
    const MSG *pMsg = &pAns[ANS_LONG][AnsTransf[ANS_LONG].pAnsIndex[AnsTransf[ANS_LONG].First]];
    if (pMsg->NbP != NB_PARAMETERS_MAX || pMsg->Slaves != Boards[SENDER].Mask)
        stop_Wrong("an answer is not whole");
    clear_pAns();
}

// Fn FF p0 .. p5, then Fn 7E p .. p to Fn 00 p .. p; the last frame of all stops the thread.
int can_ReceiveNoBlock(int, CAN_FRAME *pFrame)
{
    const int Frame = NbReceived++ % NB_FRAMES;
    if (Frame == 0 && NbReceived > NB_FRAMES)
        consume_Answer();
    *pFrame = {};
    pFrame->Identifier = uint32_t{MT} << 24 | 1u << 19 | 31u << 14 |
                         uint32_t{Boards[SENDER].BoardNumber} << 9 |
                         uint32_t{Boards[SENDER].BoardType} << 4 | ID_MULTI_FRAME;
    pFrame->Length = CAN_DATA_MAX;
    pFrame->Data[0] = FN;
    pFrame->Data[1] = static_cast<uint8_t>((Frame == 0 ? SEQ_FIRST : 0) | (NB_FRAMES - 1 - Frame));
    if (NbReceived == NB_MESSAGES * NB_FRAMES)
        RunRxCanA = 0;
    return 0;
}

int can_Send(int, CAN_FRAME *)
{
    NbSent++;
    return 0;
}

int can_SysTimer(int, uint32_t *pTicks)
{
    *pTicks = 0;
    return 0;
}

int can_Open(const char *)
{
    return 5;
}

int can_Reset(int)
{
    return 0;
}

// --- The machine --------------------------------------------------------------------------------

static void make_Machine()
{
    Slave = Boards;
    NbSlaves = NB_BOARDS;
    Broadcast = Groups;
    NbBroadcasts = FIRST_TYPE_GROUP + NB_TYPES;
    Master = 1008;
    Device[CAN_A].File = 5;
    if (init_Variables() != 0 || init_Interfaces() != 0) // no mask yet: it opens nothing
        stop_Wrong("no memory");
    for (uint8_t i = 0; i < NB_BOARDS; i++) {
        Boards[i].Mask = BM_SLAVE_CAST{1} << i;
        Boards[i].Device = CAN_A;
        Boards[i].BoardType = static_cast<uint8_t>(1 + i % NB_TYPES);
        Boards[i].BoardNumber = static_cast<uint8_t>(1 + i / NB_TYPES);
    }
    make_BroadcastMask();
}

static int receive_Messages()
{
    read_CanA(nullptr);
    consume_Answer();
    return NbReceived;
}

static int send_Messages()
{
    Cmd.MT = MT;
    Cmd.Fn = FN;
    Cmd.NbP = NB_PARAMETERS_MAX;
    for (int i = 0; i < NB_MESSAGES; i++) {
        Cmd.TimeOut = 0;
        send_Msg2Can(CAN_A, Boards[SENDER].Mask, &Cmd);
    }
    return NbSent;
}

int main(int argc, char *argv[])
{
    make_Machine();
    const bool Sent = argc > 1 && strcmp(argv[1], "sent") == 0;
    const int NbFrames = Sent ? send_Messages() : receive_Messages();
    if (NbFrames != NB_MESSAGES * NB_FRAMES)
        stop_Wrong("frames are missing");
    printf("%d\n", NbFrames);
    return 0;
}

#include "InterfacesCan.h"
#include "Exit.h"
#include "libcan.h"
#include "Log.h"
#include "Status.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const char SOURCE[] = "../src/InterfacesCan";

// Release and acquire on the flag: whoever sees it change sees all that was done before.
std::atomic<uint8_t> RunRxCanA;
std::atomic<uint8_t> RunRxCanB;

static bool RxStarted; // the receive thread of interface A is there to be joined

// Bits 4..13 of an identifier, the source's BT and BN, index the senders: BN << 5 | BT.
constexpr int ADDRESS_SIZE = 32;
constexpr int NB_ADDRESSES = ADDRESS_SIZE * ADDRESS_SIZE;

// What Id2Mask looks up. Relaxed loads and stores suffice: an entry is a whole answer and leads
// the reader to nothing else.
static std::atomic<BM_SLAVE_CAST> Senders[NB_CAN - CAN_A][NB_ADDRESSES];

static_assert(std::atomic<BM_SLAVE_CAST>::is_always_lock_free);
static_assert(std::atomic<uint8_t>::is_always_lock_free);

// --- Opening and closing ------------------------------------------------------------------------

static int open_CanA()
{
    DEVICE *pDevice = &Device[CAN_A];
    print_Out("Ouverture de CAN A");
    pDevice->File = can_Open(DEVICE_Names[CAN_A]);
    if (pDevice->File < 0) {
        print_Out("    ERROR\n");
        REPORT("Connexion au cana");
        return GEN_ERR_FOPEN;
    }
    print_Out("    OK\n");
    if (can_Reset(pDevice->File) != 0) {
        REPORT("Reset du cana");
        return GEN_ERR_FOPEN;
    }

    publish_Senders();
    if (pthread_create(&pDevice->RxThread, nullptr, read_CanA, nullptr) != 0) {
        REPORT("Init du thread de lecture sur cana");
        return SYST_ERR_THREAD;
    }
    RxStarted = true;
    return 0;
}

int open_Can(int DeviceIndex)
{
    if (system("grep can /proc/modules") != 0) {
        Device[DeviceIndex].File = -2;
        return GEN_ERR_FOPEN;
    }
    Device[DeviceIndex].File = -1;
    if (DeviceIndex != CAN_A) {
        REPORT("Erreur : device CAN %i inconnu !", DeviceIndex);
        return GEN_ERR_PRG_VANTREL;
    }
    return open_CanA();
}

// The thread sets its run flag itself: a flag cleared before that would be set again, and the join
// would wait for ever. So the flag is awaited first.
static int stop_RxCanA()
{
    if (!RxStarted)
        return 0;
    while (RunRxCanA.load(std::memory_order_acquire) == 0)
        usleep(1);
    while (RunRxCanA.load(std::memory_order_acquire) != 0) {
        RunRxCanA.store(0, std::memory_order_release);
        usleep(1);
    }
    RxStarted = false;
    return pthread_join(Device[CAN_A].RxThread, nullptr);
}

int close_Can(int DeviceIndex)
{
    int Result = 0;
    if (DeviceIndex == CAN_A)
        Result = stop_RxCanA();
    else
        print_Out("L'interface can %i est inconnue.\n", DeviceIndex);
    Device[DeviceIndex].File = -10;
    return Result;
}

// --- Sending ------------------------------------------------------------------------------------

static bool is_Inside(BM_SLAVE_CAST Part, BM_SLAVE_CAST Whole)
{
    return Part != 0 && (Part & ~Whole) == 0;
}

// Groups first, then single slaves. Identifier is without a destination.
static int send_Msg2Parts(int DeviceIndex, uint32_t Identifier, BM_SLAVE_CAST Rest, const MSG *pMsg)
{
    int Result = 0;
    for (int j = FIRST_TYPE_GROUP; j < NbBroadcasts && Rest != 0; j++) {
        const BROADCAST *pGroup = &Broadcast[j];
        if (!is_Inside(pGroup->Mask, Rest))
            continue;
        const uint32_t Destination = static_cast<uint32_t>(pGroup->BoardType) << 14;
        Result = split_Msg2MsgCan(DeviceIndex, Identifier | Destination, pMsg);
        Rest &= ~pGroup->Mask;
    }
    for (int i = 0; i < NbSlaves && Rest != 0; i++) {
        const SLAVE *pSlave = &Slave[i];
        if (!is_Inside(pSlave->Mask, Rest))
            continue;
        const uint32_t Destination = static_cast<uint32_t>(pSlave->BoardNumber) << 19 |
                                     static_cast<uint32_t>(pSlave->BoardType) << 14;
        Result = split_Msg2MsgCan(DeviceIndex, Identifier | Destination, pMsg);
        Rest &= ~pSlave->Mask;
    }
    return Result;
}

int send_Msg2Can(int DeviceIndex, BM_SLAVE_CAST Slaves, MSG *pMsg)
{
    ASSERT((DeviceIndex >= CAN_A) && (DeviceIndex < NB_CAN),
           "(DeviceIndex >= CAN_A) && (DeviceIndex < NB_CAN)");
    ASSERT(pMsg->NbP <= NB_PARAMETERS_MAX, "pMsg->NbP <= 768");

    const uint32_t Identifier =
        static_cast<uint32_t>(pMsg->MT) << 24 | static_cast<uint32_t>(Master);
    const int Result = Slaves == Broadcast[DeviceIndex].Mask
                           ? split_Msg2MsgCan(DeviceIndex, Identifier, pMsg)
                           : send_Msg2Parts(DeviceIndex, Identifier, Slaves, pMsg);

    if (pMsg->TimeOut != 0)
        pMsg->TimeOut += get_SysTimer(DeviceIndex);
    else
        pMsg->TimeOut = NO_DEADLINE;
    return Result;
}

[[noreturn]] static void stop_TooLong(int DeviceIndex, const MSG *pMsg)
{
    REPORT("Commande trop longue");
    REPORT("Device: %i - Slave: %016llX", Device[DeviceIndex].File,
           static_cast<unsigned long long>(pMsg->Slaves));
    REPORT("MT: %02X - Fn: %02X - NbP: %i", pMsg->MT, pMsg->Fn, pMsg->NbP);
    exit_Process(GEN_ERR_PRG_VANTREL);
}

// Fn p0 .. p6
static int send_SingleFrame(int DeviceIndex, uint32_t Identifier, const MSG *pMsg)
{
    CAN_FRAME Frame{};
    Frame.Identifier = Identifier;
    Frame.Length = static_cast<uint8_t>(pMsg->NbP + 1);
    Frame.Data[0] = pMsg->Fn;
    std::copy_n(pMsg->pP, pMsg->NbP, Frame.Data + 1);
    return send_MsgCan(DeviceIndex, &Frame);
}

// Fn 80|N p0 .. p5, then Fn and a count down to 0 with the next 6, the last with what remains
static int send_MultiFrames(int DeviceIndex, uint32_t Identifier, const MSG *pMsg, int N)
{
    CAN_FRAME Frame{};
    Frame.Identifier = Identifier | ID_MULTI_FRAME;
    Frame.Length = CAN_DATA_MAX;
    Frame.Data[0] = pMsg->Fn;
    Frame.Data[1] = static_cast<uint8_t>(SEQ_FIRST | N);
    const uint8_t *pP = pMsg->pP;
    for (int Rest = N; Rest > 0; Rest--, pP += FRAME_PARAMETERS) {
        memcpy(Frame.Data + 2, pP, FRAME_PARAMETERS);
        send_MsgCan(DeviceIndex, &Frame);
        Frame.Data[1] = static_cast<uint8_t>(Rest - 1);
    }
    const int Count = pMsg->NbP - N * FRAME_PARAMETERS;
    Frame.Length = static_cast<uint8_t>(Count + 2);
    std::copy_n(pP, Count, Frame.Data + 2);
    return send_MsgCan(DeviceIndex, &Frame);
}

int split_Msg2MsgCan(int DeviceIndex, uint32_t Identifier, const MSG *pMsg)
{
    const int N = (pMsg->NbP - 1) / FRAME_PARAMETERS;
    if (pMsg->NbP < 0 || N > SEQ_COUNT)
        stop_TooLong(DeviceIndex, pMsg);
    return pMsg->NbP <= SINGLE_PARAMETERS ? send_SingleFrame(DeviceIndex, Identifier, pMsg)
                                          : send_MultiFrames(DeviceIndex, Identifier, pMsg, N);
}

int send_MsgCan(int DeviceIndex, CAN_FRAME *pFrame)
{
    ASSERT(Device[DeviceIndex].File > 0, "Device[DeviceIndex].File > 0");
    pFrame->ControlA = 0;
    pFrame->ControlB = 1;
    const int Result = can_Send(Device[DeviceIndex].File, pFrame);
    if (Result != -1)
        return Result;

    static const char LAST_ADVICE[] = "changez la carte Master.\n";
    REPORT("Erreur : can_Send");
    print_Out("\n");
    print_Out("Contrôlez le câblage CAN et si le problème persiste");
    print_Out("%s", LAST_ADVICE);
    return sizeof(LAST_ADVICE) - 1; // a count of characters, as of a print: no failure
}

uint32_t get_SysTimer(int DeviceIndex)
{
    uint32_t Ticks = 0;
    return can_SysTimer(Device[DeviceIndex].File, &Ticks) < 0 ? 0 : Ticks;
}

// --- Reception ----------------------------------------------------------------------------------

BM_SLAVE_CAST Id2Mask(int DeviceIndex, uint32_t Identifier)
{
    if (DeviceIndex < CAN_A || DeviceIndex >= NB_CAN)
        return 0;
    const uint32_t Address = (Identifier >> 4) & (NB_ADDRESSES - 1);
    return Senders[DeviceIndex - CAN_A][Address].load(std::memory_order_relaxed);
}

// The senders of an interface by address. Table order: a later duplicate takes the entry.
static void find_Senders(int DeviceIndex, BM_SLAVE_CAST *pSenders)
{
    if (Broadcast != nullptr) {
        for (int j = FIRST_TYPE_GROUP; j < NbBroadcasts; j++) {
            const BROADCAST *pGroup = &Broadcast[j];
            if (pGroup->Device == DeviceIndex && pGroup->BoardType < ADDRESS_SIZE)
                pSenders[pGroup->BoardType] = pGroup->Mask;
        }
        pSenders[0] = Broadcast[DeviceIndex].Mask; // BT 0 is the interface, never a group
    }
    for (int i = 0; Slave != nullptr && i < NbSlaves; i++) {
        const SLAVE *pSlave = &Slave[i];
        const bool HasAddress = pSlave->BoardNumber != 0 && pSlave->BoardNumber < ADDRESS_SIZE &&
                                pSlave->BoardType < ADDRESS_SIZE;
        if (pSlave->Device == DeviceIndex && HasAddress)
            pSenders[pSlave->BoardNumber * ADDRESS_SIZE + pSlave->BoardType] = pSlave->Mask;
    }
}

void publish_Senders()
{
    for (int DeviceIndex = CAN_A; DeviceIndex < NB_CAN; DeviceIndex++) {
        BM_SLAVE_CAST Found[NB_ADDRESSES] = {};
        find_Senders(DeviceIndex, Found);
        for (int i = 0; i < NB_ADDRESSES; i++) {
            std::atomic<BM_SLAVE_CAST> *pEntry = &Senders[DeviceIndex - CAN_A][i];
            if (pEntry->load(std::memory_order_relaxed) != Found[i])
                pEntry->store(Found[i], std::memory_order_relaxed);
        }
    }
}

void *read_CanA(void * /*Arg*/)
{
    static CAN_FRAME MsgCan;
    const int File = Device[CAN_A].File;
    RunRxCanA.store(1, std::memory_order_release);
    while (RunRxCanA.load(std::memory_order_acquire) != 0) {
        const int Result = can_ReceiveNoBlock(File, &MsgCan);
        if (Result == CAN_NOTHING) {
            usleep(10000);
        } else if (Result == 0) {
            const BM_SLAVE_CAST Sender = Id2Mask(CAN_A, MsgCan.Identifier);
            if (Sender != 0)
                fill_pAns(&MsgCan, &Sender);
        } else {
            REPORT("can_ReceiveNoBlock() = %i", Result);
        }
    }
    return nullptr;
}

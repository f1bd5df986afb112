#include "Interfaces.h"
#include "Exit.h"
#include "InterfacesCan.h"
#include "InterfacesTtys.h"
#include "Log.h"
#include "MT_BoardState.h"
#include "Status.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const char SOURCE[] = "../src/Interfaces";

MSG Cmd;
MSG *pAns2Cmd;
ANS_DEF AnsDef[NB_ANS];
MSG *pAns[NB_ANS];
ANS_TMP AnsTmp[NB_ANS];
ANS_RING AnsFree[NB_ANS];
ANS_RING AnsTransf[NB_ANS];

static void print_UnknownInterface(int DeviceIndex)
{
    print_Out("\nL'interface %i est inconnue de ce programme.\n", DeviceIndex);
}

// --- Rings --------------------------------------------------------------------------------------

// Producer's side. Release: who sees the new Last sees the index and the record behind it.
static void put_AnsIndex(ANS_RING *pRing, uint16_t AnsIndex)
{
    const uint16_t Last = pRing->Last.load(std::memory_order_relaxed); // the producer's own
    pRing->pAnsIndex[Last] = AnsIndex;
    pRing->Last.store((Last + 1) & pRing->Mask, std::memory_order_release);
}

// Consumer's side, main thread: the complete answer at the head of its ring, null when empty.
static MSG *get_FirstAns(int AnsSize)
{
    const ANS_RING *pRing = &AnsTransf[AnsSize];
    const uint16_t First = pRing->First.load(std::memory_order_relaxed); // the consumer's own
    if (First == pRing->Last.load(std::memory_order_acquire)) // what it counts is complete
        return nullptr;
    return &pAns[AnsSize][pRing->pAnsIndex[First]];
}

// Puts the record at the head of the complete answers back among the free ones.
static void recycle_FirstAns(int AnsSize)
{
    ANS_RING *pRing = &AnsTransf[AnsSize];
    const uint16_t First = pRing->First.load(std::memory_order_relaxed); // the consumer's own
    const uint16_t AnsIndex = pRing->pAnsIndex[First];
    MSG *pMsg = &pAns[AnsSize][AnsIndex];
    pMsg->Slaves = 0;
    pMsg->NbP = 0;
    if (AnsSize == ANS_LONG) {
        free(pMsg->pP);
        pMsg->pP = nullptr;
    }
    pRing->pAnsIndex[First] = ANS_NONE;
    pRing->First.store((First + 1) & pRing->Mask, std::memory_order_relaxed);
    put_AnsIndex(&AnsFree[AnsSize], AnsIndex);
}

void clear_pAns()
{
    for (const int AnsSize : {ANS_SHORT, ANS_LONG}) {
        while (get_FirstAns(AnsSize) != nullptr)
            recycle_FirstAns(AnsSize);
    }
}

// --- Reception: receive thread ------------------------------------------------------------------

[[noreturn]] static void stop_NoFreeAns(int AnsSize)
{
    const ANS_RING *pRing = &AnsFree[AnsSize];
    print_Out("\nErreur : le buffer AnsFree est vide.");
    print_Out("\n  Redimentionner les buffers pour les messages");
    print_Out(AnsSize == ANS_LONG ? " LONGS !" : " COURTS !");
    REPORT("AnsFree[AnsSize].First = %i\n", pRing->First.load(std::memory_order_relaxed));
    REPORT("AnsFree[AnsSize].Last = %i\n", pRing->Last.load(std::memory_order_relaxed));
    exit_Process(1);
}

int get_NewAnsCdmIndex(int AnsSize)
{
    static const char *const WAITS[] = {"- NbBoucle = 3", "- NbBoucle = 2", "- NbBoucle = 1"};
    ANS_RING *pRing = &AnsFree[AnsSize];
    ANS_TMP *pTmp = &AnsTmp[AnsSize];
    for (const char *Wait : WAITS) {
        const uint16_t First = pRing->First.load(std::memory_order_relaxed); // the consumer's own
        const uint16_t Next = (First + 1) & pRing->Mask;
        if (Next != pRing->Last.load(std::memory_order_acquire)) { // its records are put back
            pTmp->pCdm[pTmp->Last].AnsIndex = pRing->pAnsIndex[First];
            pRing->First.store(Next, std::memory_order_relaxed);
            return pTmp->Last++;
        }
        report_TimeStamp(SOURCE, __LINE__, Wait);
        usleep(1);
    }
    stop_NoFreeAns(AnsSize);
}

static uint8_t get_MT(const CAN_FRAME *pFrame)
{
    return (pFrame->Identifier >> 24) & 0x1F;
}

int find_AnsCdmIndex(int AnsSize, const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves)
{
    const ANS_TMP *pTmp = &AnsTmp[AnsSize];
    const MSG *pRecords = pAns[AnsSize];
    for (int k = 0; k < pTmp->Last; k++) {
        const MSG *pMsg = &pRecords[pTmp->pCdm[k].AnsIndex];
        if (pMsg->Slaves == *pSlaves && pMsg->MT == get_MT(pFrame) && pMsg->Fn == pFrame->Data[0])
            return k;
    }
    return -1;
}

// The buffer holds what the answer's N + 1 frames can carry.
static void allocate_LongAns(MSG *pMsg, size_t N, int Index)
{
    ASSERT(pMsg->pP == nullptr,
           "pAns[ANS_LONG][AnsTmp[AnsSize].pCdm[Index].AnsIndex].pP == ((void *)0)");
    pMsg->pP = static_cast<uint8_t *>(malloc((N + 1) * FRAME_PARAMETERS));
    if (pMsg->pP == nullptr) {
        print_Out("\nErreur d'allocation dans get_AnsIndex : pAns[%i][%i].pP.\n", ANS_LONG, Index);
        exit_Process(0);
    }
}

// Opens the slot of an answer whose first frame announces N more. Returns the slot.
static int open_Ans(int AnsSize, uint16_t N, const CAN_FRAME *pFrame, BM_SLAVE_CAST Slaves)
{
    const int Index = get_NewAnsCdmIndex(AnsSize);
    ANS_CDM *pCdm = &AnsTmp[AnsSize].pCdm[Index];
    MSG *pMsg = &pAns[AnsSize][pCdm->AnsIndex];
    if (AnsSize == ANS_LONG)
        allocate_LongAns(pMsg, N, Index);
    pMsg->MT = get_MT(pFrame);
    pMsg->Fn = pFrame->Data[0];
    pMsg->Slaves = Slaves;
    pMsg->NbP = 0;
    pCdm->Num = N;
    return Index;
}

[[noreturn]] static void stop_Stream(const char *Text, const CAN_FRAME *pFrame,
                                     BM_SLAVE_CAST Slaves)
{
    REPORT("%s", Text);
    REPORT("Msg: Slave %016llX   Id %08X    Fn %02X", static_cast<unsigned long long>(Slaves),
           pFrame->Identifier, pFrame->Data[0]);
    exit_Process(-1);
}

// Hands a complete answer to the main thread and closes its slot; the last live slot moves in.
static void publish_Ans(int AnsSize, int Index)
{
    ANS_TMP *pTmp = &AnsTmp[AnsSize];
    put_AnsIndex(&AnsTransf[AnsSize], pTmp->pCdm[Index].AnsIndex);
    ASSERT(pTmp->Last, "AnsTmp[AnsSize].Last");
    pTmp->Last--;
    if (Index != pTmp->Last)
        pTmp->pCdm[Index] = pTmp->pCdm[pTmp->Last];
}

// A frame's parameters are copied as a block of fixed size, its whole room for them; its length
// says how many count. The block fits, whatever arrives: 7 bytes of a single frame into the short
// buffer of 7; 6 of any other behind the 6 at most of each frame before it, into a buffer for the
// N + 1 frames that the counter admits.
static int16_t count_Parameters(const CAN_FRAME *pFrame, int Start)
{
    return static_cast<int16_t>(std::min<int>(pFrame->Length, CAN_DATA_MAX) - Start);
}

// Fn p0 .. p6. Out of line, like the first frame: the path of all the others stays short.
[[gnu::noinline]] static void take_SingleFrame(const CAN_FRAME *pFrame, BM_SLAVE_CAST Slaves)
{
    const int Index = open_Ans(ANS_SHORT, 0, pFrame, Slaves);
    MSG *pMsg = &pAns[ANS_SHORT][AnsTmp[ANS_SHORT].pCdm[Index].AnsIndex];
    memcpy(pMsg->pP, pFrame->Data + 1, SINGLE_PARAMETERS);
    pMsg->NbP = count_Parameters(pFrame, 1);
    publish_Ans(ANS_SHORT, Index);
}

// Fn Sequence p .. p, for the answer of a slot
static void take_MultiFrame(int AnsSize, int Index, const CAN_FRAME *pFrame,
                            const BM_SLAVE_CAST *pSlaves)
{
    ANS_CDM *pCdm = &AnsTmp[AnsSize].pCdm[Index];
    const int Num = pFrame->Data[1] & SEQ_COUNT;
    if (Num != pCdm->Num)
        stop_Stream("CDM - Num reçu erronné", pFrame, *pSlaves);
    MSG *pMsg = &pAns[AnsSize][pCdm->AnsIndex];
    memcpy(pMsg->pP + pMsg->NbP, pFrame->Data + 2, FRAME_PARAMETERS);
    pMsg->NbP = static_cast<int16_t>(pMsg->NbP + count_Parameters(pFrame, 2));
    if (Num != 0)
        pCdm->Num--;
    else
        publish_Ans(AnsSize, Index);
}

[[gnu::noinline]] static void take_FirstFrame(const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves)
{
    const uint16_t N = pFrame->Data[1] & SEQ_COUNT;
    const int AnsSize = N == 0 ? ANS_SHORT : ANS_LONG;
    take_MultiFrame(AnsSize, open_Ans(AnsSize, N, pFrame, *pSlaves), pFrame, pSlaves);
}

static bool take_FrameOfClass(int AnsSize, const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves)
{
    const int Index = find_AnsCdmIndex(AnsSize, pFrame, pSlaves);
    if (Index < 0)
        return false;
    take_MultiFrame(AnsSize, Index, pFrame, pSlaves);
    return true;
}

// Nearly every frame of a transfer comes this way: flattened, it costs two thirds of the
// instructions.
[[gnu::flatten]] static void take_NextFrame(const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves)
{
    if (!take_FrameOfClass(ANS_LONG, pFrame, pSlaves) &&
        !take_FrameOfClass(ANS_SHORT, pFrame, pSlaves))
        stop_Stream("Pas trouvé de chaîne correspondant au message", pFrame, *pSlaves);
}

int fill_pAns(const CAN_FRAME *pFrame, const BM_SLAVE_CAST *pSlaves)
{
    const bool MultiFrame = (pFrame->Identifier & ID_MULTI_FRAME) != 0;
    if (pFrame->Length < (MultiFrame ? 2 : 1))
        return 0;
    if (!MultiFrame)
        take_SingleFrame(pFrame, *pSlaves);
    else if ((pFrame->Data[1] & SEQ_FIRST) != 0)
        take_FirstFrame(pFrame, pSlaves);
    else
        take_NextFrame(pFrame, pSlaves);
    return 0;
}

// --- Sending and waiting: main thread -----------------------------------------------------------

int send_Cmd(MSG *pCmd)
{
    BM_SLAVE_CAST Rest = pCmd->Slaves;
    for (int j = 1; j < NB_INTERFACES && Rest != 0; j++) {
        const BM_SLAVE_CAST Part = Rest & Broadcast[j].Mask;
        if (Part == 0)
            continue;
        const int DeviceIndex = Broadcast[j].Device;
        if (DeviceIndex >= NB_INTERFACES) {
            REPORT("Interface inconnue: %i", DeviceIndex);
            exit_Process(GEN_ERR_PRG_VANTREL);
        }
        if (DeviceIndex == CAN_A)
            send_Msg2Can(j, Part, pCmd);
        Rest &= ~Part;
    }
    if (Rest != 0) {
        REPORT("Slaves inconnus: %04X", static_cast<unsigned>(Rest & 0xFFFF));
        return GEN_ERR_PRG_VANTREL;
    }
    return 0;
}

static bool is_AnsOf(const MSG *pMsg, const MSG *pCmd)
{
    return (pMsg->Slaves & pCmd->Slaves) != 0 && pMsg->MT == pCmd->MT &&
           (pMsg->Fn & MASK_FUNCTION) == (pCmd->Fn & MASK_FUNCTION);
}

static void report_Unexpected(const MSG *pMsg)
{
    REPORT("Message hors contexte :");
    REPORT(" Slave %016llX  MT %02X  Fun %02X", static_cast<unsigned long long>(pMsg->Slaves),
           pMsg->MT, pMsg->Fn);
}

static int report_Timeout(const MSG *pCmd)
{
    const bool ReadinessProbe = pCmd->MT == MT_BOARDSTATE && pCmd->Fn == FLAG_ACK;
    if (!ReadinessProbe) // a slave that is not there is what it finds out
        REPORT("Timeout : Slave = 0x%016llX  MT = 0x%02X  Fn = 0x%02X",
               static_cast<unsigned long long>(pCmd->Slaves), pCmd->MT, pCmd->Fn);
    return ERR_TIMEOUT;
}

int get_pAns(MSG *pCmd, MSG **ppAns)
{
    if (pCmd == nullptr) {
        REPORT("Erreur : pCmd == NULL");
        return GEN_ERR_PRG_VANTREL;
    }
    for (const int AnsSize : {ANS_SHORT, ANS_LONG}) {
        while (MSG *pMsg = get_FirstAns(AnsSize)) {
            if (is_AnsOf(pMsg, pCmd)) {
                *ppAns = pMsg;
                return 1;
            }
            if (pMsg->Slaves != 0)
                report_Unexpected(pMsg);
            recycle_FirstAns(AnsSize);
        }
    }
    *ppAns = nullptr;
    return pCmd->TimeOut < get_SysTimer(CAN_A) ? report_Timeout(pCmd) : 0;
}

int wait_pAns(MSG *pCmd, MSG **ppAns)
{
    int Result;
    while ((Result = get_pAns(pCmd, ppAns)) == 0)
        usleep(1);
    return Result;
}

uint8_t get_Parameter(const MSG *pMsg, int Index)
{
    return Index >= 0 && Index < pMsg->NbP ? pMsg->pP[Index] : 0;
}

int get_SlaveIndex(BM_SLAVE_CAST *pMask, uint16_t *pIndex)
{
    *pIndex = 0xFFFF;
    for (uint16_t i = 0; i < NbSlaves; i++) {
        if ((Slave[i].Mask & *pMask) != 0) {
            *pIndex = i;
            *pMask ^= Slave[i].Mask;
            return 0;
        }
    }
    return -1;
}

// --- Opening and closing ------------------------------------------------------------------------

static int init_AnsTmp(int AnsSize)
{
    ANS_TMP *pTmp = &AnsTmp[AnsSize];
    pTmp->Size = AnsDef[AnsSize].Size;
    pTmp->Last = 0;
    ASSERT(pTmp->pCdm == nullptr, "AnsTmp[i].pCdm == ((void *)0)");
    pTmp->pCdm = static_cast<ANS_CDM *>(malloc(pTmp->Size * sizeof(ANS_CDM)));
    if (pTmp->pCdm == nullptr) {
        REPORT("Erreur d'allocation : AnsTmp");
        return SYST_ERR_ALLOC;
    }
    std::fill_n(pTmp->pCdm, pTmp->Size, ANS_CDM{0, ANS_NONE});
    return 0;
}

// Takes the slaves of an interface that the loader does not serve out of service.
static void drop_Interface(int DeviceIndex)
{
    const BM_SLAVE_CAST Mask = Broadcast[DeviceIndex].Mask;
    Broadcast[BROADCAST_ALL].Mask &= ~Mask;
    for (int j = FIRST_TYPE_GROUP; j < NbBroadcasts; j++)
        Broadcast[j].Mask &= ~Mask;
    for (int i = 0; i < NbSlaves; i++) {
        if ((Slave[i].Mask & Mask) != 0) {
            Slave[i].Device = 0;
            Slave[i].BoardType = 0;
        }
    }
    Broadcast[DeviceIndex].Mask = 0;
    Broadcast[DeviceIndex].BoardType = 0;
    publish_Senders();
}

static int init_Interface(int DeviceIndex)
{
    switch (DeviceIndex) {
    case CAN_A: {
        const int Status = open_Can(CAN_A);
        if (Status != 0)
            REPORT("Erreur : open_Can(%i) = %i", CAN_A, Status);
        return Status;
    }
    case 1:
    case 2:
    case TTYS_0:
    case 4:
    case 6:
    case 7:
        drop_Interface(DeviceIndex);
        return 0;
    default:
        print_UnknownInterface(DeviceIndex);
        print_Out("  Vérifiez le fichier de configuration !\n\n");
        return GEN_ERR_PRG_VANTREL;
    }
}

int init_Interfaces()
{
    for (int AnsSize = 0; AnsSize < NB_ANS; AnsSize++) {
        const int Status = init_AnsTmp(AnsSize);
        if (Status != 0)
            return Status;
    }
    for (int i = 1; i < NB_INTERFACES; i++) {
        const int Status = Broadcast[i].Mask != 0 ? init_Interface(i) : 0;
        if (Status != 0)
            return Status;
    }
    return 0;
}

int open_Interfaces(int DeviceIndex)
{
    switch (DeviceIndex) {
    case 0:
        return 0;
    case TTYS_0:
        return open_Ttys(DeviceIndex);
    case CAN_A:
        return open_Can(DeviceIndex);
    default:
        print_UnknownInterface(DeviceIndex);
        print_Out("  Vérifiez le fichier de configuration !\n");
        return GEN_ERR_PRG_VANTREL;
    }
}

template <typename T>
static void free_Table(T **ppTable, const char *Condition)
{
    ASSERT(*ppTable != nullptr, Condition);
    free(*ppTable);
    *ppTable = nullptr;
}

static void free_Ans(int AnsSize)
{
    free_Table(&AnsTmp[AnsSize].pCdm, "AnsTmp[i].pCdm != ((void *)0)");
    free_Table(&AnsTransf[AnsSize].pAnsIndex, "AnsTransf[i].pAnsIndex != ((void *)0)");
    free_Table(&AnsFree[AnsSize].pAnsIndex, "AnsFree[i].pAnsIndex != ((void *)0)");
    for (int k = 0; pAns[AnsSize] != nullptr && k < AnsDef[AnsSize].Size; k++)
        free(pAns[AnsSize][k].pP);
    free_Table(&pAns[AnsSize], "pAns[i] != ((void *)0)");
}

int close_Interfaces()
{
    int Status = 0;
    clear_pAns();
    for (int i = NB_INTERFACES - 1; i >= 2; i--) {
        if (Device[i].File <= 0 || i == 2 || i == TTYS_0)
            continue;
        if (i != CAN_A) {
            print_UnknownInterface(i);
            return -1;
        }
        Status -= close_Can(i);
    }
    free_Table(&Cmd.pP, "Cmd.pP != ((void *)0)");
    for (const int AnsSize : {ANS_SHORT, ANS_LONG})
        free_Ans(AnsSize);
    return Status;
}

#include "Init.h"
#include "Config.h"
#include "Exit.h"
#include "FileTools.h"
#include "InterfacesCan.h"
#include "Log.h"
#include "Status.h"
#include <cstdlib>

static const char SOURCE[] = "../src/Init";

static constexpr int MASTER_NODE = 1008;
static constexpr int NB_MASKED_SLAVES = 64; // slaves that a mask can hold

// Null when there is no memory, else zeroed.
template <typename T>
static T *alloc_Table(size_t Count)
{
    return static_cast<T *>(calloc(Count, sizeof(T)));
}

int init_All()
{
    if (init_Variables() != 0)
        return ERR_MASTER_HW;
    ASSERT(ctrl_Directories() == 0, "ctrl_Directories() == 0");
    int Status = ctrl_ConfigFile();
    if (Status != 0)
        exit_Process(Status);
    Status = init_Variables_Master();
    ASSERT(Status == 0, "Status == 0");

    Status = init_Variables_Slaves();
    switch (Status) {
    case 0:
        break;
    case ERR_MASTER_OS:
        return ERR_MASTER_OS;
    case ERR_CONFIG_READ:
    case SYST_ERR_ALLOC:
        return ERR_MASTER_HW;
    default:
        REPORT("Erreur non gérée : %i", Status);
        exit_Process(Status);
    }

    init_Variables_Broadcasts();
    Status = init_Interfaces();
    if (Status != 0) {
        REPORT("Erreur : init_Interfaces = %i", Status);
        return ERR_MASTER_OS;
    }
    return 0;
}

int ctrl_Directories()
{
    int Status = 0;
    for (const char *Dir : {DIR_WORK, DIR_WORK "/tmp/", DIR_WORK "/config"}) {
        if (ctrl_DirPresence(Dir) != 1) {
            REPORT("Erreur : dir %s", Dir);
            Status = GEN_ERR_CONFIG;
        }
    }
    return Status;
}

int init_Variables_Master()
{
    Master = MASTER_NODE;
    return 0;
}

// ---- Answer tables

static void init_AnsDef(int AnsSize)
{
    switch (AnsSize) {
    case ANS_LONG:
        AnsDef[AnsSize] = {32, NB_PARAMETERS_MAX, 31};
        break;
    case ANS_SHORT:
        AnsDef[AnsSize] = {128, 7, 127};
        break;
    default:
        REPORT("Erreur lors de l'initialisation des tableaux d'ANS");
    }
}

// Long answers get a buffer as long as their first frame announces; short ones keep theirs.
static int init_Answers(int AnsSize)
{
    pAns[AnsSize] = alloc_Table<MSG>(AnsDef[AnsSize].Size);
    if (!pAns[AnsSize]) {
        REPORT("Erreur d'allocation : pAns[%i]", AnsSize);
        return SYST_ERR_ALLOC;
    }
    for (int i = 0; AnsSize == ANS_SHORT && i < AnsDef[AnsSize].Size; i++) {
        pAns[AnsSize][i].pP = alloc_Table<uint8_t>(AnsDef[AnsSize].Buffer);
        if (!pAns[AnsSize][i].pP) {
            REPORT("Erreur d'allocation : pAns[%i][%i].pP", AnsSize, i);
            return SYST_ERR_ALLOC;
        }
    }
    return 0;
}

// An empty ring with room for every answer of the class.
static int init_Ring(ANS_RING *pRing, int AnsSize)
{
    pRing->Size = AnsDef[AnsSize].Size;
    pRing->Mask = AnsDef[AnsSize].Mask;
    pRing->First = 0;
    pRing->Last = 0;
    pRing->pAnsIndex = alloc_Table<uint16_t>(pRing->Size);
    return pRing->pAnsIndex ? 0 : SYST_ERR_ALLOC;
}

// All answers but the last are free: a ring never holds as many entries as positions.
static void fill_FreeRing(ANS_RING *pRing)
{
    for (uint16_t i = 0; i < pRing->Size; i++)
        pRing->pAnsIndex[i] = i;
    pRing->Last = static_cast<uint16_t>(pRing->Size - 1);
}

static int init_AnswerClass(int AnsSize)
{
    init_AnsDef(AnsSize);
    if (init_Answers(AnsSize) != 0)
        return SYST_ERR_ALLOC;
    if (init_Ring(&AnsTransf[AnsSize], AnsSize) != 0) {
        REPORT("Erreur d'allocation : AnsTransf");
        return SYST_ERR_ALLOC;
    }
    if (init_Ring(&AnsFree[AnsSize], AnsSize) != 0) {
        REPORT("Erreur d'allocation : AnsFree");
        return SYST_ERR_ALLOC;
    }
    fill_FreeRing(&AnsFree[AnsSize]);
    return 0;
}

int init_Variables()
{
    Cmd = {};
    pAns2Cmd = nullptr;
    Cmd.pP = alloc_Table<uint8_t>(NB_PARAMETERS_MAX);
    if (!Cmd.pP) {
        REPORT("Erreur d'allocation : Cmd.pP");
        return SYST_ERR_ALLOC;
    }
    for (int AnsSize = 0; AnsSize < NB_ANS; AnsSize++) {
        if (init_AnswerClass(AnsSize) != 0)
            return SYST_ERR_ALLOC;
    }
    return 0;
}

// ---- Slaves

static void init_Slave(int Index)
{
    Slave[Index] = {};
    Slave[Index].Mask = Index < NB_MASKED_SLAVES ? BM_SLAVE_CAST{1} << Index : 0;
    Slave[Index].HwInfo4 = 0xFFFF;
    Slave[Index].HwInfo9 = 0xFFFF;
    Slave[Index].IndexOfCompatibility = 0xFFFF;
}

int init_Variables_Slaves()
{
    int Status = open_ConfigFile();
    ASSERT(Status == 0, "Status == 0");
    Status = read_NbSlaves_FromConfig();
    if (Status != 0)
        exit_Process(Status);

    ASSERT(Slave == nullptr, "Slave == ((void *)0)");
    Slave = alloc_Table<SLAVE>(NbSlaves);
    if (!Slave) {
        REPORT("Allocation : Slave");
        close_ConfigFile();
        return SYST_ERR_ALLOC;
    }
    for (int i = 0; i < NbSlaves; i++)
        init_Slave(i);

    Status = read_SlaveConfig();
    close_ConfigFile();
    // Slaves that were not read all have the address 0: no duplicates that anyone configured.
    if (Status == 0)
        ASSERT(ctrl_AddressUnicity() == 0, "ctrl_AddressUnicity() == 0");
    return Status;
}

int ctrl_AddressUnicity()
{
    for (int i = 0; i < NbSlaves; i++) {
        for (int j = i + 1; j < NbSlaves; j++) {
            const SLAVE &A = Slave[i];
            const SLAVE &B = Slave[j];
            if (A.Device != B.Device)
                continue;
            if (A.BoardType == B.BoardType && A.BoardNumber == B.BoardNumber) {
                REPORT("Erreur Config : adresses physiques identiques");
                return GEN_ERR_CONFIG;
            }
            if (A.FuncAddr1 == B.FuncAddr1 && A.FuncAddr2 == B.FuncAddr2) {
                REPORT("Erreur Config : adresses fonctionnelles identiques");
                return GEN_ERR_CONFIG;
            }
        }
    }
    return 0;
}

unsigned get_NbSlavesFromMask(BM_SLAVE_CAST Mask)
{
    unsigned Count = 0;
    for (; Mask != 0; Mask >>= 1)
        Count += static_cast<unsigned>(Mask & 1);
    return Count;
}

// ---- Groups

static void set_Group(int Group, BM_SLAVE_CAST Mask, uint8_t DeviceIndex, uint8_t BoardType)
{
    Broadcast[Group].Mask = Mask;
    Broadcast[Group].Device = DeviceIndex;
    Broadcast[Group].BoardType = BoardType;
}

void init_Variables_Broadcasts()
{
    NbBroadcasts = static_cast<uint8_t>(NbSlaves + FIRST_TYPE_GROUP);
    ASSERT(Broadcast == nullptr, "Broadcast == ((void *)0)");
    Broadcast = alloc_Table<BROADCAST>(NbBroadcasts);
    if (!Broadcast) {
        REPORT("Allocation pour Broadcast");
        exit_Process(SYST_ERR_ALLOC);
    }
    for (int i = 0; i < NbBroadcasts; i++)
        Broadcast[i] = {0, 0, 0, -1, -1, 0xFFFF, 0xFFFF};
    make_BroadcastMask();
}

static void make_InterfaceGroups()
{
    Broadcast[BROADCAST_ALL].Mask = 0;
    for (uint8_t d = 1; d < NB_INTERFACES; d++) {
        set_Group(d, 0, d, 0);
        for (int i = 0; i < NbSlaves; i++) {
            if (Slave[i].Device == d)
                Broadcast[d].Mask |= Slave[i].Mask;
        }
        Broadcast[BROADCAST_ALL].Mask |= Broadcast[d].Mask;
    }
}

// One group a slave, empty when it is not in service.
static void make_SlaveGroups()
{
    for (int i = 0; i < NbSlaves; i++) {
        set_Group(FIRST_TYPE_GROUP + i, Slave[i].Device != 0 ? Slave[i].Mask : 0, Slave[i].Device,
                  Slave[i].BoardType);
    }
}

// The groups of one interface and type become one, at the place of the first.
static void merge_SlaveGroups()
{
    for (int g = FIRST_TYPE_GROUP; g < NbBroadcasts; g++) {
        if (Broadcast[g].Device == 0)
            continue;
        for (int h = NbBroadcasts - 1; h > g; h--) {
            if (Broadcast[h].Mask != 0 && Broadcast[h].Device == Broadcast[g].Device &&
                Broadcast[h].BoardType == Broadcast[g].BoardType) {
                Broadcast[g].Mask |= Broadcast[h].Mask;
                set_Group(h, 0, 0, 0);
            }
        }
    }
}

// First group from Group on that is empty, or is not; NbBroadcasts when there is none.
static int find_Group(int Group, bool Empty)
{
    while (Group < NbBroadcasts && (Broadcast[Group].Mask == 0) != Empty)
        Group++;
    return Group;
}

// Moves the groups up over the empty ones. Returns the number of groups left.
static int compact_Groups()
{
    for (int i = FIRST_TYPE_GROUP;; i++) {
        i = find_Group(i, true);
        ASSERT(i <= NbBroadcasts, "i <= NbBroadcasts");
        if (i == NbBroadcasts)
            return i;
        ASSERT(!Broadcast[i].Mask, "! Broadcast[i].Mask");
        const int j = find_Group(i + 1, false);
        ASSERT(j <= NbBroadcasts, "j <= NbBroadcasts");
        if (j == NbBroadcasts)
            return i;
        ASSERT(Broadcast[j].Mask, "Broadcast[j].Mask");
        set_Group(i, Broadcast[j].Mask, Broadcast[j].Device, Broadcast[j].BoardType);
        set_Group(j, 0, 0, 0);
    }
}

void make_BroadcastMask()
{
    NbBroadcasts = static_cast<uint8_t>(NbSlaves + FIRST_TYPE_GROUP);
    make_InterfaceGroups();
    make_SlaveGroups();
    merge_SlaveGroups();
    NbBroadcasts = static_cast<uint8_t>(compact_Groups());
    publish_Senders();
}

static int fill_TypeGroup(int Group, int First, int End)
{
    set_Group(Group, 0, Slave[First].Device, Slave[First].BoardType);
    int k = First;
    while (k < End && Slave[k].Device == 0)
        k++;
    if (k == End)
        return 0;
    set_Group(Group, 0, Slave[k].Device, Slave[k].BoardType);
    for (int i = First; i < End; i++) {
        if ((Slave[i].Mask & Broadcast[BROADCAST_ALL].Mask) == 0)
            continue;
        if (Slave[i].Device != Broadcast[Group].Device ||
            Slave[i].BoardType != Broadcast[Group].BoardType) {
            REPORT("Erreur de configuration : Broadcast[%i]", Group);
            return -1;
        }
        Broadcast[Group].Mask |= Slave[i].Mask;
    }
    return 0;
}

int make_BroadcastMask_ForSlaveType(int Group, int First, int End)
{
    const int Status = fill_TypeGroup(Group, First, End);
    publish_Senders();
    return Status;
}

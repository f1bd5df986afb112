#include "Loader.h"
#include "A2l.h"
#include "Config.h"
#include "Exit.h"
#include "FileTools.h"
#include "Init.h"
#include "InterfacesCan.h"
#include "Log.h"
#include "MT_BoardState.h"
#include "MT_FileManage.h"
#include "MT_Info.h"
#include "Paths.h"
#include "Status.h"
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <tuple>
#include <unistd.h>

static const char SOURCE[] = "../src/Loader";

// ---- What the phases share ----

// Routines that report for their callers take the caller's line: the log is to show who it was.

// wait_pAns: an answer is held at pAns2Cmd.
constexpr int ANSWER = 1;

// A board's answer did not convert: the slave is done with, the phase goes on.
constexpr int NOT_CONVERTED = 1;

// Shows Shown and ends the process with Status.
[[noreturn]] static void exit_Unhandled(int Status, int Shown, int Line = __builtin_LINE())
{
    report_Error(SOURCE, Line, "Erreur non gérée : %i", Shown);
    exit_Process(Status);
}

// Sends Cmd. 0 or GEN_ERR_PRG_VANTREL.
static int send_Command(int Line = __builtin_LINE())
{
    if (send_Cmd(&Cmd) == 0)
        return 0;
    report_Error(SOURCE, Line, "Envoi de la commande");
    return GEN_ERR_PRG_VANTREL;
}

// Gives the answer back. Once given back it may be filled anew by the receive thread, so it is
// forgotten too.
static void give_AnswerBack()
{
    if (pAns2Cmd != nullptr)
        pAns2Cmd->Slaves = 0;
    pAns2Cmd = nullptr;
}

static bool is_ErrorAnswer()
{
    return (pAns2Cmd->Fn & FLAG_ACK) != 0;
}

// First parameter byte of the answer held, 0 without one.
static int get_AnswerCode()
{
    return pAns2Cmd != nullptr ? get_Parameter(pAns2Cmd, 0) : 0;
}

// Reads one item: 0 with the answer held, else the status with none held (the service has given an
// error answer back).
static int read_Item(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag)
{
    const int Status = get_Info_FromSlave(Slaves, Function, Tag);
    if (Status != 0)
        pAns2Cmd = nullptr;
    return Status;
}

// Reads one number: 0, NOT_CONVERTED (the board is to be replaced) or the status of the read.
static int read_NumberItem(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pValue,
                           int Line = __builtin_LINE())
{
    int Status = read_Item(Slaves, Function, Tag);
    if (Status != 0)
        return Status;
    Status = Ans2long(pValue);
    give_AnswerBack();
    if (Status == 0)
        return 0;
    report_Error(SOURCE, Line, "Erreur : conversion");
    ReplaceSlavesMask |= Slaves;
    return NOT_CONVERTED;
}

static bool is_ReadFault(int Status)
{
    return Status == ERR_INFO_UNKNOWN || Status == ERR_INFO_ANSWER || Status == ERR_TIMEOUT;
}

// Takes the next slave in service out of Set, behind *pIndex (-1 at first). false: none is left.
static bool take_NextSlave(BM_SLAVE_CAST *pSet, int *pIndex)
{
    while (*pSet != 0 && ++*pIndex < NbSlaves) {
        const SLAVE *pSlave = &Slave[*pIndex];
        if (pSlave->Device != 0 && (pSlave->Mask & *pSet) != 0) {
            *pSet &= ~pSlave->Mask;
            return true;
        }
    }
    return false;
}

// Visits the slaves of Set until a visit returns a negative status; returns the last visit's.
static int visit_Slaves(BM_SLAVE_CAST Set, int (*Visit)(SLAVE *))
{
    int Status = 0;
    for (int i = -1; Status >= 0 && take_NextSlave(&Set, &i);)
        Status = Visit(&Slave[i]);
    return Status;
}

// The slaves in play that are neither silent nor to be replaced.
static BM_SLAVE_CAST get_SoundSlaves()
{
    return Broadcast[BROADCAST_ALL].Mask ^ (ReplaceSlavesMask | TimeoutMask);
}

static int get_MaskStatus()
{
    return TimeoutMask != 0 || ReplaceSlavesMask != 0 ? -1 : 0;
}

static void ctrl_NoFault()
{
    ASSERT(TimeoutMask == 0, "! TimeoutMask");
    ASSERT(ReplaceSlavesMask == 0, "! ReplaceSlavesMask");
}

// 0, or not 0 after the report.
static int run_Command(const char *Command, int Line = __builtin_LINE())
{
    const int Status = system(Command);
    if (Status != 0)
        report_Error(SOURCE, Line, "Erreur : %s", Command);
    return Status;
}

static int make_WorkDir(const char *DirName, int Line = __builtin_LINE())
{
    const int Status = make_Dir(DirName);
    if (Status != 0)
        report_Error(SOURCE, Line, "Erreur : make_Dir(%s) = %i", DirName, Status);
    ASSERT(Status != SYST_ERR_MOUNT, "Status != SYST_ERR_MOUNT");
    return Status;
}

// ---- Presence ----

constexpr int NB_PRESENCE_PASSES = 20;
constexpr useconds_t PRESENCE_PAUSE_US = 100000;
constexpr uint8_t STATE_NOT_REQUIRED = 1;
constexpr int BYTE_HW_FLAG = 2;
constexpr int BYTE_SW_FLAG = 3;

// Takes a slave out of all further phases.
static void drop_Slave(SLAVE *pSlave)
{
    pSlave->Device = 0;
    pSlave->BoardType = 0;
    pSlave->BoardNumber = 0;
    pSlave->FuncAddr1 = 0;
    pSlave->FuncAddr2 = 0;
    for (int j = 0; j < NbBroadcasts; j++)
        Broadcast[j].Mask &= ~pSlave->Mask;
    publish_Senders();
}

// Drops the slaves of Set that the configuration does not require; returns them.
static BM_SLAVE_CAST drop_UnrequiredSlaves(BM_SLAVE_CAST Set)
{
    BM_SLAVE_CAST Dropped = 0;
    for (int i = 0; i < NbSlaves; i++) {
        if ((Slave[i].Mask & Set) != 0 && Slave[i].State == 0) {
            Dropped |= Slave[i].Mask;
            drop_Slave(&Slave[i]);
        }
    }
    return Dropped;
}

// One pass of the poll: everybody is asked, *pPending are those who did not answer. An answer from
// one who has already answered comes from a second board at the same address.
static int poll_Slaves(BM_SLAVE_CAST *pPending)
{
    MultipleSlavesOnAddMask = 0;
    usleep(PRESENCE_PAUSE_US);
    cmd_IsBoardReady(&Cmd, Broadcast[BROADCAST_ALL].Mask, FLAG_ACK);
    if (send_Command() != 0)
        return GEN_ERR_PRG_VANTREL;

    *pPending = Broadcast[BROADCAST_ALL].Mask;
    while (wait_pAns(&Cmd, &pAns2Cmd) == ANSWER) {
        if (is_ErrorAnswer())
            REPORT("Erreur non gérée : %i", get_AnswerCode());
        if ((pAns2Cmd->Slaves & *pPending) != 0)
            *pPending ^= pAns2Cmd->Slaves;
        else
            MultipleSlavesOnAddMask |= pAns2Cmd->Slaves;
        give_AnswerBack();
    }
    return 0;
}

// Puts the boards that are there without being required into their state of rest, then drops them,
// also those that did not answer.
static int rest_UnrequiredSlaves()
{
    BM_SLAVE_CAST Target = 0;
    for (int i = 0; i < NbSlaves; i++) {
        if ((Slave[i].Mask & Broadcast[BROADCAST_ALL].Mask) != 0 && Slave[i].State == 0)
            Target |= Slave[i].Mask;
    }
    if (Target == 0)
        return 0;

    const BM_SLAVE_CAST Sent = Target;
    clear_pAns();
    cmd_setBoardState(&Cmd, Target, FLAG_ACK, STATE_NOT_REQUIRED);
    if (send_Command() != 0)
        return GEN_ERR_PRG_VANTREL;
    while (Target != 0 && wait_pAns(&Cmd, &pAns2Cmd) == ANSWER) {
        Target ^= pAns2Cmd->Slaves;
        give_AnswerBack();
    }
    TimeoutMask |= Target;
    drop_UnrequiredSlaves(Sent);
    return 0;
}

int ctrl_SlavePresence()
{
    BM_SLAVE_CAST Pending = 0;
    int Status = -1;

    ASSERT(Broadcast[BROADCAST_ALL].Mask != 0, "Broadcast[BROADCAST_ALL].Mask");
    int Pass = 0;
    do {
        if (poll_Slaves(&Pending) != 0)
            return GEN_ERR_PRG_VANTREL;
    } while (Pending != 0 && ++Pass < NB_PRESENCE_PASSES);

    if (MultipleSlavesOnAddMask == 0) {
        TimeoutMask |= Pending & ~drop_UnrequiredSlaves(Pending);
        if (rest_UnrequiredSlaves() != 0)
            return GEN_ERR_PRG_VANTREL;
        Status = TimeoutMask != 0 ? -1 : 0;
    }
    clear_pAns();
    make_BroadcastMask();
    return Status;
}

// Judges one answer of ctrl_SlaveIntegrity. 1: the board raises the flag, 0: it does not.
static int judge_BoardState(int ByteIndex)
{
    if (is_ErrorAnswer()) {
        REPORT("Erreur non gérée : %i", get_AnswerCode());
        return GEN_ERR_MULTIPLE_ADDRESS;
    }
    if (get_Parameter(pAns2Cmd, ByteIndex) == 0)
        return 0;
    (ByteIndex == BYTE_HW_FLAG ? ReplaceSlavesMask : UpdateSwMask) |= pAns2Cmd->Slaves;
    return 1;
}

int ctrl_SlaveIntegrity(int ByteIndex)
{
    BM_SLAVE_CAST Target = get_SoundSlaves();
    int Status = 0;
    bool Flagged = false;

    if (Target == 0)
        return 0;
    cmd_getBoardState(&Cmd, Target, FLAG_ACK);
    if (send_Command() != 0)
        return GEN_ERR_PRG_VANTREL;

    while (Status == 0 && Target != 0) {
        switch (wait_pAns(&Cmd, &pAns2Cmd)) {
        case ANSWER:
            if ((pAns2Cmd->Slaves & Target) != 0) {
                Target ^= pAns2Cmd->Slaves;
                const int Judged = judge_BoardState(ByteIndex);
                Flagged |= Judged == 1;
                Status = std::min(Judged, 0);
            }
            give_AnswerBack();
            break;
        case ERR_TIMEOUT:
            TimeoutMask |= Target;
            Status = -1;
            break;
        default:
            REPORT("Mauvais retour sur fonction get_pAns !");
            exit_Process(GEN_ERR_PRG_VANTREL);
        }
    }
    if (Flagged && Status == 0 && ByteIndex == BYTE_HW_FLAG)
        Status = -1;
    clear_pAns();
    return Status;
}

int ctrl_HW()
{
    // Presence and integrity speak through the masks.
    ctrl_SlavePresence();
    if (MultipleSlavesOnAddMask != 0)
        return -1;
    ctrl_SlaveIntegrity(BYTE_HW_FLAG);
    const int Status = ctrl_HwTypeIdCompatibility();
    return Status != 0 ? Status : get_MaskStatus();
}

// ---- Addressing and exchanged boards ----

// Code of a board that finds its address in use, in an error answer; in a first answer, that
// another one follows.
constexpr int CODE_ADDRESS_USED = 0x82;

// Two boards at one address cannot be told apart any more: the run ends.
[[noreturn]] static void exit_AddressRefused(const SLAVE *pSlave)
{
    if (get_AnswerCode() != CODE_ADDRESS_USED)
        exit_Unhandled(ANSWER, get_AnswerCode());
    REPORT("Adresse multiple : BT = %X   BN = %X", unsigned{pSlave->BoardType},
           unsigned{pSlave->BoardNumber});
    exit_Process(GEN_ERR_MULTIPLE_ADDRESS);
}

static int readdress_Slave(SLAVE *pSlave)
{
    clear_pAns();
    cmd_setNewAddress(&Cmd, pSlave->Mask, FLAG_ACK, pSlave->FuncAddr2, pSlave->FuncAddr1);
    if (send_Command() != 0)
        return GEN_ERR_PRG_VANTREL;

    int Status = wait_pAns(&Cmd, &pAns2Cmd);
    if (Status == ANSWER && get_AnswerCode() == CODE_ADDRESS_USED) {
        give_AnswerBack();
        Status = wait_pAns(&Cmd, &pAns2Cmd);
    }
    if (Status != ANSWER) {
        TimeoutMask |= pSlave->Mask;
        REPORT("Timeout");
        return 0;
    }
    if (is_ErrorAnswer())
        exit_AddressRefused(pSlave);
    give_AnswerBack();
    pSlave->BoardNumber = pSlave->FuncAddr2;
    pSlave->BoardType = pSlave->FuncAddr1;
    publish_Senders();
    return 0;
}

int AdPhys2AdCan()
{
    // The last configured slave stays where it is.
    for (int i = 0; i < NbSlaves - 1; i++) {
        const bool InPlay = (Slave[i].Mask & Broadcast[BROADCAST_ALL].Mask) != 0;
        if (InPlay && Slave[i].Device == CAN_A && readdress_Slave(&Slave[i]) != 0)
            return GEN_ERR_PRG_VANTREL;
    }
    clear_pAns();
    make_BroadcastMask();
    return TimeoutMask != 0 ? -1 : 0;
}

// Hardware items that tell a board from another one.
constexpr uint8_t TAG_HW_IDENTITY = 4;
constexpr uint8_t TAG_HW_ITEM9 = 9;

// Ends the process on a status that no read gives.
static void ctrl_ReadStatus(int Status, int Shown, int Line = __builtin_LINE())
{
    if (Status < 0 && !is_ReadFault(Status))
        exit_Unhandled(Status, Shown, Line);
}

// Compares an item with the configured value; the value of another board takes its place.
static int ctrl_HwItem(SLAVE *pSlave, uint8_t Tag, uint16_t *pConfigured)
{
    int32_t Value = 0;
    const int Status = read_NumberItem(pSlave->Mask, INFO_HARDWARE, Tag, &Value);
    if (Status == ERR_INFO_UNKNOWN || Status == ERR_INFO_ANSWER)
        ReplaceSlavesMask |= pSlave->Mask;
    if (Status != 0 || static_cast<uint16_t>(Value) == *pConfigured)
        return Status;
    NewSlavesMask |= pSlave->Mask;
    pSlave->Changed = 1;
    *pConfigured = static_cast<uint16_t>(Value);
    return 0;
}

static int ctrl_NewSlavePresence(SLAVE *pSlave)
{
    const uint16_t Configured = pSlave->HwInfo4;
    const int Status = ctrl_HwItem(pSlave, TAG_HW_IDENTITY, &pSlave->HwInfo4);
    if (Status != 0)
        return Status;
    if (pSlave->HwInfo4 != Configured)
        NoDistributionMask |= pSlave->Mask;
    return ctrl_HwItem(pSlave, TAG_HW_ITEM9, &pSlave->HwInfo9);
}

int ctrl_NewSlavesPresence()
{
    ASSERT(NewSlavesMask == 0, "! NewSlavesMask");
    ctrl_NoFault();
    const int Status = visit_Slaves(Broadcast[BROADCAST_ALL].Mask, ctrl_NewSlavePresence);
    ctrl_ReadStatus(Status, Status);
    clear_pAns();
    return get_MaskStatus();
}

// ---- Hardware types ----

constexpr uint8_t TAG_TYPE_MAP = 1; // of the hardware and of the software items
constexpr uint8_t TAG_DB_DATE = 2;
constexpr uint8_t TAG_HW_LETTER = 5;
constexpr uint8_t TAG_HW_VERSION_A = 6;
constexpr uint8_t TAG_HW_VERSION_B = 7;

constexpr uint8_t FORMAT_TEXT = 5;
constexpr uint8_t FORMAT_BYTES = 6;

// Parameter bytes of an answer that carries an item: code, tag, length, format, value.
constexpr int BYTE_LENGTH = 2;
constexpr int BYTE_FORMAT = 3;
constexpr int BYTE_VALUE = 4;

// What the look-up of a board led to, beside negative statuses.
constexpr int DB_NO_TYPE = 0; // no map of the database allows the slot's type
constexpr int DB_WRITTEN = 1; // the board has taken a map that does
constexpr int DB_REFUSED = 2; // the board was to take it and did not

// One call of ctrl_HwTypeIdCompatibility.
struct HW_CHECK {
    BM_SLAVE_CAST Remaining;
    bool Retried;                  // a board was given the database's map; none was replaced since
    int32_t MostRecentDateOfSlave; // newest database date that a board carries, 0 not asked yet
};

static uint8_t *pTypeId; // map from the database, during a look-up only

int ctrl_TypeId(int16_t TypeId, const uint8_t *TypeIdMap, int16_t Length)
{
    const int Index = TypeId / 8;
    if (TypeId < 0 || Index + 1 > Length)
        return -1;
    return TypeIdMap[Index] >> (TypeId % 8) & 1;
}

// ctrl_TypeId of the slave's type in the map of the answer held, which is given back.
static int ctrl_TypeId_InAnswer(const SLAVE *pSlave)
{
    uint8_t Map[UINT8_MAX];
    const uint8_t Length = get_Parameter(pAns2Cmd, BYTE_LENGTH);
    for (int k = 0; k < Length; k++)
        Map[k] = get_Parameter(pAns2Cmd, BYTE_VALUE + k);
    give_AnswerBack();
    return ctrl_TypeId(pSlave->TypeId, Map, Length);
}

// Writes the map and the date of the database into the board.
static int write_TypeMap(BM_SLAVE_CAST Slaves, int Length, const char *DbDate)
{
    int Status = set_Info_ToSlave(Slaves, INFO_WRITE_HARDWARE, TAG_TYPE_MAP, FORMAT_BYTES,
                                  static_cast<uint16_t>(Length), pTypeId);
    if (Status == 0)
        Status = set_Info_ToSlave(Slaves, INFO_WRITE_HARDWARE, TAG_DB_DATE, FORMAT_TEXT,
                                  static_cast<uint16_t>(strlen(DbDate) + 1),
                                  reinterpret_cast<const uint8_t *>(DbDate));
    if (Status != 0 && Status != ERR_ANSWER_WRITE && Status != ERR_TIMEOUT)
        exit_Unhandled(Status, Status);
    return Status == 0 ? DB_WRITTEN : DB_REFUSED;
}

// Looks the board up and gives it the database's map when that map serves its slot.
static int use_Database(const SLAVE *pSlave, char *DbDate)
{
    pTypeId = static_cast<uint8_t *>(calloc(TYPE_MAP_SIZE, 1));
    if (pTypeId == nullptr)
        return ERR_MASTER_OS;

    const int Length = read_HwTypeId_FromDbFile(pSlave->Mask, DbDate, pTypeId);
    int Result = Length;
    if (Length > 0) {
        const bool Served = ctrl_TypeId(pSlave->TypeId, pTypeId, static_cast<int16_t>(Length)) == 1;
        Result = Served ? write_TypeMap(pSlave->Mask, Length, DbDate) : DB_NO_TYPE;
    }
    free(pTypeId);
    pTypeId = nullptr;
    return Result;
}

// Whether the database is recent enough to condemn a board: 0, else the status of the phase. The
// boards' newest date is asked for once, and again only when that failed.
static int ctrl_DbDate(const char *DbDate, HW_CHECK *pCheck)
{
    unsigned long long Date = 0;
    int32_t Oldest = 0;
    int32_t Newest = 0;

    if (sscanf(DbDate, "%llu", &Date) != 1)
        return ERR_SLAVES_DB;
    if (pCheck->MostRecentDateOfSlave != 0)
        return 0;
    const int Status =
        get_Info_MinMax_FromSlaves(get_SoundSlaves(), 0, TAG_DB_DATE, &Oldest, &Newest);
    pAns2Cmd = nullptr; // the service has given every answer back
    if (Status == 0) {
        pCheck->MostRecentDateOfSlave = Newest;
        ASSERT(pCheck->MostRecentDateOfSlave != 0, "MostRecentDateOfSlave_long");
        const uint32_t DbDate_long = static_cast<uint32_t>(std::min<uint64_t>(Date, UINT32_MAX));
        return static_cast<uint32_t>(Newest) > DbDate_long ? ERR_SLAVES_DB : 0;
    }
    if (is_ReadFault(Status)) {
        pCheck->Remaining &= ~(ReplaceSlavesMask | TimeoutMask);
        return 0;
    }
    REPORT("Erreur : Status = %i", Status);
    return Status;
}

// Checks one board. 0: on to the next one; ERR_INFO_UNKNOWN: the checks end here; else the status
// of the phase.
static int ctrl_HwTypeId(const SLAVE *pSlave, HW_CHECK *pCheck)
{
    char DbDate[DB_DATE_SIZE] = "";

    const int Read = read_Item(pSlave->Mask, INFO_HARDWARE, TAG_TYPE_MAP);
    if (Read == ERR_INFO_ANSWER || Read == ERR_TIMEOUT)
        return 0;
    if (Read != 0 && Read != ERR_INFO_UNKNOWN)
        exit_Unhandled(Read, Read);
    if (Read == 0 && ctrl_TypeId_InAnswer(pSlave) == 1)
        return 0;

    // After a board was served by the database the next one that does not fit, be it the same or
    // another, is replaced without a look-up.
    if (pCheck->Retried) {
        pCheck->Retried = false;
        ReplaceSlavesMask |= pSlave->Mask;
        return 0;
    }
    const int Result = use_Database(pSlave, DbDate);
    switch (Result) {
    case DB_WRITTEN:
        pCheck->Retried = true;
        return ctrl_HwTypeId(pSlave, pCheck);
    case DB_REFUSED:
        return 0;
    case ERR_INFO_UNKNOWN:
    case ERR_INFO_ANSWER:
    case ERR_TIMEOUT:
        return Read;
    case SYST_ERR_MOUNT:
        return ERR_MASTER_OS;
    case ERR_SLAVES_DB:
    case ERR_MASTER_HW:
    case ERR_MASTER_OS:
        return Result;
    case DB_NO_TYPE:
        break;
    default:
        exit_Unhandled(Result, Result);
    }
    const int Status = ctrl_DbDate(DbDate, pCheck);
    if (Status == 0)
        ReplaceSlavesMask |= pSlave->Mask;
    return Status;
}

int ctrl_HwTypeIdCompatibility()
{
    HW_CHECK Check = {get_SoundSlaves(), false, 0};
    int Status = 0;

    for (int i = -1; Status == 0 && take_NextSlave(&Check.Remaining, &i);)
        Status = ctrl_HwTypeId(&Slave[i], &Check);

    ASSERT(pTypeId == nullptr, "pTypeId == ((void *)0)");
    ASSERT(pAns2Cmd == nullptr || pAns2Cmd->Slaves == 0, "pAns2Cmd->Slaves == 0");
    if (Status != 0 && Status != ERR_INFO_UNKNOWN)
        return Status;
    clear_pAns();
    return get_MaskStatus();
}

// ---- Hardware database ----

constexpr int DB_SIGNATURE = 4699;
constexpr int DB_HEADER_LINE_SIZE = 129;
constexpr int DB_LINE_SIZE = 1616;
#define DB_FILE "slaves_db.txt" // decompressed, in DIR_WORK_HW

// What a board says of itself.
struct HW_IDENTITY {
    int16_t Number;
    int Letter;
    int16_t VersionA;
    int16_t VersionB;
};

// One entry line; Letter is a blank when the line has none.
struct DB_ENTRY {
    HW_IDENTITY For;
    char *Map; // DB_LINE_SIZE
};

// Reads one item of the identity into pValue: a number, or the revision letter.
static int read_HwIdentityItem(BM_SLAVE_CAST Slaves, uint8_t Tag, int32_t *pValue)
{
    int Status = read_Item(Slaves, INFO_HARDWARE, Tag);
    ctrl_ReadStatus(Status, Status);
    if (Status == 0) {
        if (Tag != TAG_HW_LETTER)
            Status = Ans2long(pValue);
        else if (get_Parameter(pAns2Cmd, BYTE_LENGTH) != 2 ||
                 get_Parameter(pAns2Cmd, BYTE_FORMAT) != FORMAT_TEXT)
            Status = GEN_ERR_FORMAT;
        else
            *pValue = get_Parameter(pAns2Cmd, BYTE_VALUE);
        give_AnswerBack();
        if (Status != 0)
            Status = ERR_INFO_UNKNOWN;
    }
    if (Status == ERR_INFO_UNKNOWN)
        ReplaceSlavesMask |= Slaves;
    return Status;
}

static int read_HwIdentity(BM_SLAVE_CAST Slaves, HW_IDENTITY *pBoard)
{
    static const uint8_t Tags[] = {TAG_HW_IDENTITY, TAG_HW_LETTER, TAG_HW_VERSION_A,
                                   TAG_HW_VERSION_B};
    int32_t Values[4] = {};

    for (int k = 0; k < 4; k++) {
        const int Status = read_HwIdentityItem(Slaves, Tags[k], &Values[k]);
        if (Status != 0)
            return Status;
    }
    *pBoard = {static_cast<int16_t>(Values[0]), Values[1], static_cast<int16_t>(Values[2]),
               static_cast<int16_t>(Values[3])};
    return 0;
}

// Why the database could not be copied, as the status of the phase.
static int get_CopyStatus(int Status)
{
    REPORT("Erreur : copy_File(%s, %s) = %i", PATH_SLAVES_DB, DB_FILE, Status);
    ASSERT(Status != GEN_ERR_NO_FILE, "Status != GEN_ERR_NO_FILE");
    switch (Status) {
    case SYST_ERR_MOUNT:
        REPORT("Erreur : SSD non accessible");
        return SYST_ERR_MOUNT;
    case SYST_ERR_UMOUNT:
        REPORT("Erreur : umount(SSD)");
        return ERR_MASTER_OS;
    case SYST_ERR_COPY:
        REPORT("Erreur : RAM probablement pleine");
        return ERR_MASTER_HW;
    default:
        exit_Unhandled(Status, Status);
    }
}

// Brings the database from the card and decompresses it in the working directory.
static int fetch_DbFile()
{
    static const char Compressed[] = PATH_SLAVES_DB ".gz";

    if (ctrl_FilePresence(Compressed) != 1)
        return ERR_SLAVES_DB;
    if (make_WorkDir(DIR_WORK_HW) != 0)
        return ERR_MASTER_OS;
    int Status = chdir(DIR_WORK_HW);
    ASSERT(Status >= 0, "Status >= 0");
    Status = copy_File(Compressed, "./");
    if (Status != 0)
        return get_CopyStatus(Status);
    // One that a cut run has left would stop gunzip with a question.
    unlink(DB_FILE);
    return run_Command("gunzip " DB_FILE ".gz") == 0 ? 0 : ERR_SLAVES_DB;
}

static int read_DbHeader(FILE *pFile, char *DbDate)
{
    char Line[DB_HEADER_LINE_SIZE];
    long long Signature = 0;

    if (fgets(Line, sizeof(Line), pFile) == nullptr)
        REPORT("Erreur de lecture de la signature.");
    else if (sscanf(Line, "%lld", &Signature) != 1)
        REPORT("Erreur de conversion de la signature.");
    else if (static_cast<int16_t>(Signature) != DB_SIGNATURE)
        REPORT("La signature n'est pas correcte.");
    else if (fgets(Line, sizeof(Line), pFile) == nullptr)
        REPORT("Erreur de lecture de la date.");
    else if (sscanf(Line, "%10[0-9]", DbDate) != 1)
        REPORT("Erreur de conversion de la date.");
    else
        return 0;
    return ERR_SLAVES_DB;
}

// Takes a line apart. false: it is no entry. Numbers keep their low 16 bits.
static bool scan_DbEntry(const char *Line, DB_ENTRY *pEntry)
{
    long long Number = 0;
    long long VersionA = 0;
    long long VersionB = 0;

    if (Line[0] == '#' || Line[0] == '\n')
        return false;
    if (sscanf(Line, "%*s %lld %1615s", &Number, pEntry->Map) < 2)
        return false;
    const bool Lettered = pEntry->Map[0] >= 'A' && pEntry->Map[0] <= 'Z';
    const uint8_t Letter = static_cast<uint8_t>(Lettered ? pEntry->Map[0] : ' ');
    const int Fields =
        Lettered ? sscanf(Line, "%*s %*d %*s %lld %lld %1615s", &VersionA, &VersionB, pEntry->Map)
                 : sscanf(Line, "%*s %*d %lld %lld %1615s", &VersionA, &VersionB, pEntry->Map);
    if (Fields < 3)
        return false;
    pEntry->For = {static_cast<int16_t>(Number), Letter, static_cast<int16_t>(VersionA),
                   static_cast<int16_t>(VersionB)};
    return true;
}

// Whether the entry is for the board and takes the place of the best one so far. The order of the
// tests is what makes the choice: a lower letter is taken again when its versions are higher.
static bool choose_DbEntry(const HW_IDENTITY *pBoard, const HW_IDENTITY *pEntry, HW_IDENTITY *pBest)
{
    if (pEntry->Number != pBoard->Number || pEntry->Letter > pBoard->Letter)
        return false;
    if (pEntry->Letter > pBest->Letter) {
        pBest->Letter = pEntry->Letter;
        pBest->VersionA = -1;
    }
    if (pBoard->VersionA < pEntry->VersionA)
        return false;
    if (pBest->VersionA < pEntry->VersionA) {
        pBest->VersionA = pEntry->VersionA;
        pBest->VersionB = -1;
    }
    if (pBoard->VersionB < pEntry->VersionB || pBest->VersionB > pEntry->VersionB)
        return false;
    pBest->VersionB = pEntry->VersionB;
    return true;
}

int get_HexaByte(const char *Text)
{
    if (Text[0] == 0)
        return 0;
    if (Text[0] == ' ' || Text[0] == '\t')
        return -1;
    int Value = 0;
    int Weight = 1;
    for (int k = Text[1] != 0 ? 1 : 0; k >= 0; k--) {
        const char Digit = Text[k];
        if (Digit >= '0' && Digit <= '9') {
            Value += Weight * (Digit - '0');
        } else if (Digit >= 'A' && Digit <= 'F') {
            Value += Weight * (Digit - 'A' + 10);
        } else if (Digit == 'a') {
            Value += Weight * 10;
        } else {
            REPORT("%s", Text + k);
            return -2;
        }
        Weight = 16;
    }
    return Value;
}

// Bytes decoded into pMap (TYPE_MAP_SIZE, a 0 is put behind them), or ERR_SLAVES_DB.
static int decode_TypeMap(const char *Text, uint8_t *pMap)
{
    int Count = 0;
    while (*Text != 0) {
        const int Byte = get_HexaByte(Text);
        if (Byte < 0 || Count == TYPE_MAP_SIZE - 1) {
            REPORT("Erreur : conversion type ID.");
            return ERR_SLAVES_DB;
        }
        pMap[Count++] = static_cast<uint8_t>(Byte);
        Text += Text[1] != 0 ? 2 : 1;
    }
    pMap[Count] = 0;
    return Count;
}

// Reads the entries to the end: length of the map of the last one chosen, or a status.
static int read_DbEntries(FILE *pFile, const HW_IDENTITY *pBoard, uint8_t *pMap)
{
    const std::unique_ptr<char[]> Line(new (std::nothrow) char[DB_LINE_SIZE]);
    const std::unique_ptr<char[]> Word(new (std::nothrow) char[DB_LINE_SIZE]);
    if (Line == nullptr || Word == nullptr)
        return ERR_MASTER_OS;

    DB_ENTRY Entry = {{}, Word.get()};
    HW_IDENTITY Best = {0, 0, -1, -1};
    int Length = 0;
    while (Length >= 0 && fgets(Line.get(), DB_LINE_SIZE, pFile) != nullptr) {
        if (scan_DbEntry(Line.get(), &Entry) && choose_DbEntry(pBoard, &Entry.For, &Best))
            Length = decode_TypeMap(Entry.Map, pMap);
    }
    return Length;
}

int read_HwTypeId_FromDbFile(BM_SLAVE_CAST SlaveMask, char *DbDate, uint8_t *pMap)
{
    HW_IDENTITY Board{};

    int Status = read_HwIdentity(SlaveMask, &Board);
    if (Status == 0)
        Status = fetch_DbFile();
    if (Status != 0)
        return Status;

    pMap[0] = 0;
    FILE *pFile = fopen(DB_FILE, "r");
    if (pFile == nullptr) {
        REPORT("Erreur : fopen(" DB_FILE ")");
        Status = ERR_SLAVES_DB;
    } else {
        Status = read_DbHeader(pFile, DbDate);
        if (Status == 0)
            Status = read_DbEntries(pFile, &Board, pMap);
        fclose(pFile);
    }
    return run_Command("rm " DB_FILE) == 0 ? Status : ERR_MASTER_OS;
}

// ---- Software ----

// Hardware index of a board, and the software items.
constexpr uint8_t TAG_HW_INDEX = 8;
constexpr uint8_t TAG_SW_MNEMO = 2;
constexpr uint8_t TAG_SW_VERSION = 3; // then sub-version and compilation
constexpr uint8_t TAG_SW_INDEX_LOWEST = 9;
constexpr uint8_t TAG_SW_INDEX_HIGHEST = 10;

static int ctrl_SwTypeId(SLAVE *pSlave)
{
    const int Status = read_Item(pSlave->Mask, INFO_SOFTWARE, TAG_TYPE_MAP);
    if (Status == ERR_INFO_UNKNOWN || Status == ERR_INFO_ANSWER)
        ReplaceSlavesMask |= pSlave->Mask;
    if (Status == 0 && ctrl_TypeId_InAnswer(pSlave) != 1)
        NoDistributionMask |= pSlave->Mask;
    return Status;
}

int ctrl_SwTypeIdCompatibility()
{
    ctrl_NoFault();
    const int Status = visit_Slaves(Broadcast[BROADCAST_ALL].Mask ^ UpdateSwMask, ctrl_SwTypeId);
    ctrl_ReadStatus(Status, get_AnswerCode());
    clear_pAns();
    return get_MaskStatus();
}

// Reads a bound of the range of indices that a software accepts; software that knows none is old.
static int read_IndexBound(BM_SLAVE_CAST Slaves, uint8_t Tag, int16_t *pBound)
{
    int32_t Value = 0;
    const int Status = read_NumberItem(Slaves, INFO_SOFTWARE, Tag, &Value);
    if (Status == ERR_INFO_UNKNOWN)
        UpdateSwMask |= Slaves;
    *pBound = static_cast<int16_t>(Value);
    return Status;
}

static int ctrl_Index(SLAVE *pSlave)
{
    int32_t Value = 0;
    int16_t Bound = 0;

    int Status = read_NumberItem(pSlave->Mask, INFO_HARDWARE, TAG_HW_INDEX, &Value);
    if (Status == ERR_INFO_UNKNOWN || Status == ERR_INFO_ANSWER)
        ReplaceSlavesMask |= pSlave->Mask;
    if (Status != 0)
        return Status;
    pSlave->IndexOfCompatibility = static_cast<uint16_t>(Value);
    const int16_t Index = static_cast<int16_t>(Value);

    Status = read_IndexBound(pSlave->Mask, TAG_SW_INDEX_LOWEST, &Bound);
    if (Status != 0)
        return Status;
    if (Index < Bound) {
        NoDistributionMask |= pSlave->Mask;
        return 0;
    }
    Status = read_IndexBound(pSlave->Mask, TAG_SW_INDEX_HIGHEST, &Bound);
    if (Status == 0 && Index > Bound)
        UpdateSwMask |= pSlave->Mask;
    return Status;
}

void ctrl_IndexOfCompatibility()
{
    ctrl_NoFault();
    const int Status = visit_Slaves(Broadcast[BROADCAST_ALL].Mask ^ UpdateSwMask, ctrl_Index);
    ctrl_ReadStatus(Status, get_AnswerCode());
    clear_pAns();
}

int ctrl_SW()
{
    if (ctrl_SlaveIntegrity(BYTE_SW_FLAG) != 0)
        return -1;
    if (ctrl_SwTypeIdCompatibility() != 0)
        return -1;
    ctrl_IndexOfCompatibility();
    return get_MaskStatus();
}

// An item that identifies software must be known.
static void ctrl_SwItemKnown(int Status, BM_SLAVE_CAST Slaves, const char *Item)
{
    if (Status != ERR_INFO_UNKNOWN)
        return;
    REPORT("Erreur : %s inconnu !!!", Item);
    ReplaceSlavesMask |= Slaves;
}

// Whether the board's mnemonic is the slot's, as far as the shorter of the two goes: *pSame.
static int compare_SwMnemo(const SLAVE *pSlave, bool *pSame)
{
    char Mnemo[UINT8_MAX * 3 + 1]; // the longest text of an item
    int Status = read_Item(pSlave->Mask, INFO_SOFTWARE, TAG_SW_MNEMO);
    ctrl_SwItemKnown(Status, pSlave->Mask, "SwMnemo");
    if (Status != 0)
        return Status;
    Status = Ans2string(Mnemo, sizeof(Mnemo));
    give_AnswerBack();
    if (Status != 0) {
        REPORT("Erreur : conversion");
        ReplaceSlavesMask |= pSlave->Mask;
        return NOT_CONVERTED;
    }
    const size_t Length = std::min(strlen(pSlave->DistName), strlen(Mnemo));
    *pSame = strncmp(pSlave->DistName, Mnemo, Length) == 0;
    return 0;
}

static int ctrl_NewSlaveSw(SLAVE *pSlave)
{
    static const char *const Items[] = {"SwVersion", "SwSubVersion", "SwCompilation"};
    bool Same = false;

    int Status = compare_SwMnemo(pSlave, &Same);
    for (uint8_t k = 0; k < 3 && Status == 0 && Same; k++) {
        int32_t Value = 0;
        Status = read_NumberItem(pSlave->Mask, INFO_SOFTWARE, TAG_SW_VERSION + k, &Value);
        ctrl_SwItemKnown(Status, pSlave->Mask, Items[k]);
        Same = static_cast<int16_t>(Value) == pSlave->DistVersion[k];
    }
    if (Status == 0 && Same)
        NoDistributionMask &= ~pSlave->Mask;
    return Status;
}

int ctrl_NewSlavesSw()
{
    ctrl_NoFault();
    if (NewSlavesMask == 0)
        return 0;
    const BM_SLAVE_CAST Set = Broadcast[BROADCAST_ALL].Mask & NewSlavesMask & ~UpdateSwMask;
    NoDistributionMask |= Set;
    const int Status = visit_Slaves(Set, ctrl_NewSlaveSw);
    ctrl_ReadStatus(Status, get_AnswerCode());
    clear_pAns();
    if (get_MaskStatus() == 0)
        return 0;
    // The findings of a broken check stand, but for the first slave's.
    NewSlavesMask &= ~BM_SLAVE_CAST{1};
    NoDistributionMask &= ~BM_SLAVE_CAST{1};
    return -1;
}

// ---- Upload ----

// Name of the distribution that a board runs. 0; 1: it cannot be told and the board is to be
// updated; -1: the board does not answer as it should.
static int identify_Distribution(BM_SLAVE_CAST Slaves, char *Name, int Line = __builtin_LINE())
{
    const int Status = make_DistributionName_FromSlave(Slaves, Name);
    pAns2Cmd = nullptr; // the service has given every answer back
    switch (Status) {
    case 0:
        return 0;
    case ERR_INFO_UNKNOWN:
    case GEN_ERR_FORMAT:
        UpdateSwMask |= Slaves;
        return 1;
    case ERR_INFO_ANSWER:
    case ERR_TIMEOUT:
        return -1;
    default:
        exit_Unhandled(Status, Status, Line);
    }
}

// Path (TEXT_SIZE) of a distribution's archive. Names have less than DISTRIBUTION_SIZE characters.
static void make_ArchivePath(char *Path, const char *DirName, const char *Name)
{
    snprintf(Path, TEXT_SIZE, "%s/%s.tar.gz", DirName, Name);
}

// 1: the archive is in the store, 0: it is not, ERR_MASTER_OS: the store cannot be reached.
static int ctrl_ArchivePresence(const char *Path, int Line = __builtin_LINE())
{
    const int Status = ctrl_FilePresence(Path);
    if (Status == SYST_ERR_MOUNT) {
        report_Error(SOURCE, Line, "Erreur : SSD non accessible");
        return ERR_MASTER_OS;
    }
    if (Status != 0 && Status != 1)
        exit_Unhandled(Status, Status, Line);
    return Status;
}

// Removes what a broken transfer has left of its staging directory; most leave nothing.
static int remove_Staging()
{
    if (ctrl_DirPresence(DIR_WORK_SW_TMP) != 1)
        return 0;
    return run_Command("rm -R " DIR_WORK_SW_TMP) == 0 ? 0 : ERR_MASTER_OS;
}

// Moves the archive that was made of a board's software to the store.
static int save_Archive(const char *Name)
{
    char Path[TEXT_SIZE];

    make_ArchivePath(Path, DIR_WORK_SW, Name);
    const int Status = copy_File(Path, DIR_STORE);
    switch (Status) {
    case 0:
        return run_Command("rm " DIR_WORK_SW "/*") == 0 ? 0 : ERR_MASTER_OS;
    case SYST_ERR_MOUNT:
        REPORT("Erreur : SSD non accessible");
        return ERR_MASTER_OS;
    case SYST_ERR_COPY:
        REPORT("Erreur : SSD probablement pleine");
        return ERR_MASTER_NVM_FULL;
    case SYST_ERR_UMOUNT:
        REPORT("Erreur : umount(SSD)");
        return ERR_MASTER_OS;
    default:
        exit_Unhandled(Status, Status);
    }
}

// Statuses that a transfer of a distribution cannot give.
static void ctrl_TransferStatus(int Status)
{
    ASSERT(Status != GEN_ERR_PRG_VANTREL, "Status != GEN_ERR_PRG_VANTREL");
    ASSERT(Status != SYST_ERR_MOUNT, "Status != SYST_ERR_MOUNT");
}

static int upload_Distribution(SLAVE *pSlave)
{
    char Name[DISTRIBUTION_SIZE];
    char Path[TEXT_SIZE];

    int Status = identify_Distribution(pSlave->Mask, Name);
    if (Status != 0)
        return Status;
    make_ArchivePath(Path, DIR_STORE, Name);
    Status = ctrl_ArchivePresence(Path);
    if (Status != 0)
        return Status;

    Status = get_SlaveDistribution(pSlave->Mask);
    ctrl_TransferStatus(Status);
    switch (Status) {
    case 0:
        return save_Archive(Name);
    case ERR_SHEADER:
    case ERR_FILE_SLAVE:
        UpdateSwMask |= pSlave->Mask;
        return remove_Staging();
    case ERR_TIMEOUT:
        return remove_Staging() == 0 ? -1 : ERR_MASTER_OS;
    case SYST_ERR_MKDIR:
    case GEN_ERR_FOPEN:
    case GEN_ERR_FCLOSE:
        return ERR_MASTER_OS;
    default:
        exit_Unhandled(Status, Status);
    }
}

int upload_Distributions_FromSlaves()
{
    ctrl_NoFault();
    const int Status =
        visit_Slaves(Broadcast[BROADCAST_ALL].Mask ^ UpdateSwMask, upload_Distribution);
    if (Status < 0)
        return Status;
    clear_pAns();
    return 0;
}

// ---- Download ----

// Brings an archive from the store to the working directory. 1; 0: the store has none.
static int fetch_Archive(const char *Name)
{
    char Path[TEXT_SIZE];

    make_ArchivePath(Path, DIR_STORE, Name);
    int Status = ctrl_ArchivePresence(Path);
    if (Status != 1)
        return Status;
    Status = copy_File(Path, DIR_WORK_SW);
    switch (Status) {
    case 0:
        return 1;
    case SYST_ERR_COPY:
    case SYST_ERR_MOUNT:
    case SYST_ERR_UMOUNT:
        REPORT("Erreur : %i", Status);
        return ERR_MASTER_OS;
    default:
        exit_Unhandled(Status, Status);
    }
}

// Removes an archive that no board can use.
static void remove_Archive(const char *Name)
{
    char Command[TEXT_SIZE];
    snprintf(Command, sizeof(Command), "rm %s/%s.tar.gz", DIR_STORE, Name);
    std::ignore = system(Command);
}

// What the slot expects when the slave is in UpdateSwMask, what appl.todo asks for otherwise.
static int download_Distribution(SLAVE *pSlave)
{
    char Name[DISTRIBUTION_SIZE];
    const bool Forced = (UpdateSwMask & pSlave->Mask) == 0;

    UpdateSwMask &= ~pSlave->Mask;
    if (Forced)
        snprintf(Name, sizeof(Name), "%s", ForcedDistributions[pSlave - Slave]);
    else
        snprintf(Name, sizeof(Name), "%s.%u.%u.%u", pSlave->DistName,
                 unsigned{pSlave->DistVersion[0]}, unsigned{pSlave->DistVersion[1]},
                 unsigned{pSlave->DistVersion[2]});

    int Status = fetch_Archive(Name);
    if (Status < 0)
        return Status;
    if (Status == 0) {
        NoDistributionMask |= pSlave->Mask;
        return 0;
    }
    Status = put_SlaveDistribution(pSlave->Mask, Name);
    ctrl_TransferStatus(Status);
    switch (Status) {
    case 0:
        if (Forced)
            ForcedDownloadMask |= pSlave->Mask;
        return 0;
    case ERR_TIMEOUT:
    case ERR_ANSWER_WRITE:
        return -1;
    case ERR_FILE_SIZE_PUT: // the board does not keep what it is sent
        ReplaceSlavesMask |= pSlave->Mask;
        return -1;
    case ERR_SHEADER:
        if (Forced) {
            UpdateSwMask |= pSlave->Mask;
            return download_Distribution(pSlave);
        }
        NoDistributionMask |= pSlave->Mask;
        remove_Archive(Name);
        return 0;
    case GEN_ERR_FOPEN:
    case GEN_ERR_FCLOSE:
        return ERR_MASTER_OS;
    default:
        exit_Unhandled(Status, Status);
    }
}

int download_Distributions_ToSlaves()
{
    ctrl_NoFault();
    int Status = make_WorkDir(DIR_WORK_SW);
    if (Status != 0)
        return Status;

    const BM_SLAVE_CAST Forced = ForcedDownloadMask;
    UpdateSwMask &= ~Forced;
    ForcedDownloadMask = 0;
    Status = visit_Slaves(UpdateSwMask | Forced, download_Distribution);
    clear_pAns();
    return Status;
}

// Reads "NAME.1.2.3" into what the slot expects. false: the name is not of that form.
static bool read_DistributionName(char *Name, SLAVE *pSlave)
{
    char Mnemo[DISTRIBUTION_SIZE];
    long long tmpLong[3] = {};
    uint16_t tmpInt[3];

    size_t j = 0;
    for (; Name[j] != 0; j++) {
        if (Name[j] == '.')
            Name[j] = ' ';
    }
    ASSERT(j < DISTRIBUTION_SIZE, "j < 40");

    const int Fields =
        sscanf(Name, "%39s %lld %lld %lld", Mnemo, &tmpLong[0], &tmpLong[1], &tmpLong[2]);
    if (Fields < 1 || strlen(Mnemo) >= DIST_NAME_SIZE)
        return false;
    snprintf(pSlave->DistName, DIST_NAME_SIZE, "%.11s", Mnemo);
    if (Fields < 4)
        return false;
    for (int k = 0; k < 3; k++)
        tmpInt[k] = static_cast<uint16_t>(tmpLong[k]);
    ASSERT(tmpInt[0] < 256, "tmpInt[0] < 256");
    ASSERT(tmpInt[1] < 256, "tmpInt[1] < 256");
    ASSERT(tmpInt[2] < 256, "tmpInt[2] < 256");
    for (int k = 0; k < 3; k++)
        pSlave->DistVersion[k] = static_cast<uint8_t>(tmpInt[k]);
    return true;
}

static int update_SlaveInfo_Sw(SLAVE *pSlave)
{
    char Name[DISTRIBUTION_SIZE];

    ForcedDownloadMask &= ~pSlave->Mask;
    const int Status = identify_Distribution(pSlave->Mask, Name);
    if (Status == 0)
        (read_DistributionName(Name, pSlave) ? NewSlavesMask : UpdateSwMask) |= pSlave->Mask;
    return Status;
}

int update_SlavesInfo_Sw()
{
    ctrl_NoFault();
    ASSERT(ForcedDownloadMask != 0, "ForcedDownloadMask");
    return std::min(visit_Slaves(ForcedDownloadMask, update_SlaveInfo_Sw), 0);
}

// ---- Protocols and start ----

constexpr int16_t PROTOCOL_STRUCTURE_HIGHEST = 255;
constexpr uint8_t STATE_START_APPLICATION = 0x01;
constexpr uint8_t STATE_START_WITH_PROTOCOL = 0x02;
constexpr uint8_t STATE_RUN = 2; // board state of an application that needs no parameters

// Tries the structures that appl.protocols lists for a group, from the highest down. 0; -1: the
// phase ends; a mismatch is in NoDistributionMask.
static int ctrl_Protocol(int DeviceIndex)
{
    BROADCAST *pGroup = &Broadcast[DeviceIndex];

    pGroup->ProtocolStructure = PROTOCOL_STRUCTURE_HIGHEST;
    pGroup->ProtocolLevel = -1;
    for (;;) {
        read_Protocol_FromProtocolsFile(DeviceIndex);
        if (pGroup->ProtocolStructure == -1) {
            NoDistributionMask |= pGroup->Mask;
            return 0;
        }
        const int Status = get_Protocol_FromSlaves(DeviceIndex);
        switch (Status) {
        case -1:
            pGroup->ProtocolStructure--;
            break;
        case 0:
        case ERR_INFO_UNKNOWN:
            return 0;
        case ERR_INFO_ANSWER:
        case ERR_TIMEOUT:
            return -1;
        default:
            exit_Unhandled(Status, Status);
        }
    }
}

int ctrl_Protocols()
{
    ctrl_NoFault();
    ASSERT(NoDistributionMask == 0, "! NoDistributionMask");
    int Status = open_ProtocolsFile();
    ASSERT(Status == 0, "Status == 0");
    for (int d = 1; d < NB_INTERFACES && Status == 0; d++) {
        if (Broadcast[d].Device != 0 && Broadcast[d].Mask != 0)
            Status = ctrl_Protocol(d);
    }
    close_ProtocolsFile();
    return Status;
}

static int start_Application(SLAVE *pSlave)
{
    ASSERT(pSlave->Device < NB_INTERFACES, "Slave[i].Device < NB_INTERFACES");
    const BROADCAST *pGroup = &Broadcast[pSlave->Device];
    ASSERT((pGroup->Mask & pSlave->Mask) != 0, "Broadcast[Slave[i].Device].Mask & Slave[i].Mask");
    ASSERT((pSlave->State & STATE_START_APPLICATION) != 0, "Slave[i].State & 0x01");

    if ((pSlave->State & STATE_START_WITH_PROTOCOL) != 0)
        cmd_StartApplication(&Cmd, pSlave->Mask, FLAG_ACK, pSlave->BoardType, pSlave->BoardNumber,
                             static_cast<uint8_t>(pGroup->ProtocolStructure),
                             static_cast<uint8_t>(pGroup->ProtocolLevel), 0,
                             pSlave->IndexOfCompatibility);
    else
        cmd_setBoardState(&Cmd, pSlave->Mask, FLAG_ACK, STATE_RUN);
    if (send_Command() != 0)
        return GEN_ERR_PRG_VANTREL;
    if (wait_pAns(&Cmd, &pAns2Cmd) == ERR_TIMEOUT) {
        TimeoutMask |= pSlave->Mask;
        REPORT("Timeout");
        return -1;
    }
    // Whatever the answer says: a board that answers has got the command.
    give_AnswerBack();
    return 0;
}

int start_Applications()
{
    ctrl_NoFault();
    ASSERT(NoDistributionMask == 0, "! NoDistributionMask");
    return visit_Slaves(Broadcast[BROADCAST_ALL].Mask, start_Application);
}

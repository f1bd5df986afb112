#include "MT_Info.h"
#include "Exit.h"
#include "FileTools.h"
#include "Log.h"
#include "Status.h"
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static const char SOURCE[] = "../src/MT_Info";

// Driver ticks for an answer.
constexpr uint32_t TIMEOUT_TICKS = 40;

// Offsets in an information record, and in an answer (whose record follows the answer code).
constexpr int RECORD_LEN = 1;
constexpr int RECORD_TYPE = 2;
constexpr int RECORD_VALUE = 3;
constexpr int ANSWER_RECORD = 1;

// Type byte of an information record.
constexpr uint8_t TYPE_CHAR = 1;
constexpr uint8_t TYPE_SHORT = 2;
constexpr uint8_t TYPE_LONG = 3;
constexpr uint8_t TYPE_CHAR_ASCII = 4;
constexpr uint8_t TYPE_TEXT = 5;
constexpr uint8_t TYPE_BYTES = 6;
constexpr uint8_t TYPE_FLOAT = 7;
constexpr uint8_t TYPE_BYTES_2 = 8;
constexpr uint8_t TYPE_TIME = 9;
constexpr uint8_t TYPE_UNSIGNED = 0x80;

// Software items.
constexpr uint8_t TAG_DISTRIBUTION_NAME = 2;
constexpr uint8_t TAG_DISTRIBUTION_COMPILATION = 5;
constexpr uint8_t TAG_PROTOCOLS = 11;

void cmd_Info(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag)
{
    pCmd->MT = MT_INFO;
    pCmd->Fn = Function | Flag;
    pCmd->Slaves = Slaves;
    pCmd->TimeOut = Flag != 0 ? TIMEOUT_TICKS : 0;
    pCmd->NbP = 1;
    pCmd->pP[0] = Tag;
}

void cmd_setInfo(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, uint8_t Tag,
                 uint8_t Type, uint16_t Len, const uint8_t *pData)
{
    // A message that is too long is stopped where it is sent: its length says so, also where it
    // does not fit NbP, and no byte goes beyond the buffer.
    const int NbData = std::min<int>(Len, NB_PARAMETERS_MAX - RECORD_VALUE);

    cmd_Info(pCmd, Slaves, Flag, Function, Tag);
    pCmd->NbP = static_cast<int16_t>(std::min<int>(Len + RECORD_VALUE, INT16_MAX));
    pCmd->pP[RECORD_LEN] = static_cast<uint8_t>(Len & 0xFF);
    pCmd->pP[RECORD_TYPE] = Type;
    std::copy_n(pData, NbData, pCmd->pP + RECORD_VALUE);
}

// Sends Cmd to its one slave and waits. 0: the answer is at pAns2Cmd.
static int ask_Slave()
{
    if (send_Cmd(&Cmd) != 0) {
        REPORT("Envoi de la commande");
        return GEN_ERR_PRG_VANTREL;
    }
    if (wait_pAns(&Cmd, &pAns2Cmd) < 0) {
        TimeoutMask |= Cmd.Slaves;
        REPORT("Timeout");
        return ERR_TIMEOUT;
    }
    return 0;
}

int get_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag)
{
    if (Slaves == 0) {
        REPORT("Aucun slave n'est définit");
        return GEN_ERR_PRG_VANTREL;
    }
    if (!std::has_single_bit(Slaves)) {
        REPORT("Le masque contient plus d'un slave");
        return GEN_ERR_PRG_VANTREL;
    }

    cmd_Info(&Cmd, Slaves, FLAG_ACK, Function, Tag);
    int Status = ask_Slave();
    if (Status != 0 || (pAns2Cmd->Fn & FLAG_ACK) == 0)
        return Status;

    if (get_Parameter(pAns2Cmd, 0) == INFO_CODE_UNKNOWN) {
        Status = ERR_INFO_UNKNOWN;
    } else {
        // The report shows the status as it is before the answer is judged.
        REPORT("Erreur : %i", Status);
        ReplaceSlavesMask |= Slaves;
        Status = ERR_INFO_ANSWER;
    }
    pAns2Cmd->Slaves = 0;
    clear_pAns();
    return Status;
}

// Reads an item and hands its answer to Convert. After an error answer there is nothing to give
// back: get_Info_FromSlave has done it.
template <typename CONVERT>
static int convert_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag,
                                  CONVERT Convert)
{
    int Status = get_Info_FromSlave(Slaves, Function, Tag);

    switch (Status) {
    case 0:
        Status = Convert();
        pAns2Cmd->Slaves = 0;
        if (Status == 0)
            return 0;
        REPORT("Erreur : conversion");
        ReplaceSlavesMask |= Slaves;
        return -1;
    case ERR_INFO_ANSWER:
        ReplaceSlavesMask |= Slaves;
        return -1;
    case ERR_INFO_UNKNOWN:
        return ERR_INFO_UNKNOWN;
    case ERR_TIMEOUT:
        return -1;
    default:
        REPORT("Erreur non gérée : %i", Status);
        exit_Process(Status);
    }
}

int get_Long_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pValue)
{
    return convert_Info_FromSlave(Slaves, Function, Tag, [=] { return Ans2long(pValue); });
}

int get_String_Info_FromSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, char *pText,
                              int SizeText)
{
    return convert_Info_FromSlave(Slaves, Function, Tag,
                                  [=] { return Ans2string(pText, SizeText); });
}

int get_Info_MinMax_FromSlaves(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, int32_t *pMin,
                               int32_t *pMax)
{
    int Result = 0;

    ASSERT(Slaves != 0, "Slaves");
    *pMin = INT32_MAX;
    *pMax = INT32_MIN;
    for (int i = 0; i < NbSlaves; i++) {
        if ((Slave[i].Mask & Slaves) == 0)
            continue;
        const int Status = get_Info_FromSlave(Slave[i].Mask, Function, Tag);
        int32_t Value = 0;
        switch (Status) {
        case 0:
            if (Ans2long(&Value) == 0) {
                *pMin = std::min(*pMin, Value);
                *pMax = std::max(*pMax, Value);
            } else {
                REPORT("Warning de conversion : Function = %02X   Tag = %02X", Function, Tag);
                if (Result == 0)
                    Result = ERR_INFO_UNKNOWN;
            }
            pAns2Cmd->Slaves = 0;
            clear_pAns();
            break;
        case ERR_INFO_ANSWER:
            Result = ERR_INFO_ANSWER;
            break;
        case ERR_INFO_UNKNOWN:
            if (Result == 0)
                Result = ERR_INFO_UNKNOWN;
            break;
        case ERR_TIMEOUT:
            if (Result == 0 || Result == ERR_INFO_UNKNOWN)
                Result = ERR_TIMEOUT;
            break;
        default:
            REPORT("FATAL - Status : %i - Slave: %016llX", Status,
                   static_cast<unsigned long long>(Slave[i].Mask));
            REPORT("Function : 0x%02X   Tag : %i", Function, Tag);
            exit_Process(Status);
        }
    }
    return Result;
}

int set_Info_ToSlave(BM_SLAVE_CAST Slaves, uint8_t Function, uint8_t Tag, uint8_t Type,
                     uint16_t Len, const uint8_t *pData)
{
    cmd_setInfo(&Cmd, Slaves, FLAG_ACK, Function, Tag, Type, Len, pData);
    int Status = ask_Slave();
    if (Status != 0)
        return Status;
    if ((pAns2Cmd->Fn & FLAG_ACK) != 0) {
        // The report shows the status as it is before the answer is judged.
        REPORT("Erreur : %i", Status);
        ReplaceSlavesMask |= Slaves;
        Status = ERR_ANSWER_WRITE;
    }
    pAns2Cmd->Slaves = 0;
    return Status;
}

// Byte Index of a record of which NbRecord bytes are there.
static uint8_t get_RecordByte(const uint8_t *pRecord, int NbRecord, int Index)
{
    return Index < NbRecord ? pRecord[Index] : uint8_t{0};
}

static uint16_t get_Short(const uint8_t *pValue)
{
    return static_cast<uint16_t>(pValue[0] << 8 | pValue[1]);
}

static uint32_t get_Long(const uint8_t *pValue)
{
    return uint32_t{get_Short(pValue)} << 16 | get_Short(pValue + 2);
}

// The boards send a float as it lies in the master's memory, least significant byte first.
static float get_Float(const uint8_t *pValue)
{
    const uint32_t Bits = uint32_t{pValue[3]} << 24 | uint32_t{pValue[2]} << 16 |
                          uint32_t{pValue[1]} << 8 | pValue[0];
    return std::bit_cast<float>(Bits);
}

// Names in the messages and lengths of the types that have a fixed one; Len 0: any.
struct TYPE_FORMAT {
    const char *Name;
    uint8_t Len;
};
static const TYPE_FORMAT TypeFormats[] = {
    {"", 0}, {" char", 1}, {" short", 2}, {" long", 4}, {" char ascii", 1},
    {"", 0}, {"", 0},      {" float", 4}, {"", 0},      {" time_t", 4}};

static const TYPE_FORMAT *get_Format(uint8_t Type)
{
    return &TypeFormats[Type <= TYPE_TIME ? Type : 0];
}

// 1 when the value is there whole and has the length of its type, else 0.
static int ctrl_RecordLen(int NbRecord, uint8_t Len, const TYPE_FORMAT *pFormat)
{
    // A record without a value needs no bytes behind its length.
    if (Len != 0 && RECORD_VALUE + Len > NbRecord)
        return 0;
    return pFormat->Len == 0 || pFormat->Len == Len;
}

// Len bytes as " 01 0A". The length of the text.
static int print_Bytes(char *pText, size_t SizeText, const uint8_t *pValue, uint8_t Len)
{
    for (int i = 0; i < Len && 3 * static_cast<size_t>(i) < SizeText; i++)
        snprintf(pText + 3 * i, SizeText - 3 * static_cast<size_t>(i), " %02X", pValue[i]);
    return 3 * Len;
}

int Info2string(const uint8_t *pRecord, int NbRecord, char *pText, int SizeText)
{
    const uint8_t Len = get_RecordByte(pRecord, NbRecord, RECORD_LEN);
    const uint8_t Type = get_RecordByte(pRecord, NbRecord, RECORD_TYPE);
    const uint8_t *pValue = pRecord + RECORD_VALUE;
    const TYPE_FORMAT *pFormat = get_Format(Type);
    const size_t Size = static_cast<size_t>(SizeText);
    int LenText = 0;

    pText[0] = 0;
    if (Type == TYPE_TIME) {
        REPORT("Erreur : Info2string - Format time_t - Ne doit pas exister");
        return GEN_ERR_FORMAT;
    }
    if (!ctrl_RecordLen(NbRecord, Len, pFormat)) {
        REPORT("Erreur : Info2string - Format%s", pFormat->Name);
        return GEN_ERR_FORMAT;
    }
    switch (Type) {
    case TYPE_CHAR:
        LenText = snprintf(pText, Size, "%i", pValue[0]);
        break;
    case TYPE_SHORT:
        LenText = snprintf(pText, Size, "%d", static_cast<int16_t>(get_Short(pValue)));
        break;
    case TYPE_LONG:
        LenText = snprintf(pText, Size, "%ld",
                           static_cast<long>(std::bit_cast<int32_t>(get_Long(pValue))));
        break;
    case TYPE_CHAR_ASCII:
    case TYPE_TEXT:
        LenText = snprintf(pText, Size, "%.*s", Len, reinterpret_cast<const char *>(pValue));
        break;
    case TYPE_BYTES:
    case TYPE_BYTES_2:
        LenText = print_Bytes(pText, Size, pValue, Len);
        break;
    case TYPE_FLOAT:
        LenText = snprintf(pText, Size, "%f", static_cast<double>(get_Float(pValue)));
        break;
    default: // unsigned types too: no text
        break;
    }
    // A text that was cut would pass for another one.
    if (LenText >= SizeText) {
        pText[0] = 0;
        REPORT("Erreur : Info2string - Format%s", pFormat->Name);
        return GEN_ERR_FORMAT;
    }
    return 0;
}

// Number at the start of a text as "%ld" or "%lu" of a 32-bit long reads it. 0, or -1: none.
static int read_Number(const char *pText, bool Unsigned, int32_t *pValue)
{
    char *pEnd = nullptr;
    const long long Number = strtoll(pText, &pEnd, 10);

    if (pEnd == pText)
        return -1;
    if (!Unsigned)
        *pValue = static_cast<int32_t>(std::clamp<long long>(Number, INT32_MIN, INT32_MAX));
    else if (Number > UINT32_MAX || Number < -int64_t{UINT32_MAX})
        *pValue = std::bit_cast<int32_t>(UINT32_MAX);
    else
        *pValue = static_cast<int32_t>(Number);
    return 0;
}

// A float cut to an integer of the range of its signedness. 0, or -1: too large.
static int read_Float(float Float, bool Unsigned, int32_t *pValue)
{
    const double Number = std::isnan(Float) ? 0.0 : std::trunc(static_cast<double>(Float));

    if (Number > (Unsigned ? 4294967296.0 : 2147483648.0))
        return -1;
    // The limit itself passes and is one more than fits.
    if (Unsigned) {
        const double Clamped = std::clamp<double>(Number, 0, UINT32_MAX);
        *pValue = std::bit_cast<int32_t>(static_cast<uint32_t>(Clamped));
    } else {
        *pValue = static_cast<int32_t>(std::clamp<double>(Number, INT32_MIN, INT32_MAX));
    }
    return 0;
}

// For a report: line feeds and escape sequences of a board would forge lines of the log and play
// with the terminal that shows it.
static void make_Printable(char *pText)
{
    for (; *pText != 0; pText++) {
        if (*pText < ' ' || *pText > '~')
            *pText = '?';
    }
}

int Info2long(const uint8_t *pRecord, int NbRecord, int32_t *pValue)
{
    const uint8_t Len = get_RecordByte(pRecord, NbRecord, RECORD_LEN);
    const uint8_t TypeByte = get_RecordByte(pRecord, NbRecord, RECORD_TYPE);
    const bool Unsigned = (TypeByte & TYPE_UNSIGNED) != 0;
    const uint8_t Type = static_cast<uint8_t>(TypeByte & ~TYPE_UNSIGNED);
    const uint8_t *pBytes = pRecord + RECORD_VALUE;
    const TYPE_FORMAT *pFormat = get_Format(Type);
    char Text[UINT8_MAX + 1];

    *pValue = 0;
    // No character is a number, not even a digit; a date is signed.
    if (Type == TYPE_CHAR_ASCII || (Type == TYPE_TIME && Unsigned) ||
        !ctrl_RecordLen(NbRecord, Len, pFormat)) {
        REPORT("Erreur : Info2long - Format%s", pFormat->Name);
        return GEN_ERR_FORMAT;
    }
    switch (Type) {
    case TYPE_CHAR:
        *pValue = pBytes[0];
        return 0;
    case TYPE_SHORT:
        *pValue = get_Short(pBytes);
        return 0;
    case TYPE_LONG:
    case TYPE_TIME:
        *pValue = std::bit_cast<int32_t>(get_Long(pBytes));
        return 0;
    case TYPE_TEXT:
        snprintf(Text, sizeof(Text), "%.*s", Len, reinterpret_cast<const char *>(pBytes));
        if (read_Number(Text, Unsigned, pValue) == 0)
            return 0;
        make_Printable(Text);
        REPORT("Erreur : Info2long(%s) - Pas numérique", Text);
        return GEN_ERR_FORMAT;
    case TYPE_BYTES:
    case TYPE_BYTES_2:
        REPORT("Erreur : Type = %i ne doit pas exister", Type);
        return GEN_ERR_FORMAT;
    case TYPE_FLOAT:
        if (read_Float(get_Float(pBytes), Unsigned, pValue) == 0)
            return 0;
        REPORT("Erreur : Info2long - Float trop long");
        return GEN_ERR_FORMAT;
    default:
        return 0;
    }
}

int Ans2string(char *pText, int SizeText)
{
    return Info2string(pAns2Cmd->pP + ANSWER_RECORD, pAns2Cmd->NbP - ANSWER_RECORD, pText,
                       SizeText);
}

int Ans2long(int32_t *pValue)
{
    return Info2long(pAns2Cmd->pP + ANSWER_RECORD, pAns2Cmd->NbP - ANSWER_RECORD, pValue);
}

// Appends the item at pAns2Cmd, a version number behind a dot, when all of it fits.
static int append_DistributionItem(uint8_t Tag, char *pName)
{
    char Item[DISTRIBUTION_SIZE];
    const char *Dot = Tag == TAG_DISTRIBUTION_NAME ? "" : ".";
    const size_t Used = strlen(pName);

    const int Status = Ans2string(Item, sizeof(Item));
    if (Status != 0)
        return Status;
    const size_t Room = DISTRIBUTION_SIZE - Used;
    if (static_cast<size_t>(snprintf(pName + Used, Room, "%s%s", Dot, Item)) < Room)
        return 0;
    pName[Used] = 0;
    return GEN_ERR_FORMAT;
}

int make_DistributionName_FromSlave(BM_SLAVE_CAST Slaves, char *pName)
{
    int Status = 0;

    pName[0] = 0;
    if (Slaves == 0) {
        REPORT("Aucun slave n'est définit");
        return GEN_ERR_PRG_VANTREL;
    }
    for (uint8_t Tag = TAG_DISTRIBUTION_NAME; Tag <= TAG_DISTRIBUTION_COMPILATION && Status == 0;
         Tag++) {
        Status = get_Info_FromSlave(Slaves, INFO_SOFTWARE, Tag);
        if (Status == 0) {
            Status = append_DistributionItem(Tag, pName);
            pAns2Cmd->Slaves = 0;
            clear_pAns();
        }
    }
    // The name becomes a path and part of shell commands.
    if (Status == 0 && !ctrl_SafeDistributionName(pName))
        Status = GEN_ERR_FORMAT;
    if (Status != 0)
        REPORT("Erreur : %i", Status);
    return Status;
}

// What the slaves that have answered so far accept.
struct PROTOCOL_RANGE {
    int Low;
    int High;
    bool AllMatch; // every one of them has the structure and a common level
};

// Looks for the interface's structure in the triples of the answer at pAns2Cmd and narrows the
// range to its levels. The bound is on the offset in the answer, not in the value: boards fill up
// behind their last triple.
static void narrow_Range(int Structure, PROTOCOL_RANGE *pRange)
{
    const uint8_t *pP = pAns2Cmd->pP;
    const int End = std::min<int>(pP[ANSWER_RECORD + RECORD_LEN], pAns2Cmd->NbP - 2);

    for (int k = ANSWER_RECORD + RECORD_VALUE; k < End; k += 3) {
        if (pP[k] != Structure)
            continue;
        if (pRange->High < pP[k + 1])
            break;
        pRange->Low = std::max<int>(pRange->Low, pP[k + 1]);
        if (pRange->Low > pP[k + 2])
            break;
        pRange->High = std::min<int>(pRange->High, pP[k + 2]);
        return;
    }
    pRange->AllMatch = false;
}

static void judge_ProtocolAnswer(int Structure, PROTOCOL_RANGE *pRange)
{
    const uint8_t Code = get_Parameter(pAns2Cmd, 0);
    const uint8_t Len = get_Parameter(pAns2Cmd, ANSWER_RECORD + RECORD_LEN);
    const uint8_t Type = get_Parameter(pAns2Cmd, ANSWER_RECORD + RECORD_TYPE);

    if ((pAns2Cmd->Fn & FLAG_ACK) != 0) {
        if (Code == INFO_CODE_UNKNOWN) {
            NoDistributionMask |= pAns2Cmd->Slaves;
        } else {
            REPORT("Erreur : %i", Code);
            ReplaceSlavesMask |= pAns2Cmd->Slaves;
        }
    } else if (Type != TYPE_BYTES || (Len - 4) % 3 == 0) {
        NoDistributionMask |= pAns2Cmd->Slaves;
    } else {
        narrow_Range(Structure, pRange);
    }
}

int get_Protocol_FromSlaves(int DeviceIndex)
{
    PROTOCOL_RANGE Range = {0, 255, true};

    ASSERT(TimeoutMask == 0, "! TimeoutMask");
    ASSERT(ReplaceSlavesMask == 0, "! ReplaceSlavesMask");
    ASSERT(NoDistributionMask == 0, "! NoDistributionMask");
    ASSERT(DeviceIndex > 0 && DeviceIndex < NB_INTERFACES,
           "(DeviceIndex > 0) && (DeviceIndex < NB_INTERFACES)");
    BROADCAST *const pGroup = &Broadcast[DeviceIndex];
    ASSERT(pGroup->ProtocolStructure >= 0, "Broadcast[DeviceIndex].ProtocolStructure >= 0");

    cmd_Info(&Cmd, pGroup->Mask, FLAG_ACK, INFO_SOFTWARE, TAG_PROTOCOLS);
    if (send_Cmd(&Cmd) != 0) {
        REPORT("Envoi de la commande");
        return GEN_ERR_PRG_VANTREL;
    }
    BM_SLAVE_CAST Expected = pGroup->Mask;
    while (Expected != 0) {
        if (wait_pAns(&Cmd, &pAns2Cmd) < 0) {
            TimeoutMask |= Expected;
            REPORT("Timeout");
            break;
        }
        ASSERT((Expected & pAns2Cmd->Slaves) != 0, "tmpSlaves & pAns2Cmd->Slaves");
        Expected &= ~pAns2Cmd->Slaves;
        judge_ProtocolAnswer(pGroup->ProtocolStructure, &Range);
        pAns2Cmd->Slaves = 0;
    }
    clear_pAns();

    if (ReplaceSlavesMask != 0)
        return ERR_INFO_ANSWER;
    if (TimeoutMask != 0)
        return ERR_TIMEOUT;
    if (NoDistributionMask != 0)
        return ERR_INFO_UNKNOWN;
    const int Lowest = static_cast<int16_t>(pGroup->ProtocolParam1);
    const int Highest = static_cast<int16_t>(pGroup->ProtocolParam2);
    if (!Range.AllMatch || Highest < Range.Low || Lowest > Range.High)
        return -1;
    pGroup->ProtocolLevel = static_cast<int16_t>(std::min(Highest, Range.High));
    return 0;
}

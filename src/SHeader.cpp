#include "SHeader.h"
#include "FileTools.h"
#include "Log.h"
#include "MT_Info.h"
#include "Status.h"
#include "Tables.h"
#include <cstring>

static const char SOURCE[] = "../src/SHeader";

constexpr uint16_t SHEADER_SIGNATURE = 0x0601;

// Tags of the records by which a distribution is named.
constexpr uint8_t TAG_SW_NAME = 2;
constexpr uint8_t TAG_SW_VERSION_1 = 3;
constexpr uint8_t TAG_SW_VERSION_2 = 4;
constexpr uint8_t TAG_SW_VERSION_3 = 5;

FILE *SheaderFile;
uint8_t SheaderUnread;

// A failed seek is reported and reading goes on from where the stream stands: the checks of what
// is read then decide.
static void seek_Sheader(off_t Offset, int Origin, const char *OriginName)
{
    if (fseeko(SheaderFile, Offset, Origin) != 0) {
        REPORT("Erreur : fseek(%s)", OriginName);
        SheaderUnread = 1;
    }
}

// Reads an unsigned big-endian number of the width of *pValue. 0, or -1 after a report.
template <typename UINT>
static int read_BigEndian(UINT *pValue)
{
    uint8_t Bytes[sizeof(UINT)];
    if (read_Bytes_FromFile(SheaderFile, Bytes, sizeof Bytes) != sizeof Bytes) {
        REPORT("Erreur : lecture dans sheader.bin");
        return -1;
    }
    uint32_t Value = 0;
    for (const uint8_t Byte : Bytes)
        Value = Value << 8 | Byte;
    *pValue = static_cast<UINT>(Value);
    return 0;
}

static int ctrl_SheaderSize(const SHEADER *pSHeader)
{
    seek_Sheader(0, SEEK_END, "SEEK_END");
    if (ftello(SheaderFile) == static_cast<off_t>(pSHeader->size))
        return 0;
    REPORT("Erreur : dimensions sheader.bin != valeur dans fichier");
    return -1;
}

// Reads where a table starts and how many entries it has.
static int read_Table(const SHEADER *pSHeader, uint32_t *pOffset, uint16_t *pCount)
{
    if (read_BigEndian(pOffset) != 0)
        return -1;
    if (*pOffset >= pSHeader->size) {
        REPORT("Erreur : offset hors fichier");
        return -1;
    }
    return read_BigEndian(pCount);
}

// Everything after the signature.
static int read_Sheader(SHEADER *pSHeader)
{
    if (read_BigEndian(&pSHeader->size) != 0 || ctrl_SheaderSize(pSHeader) != 0)
        return -1;
    seek_Sheader(6, SEEK_SET, "SEEK_SET");
    if (read_Table(pSHeader, &pSHeader->offset_SwInfo, &pSHeader->nb_SwInfo) != 0 ||
        read_Table(pSHeader, &pSHeader->offset_Files, &pSHeader->nb_Files) != 0)
        return -1;
    seek_Sheader(4, SEEK_CUR, "SEEK_CUR");
    if (read_BigEndian(&pSHeader->Word22) != 0 || read_BigEndian(&pSHeader->Byte24) != 0 ||
        read_BigEndian(&pSHeader->Byte25) != 0 || read_BigEndian(&pSHeader->Long26) != 0)
        return -1;
    seek_Sheader(0, SEEK_SET, "SEEK_SET");
    return 0;
}

int open_SheaderFile(SHEADER *pSHeader)
{
    ASSERT(SheaderFile == nullptr, "SheaderFile == ((void *)0)");
    SheaderUnread = 0;
    SheaderFile = fopen(SHEADER_NAME, "r");
    if (SheaderFile == nullptr) {
        REPORT("Erreur : fopen(%s)", SHEADER_NAME);
        return GEN_ERR_FOPEN;
    }
    // A file without even a signature stays open: the caller closes it.
    if (read_BigEndian(&pSHeader->signature) != 0)
        return ERR_SHEADER;

    if (pSHeader->signature != SHEADER_SIGNATURE)
        REPORT("Erreur : signature sheader.bin");
    else if (read_Sheader(pSHeader) == 0)
        return 0;
    close_SheaderFile();
    return ERR_SHEADER;
}

void close_SheaderFile()
{
    if (SheaderFile == nullptr)
        return;
    if (ferror(SheaderFile))
        SheaderUnread = 1;
    fclose(SheaderFile);
    SheaderFile = nullptr;
}

// Moves behind the tag byte of the first record of Tag. 1: found, 0: not.
static int find_InfoSw(const SHEADER *pSHeader, uint8_t Tag)
{
    seek_Sheader(pSHeader->offset_SwInfo, SEEK_SET, "SEEK_SET");
    for (int i = 0; i < pSHeader->nb_SwInfo; i++) {
        const int RecordTag = fgetc(SheaderFile);
        if (RecordTag == Tag)
            return 1;
        const int Length = RecordTag == EOF ? EOF : fgetc(SheaderFile);
        if (Length == EOF)
            return 0;
        seek_Sheader(Length + 1, SEEK_CUR, "SEEK_CUR"); // type and data
    }
    return 0;
}

int read_InfoSw(const SHEADER *pSHeader, uint8_t Tag, uint8_t *Buffer)
{
    // The value of the tag against the number of records: a header with fewer than 6 records
    // cannot be asked for tag 5.
    ASSERT(pSHeader->nb_SwInfo > Tag, "pSHeader->nb_SwInfo > Tag");
    if (!find_InfoSw(pSHeader, Tag))
        return 0;
    const int Length = fgetc(SheaderFile);
    if (Length == EOF) {
        REPORT("Erreur : Tag trouvé, mais sa chaîne est erronée");
        return -1;
    }
    if (Length + 3 > INFO_SW_SIZE)
        return -1;
    Buffer[0] = Tag;
    Buffer[1] = static_cast<uint8_t>(Length);
    return read_Bytes_FromFile(SheaderFile, Buffer + 2, Length + 1) == Length + 1 ? Length + 3 : -1;
}

// The record of Tag, or 0 after a report.
static int read_SwRecord(const SHEADER *pSHeader, uint8_t Tag, uint8_t *Buffer)
{
    const int NbRecord = read_InfoSw(pSHeader, Tag, Buffer);
    if (NbRecord > 0)
        return NbRecord;
    REPORT("Erreur : lecture");
    return 0;
}

static int read_SwName(const SHEADER *pSHeader, char *Name, int SizeName)
{
    uint8_t Record[INFO_SW_SIZE];
    const int NbRecord = read_SwRecord(pSHeader, TAG_SW_NAME, Record);
    if (NbRecord == 0)
        return -1;
    // The name becomes part of paths and of commands for the shell.
    if (Info2string(Record, NbRecord, Name, SizeName) == 0 && ctrl_SafeDistributionName(Name))
        return 0;
    REPORT("Erreur : conversion");
    return -1;
}

static int read_SwVersion(const SHEADER *pSHeader, uint8_t Tag, uint16_t *pVersion)
{
    uint8_t Record[INFO_SW_SIZE];
    const int NbRecord = read_SwRecord(pSHeader, Tag, Record);
    if (NbRecord == 0)
        return -1;
    int32_t Value = 0;
    if (Info2long(Record, NbRecord, &Value) != 0) {
        REPORT("Erreur : conversion");
        return -1;
    }
    *pVersion = static_cast<uint16_t>(Value);
    return 0;
}

int read_InfoSw_FromSheader(char *Name, int SizeName, uint16_t *pVersion1, uint16_t *pVersion2,
                            uint16_t *pVersion3)
{
    memset(Name, 0, static_cast<size_t>(SizeName));
    *pVersion1 = *pVersion2 = *pVersion3 = 0;

    SHEADER Sheader{};
    int Status = open_SheaderFile(&Sheader);
    if (Status != 0)
        REPORT("Erreur d'ouverture du fichier sheader : %i", Status);
    else if (read_SwName(&Sheader, Name, SizeName) != 0 ||
             read_SwVersion(&Sheader, TAG_SW_VERSION_1, pVersion1) != 0 ||
             read_SwVersion(&Sheader, TAG_SW_VERSION_2, pVersion2) != 0 ||
             read_SwVersion(&Sheader, TAG_SW_VERSION_3, pVersion3) != 0)
        Status = ERR_SHEADER;
    close_SheaderFile();
    return Status;
}

int make_DistributionName_FromSheader(char *DistributionName)
{
    char Name[DISTRIBUTION_SIZE];
    char Text[DISTRIBUTION_SIZE];
    uint16_t Version1;
    uint16_t Version2;
    uint16_t Version3;
    int Status = read_InfoSw_FromSheader(Name, sizeof Name, &Version1, &Version2, &Version3);
    if (Status == 0 && snprintf(Text, sizeof Text, "%s.%hi.%hi.%hi", Name,
                                static_cast<int16_t>(Version1), static_cast<int16_t>(Version2),
                                static_cast<int16_t>(Version3)) >= DISTRIBUTION_SIZE)
        Status = ERR_SHEADER; // longer than any name that the rest of the loader takes
    if (Status != 0) {
        REPORT("Erreur : read_InfoSw_FromSHeader");
        return Status;
    }
    memcpy(DistributionName, Text, strlen(Text) + 1);
    return 0;
}

#include "Config.h"
#include "Exit.h"
#include "FileTools.h"
#include "Log.h"
#include "Paths.h"
#include "Status.h"
#include "Tables.h"
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <ctime>

static const char SOURCE[] = "../src/Config";

FILE *ConfigFile;
int16_t Config_Version;
FILE *ProtocolsFile;

constexpr int NB_HEADER_LINES = 4;
constexpr int NB_LINES_BEFORE_SLAVES = NB_HEADER_LINES + 1;
constexpr int16_t VERSION_MIN = 0;
constexpr int16_t VERSION_MAX = 0;
constexpr int NB_SLAVES_MAX = 247; // one more and the groups would not fit NbBroadcasts
constexpr int DEVICE_WORD_SIZE = 20;

// The protocols file may be of any date.
constexpr int64_t PROTOCOLS_REFERENCE_DATE = INT64_MAX;

int scan_Number(const char **pText, int Base, int64_t *pValue)
{
    char *pEnd = nullptr;
    const long long Value = strtoll(*pText, &pEnd, Base);

    if (pEnd == *pText)
        return 0;
    *pText = pEnd;
    *pValue = Value;
    return 1;
}

static bool is_Blank(char Character)
{
    return isspace(static_cast<unsigned char>(Character)) != 0;
}

int scan_Word(const char **pText, char *Word, int Size)
{
    const char *pStart = *pText;

    while (is_Blank(*pStart))
        pStart++;
    const char *pEnd = pStart;
    while (*pEnd != '\0' && !is_Blank(*pEnd))
        pEnd++;
    const auto Length = static_cast<size_t>(pEnd - pStart);
    const bool Fits = Length < static_cast<size_t>(Size);
    if (Fits)
        memcpy(Word, pStart, Length);
    Word[Fits ? Length : 0] = '\0';
    *pText = pEnd;
    if (Length == 0)
        return 0;
    return Fits ? 1 : -1;
}

int read_Number(FILE *pFile, int Size, int Base, int64_t *pValue)
{
    char Line[LINE_SIZE];
    const char *pText = Line;

    if (fgets(Line, Size, pFile) == nullptr)
        return -1;
    return scan_Number(&pText, Base, pValue);
}

// False when the file ends before.
static bool skip_Lines(FILE *pFile, int NbLines)
{
    char Line[LINE_SIZE];

    while (NbLines > 0 && fgets(Line, sizeof Line, pFile) != nullptr)
        NbLines--;
    return NbLines == 0;
}

static bool rewind_File(FILE *pFile)
{
    if (fseek(pFile, 0, SEEK_SET) == 0)
        return true;
    REPORT("Erreur lors du fseek(SEEK_SET)");
    return false;
}

static void close_File(FILE **ppFile)
{
    if (*ppFile != nullptr)
        fclose(*ppFile);
    *ppFile = nullptr;
}

// Fields of Count numbers that follow each other, low 16 bits each.
static bool scan_Shorts(const char **pText, uint16_t *pValues, int Count)
{
    int64_t Value = 0;

    for (int i = 0; i < Count; i++) {
        if (scan_Number(pText, 10, &Value) != 1)
            return false;
        pValues[i] = static_cast<uint16_t>(Value);
    }
    return true;
}

// --- The header of both files ---

// What differs in the two headers.
struct CONFIG_HEADER {
    int64_t ReferenceDate; // the file may not be newer
    const char *TextDate;  // when it is
    const char *TextNoVersion;
};

static int ctrl_Signature(FILE *pFile)
{
    int64_t Signature = 0;

    switch (read_Number(pFile, LINE_SIZE, 10, &Signature)) {
    case -1:
        REPORT("Erreur de lecture de la signature.");
        return ERR_CONFIG_READ;
    case 0:
        REPORT("Erreur de conversion de la signature.");
        return ERR_CONFIG_READ;
    default:
        break;
    }
    if (static_cast<uint16_t>(Signature) != FILE_SIGNATURE) {
        REPORT("La signature n'est pas correcte.");
        return GEN_ERR_PRG_VANTREL;
    }
    return 0;
}

static int ctrl_Date(FILE *pFile, const CONFIG_HEADER *pHeader)
{
    int Status = 0;
    int64_t Date = 0;

    switch (read_Number(pFile, LINE_SIZE, 10, &Date)) {
    case -1:
        REPORT("Erreur de lecture de la date.");
        return ERR_CONFIG_READ;
    case 0:
        REPORT("Erreur de conversion de la date.");
        Status = GEN_ERR_PRG_VANTREL;
        break;
    default:
        break;
    }
    // Also after a line without a number, which counts as the date 0.
    if (pHeader->ReferenceDate < Date) {
        REPORT("%s", pHeader->TextDate);
        Status = GEN_ERR_PRG_VANTREL;
    }
    return Status;
}

static int ctrl_Version(FILE *pFile, const CONFIG_HEADER *pHeader)
{
    int64_t Version = 0;

    switch (read_Number(pFile, LINE_SIZE, 10, &Version)) {
    case -1:
        REPORT("%s", pHeader->TextNoVersion);
        return ERR_CONFIG_READ;
    case 0:
        REPORT("Erreur de conversion de la version.");
        return ERR_CONFIG_READ;
    default:
        break;
    }
    Config_Version = static_cast<int16_t>(Version);
    if (Config_Version < VERSION_MIN || Config_Version > VERSION_MAX) {
        REPORT("La version n'est pas reconnue.");
        return GEN_ERR_PRG_VANTREL;
    }
    return 0;
}

// Checks the first four lines and goes back to the first.
static int ctrl_Header(FILE *pFile, const CONFIG_HEADER *pHeader)
{
    int Status = ctrl_Signature(pFile);

    if (Status == 0)
        Status = ctrl_Date(pFile, pHeader);
    if (Status == 0 && !skip_Lines(pFile, 1)) {
        REPORT("Erreur de lecture de la version de l'application.");
        Status = ERR_CONFIG_READ;
    }
    if (Status == 0) {
        Status = ctrl_Version(pFile, pHeader);
        rewind_File(pFile); // a failure shows again when the lines are read
    }
    return Status;
}

// --- appl.conf ---

int ctrl_ConfigFile()
{
    if (ctrl_FilePresence(PATH_APPL_CONF) == 0) {
        REPORT("Erreur : ctrl_FilePresence(%s)", PATH_APPL_CONF);
        return GEN_ERR_CONFIG;
    }
    const int Status = open_ConfigFile();
    if (Status != 0) {
        ASSERT(ConfigFile == nullptr, "ConfigFile == ((void *)0)");
        REPORT("Erreur : open_ConfigFile");
        return Status;
    }
    ASSERT(ConfigFile != nullptr, "ConfigFile != ((void *)0)");
    close_ConfigFile();
    return 0;
}

int open_ConfigFile()
{
    ASSERT(ConfigFile == nullptr, "ConfigFile == ((void *)0)");
    const CONFIG_HEADER Header = {time(nullptr), "Warning : Date du fichier de configuration",
                                  "Erreur de lecture de la version."};

    ConfigFile = fopen(PATH_APPL_CONF, "r");
    if (ConfigFile == nullptr) {
        REPORT("Erreur : fopen(%s)", PATH_APPL_CONF);
        return ERR_CONFIG_OPEN;
    }
    const int Status = ctrl_Header(ConfigFile, &Header);
    if (Status != 0)
        close_ConfigFile();
    return Status;
}

void close_ConfigFile()
{
    close_File(&ConfigFile);
}

// Goes to the beginning and past NbLines lines. On failure the file is closed.
static int go_PastLines(int NbLines)
{
    int Status = 0;

    ASSERT(ConfigFile != nullptr, "ConfigFile != ((void *)0)");
    if (!rewind_File(ConfigFile)) {
        Status = ERR_MASTER_OS;
    } else if (!skip_Lines(ConfigFile, NbLines)) {
        REPORT("Erreur de lecture de la version.");
        Status = ERR_CONFIG_READ;
    }
    if (Status != 0)
        close_ConfigFile();
    return Status;
}

int read_NbSlaves_FromConfig()
{
    int64_t i = 0;

    const int Status = go_PastLines(NB_LINES_BEFORE_SLAVES - 1);
    if (Status != 0)
        return Status;
    switch (read_Number(ConfigFile, LINE_SIZE, 0, &i)) {
    case -1:
        REPORT("Erreur de lecture de la version.");
        close_ConfigFile();
        return ERR_CONFIG_READ;
    case 0:
        REPORT("Erreur de conversion de la version.");
        return ERR_CONFIG_READ;
    default:
        break;
    }
    ASSERT((i > 0) && (i < 256), "(i > 0) && (i < 256)");
    if (i > NB_SLAVES_MAX) {
        REPORT("Erreur : nombre de slaves = %i", static_cast<int>(i));
        close_ConfigFile();
        return ERR_CONFIG_READ;
    }
    NbSlaves = static_cast<uint8_t>(i);
    return 0;
}

// The name ends up in paths and command lines: a bounded, safe one or none.
static bool scan_DistName(const char **pText, char *DistName)
{
    char Word[DIST_NAME_SIZE] = {};

    if (scan_Word(pText, Word, sizeof Word) != 1 || !ctrl_SafeDistributionName(Word))
        return false;
    memcpy(DistName, Word, sizeof Word);
    return true;
}

// Converts the 13 fields of a slave's line, but for the meaning of the device word. HwInfo4,
// HwInfo9 and DistName are stored as they come, the others when the line is complete.
static bool scan_Slave(const char *Line, SLAVE *pSlave, char *DeviceWord)
{
    const char *pText = Line;
    uint16_t State = 0;
    uint16_t Address[4] = {};
    uint16_t Version[3] = {};
    uint16_t TypeId = 0;

    if (!scan_Shorts(&pText, &State, 1) || scan_Word(&pText, DeviceWord, DEVICE_WORD_SIZE) != 1 ||
        !scan_Shorts(&pText, Address, 4) || !scan_Shorts(&pText, &pSlave->HwInfo4, 1) ||
        !scan_Shorts(&pText, &pSlave->HwInfo9, 1) || !scan_DistName(&pText, pSlave->DistName) ||
        !scan_Shorts(&pText, Version, 3) || !scan_Shorts(&pText, &TypeId, 1))
        return false;
    pSlave->State = static_cast<uint8_t>(State);
    pSlave->BoardType = static_cast<uint8_t>(Address[0]);
    pSlave->BoardNumber = static_cast<uint8_t>(Address[1]);
    pSlave->FuncAddr1 = static_cast<uint8_t>(Address[2]);
    pSlave->FuncAddr2 = static_cast<uint8_t>(Address[3]);
    for (int i = 0; i < 3; i++)
        pSlave->DistVersion[i] = static_cast<uint8_t>(Version[i]);
    pSlave->TypeId = static_cast<uint8_t>(TypeId);
    return true;
}

static int read_SlaveLine(SLAVE *pSlave)
{
    char Line[LINE_SIZE];
    char DeviceWord[DEVICE_WORD_SIZE];

    if (fgets(Line, sizeof Line, ConfigFile) == nullptr) {
        REPORT("Erreur de lecture de la version.");
        return ERR_CONFIG_READ;
    }
    if (!scan_Slave(Line, pSlave, DeviceWord)) {
        REPORT("Erreur de lecture.");
        return ERR_CONFIG_READ;
    }
    const int DeviceIndex = find_Device(DeviceWord);
    if (DeviceIndex == 0) {
        REPORT("Erreur : Device inconnu = %s", DeviceWord);
        return ERR_CONFIG_READ;
    }
    pSlave->Device = static_cast<uint8_t>(DeviceIndex);
    return 0;
}

int read_SlaveConfig()
{
    int Status = go_PastLines(NB_LINES_BEFORE_SLAVES);
    if (Status != 0)
        return Status;
    for (int i = 0; i < NbSlaves && Status == 0; i++)
        Status = read_SlaveLine(&Slave[i]);
    if (Status != 0)
        close_ConfigFile();
    return Status;
}

// --- appl.protocols ---

int open_ProtocolsFile()
{
    static const CONFIG_HEADER Header = {PROTOCOLS_REFERENCE_DATE, "Warning : Date du fichier L2a",
                                         "Erreur de lecture de la version du fichier."};

    if (ctrl_FilePresence(PATH_APPL_PROTOCOLS) == 0) {
        REPORT("Erreur : ctrl_FilePresence(%s)", PATH_APPL_PROTOCOLS);
        exit_Process(GEN_ERR_CONFIG);
    }
    ASSERT(ConfigFile == nullptr, "ConfigFile == ((void *)0)");
    ProtocolsFile = fopen(PATH_APPL_PROTOCOLS, "r");
    if (ProtocolsFile == nullptr) {
        REPORT("Erreur : fopen(%s)", PATH_APPL_PROTOCOLS);
        exit_Process(ERR_CONFIG_OPEN);
    }
    const int Status = ctrl_Header(ProtocolsFile, &Header);
    if (Status != 0) {
        close_ProtocolsFile();
        exit_Process(Status);
    }
    return 0;
}

void close_ProtocolsFile()
{
    close_File(&ProtocolsFile);
}

// A line of appl.protocols.
struct PROTOCOL_LINE {
    int Device; // 0 for a name that is none of the table
    int16_t Structure;
    uint16_t Params[2];
};

static bool scan_Protocol(const char *Line, PROTOCOL_LINE *pProtocol)
{
    const char *pText = Line;
    char Word[LINE_SIZE];
    uint16_t Structure = 0;

    if (scan_Word(&pText, Word, sizeof Word) != 1 || !scan_Shorts(&pText, &Structure, 1) ||
        !scan_Shorts(&pText, pProtocol->Params, 2))
        return false;
    pProtocol->Device = find_Device(Word);
    pProtocol->Structure = static_cast<int16_t>(Structure);
    return true;
}

void read_Protocol_FromProtocolsFile(int DeviceIndex)
{
    char Line[LINE_SIZE];
    PROTOCOL_LINE Protocol = {};
    int16_t Best = -1;

    ASSERT((DeviceIndex > 0) && (DeviceIndex < NB_INTERFACES),
           "(DeviceIndex > 0) && (DeviceIndex < NB_INTERFACES)");
    ASSERT(ProtocolsFile != nullptr, "ProtocolsFile != ((void *)0)");
    BROADCAST *pGroup = &Broadcast[DeviceIndex];

    rewind_File(ProtocolsFile);
    if (!skip_Lines(ProtocolsFile, NB_HEADER_LINES)) {
        pGroup->ProtocolStructure = -1;
        pGroup->ProtocolParam1 = 0xFFFF;
        pGroup->ProtocolParam2 = 0xFFFF;
        return;
    }
    ASSERT(feof(ProtocolsFile) == 0, "feof(ProtocolsFile) == 0");
    while (fgets(Line, sizeof Line, ProtocolsFile) != nullptr) {
        if (!scan_Protocol(Line, &Protocol)) {
            REPORT("Erreur de lecture.");
            close_ProtocolsFile();
            exit_Process(ERR_CONFIG_READ);
        }
        const bool Exact = Protocol.Structure == pGroup->ProtocolStructure;
        const bool Better =
            Protocol.Structure < pGroup->ProtocolStructure && Protocol.Structure > Best;
        if (Protocol.Device != DeviceIndex || !(Exact || Better))
            continue;
        pGroup->ProtocolParam1 = Protocol.Params[0];
        pGroup->ProtocolParam2 = Protocol.Params[1];
        if (Exact)
            return;
        Best = Protocol.Structure;
    }
    pGroup->ProtocolStructure = Best;
}

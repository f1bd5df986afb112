#include "A2l.h"
#include "Config.h"
#include "Exit.h"
#include "FileTools.h"
#include "Log.h"
#include "Paths.h"
#include "Status.h"
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

static const char SOURCE[] = "../src/A2l";
static const char REMOVE_COMMAND[] = "rm " PATH_APPL_TODO;

FILE *A2lFile;
char (*ForcedDistributions)[DISTRIBUTION_SIZE];

constexpr int A2L_LINE_SIZE = 129;

static int ctrl_Signature()
{
    int64_t Signature = 0;

    switch (read_Number(A2lFile, A2L_LINE_SIZE, 10, &Signature)) {
    case -1:
        REPORT("Erreur de lecture de la signature.");
        return ERR_TODO_FILE;
    case 0:
        REPORT("Erreur de conversion de la signature.");
        return ERR_TODO_FILE;
    default:
        break;
    }
    if (static_cast<uint16_t>(Signature) != FILE_SIGNATURE) {
        REPORT("La signature n'est pas correcte.");
        return ERR_TODO_FILE;
    }
    return 0;
}

// The lines after the signature: they must be there, and the last one start with a number.
static int ctrl_DateAndVersions()
{
    char Line[A2L_LINE_SIZE];
    int64_t Version = 0;

    if (fgets(Line, sizeof Line, A2lFile) == nullptr) {
        REPORT("Erreur de lecture de la date.");
        return ERR_TODO_FILE;
    }
    if (fgets(Line, sizeof Line, A2lFile) == nullptr) {
        REPORT("Erreur de lecture de la version de l'application.");
        return ERR_TODO_FILE;
    }
    switch (read_Number(A2lFile, A2L_LINE_SIZE, 10, &Version)) {
    case -1:
        REPORT("Erreur de lecture de la version du fichier.");
        return ERR_TODO_FILE;
    case 0:
        REPORT("Erreur de conversion de la version du fichier.");
        return ERR_TODO_FILE;
    default:
        return 0;
    }
}

// feof alone would not do: after a complete last line it is still false.
static bool is_AtEnd(FILE *pFile)
{
    const int Character = getc(pFile);

    if (Character != EOF)
        ungetc(Character, pFile);
    return Character == EOF;
}

static void alloc_ForcedDistributions()
{
    ForcedDistributions =
        static_cast<char(*)[DISTRIBUTION_SIZE]>(calloc(NbSlaves, sizeof *ForcedDistributions));
    if (ForcedDistributions == nullptr) {
        REPORT("Allocation : ForcedDistributions");
        exit_Process(SYST_ERR_ALLOC);
    }
}

// Index of the first slave with the functional address; -1: none.
static int find_Slave(int DeviceIndex, int64_t FuncAddr1, int64_t FuncAddr2)
{
    for (int i = 0; i < NbSlaves; i++) {
        if (Slave[i].Device == DeviceIndex && Slave[i].FuncAddr1 == FuncAddr1 &&
            Slave[i].FuncAddr2 == FuncAddr2)
            return i;
    }
    return -1;
}

// Takes over the request of a line, or passes over it. -496: unknown device.
static int read_Request(const char *Line)
{
    const char *pText = Line;
    char Word[A2L_LINE_SIZE];
    char Name[DISTRIBUTION_SIZE] = {};
    int64_t FuncAddr1 = 0;
    int64_t FuncAddr2 = 0;

    if (scan_Word(&pText, Word, sizeof Word) != 1 || scan_Number(&pText, 10, &FuncAddr1) != 1 ||
        scan_Number(&pText, 10, &FuncAddr2) != 1)
        return 0;
    const int DeviceIndex = find_Device(Word);
    if (DeviceIndex == 0) {
        REPORT("Error : Device unknown = %s", Word);
        return ERR_TODO_FILE;
    }
    const int i = find_Slave(DeviceIndex, FuncAddr1, FuncAddr2);
    // The name ends up in paths and command lines: it must be whole and safe.
    if (i < 0 || scan_Word(&pText, Name, sizeof Name) != 1 || !ctrl_SafeDistributionName(Name))
        return 0;
    memcpy(ForcedDistributions[i], Name, sizeof Name);
    ForcedDownloadMask |= Slave[i].Mask;
    return 0;
}

static int read_Requests()
{
    char Line[A2L_LINE_SIZE];
    int Status = 0;

    alloc_ForcedDistributions();
    while (Status == 0 && fgets(Line, sizeof Line, A2lFile) != nullptr)
        Status = read_Request(Line);
    return Status;
}

// ---- Requests that a power cut may end

// appl.todo goes before the first download, so that a request that ends the loader is not repeated
// for ever. A power cut, or another end from outside, is no fault of the request: while it is
// carried out the file has another name, under which the next start finds it. Once only: a machine
// may be switched off because of what the request does.

static bool Repeated;

// Name of the request that is being carried out, null none. Release after the file is linked;
// acquire by whichever thread ends the process and takes the name away.
static std::atomic<const char *> KeptRequest{nullptr};

static bool is_There(const char *Path)
{
    return access(Path, F_OK) == 0;
}

static void remove_Kept(const char *Path)
{
    if (unlink(Path) != 0 && errno != ENOENT)
        REPORT("Erreur : unlink(%s)", Path);
}

static void restore_CutRequest()
{
    Repeated = false;
    if (is_There(PATH_APPL_TODO)) { // not yet begun, or a newer one
        remove_Kept(PATH_TODO_CUT);
        remove_Kept(PATH_TODO_REPEATED);
    } else if (is_There(PATH_TODO_REPEATED)) {
        REPORT("Demande interrompue deux fois, abandonnée : %s", PATH_APPL_TODO);
        remove_Kept(PATH_TODO_REPEATED);
    } else if (is_There(PATH_TODO_CUT)) {
        Repeated = rename(PATH_TODO_CUT, PATH_APPL_TODO) == 0;
        REPORT("Demande interrompue, %s : %s", Repeated ? "reprise" : "non reprise",
               PATH_APPL_TODO);
    }
}

// Without its second name the request is carried out all the same. A file system that knows none
// (EPERM) is no fault.
static void keep_Request()
{
    const char *const Name = Repeated ? PATH_TODO_REPEATED : PATH_TODO_CUT;
    if (link(PATH_APPL_TODO, Name) != 0) {
        if (errno != EPERM)
            REPORT("Erreur : link(%s)", Name);
        return;
    }
    KeptRequest.store(Name, std::memory_order_release);
}

void end_Request()
{
    const char *const Name = KeptRequest.exchange(nullptr, std::memory_order_acquire);
    if (Name)
        remove_Kept(Name);
}

int read_Todo_FromA2lFile()
{
    ASSERT(ForcedDownloadMask == 0, "ForcedDownloadMask == 0");
    ASSERT(ForcedDistributions == nullptr, "ForcedDistributions == ((void *)0)");
    ASSERT(A2lFile == nullptr, "A2lFile == ((void *)0)");

    restore_CutRequest();
    const int Presence = ctrl_FilePresence(PATH_APPL_TODO);
    if (Presence == 0)
        return 0;
    if (Presence != 1) {
        REPORT("Erreur non gérée : %i", Presence);
        exit_Process(Presence);
    }
    A2lFile = fopen(PATH_APPL_TODO, "r");
    if (A2lFile == nullptr) {
        REPORT("Erreur : fopen(%s)", PATH_APPL_TODO);
        return ERR_MASTER_OS;
    }
    int Status = ctrl_Signature();
    if (Status == 0)
        Status = ctrl_DateAndVersions();
    if (Status == 0 && !is_AtEnd(A2lFile))
        Status = read_Requests();
    fclose(A2lFile);
    A2lFile = nullptr;
    if (Status == 0 && ForcedDownloadMask != 0)
        keep_Request();
    if (system(REMOVE_COMMAND) != 0) {
        REPORT("Error : %s", REMOVE_COMMAND);
        Status = ERR_MASTER_OS;
    }
    return Status;
}

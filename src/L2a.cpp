#include "L2a.h"
#include "Config.h"
#include "Exit.h"
#include "FileTools.h"
#include "Init.h"
#include "Log.h"
#include "MT_Info.h"
#include "Paths.h"
#include "Status.h"
#include "Version.h"
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <unistd.h>

static const char SOURCE[] = "../src/L2a";

FILE *L2aFile;
uint8_t A2l_L2a_Version;

constexpr unsigned FORMAT_MIN = 0;
constexpr unsigned FORMAT_MAX = 0;

// --- Pieces of the files ---

void write_L2a_Header(const char *Path)
{
    char Text[TEXT_SIZE];
    struct tm Local = {};

    const time_t TimeSystem = time(nullptr);
    ASSERT(TimeSystem != static_cast<time_t>(-1), "TimeSystem != (time_t) -1");
    fprintf(L2aFile, "%-6u            # File : %s\n", unsigned{FILE_SIGNATURE}, Path);
    localtime_r(&TimeSystem, &Local);
    strftime(Text, sizeof Text, "%d.%m.%Y %H:%M:%S", &Local);
    fprintf(L2aFile, "%-12" PRId64 "      # Creation date of the file (time_t) : %s\n",
            int64_t{TimeSystem}, Text);
    snprintf(Text, sizeof Text, "%i.%i.%i", VERSION_MAJOR, VERSION_MINOR, VERSION_PATCH);
    fprintf(L2aFile, "%-12s      # Version of the Loader\n", Text);
    if (strncmp(Path, PATH_LOADER_VERSIONS, strlen(PATH_LOADER_VERSIONS)) == 0)
        fprintf(L2aFile, "%-3u   %-3u   %-3u   # File format (Used  Min  Max)\n",
                unsigned{A2l_L2a_Version}, FORMAT_MIN, FORMAT_MAX);
    else
        fprintf(L2aFile, "%-3u               # File format\n", unsigned{A2l_L2a_Version});
}

// Creates the file and writes its header. 0 or -488.
static int create_File(const char *Path, const char *TextFailure)
{
    ASSERT(L2aFile == nullptr, "L2aFile == ((void *)0)");
    L2aFile = fopen(Path, "w");
    if (L2aFile == nullptr) {
        REPORT("%s %s", TextFailure, Path);
        return ERR_MASTER_OS;
    }
    write_L2a_Header(Path);
    return 0;
}

// The application must not read half a file: one that could not be written whole is no file. Its
// creation has succeeded all the same.
static void close_File(const char *Path)
{
    const bool Lost = ferror(L2aFile) != 0;

    if (fclose(L2aFile) != 0 || Lost) {
        REPORT("Erreur : écriture de %s", Path);
        unlink(Path);
    }
    L2aFile = nullptr;
}

// "cana       002 001", as far as every line of a slave begins with it.
static void write_Identity(FILE *pFile, const SLAVE *pSlave)
{
    fprintf(pFile, "%-10s %03u %03u", DEVICE_Names[pSlave->Device], unsigned{pSlave->FuncAddr1},
            unsigned{pSlave->FuncAddr2});
}

void write_SlavesIndentity(FILE *pFile, BM_SLAVE_CAST Mask)
{
    ASSERT(pFile != nullptr, "pFile != ((void *)0)");
    for (int i = 0; Mask != 0 && i < NbSlaves; i++) {
        if ((Slave[i].Mask & Mask) == 0)
            continue;
        write_Identity(pFile, &Slave[i]);
        fprintf(pFile, "\n");
    }
}

// How many slaves Mask holds, with the comment for some or for none.
static void write_NbSlaves(BM_SLAVE_CAST Mask, const char *TextSome, const char *TextNone)
{
    const unsigned i = get_NbSlavesFromMask(Mask);

    if (Mask != 0)
        ASSERT((i != 0) && (i <= NbSlaves), "(i != 0) && (i <= NbSlaves)");
    fprintf(L2aFile, "%-12hu      # %s\n", static_cast<uint16_t>(i),
            Mask != 0 ? TextSome : TextNone);
}

static void write_SlavesOfMask(BM_SLAVE_CAST Mask, const char *TextSome, const char *TextNone)
{
    write_NbSlaves(Mask, TextSome, TextNone);
    write_SlavesIndentity(L2aFile, Mask);
}

// A result of the run and its line in the file.
struct RESULT_LINE {
    int Status;
    const char *Text;
};

template <size_t NbResults>
static void write_Result(const RESULT_LINE (&Results)[NbResults], int Status)
{
    for (const RESULT_LINE &Result : Results) {
        if (Result.Status == Status) {
            fprintf(L2aFile, "%s\n", Result.Text);
            return;
        }
    }
    fprintf(L2aFile, "Result unknown : %i\n", Status);
}

// --- loader.versions, loader.protocols ---

int create_Loader_Versions()
{
    A2l_L2a_Version = 0;
    int Status = make_Dir(DIR_CONFIG);
    if (Status != 0) {
        REPORT("Erreur : make_Dir(%s) = %i", DIR_CONFIG, Status);
        ASSERT(Status != SYST_ERR_MOUNT, "Status != SYST_ERR_MOUNT");
        return ERR_MASTER_OS;
    }
    Status = create_File(PATH_LOADER_VERSIONS, "Erreur : création de");
    if (Status == 0)
        close_File(PATH_LOADER_VERSIONS);
    return Status;
}

int create_Loader_Protocols()
{
    const int Status = create_File(PATH_LOADER_PROTOCOLS, "Erreur : création de");
    if (Status != 0)
        return Status;
    for (int i = 1; i < NB_INTERFACES; i++) {
        const BROADCAST &Group = Broadcast[i];
        if (Group.Mask == 0)
            continue;
        fprintf(L2aFile, "%-10s %03u %03u 000\n", DEVICE_Names[i],
                static_cast<unsigned>(Group.ProtocolStructure),
                static_cast<unsigned>(Group.ProtocolLevel));
    }
    close_File(PATH_LOADER_PROTOCOLS);
    return 0;
}

// --- loader.conf ---

// A line of items of a slave: item 0, then First to Last.
struct ITEM_LIST {
    const char *Title;
    uint8_t Function;
    uint8_t First;
    uint8_t Last;
};

static constexpr ITEM_LIST ITEM_LISTS[] = {{"HW  ", INFO_HARDWARE, 3, 12},
                                           {"\nSW  ", INFO_SOFTWARE, 2, 10},
                                           {"\nLD  ", INFO_LOADER, 1, 9}};

// Reads and writes one item; false when it cannot be read.
static bool write_Item(BM_SLAVE_CAST Mask, uint8_t Function, uint8_t Tag)
{
    char Text[3 * UINT8_MAX + 1]; // 255 bytes, each as " FF"

    if (get_String_Info_FromSlave(Mask, Function, Tag, Text, sizeof Text) != 0)
        return false;
    fprintf(L2aFile, Tag == 0 ? "%-16s  " : "%s  ", Text);
    return true;
}

static bool write_Items(BM_SLAVE_CAST Mask, const ITEM_LIST &List)
{
    bool Readable = write_Item(Mask, List.Function, 0);

    for (uint8_t Tag = List.First; Readable && Tag <= List.Last; Tag++)
        Readable = write_Item(Mask, List.Function, Tag);
    return Readable;
}

static void write_Slave(const SLAVE *pSlave)
{
    bool Readable = true;

    fprintf(L2aFile, "\n");
    write_Identity(L2aFile, pSlave);
    fprintf(L2aFile, "\n");
    for (const ITEM_LIST &List : ITEM_LISTS) {
        fprintf(L2aFile, "%s", List.Title);
        Readable = Readable && write_Items(pSlave->Mask, List);
    }
}

int create_Loader_Config()
{
    const int Status = create_File(PATH_LOADER_CONF, "Error : creation off");
    if (Status != 0)
        return Status;
    const BM_SLAVE_CAST Mask = Broadcast[BROADCAST_ALL].Mask;
    const auto i = static_cast<int>(get_NbSlavesFromMask(Mask));
    ASSERT((i >= 0) && (i <= NbSlaves), "(i >= 0) && (i <= NbSlaves)");
    fprintf(L2aFile, "%-12hu      # Nb slaves", static_cast<uint16_t>(i));
    for (int j = 0; j < NbSlaves; j++) {
        if ((Slave[j].Mask & Mask) != 0)
            write_Slave(&Slave[j]);
    }
    fprintf(L2aFile, "\n");
    close_File(PATH_LOADER_CONF);
    return 0;
}

// --- loader.todo, loader.errors ---

// The identity of the boards that came new, as the next appl.conf is to hold it.
static void write_NewSlaves()
{
    write_NbSlaves(NewSlavesMask, "Nb modify slaves", "NO slave modified");
    for (int i = 0; NewSlavesMask != 0 && i < NbSlaves; i++) {
        const SLAVE &NewSlave = Slave[i];
        if ((NewSlave.Mask & NewSlavesMask) == 0)
            continue;
        write_Identity(L2aFile, &NewSlave);
        fprintf(L2aFile, " %05hu %06hu %-10s %03u %03u %03u\n", NewSlave.HwInfo4, NewSlave.HwInfo9,
                NewSlave.DistName, unsigned{NewSlave.DistVersion[0]},
                unsigned{NewSlave.DistVersion[1]}, unsigned{NewSlave.DistVersion[2]});
    }
}

int create_Loader_Todo(int Status)
{
    static const RESULT_LINE Results[] = {
        {0, "000  OK"},
        {ERR_SLAVES_DB, "001  Slaves data base absent"},
        {ERR_MASTER_NVM_FULL, "002  Master non volatile memory full"}};

    const int Created = create_File(PATH_LOADER_TODO, "Erreur : création de");
    if (Created != 0)
        return Created;
    write_Result(Results, Status);
    write_NewSlaves();
    write_SlavesOfMask(NoDistributionMask, "Nb slaves needing distribution packages",
                       "NO slaves needing distribution package");
    close_File(PATH_LOADER_TODO);
    return 0;
}

int create_Loader_Errors(int Status)
{
    // -1: the masks say all there is to say.
    static const RESULT_LINE Results[] = {{0, "000  OK"},
                                          {-1, "000  OK"},
                                          {ERR_MASTER_HW, "501  Master board : hardware default"},
                                          {ERR_MASTER_OS, "502  Master board : OS default"},
                                          {ERR_TODO_FILE, "503  Master software incompatibily"}};

    const int Created = create_File(PATH_LOADER_ERRORS, "Erreur : création de");
    if (Created != 0)
        return Created;
    write_Result(Results, Status);
    write_SlavesOfMask(MultipleSlavesOnAddMask, "Nb slaves with addresse errors",
                       "NO slave with addresse error");
    write_SlavesOfMask(TimeoutMask, "Nb slaves with timeout", "NO slave with timeout");
    write_SlavesOfMask(ReplaceSlavesMask, "Nb slaves to replace", "NO slave to replace");
    close_File(PATH_LOADER_ERRORS);
    return 0;
}

int create_Loader_Files(int Status)
{
    const bool ForTodo = Status == ERR_SLAVES_DB || Status == ERR_MASTER_NVM_FULL;
    int Created = 0;

    if ((Status != 0 && !ForTodo) ||
        (TimeoutMask | ReplaceSlavesMask | MultipleSlavesOnAddMask) != 0)
        Created = create_Loader_Errors(Status);
    if (Created == 0 && (ForTodo || (NoDistributionMask | NewSlavesMask) != 0))
        Created = create_Loader_Todo(Status);
    return Created;
}

// --- The files of the previous run ---

// A result file and the command that deletes it.
struct OLD_FILE {
    const char *Path;
    const char *Command;
};

static constexpr OLD_FILE OLD_FILES[] = {{PATH_LOADER_CONF, "rm " PATH_LOADER_CONF},
                                         {PATH_LOADER_TODO, "rm " PATH_LOADER_TODO},
                                         {PATH_LOADER_PROTOCOLS, "rm " PATH_LOADER_PROTOCOLS},
                                         {PATH_LOADER_ERRORS, "rm " PATH_LOADER_ERRORS}};

void remove_L2a_Files()
{
    for (const OLD_FILE &File : OLD_FILES) {
        const int Presence = ctrl_FilePresence(File.Path);
        if (Presence == 0)
            continue;
        if (Presence != 1) {
            REPORT("Erreur non gérée : %i", Presence);
            exit_Process(Presence);
        }
        // A file that cannot be deleted is left to be written over.
        [[maybe_unused]] const int Status = system(File.Command);
    }
}

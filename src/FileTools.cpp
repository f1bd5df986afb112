// mount and umount are this module's own: sys/mount.h is not for here.
#include "FileTools.h"
#include "Exit.h"
#include "Log.h"
#include "Status.h"
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

static const char SOURCE[] = "../src/FileTools";

struct STORAGE {
    const char *Name;          // device name, the beginning of every path on it
    const char *MountPoint;    // what /proc/mounts shows while it is mounted
    const char *MountCommand;  // shell command
    const char *UmountCommand; // shell command
};

static const STORAGE Storages[] = {
    {"/mnt/removable", "/mnt/removable", "/home/user/usbmount /mnt/removable",
     "/home/user/usbmount /mnt/removable umount"},
    {"/home/user/save", "/mnt/cf", "ins_cf", "rm_cf"},
    {"/mnt/net", "/mnt/net", "/home/user/save/exe/mount_net", "/home/user/save/exe/umount_net"},
};

// The log must be complete when the storage tools stop: it shows what the machine's storage was.
[[noreturn]] static void stop_Storage(int Line, const char *Text)
{
    print_Out("Assert : %s %d \n", SOURCE, Line);
    report_Error(SOURCE, Line, "%s", Text);
    ErrorClose();
    stop_Assertion(SOURCE, Line, Text);
}

#define STORAGE_ASSERT(Condition, Text)                                                            \
    ((Condition) ? static_cast<void>(0) : stop_Storage(__LINE__, Text))

// ---- Storage devices

// The device that Path begins with, or null.
static const STORAGE *find_Storage_OfPath(const char *Path)
{
    for (const STORAGE &Storage : Storages) {
        if (strncmp(Path, Storage.Name, strlen(Storage.Name)) == 0)
            return &Storage;
    }
    return nullptr;
}

// The device of exactly this name, or null.
static const STORAGE *find_Storage(const char *Name)
{
    for (const STORAGE &Storage : Storages) {
        if (strcmp(Name, Storage.Name) == 0)
            return &Storage;
    }
    return nullptr;
}

char *get_DeviceName(const char *Path)
{
    const STORAGE *const pStorage = find_Storage_OfPath(Path);
    if (!pStorage)
        return nullptr;
    char *const pName = strdup(pStorage->Name);
    if (!pName)
        REPORT("Warning : Allocation");
    return pName;
}

int ctrl_mount(const char *Dev)
{
    if (!Dev || strcmp(Dev, DIR_WORK) == 0)
        return 1;
    STORAGE_ASSERT(strlen(Dev) + 50 < TEXT_SIZE, "(strlen(Dev) + 50 < 140)");
    const STORAGE *const pStorage = find_Storage(Dev);
    return grep(pStorage ? pStorage->MountPoint : Dev, "/proc/mounts", 0);
}

int mount(const char *Dev)
{
    const STORAGE *const pStorage = find_Storage(Dev);
    return pStorage && system(pStorage->MountCommand) != 0 ? SYST_ERR_MOUNT : 0;
}

int umount(const char *Dev)
{
    const STORAGE *const pStorage = find_Storage_OfPath(Dev);
    return pStorage && system(pStorage->UmountCommand) != 0 ? SYST_ERR_UMOUNT : 0;
}

// The storage of a path while something is done on it.
struct MOUNTED {
    char *pDevice; // name, null none
    bool Here;     // was mounted by mount_Storage
};

// 0 or SYST_ERR_MOUNT. In both cases the caller frees pDevice.
static int mount_Storage(const char *Path, MOUNTED *pMounted)
{
    pMounted->pDevice = get_DeviceName(Path);
    pMounted->Here = false;
    if (ctrl_mount(pMounted->pDevice))
        return 0;
    const int Status = mount(pMounted->pDevice);
    pMounted->Here = Status == 0;
    return Status;
}

static int umount_Storage(const MOUNTED *pMounted)
{
    return pMounted->Here ? umount(pMounted->pDevice) : 0;
}

// Does the work on Path while its storage is mounted. Returns what the work returned, or
// SYST_ERR_MOUNT; a failed unmount is only reported.
static int do_OnStorage(const char *Path, int (*Work)(const char *), const char *MountMessage,
                        const char *UmountMessage)
{
    MOUNTED Mounted;
    int Status = mount_Storage(Path, &Mounted);
    if (Status != 0)
        REPORT("%s", MountMessage);
    else
        Status = Work(Path);
    if (umount_Storage(&Mounted) != 0)
        REPORT("%s", UmountMessage);
    free(Mounted.pDevice);
    Mounted.pDevice = nullptr;
    STORAGE_ASSERT(Mounted.pDevice == nullptr, "(pDevice == ((void *)0))");
    return Status;
}

// ---- Copies that a power cut may end

// While a file is copied onto a storage, an empty file .NAME.copying lies beside it: as long as it
// does, the file is not there for anyone, whatever of it is.

static std::string make_MarkerName(const char *FileName)
{
    const std::string Name = FileName;
    const size_t Begin = Name.rfind('/') + 1; // 0 without a slash
    return Name.substr(0, Begin) + "." + Name.substr(Begin) + ".copying";
}

static bool is_CopyCut(const char *FileName)
{
    return find_Storage_OfPath(FileName) && access(make_MarkerName(FileName).c_str(), F_OK) == 0;
}

// Before the copy. 0; -1: a cut copy could not be told from a whole one.
static int mark_Copy(const char *FileName)
{
    if (!find_Storage_OfPath(FileName))
        return 0;
    const int Fd = open(make_MarkerName(FileName).c_str(), O_WRONLY | O_CREAT, 0666);
    if (Fd < 0) // without its directory cp makes no file either, and says so
        return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    const int Status = fsync(Fd);
    if (close(Fd) != 0 || Status != 0)
        return -1;
    sync(); // the marker's name as well
    return 0;
}

// The copy is whole and on the storage. A marker that stays costs another copy at a later start.
static void unmark_Copy(const char *FileName)
{
    if (is_CopyCut(FileName) && unlink(make_MarkerName(FileName).c_str()) != 0)
        REPORT("Erreur : unlink(%s)", make_MarkerName(FileName).c_str());
}

// The marker goes last, when nothing is left for which it would have to speak.
static void remove_CutCopy(const char *FileName)
{
    if (!is_CopyCut(FileName) || (unlink(FileName) != 0 && errno != ENOENT))
        return;
    sync();
    unmark_Copy(FileName);
}

// ---- Files and directories

static int open_AndClose(const char *FileName)
{
    if (is_CopyCut(FileName)) {
        remove_CutCopy(FileName);
        return 0;
    }
    FILE *tmpFile = fopen(FileName, "r");
    if (!tmpFile)
        return 0;
    fclose(tmpFile);
    tmpFile = nullptr;
    STORAGE_ASSERT(tmpFile == nullptr, "(tmpFile == ((void *)0))");
    return 1;
}

int ctrl_FilePresence(const char *FileName)
{
    if (!FileName) {
        REPORT("Erreur : pas de nom de fichier");
        return 0;
    }
    return do_OnStorage(FileName, open_AndClose, "Error : mount", "Error : umount");
}

static int test_Dir(const char *DirName)
{
    STORAGE_ASSERT(strlen(DirName) + 10 < TEXT_SIZE, "(strlen(DirName) + 10 < 140)");
    char Command[TEXT_SIZE];
    snprintf(Command, sizeof Command, "test -d \"%s\"", DirName);
    return system(Command) == 0 ? 1 : 0;
}

int ctrl_DirPresence(const char *DirName)
{
    STORAGE_ASSERT(DirName != nullptr, "(DirName != ((void *)0))");
    return do_OnStorage(DirName, test_Dir, "Erreur : mount", "Erreur : umount");
}

static int test_OrMakeDir(const char *DirName)
{
    const size_t Size = 2 * strlen(DirName) + 30;
    char *const Command = static_cast<char *>(malloc(Size));
    if (!Command) {
        REPORT("Warning : Allocation");
        ErrorClose();
        exit_Process(-1);
    }
    snprintf(Command, Size, "test -d \"%s\"", DirName);
    int Status = 0;
    if (system(Command) != 0 && mkdir(DirName, 0777) != 0) {
        perror("mkdir");
        REPORT("Erreur : %s", Command);
        Status = SYST_ERR_MKDIR;
    }
    free(Command);
    return Status;
}

int make_Dir(const char *DirName)
{
    STORAGE_ASSERT(DirName != nullptr, "(DirName != ((void *)0))");
    return do_OnStorage(DirName, test_OrMakeDir, "Erreur : mount", "Error : umount");
}

// The file that a copy of Source to Target, a file or a directory, makes.
static std::string make_CopyName(const char *Source, const char *Target)
{
    struct stat Info;
    const std::string Name = Source;
    return stat(Target, &Info) == 0 && S_ISDIR(Info.st_mode)
               ? std::string(Target) + "/" + Name.substr(Name.rfind('/') + 1)
               : Target;
}

// Both storages are mounted.
static int run_Copy(const char *Source, const char *Target)
{
    STORAGE_ASSERT(strlen(Source) + strlen(Target) + 10 < TEXT_SIZE,
                   "(strlen(Source) + strlen(Target) + 10 < 140)");
    char Command[TEXT_SIZE];
    snprintf(Command, sizeof Command, "cp \"%s\" \"%s\"", Source, Target);
    const std::string Copy = make_CopyName(Source, Target);
    const int Raw = mark_Copy(Copy.c_str()) == 0 ? system(Command) : -1;
    if (Raw != 0) {
        perror("cp");
        REPORT("Erreur : %s (Status = %i)", Command, Raw);
        remove_CutCopy(Copy.c_str());
        return SYST_ERR_COPY;
    }
    sync();
    unmark_Copy(Copy.c_str());
    return 0;
}

// The source's storage is mounted.
static int copy_ToStorage(const char *Source, const MOUNTED *pSource, const char *Target)
{
    MOUNTED MountedTarget;
    int Status = mount_Storage(Target, &MountedTarget);
    if (Status != 0) {
        REPORT("Erreur : mount"); // the source's storage stays mounted
    } else {
        Status = run_Copy(Source, Target);
        if (umount_Storage(pSource) != 0)
            REPORT("Erreur : umount");
        if (umount_Storage(&MountedTarget) != 0)
            REPORT("Erreur : umount");
    }
    free(MountedTarget.pDevice);
    return Status;
}

int copy_File(const char *Source, const char *Target)
{
    if (!Source) {
        REPORT("Erreur : Source == NULL");
        return GEN_ERR_PRG_VANTREL;
    }
    if (!Target) {
        REPORT("Erreur : Target == NULL");
        return GEN_ERR_PRG_VANTREL;
    }
    if (strcmp(Source, Target) == 0)
        return 0;
    if (ctrl_FilePresence(Source) != 1) {
        REPORT("Erreur : Source n'existe pas (\"%s\")", Source);
        return GEN_ERR_NO_FILE;
    }
    MOUNTED MountedSource;
    int Status = mount_Storage(Source, &MountedSource);
    if (Status != 0)
        REPORT("Erreur : mount");
    else
        Status = copy_ToStorage(Source, &MountedSource, Target);
    free(MountedSource.pDevice);
    return Status;
}

int read_Bytes_FromFile(FILE *pFile, uint8_t *Buffer, int Count)
{
    STORAGE_ASSERT(pFile != nullptr, "(pFile != ((void *)0))");
    int NbRead = 0;
    do {
        const int Byte = getc(pFile);
        if (Byte == EOF)
            break;
        if (NbRead < Count)
            Buffer[NbRead++] = static_cast<uint8_t>(Byte);
    } while (NbRead < Count);
    return NbRead;
}

// ---- Texts

int grep(const char *Text, const char *FileName, int Flag)
{
    FILE *const pFile = fopen(FileName, "r");
    if (!pFile)
        return 0;
    char Piece[100];
    int Found = 0;
    while (!Found && fgets(Piece, sizeof Piece, pFile))
        Found = strstr_case(Piece, Text, Flag) != nullptr;
    fclose(pFile);
    return Found;
}

const char *strstr_case(const char *Haystack, const char *Needle, int Flag)
{
    return (Flag & 0xFF) == 1 ? strstr(Haystack, Needle) : stristr(Haystack, Needle);
}

static bool begins_With(const char *Text, const char *Needle)
{
    for (; *Needle; Text++, Needle++) {
        if (toupper(static_cast<unsigned char>(*Text)) !=
            toupper(static_cast<unsigned char>(*Needle)))
            return false;
    }
    return true;
}

const char *stristr(const char *Haystack, const char *Needle)
{
    for (;; Haystack++) {
        if (begins_With(Haystack, Needle))
            return Haystack;
        if (!*Haystack)
            return nullptr;
    }
}

// ---- Names from outside

static bool is_SafeCharacter(unsigned char Character)
{
    return Character > ' ' && Character != 0x7F && !strchr("`\"'\\$;&|<>(){}[]*?!#~^", Character);
}

// A part of a name between slashes, Size characters.
static bool is_SafeComponent(const char *Component, size_t Size)
{
    return Size != 0 && !(Size == 1 && Component[0] == '.') &&
           !(Size == 2 && Component[0] == '.' && Component[1] == '.');
}

int ctrl_SafeName(const char *Name)
{
    if (*Name == '-')
        return 0;
    for (const char *pC = Name; *pC; pC++) {
        if (!is_SafeCharacter(static_cast<unsigned char>(*pC)))
            return 0;
    }
    for (;;) { // a leading slash makes the first component empty
        const size_t Size = strcspn(Name, "/");
        if (!is_SafeComponent(Name, Size))
            return 0;
        if (!Name[Size])
            return 1;
        Name += Size + 1;
    }
}

int ctrl_SafeDistributionName(const char *Name)
{
    return ctrl_SafeName(Name) && !strchr(Name, '/');
}

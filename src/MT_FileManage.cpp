#include "MT_FileManage.h"
#include "Exit.h"
#include "FileTools.h"
#include "Log.h"
#include "SHeader.h"
#include "Status.h"
#include "Tar.h"
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

static const char SOURCE[] = "../src/MT_FileManage";

constexpr uint32_t TIMEOUT_DATA = 1000; // ticks: the slave works on its storage
constexpr uint32_t TIMEOUT_COMMON = 40;

constexpr int FILE_ALREADY_OPEN = 130; // slave's status of an open
constexpr int FILE_NOT_OPEN = 129;     // slave's status of a close
constexpr int FILE_END = 133;          // slave's status of a read

// How far a read may go past the announced length: a slave that never ends its file would fill the
// master's memory.
constexpr int64_t READ_EXCESS_MAX = 64 * 1024;

constexpr int FILE_NAME_SIZE = 129; // of a file name in a header, NUL included

// 1 when the last open was refused: its result is then the slave's status and not a length. Both
// share one range, and a file of 130 bytes is not a file that is already open.
static uint8_t OpenRefused;

// What "%016llX" prints.
static unsigned long long get_Printable(BM_SLAVE_CAST Slaves)
{
    return Slaves;
}

// ---- Commands

static void make_Cmd(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Function, size_t NbP,
                     uint32_t TimeOut)
{
    pCmd->MT = MT_FILEMANAGE;
    pCmd->Fn = Function | Flag;
    pCmd->NbP = static_cast<int16_t>(NbP);
    pCmd->Slaves = Slaves;
    pCmd->TimeOut = Flag ? TimeOut : 0;
}

void cmd_FileOpen(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Mode, const char *Name)
{
    const size_t NbName = strlen(Name) + 1;
    ASSERT(NbName + 1 <= NB_PARAMETERS_MAX, "strlen(Name) + 2 <= 768");
    make_Cmd(pCmd, Slaves, Flag, 0, NbName + 1, TIMEOUT_DATA);
    pCmd->pP[0] = Mode;
    memcpy(pCmd->pP + 1, Name, NbName);
}

void cmd_FileWrite(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, const uint8_t *pData,
                   uint16_t NbData)
{
    ASSERT(NbData <= NB_FILE_WRITE, "NbData <= 768");
    make_Cmd(pCmd, Slaves, Flag, 1, NbData, TIMEOUT_DATA);
    if (NbData > 0)
        memcpy(pCmd->pP, pData, NbData);
}

void cmd_FileRead(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint16_t Count)
{
    make_Cmd(pCmd, Slaves, Flag, 2, 2, TIMEOUT_DATA);
    pCmd->pP[0] = static_cast<uint8_t>(Count >> 8);
    pCmd->pP[1] = static_cast<uint8_t>(Count);
}

void cmd_FileSeek(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag, uint8_t Origin, int32_t Offset)
{
    make_Cmd(pCmd, Slaves, Flag, 3, 5, TIMEOUT_COMMON);
    pCmd->pP[0] = Origin;
    for (int i = 0; i < 4; i++)
        pCmd->pP[1 + i] = static_cast<uint8_t>(static_cast<uint32_t>(Offset) >> (24 - 8 * i));
}

void cmd_FileClose(MSG *pCmd, BM_SLAVE_CAST Slaves, uint8_t Flag)
{
    make_Cmd(pCmd, Slaves, Flag, 4, 0, TIMEOUT_COMMON);
}

// ---- One operation on a slave's file

// Waits for the answer to Cmd. 0: it is at pAns2Cmd; ERR_TIMEOUT.
static int wait_Answer(BM_SLAVE_CAST Slaves)
{
    if (wait_pAns(&Cmd, &pAns2Cmd) != ERR_TIMEOUT)
        return 0;
    TimeoutMask |= Slaves;
    REPORT("Timeout");
    return ERR_TIMEOUT;
}

// Sends Cmd and waits for its answer. 0: it is at pAns2Cmd; GEN_ERR_PRG_VANTREL; ERR_TIMEOUT.
static int exchange_Cmd(BM_SLAVE_CAST Slaves)
{
    if (send_Cmd(&Cmd) == 0)
        return wait_Answer(Slaves);
    REPORT("Envoi de la commande");
    return GEN_ERR_PRG_VANTREL;
}

static bool is_ErrorAnswer()
{
    return (pAns2Cmd->Fn & FLAG_ACK) != 0;
}

// Gives the answer back. May be called when it already was: the record then belongs to the receive
// thread again and is left alone.
static void release_Answer()
{
    if (pAns2Cmd != nullptr)
        pAns2Cmd->Slaves = 0;
    pAns2Cmd = nullptr;
    clear_pAns();
}

// The slave's status of an error answer, Success of any other. Gives the answer back.
static int take_Result(int Success)
{
    const int Result = is_ErrorAnswer() ? get_Parameter(pAns2Cmd, 0) : Success;
    release_Answer();
    return Result;
}

// Length of the file in the answer to an open: parameter bytes 1 to 4, signed.
static int32_t get_FileLength(const char *SlaveFileName)
{
    uint32_t Length = 0;
    for (int i = 1; i <= 4; i++)
        Length = Length << 8 | get_Parameter(pAns2Cmd, i);
    if (static_cast<int32_t>(Length) >= 0)
        return static_cast<int32_t>(Length);
    REPORT("La longueur du fichier %s est négative !", SlaveFileName);
    return 0;
}

int32_t open_SlaveFile_Once(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName)
{
    ASSERT(Slaves, "Slaves");
    OpenRefused = 0;
    cmd_FileOpen(&Cmd, Slaves, FLAG_ACK, Mode, SlaveFileName);
    const int Status = exchange_Cmd(Slaves);
    if (Status != 0)
        return Status;
    OpenRefused = is_ErrorAnswer();
    return take_Result(OpenRefused ? 0 : get_FileLength(SlaveFileName));
}

static void report_AlreadyOpen(uint8_t Mode)
{
    static const char *const ModeNames[] = {"FILE_OPEN_READ", "FILE_OPEN_WRITE",
                                            "FILE_OPEN_APPEND"};
    if (Mode <= FILE_OPEN_APPEND)
        REPORT("Erreur : un fichier est déjà ouvert (cas %s) !", ModeNames[Mode]);
}

// Closes the file that a slave still holds open. 0, ERR_TIMEOUT, or the end of the process.
static int close_ForgottenFile(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName)
{
    report_AlreadyOpen(Mode);
    REPORT("Slave: %016llX   SlaveFileName: %s", get_Printable(Slaves), SlaveFileName);
    const int Status = close_SlaveFile(Slaves);
    if (Status == 0)
        return 0;
    if (Status == ERR_TIMEOUT) {
        REPORT("Timeout");
        return ERR_TIMEOUT;
    }
    report_AlreadyOpen(Mode);
    if (Status == FILE_NOT_OPEN)
        REPORT("FATAL - Status: %i - Slave: %016llX", Status, get_Printable(Slaves));
    else
        REPORT("Erreur non gérée : %i", Status);
    exit_Process(Status);
}

int32_t open_SlaveFile(BM_SLAVE_CAST Slaves, uint8_t Mode, const char *SlaveFileName)
{
    int32_t Result = open_SlaveFile_Once(Slaves, Mode, SlaveFileName);
    while (Result == FILE_ALREADY_OPEN && OpenRefused) {
        if (close_ForgottenFile(Slaves, Mode, SlaveFileName) != 0)
            return ERR_TIMEOUT;
        Result = open_SlaveFile_Once(Slaves, Mode, SlaveFileName);
    }
    return Result;
}

int16_t write_SlaveFile(BM_SLAVE_CAST Slaves, FILE *File, uint16_t MaxBytes)
{
    ASSERT(Slaves, "Slaves");
    ASSERT(File != nullptr, "File != ((void *)0)");
    ASSERT(MaxBytes <= NB_FILE_WRITE, "MaxBytes <= 768");
    uint8_t Buffer[NB_FILE_WRITE] = {};
    const int NbRead = read_Bytes_FromFile(File, Buffer, MaxBytes);
    cmd_FileWrite(&Cmd, Slaves, FLAG_ACK, Buffer, static_cast<uint16_t>(NbRead));
    const int Status = exchange_Cmd(Slaves);
    return static_cast<int16_t>(Status != 0 ? Status : take_Result(NbRead));
}

int read_SlaveFile(BM_SLAVE_CAST Slaves, uint16_t Count)
{
    ASSERT(Slaves, "Slaves");
    cmd_FileRead(&Cmd, Slaves, FLAG_ACK, Count);
    static_cast<void>(send_Cmd(&Cmd)); // a lost command shows as a time-out
    const int Status = wait_Answer(Slaves);
    if (Status != 0 || !is_ErrorAnswer())
        return Status;
    return take_Result(0);
}

int close_SlaveFile(BM_SLAVE_CAST Slaves)
{
    ASSERT(Slaves, "Slaves");
    cmd_FileClose(&Cmd, Slaves, FLAG_ACK);
    const int Status = exchange_Cmd(Slaves);
    return Status != 0 ? Status : take_Result(0);
}

// ---- Whole files

[[noreturn]] static void exit_Fatal(int Status, BM_SLAVE_CAST Slaves, const char *SlaveFileName,
                                    const char *MasterFileName)
{
    REPORT("FATAL - Status: %i - Slave: %016llX", Status, get_Printable(Slaves));
    REPORT("SlaveFileName: %s", SlaveFileName);
    REPORT("MasterFileName: %s", MasterFileName);
    exit_Process(Status);
}

[[noreturn]] static void exit_Unhandled(int Status)
{
    REPORT("Erreur non gérée : %i", Status);
    exit_Process(Status);
}

// Closes the slave's file after a transfer. 0, ERR_TIMEOUT, or the end of the process.
static int end_Transfer(BM_SLAVE_CAST Slaves, const char *SlaveFileName, const char *MasterFileName)
{
    const int Status = close_SlaveFile(Slaves);
    if (Status == FILE_NOT_OPEN)
        exit_Fatal(Status, Slaves, SlaveFileName, MasterFileName);
    if (Status == ERR_TIMEOUT)
        REPORT("Timeout");
    else if (Status != 0)
        exit_Unhandled(Status);
    return Status;
}

// 0 when the master's file holds Size bytes, else Different after a report.
static int ctrl_Size(FILE *File, int64_t Size, int Different)
{
    if (fseeko(File, 0, SEEK_END) != 0)
        REPORT("Erreur : fseek(SEEK_END)");
    if (ftello(File) == Size)
        return 0;
    REPORT("sizeof(Fichier master) != sizeof(Fichier slave)");
    return Different;
}

// Closes the master's file and returns Status, or GEN_ERR_FCLOSE when that alone failed.
static int close_MasterFile(FILE *File, const char *MasterFileName, int Status)
{
    if (fclose(File) == 0 || Status != 0)
        return Status;
    REPORT("Erreur : fclose(%s)", MasterFileName);
    return GEN_ERR_FCLOSE;
}

// A get whose open gave the negative Result: the status of the get, or the end of the process. The
// slave's codes are positive and do not come here (a refused open shows as a wrong length); what
// each of them would mean is kept.
static int end_FailedGet(int32_t Result, BM_SLAVE_CAST Slaves, const char *SlaveFileName,
                         const char *MasterFileName)
{
    const int ReadStatus =
        0; // nothing was read yet: this is what is shown and what the run ends with
    switch (Result) {
    case ERR_TIMEOUT:
        REPORT("Timeout");
        return ERR_TIMEOUT;
    case ERR_FILE_UNKNOWN:
        REPORT("Erreur : open_SlaveFile - Status : ERR_FILE_UNKNOWN");
        return ERR_FILE_SLAVE;
    case FILE_ALREADY_OPEN:
    case 131:
        exit_Fatal(Result, Slaves, SlaveFileName, MasterFileName);
    case ERR_FILE_CHKSUM:
        REPORT("Erreur : open_SlaveFile - Status : ERR_FILE_CHKSUM");
        return end_Transfer(Slaves, SlaveFileName, MasterFileName) == ERR_TIMEOUT ? ERR_TIMEOUT
                                                                                  : ERR_FILE_SLAVE;
    default:
        REPORT("Erreur innexistante: %i", ReadStatus);
        exit_Process(ReadStatus);
    }
}

// Writes the data of a read's answer into File and gives the answer back. Returns the bytes, 1 for
// an answer without data: a slave that answers so for ever comes to an end too.
static int save_Answer(FILE *File)
{
    const int NbP = pAns2Cmd != nullptr ? pAns2Cmd->NbP : 0;
    for (int i = 1; i < NbP; i++)
        fputc(pAns2Cmd->pP[i], File); // a full disk shows in the size or in the close
    release_Answer();
    return NbP > 1 ? NbP - 1 : 1;
}

// Reads the slave's open file into File. Returns the status that ended the reads.
static int receive_File(BM_SLAVE_CAST Slaves, FILE *File, int32_t Length)
{
    const int64_t NbMax = Length + READ_EXCESS_MAX;
    int64_t NbReceived = 0;
    int Status = read_SlaveFile(Slaves, NB_FILE_READ);
    while (Status == 0) {
        NbReceived += save_Answer(File);
        Status = NbReceived > NbMax ? FILE_END : read_SlaveFile(Slaves, NB_FILE_READ);
    }
    return Status;
}

int get_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName)
{
    const int32_t Length = open_SlaveFile(Slaves, FILE_OPEN_READ, SlaveFileName);
    if (Length < 0)
        return end_FailedGet(Length, Slaves, SlaveFileName, MasterFileName);

    FILE *const File = fopen(MasterFileName, "w");
    if (File == nullptr) {
        REPORT("Erreur : fopen(%s)", MasterFileName);
        return GEN_ERR_FOPEN;
    }

    int Status = receive_File(Slaves, File, Length);
    if (Status == ERR_TIMEOUT) { // the transfer is abandoned as it stands, on both sides
        REPORT("Timeout");
        return ERR_TIMEOUT;
    }
    if (Status != FILE_END)
        exit_Fatal(Status, Slaves, SlaveFileName, MasterFileName);
    release_Answer();
    Status = end_Transfer(Slaves, SlaveFileName, MasterFileName);
    if (Status != 0)
        return Status;
    Status = ctrl_Size(File, Length, ERR_FILE_SLAVE);
    return close_MasterFile(File, MasterFileName, Status);
}

// A put whose open gave the negative Result, as end_FailedGet.
static int end_FailedPut(int32_t Result, BM_SLAVE_CAST Slaves, const char *SlaveFileName,
                         const char *MasterFileName)
{
    switch (Result) {
    case ERR_TIMEOUT:
        REPORT("Timeout");
        return ERR_TIMEOUT;
    case FILE_ALREADY_OPEN:
    case ERR_FILE_UNKNOWN:
    case ERR_FILE_CHKSUM:
        exit_Fatal(Result, Slaves, SlaveFileName, MasterFileName);
    case 131:
        ReplaceSlavesMask |= Slaves;
        return ERR_ANSWER_WRITE;
    default:
        exit_Unhandled(Result);
    }
}

// A put whose write gave the negative Result. The slave's codes are positive here too.
static int end_FailedWrite(int16_t Result, BM_SLAVE_CAST Slaves, const char *SlaveFileName,
                           const char *MasterFileName)
{
    switch (Result) {
    case ERR_TIMEOUT:
        REPORT("Timeout");
        return ERR_TIMEOUT;
    case 9:
    case 10:
        ReplaceSlavesMask |= Slaves;
        return ERR_ANSWER_WRITE;
    case FILE_NOT_OPEN:
    case 131:
    case 135:
        REPORT("FATAL - Status : %i - Slave: %016llX", Result, get_Printable(Slaves));
        REPORT("MasterFileName : %s", MasterFileName);
        REPORT("SlaveFileName : %s", SlaveFileName);
        exit_Process(Result);
    default:
        exit_Unhandled(Result);
    }
}

// Opens a file of the master for reading. An archive may hold other things than files: a directory
// would never come to its end, a pipe would never open, and a symbolic link, be it a directory on
// the way, would send the slave a file that is not of the archive.
static FILE *open_MasterFile(const char *MasterFileName)
{
    std::error_code Error;
    const std::filesystem::path Real = std::filesystem::canonical(MasterFileName, Error);
    if (Error || Real != std::filesystem::absolute(MasterFileName, Error).lexically_normal() ||
        !std::filesystem::is_regular_file(Real, Error))
        return nullptr;
    return fopen(MasterFileName, "r");
}

// Sends File, also a last write without data when its size is a multiple of the write's. Returns
// the result of the last write; *pTotal counts the others'. A slave's status counts as bytes, by
// which the sizes differ in the end.
static int16_t send_File(BM_SLAVE_CAST Slaves, FILE *File, int64_t *pTotal)
{
    int16_t Last = 0;
    while (!feof(File) && !ferror(File) && Last >= 0) {
        *pTotal += Last;
        Last = write_SlaveFile(Slaves, File, NB_FILE_WRITE);
    }
    return Last;
}

int put_SlaveFile(BM_SLAVE_CAST Slaves, const char *MasterFileName, const char *SlaveFileName)
{
    const int32_t Length = open_SlaveFile(Slaves, FILE_OPEN_WRITE, SlaveFileName);
    if (Length < 0)
        return end_FailedPut(Length, Slaves, SlaveFileName, MasterFileName);

    FILE *const File = open_MasterFile(MasterFileName);
    if (File == nullptr) {
        REPORT("Erreur lors de l'ouverture du fichier sur le master");
        return GEN_ERR_FOPEN;
    }

    int64_t Total = 0;
    const int16_t Last = send_File(Slaves, File, &Total);
    if (Last < 0) {
        ASSERT(File != nullptr, "tmpFile != ((void *)0)");
        fclose(File);
        ASSERT(Last != 0, "tmpShort != 0");
        return end_FailedWrite(Last, Slaves, SlaveFileName, MasterFileName);
    }
    Total += Last;
    int Status = end_Transfer(Slaves, SlaveFileName, MasterFileName);
    if (Status == 0)
        Status = ctrl_Size(File, Total, ERR_FILE_SIZE_PUT);
    return close_MasterFile(File, MasterFileName, Status);
}

// ---- Distributions

// What differs between reading a distribution out of a slave and writing it back.
struct DIRECTION {
    int (*transfer_SlaveFile)(BM_SLAVE_CAST, const char *, const char *);
    const char *Message;       // of a failed attempt: name, status, Retry
    const char *HeaderMessage; // the same for the header
    const char *HeaderName;    // as the message shows it
};

static const DIRECTION DirectionGet = {get_SlaveFile, "get_SlaveFile(%s) = %i   Retry = %i",
                                       "get_SlaveFile(%s) = %i   Retry = %i", ""};
static const DIRECTION DirectionPut = {put_SlaveFile, "put_SlaveFile(%s) = %i   Retry = %i",
                                       "%s : Status = %i   Retry = %i", SHEADER_NAME};

// Runs a command of the shell. Its result does not count: what is missing afterwards shows in the
// next step.
[[gnu::format(printf, 1, 2)]] static void run_Command(const char *Format, ...)
{
    char Text[TEXT_SIZE];
    va_list Arguments;
    va_start(Arguments, Format);
    const int Length = vsnprintf(Text, sizeof Text, Format, Arguments);
    va_end(Arguments);
    ASSERT(Length >= 0 && Length < TEXT_SIZE, "strlen(Command) < 140");
    [[maybe_unused]] const int Result = system(Text);
}

// Removes what DirName holds under names ending in Ending ("": everything).
static void remove_Leftovers(const char *DirName, const char *Ending)
{
    std::error_code Error;
    std::filesystem::directory_iterator Entry(DirName, Error);
    for (; !Error && Entry != std::filesystem::directory_iterator(); Entry.increment(Error)) {
        std::error_code Ignored;
        if (Entry->path().native().ends_with(Ending))
            std::filesystem::remove_all(Entry->path(), Ignored);
    }
}

// A directory for the work on distributions.
static int make_WorkDir(const char *DirName)
{
    const int Status = make_Dir(DirName);
    if (Status == 0)
        return 0;
    REPORT("Erreur : make_Dir(%s) = %i", DirName, Status);
    ASSERT(Status != SYST_ERR_MOUNT, "Status != SYST_ERR_MOUNT");
    return Status;
}

// Enters the staging directory and empties it. A run that was cut leaves its files there, and the
// shell's * passes over those whose names begin with a dot.
static void enter_StagingDir()
{
    const int Status = chdir(DIR_WORK_SW_TMP);
    ASSERT(Status >= 0, "Status >= 0");
    run_Command("rm -R *");
    remove_Leftovers(DIR_WORK_SW_TMP, "");
}

// Transfers a file that has the same name on both sides, in at most two attempts.
static int transfer_File(const DIRECTION *pDirection, BM_SLAVE_CAST Slaves, const char *FileName,
                         const char *Message, const char *ShownName)
{
    int Retry = 1;
    int Status = pDirection->transfer_SlaveFile(Slaves, FileName, FileName);
    while (Status != 0) {
        REPORT(Message, ShownName, Status, Retry);
        if (Retry == 0)
            break;
        usleep(1);
        clear_pAns();
        Retry--;
        Status = pDirection->transfer_SlaveFile(Slaves, FileName, FileName);
    }
    return Status;
}

// Reads the name of the next file of the header's list: "" when it has no NUL within
// FILE_NAME_SIZE bytes or could lead out of the staging directory or into the shell.
static void read_FileName(char *FileName)
{
    if (fseek(SheaderFile, 11, SEEK_CUR) != 0) {
        REPORT("Erreur : fseek(SEEK_CUR)");
        SheaderUnread = 1;
    }
    for (int i = 0; i < FILE_NAME_SIZE; i++) {
        uint8_t Byte;
        if (read_Bytes_FromFile(SheaderFile, &Byte, 1) != 1)
            break;
        FileName[i] = static_cast<char>(Byte);
        if (Byte == 0) {
            if (!ctrl_SafeName(FileName))
                break;
            return;
        }
    }
    FileName[0] = '\0';
}

// Transfers the files of the open header's list, in its order; the first that fails ends it.
static int transfer_ListedFiles(const DIRECTION *pDirection, BM_SLAVE_CAST Slaves,
                                const SHEADER *pSHeader)
{
    if (fseeko(SheaderFile, static_cast<off_t>(pSHeader->offset_Files), SEEK_SET) != 0) {
        REPORT("Erreur : fseek(SEEK_SET)");
        SheaderUnread = 1;
    }
    int Status = 0;
    for (int i = 0; Status == 0 && i < pSHeader->nb_Files; i++) {
        char FileName[FILE_NAME_SIZE];
        read_FileName(FileName);
        if (FileName[0] == '\0') {
            REPORT("Erreur de lecture du nom de fichier : %i", i);
            return ERR_SHEADER;
        }
        Status = transfer_File(pDirection, Slaves, FileName, pDirection->Message, FileName);
    }
    return Status;
}

// What a header that cannot be opened means for the run: one that just came from the slave or the
// archive and is not there is the master's own failure.
static int get_HeaderStatus(int OpenStatus)
{
    REPORT("Erreur : open_SheaderFile() = %i", OpenStatus);
    return OpenStatus == GEN_ERR_FOPEN ? ERR_MASTER_OS : OpenStatus;
}

// Transfers the header, then every file that it lists, between the slave and the current directory.
static int transfer_Distribution(const DIRECTION *pDirection, BM_SLAVE_CAST Slaves)
{
    int Status = transfer_File(pDirection, Slaves, SHEADER_NAME, pDirection->HeaderMessage,
                               pDirection->HeaderName);
    if (Status != 0)
        return Status;

    SHEADER Sheader{};
    Status = open_SheaderFile(&Sheader);
    if (Status == 0)
        Status = transfer_ListedFiles(pDirection, Slaves, &Sheader);
    else
        Status = get_HeaderStatus(Status);
    close_SheaderFile();
    return Status;
}

// Size of a file modulo 2^32, as gzip notes it; -1: there is none.
static int64_t get_FileSize(const char *Path)
{
    struct stat Found {
    };
    return stat(Path, &Found) == 0 ? int64_t{static_cast<uint32_t>(Found.st_size)} : -1;
}

// Half an archive would pass for the slave's software for ever.
static int drop_CutArchive(const char *Path)
{
    REPORT("Erreur : archive incomplète : %s", Path);
    unlink(Path);
    return GEN_ERR_FOPEN;
}

// In the staging directory; the archive comes into the directory above. 0, also when there is none;
// GEN_ERR_FOPEN: it was cut, and is removed.
static int pack_Files(const char *DistributionName)
{
    char Path[TEXT_SIZE];

    run_Command("tar -cf ../%s.tar *", DistributionName);
    snprintf(Path, sizeof Path, "../%s.tar", DistributionName);
    const int64_t Size = get_FileSize(Path);
    int Status = Size >= 0 && !ctrl_Tar(Path) ? drop_CutArchive(Path) : 0;

    run_Command("gzip -f ../%s.tar", DistributionName);
    snprintf(Path, sizeof Path, "../%s.tar.gz", DistributionName);
    if (get_FileSize(Path) >= 0 && get_GzipSize(Path) != Size)
        Status = drop_CutArchive(Path);
    return Status;
}

// Nor does half a file go to a slave. PackedSize: what the archive's compressed form held. 0;
// GEN_ERR_FOPEN: the master had no room to unpack it; ERR_SHEADER: the archive is damaged.
static int ctrl_StagedFiles(const char *DistributionName, int64_t PackedSize)
{
    char Path[TEXT_SIZE];

    snprintf(Path, sizeof Path, "../%s.tar", DistributionName);
    const int Unpacked = ctrl_Unpacked(Path);
    if (Unpacked == 1)
        return 0;
    REPORT("Erreur : extraction incomplète : %s", Path);
    return Unpacked < 0 && get_FileSize(Path) == PackedSize ? ERR_SHEADER : GEN_ERR_FOPEN;
}

// An archive is removed for a damaged header, not for one that could not be read.
static int send_StagedFiles(BM_SLAVE_CAST Slaves)
{
    const int Status = transfer_Distribution(&DirectionPut, Slaves);
    return Status == ERR_SHEADER && SheaderUnread ? GEN_ERR_FOPEN : Status;
}

// Packs the staging directory under the name that the header gives.
static int make_Archive()
{
    char DistributionName[DISTRIBUTION_SIZE] = "";
    const int Status = make_DistributionName_FromSheader(DistributionName);
    if (Status != 0) {
        REPORT("Erreur : make_DistributionName_FromSheader(%s) = %i", DistributionName, Status);
        return Status;
    }
    return pack_Files(DistributionName);
}

int get_SlaveDistribution(BM_SLAVE_CAST Slaves)
{
    int Status = make_WorkDir(DIR_WORK_SW);
    if (Status == 0)
        Status = make_WorkDir(DIR_WORK_SW_TMP);
    if (Status != 0)
        return Status;
    // An archive that is there now was left by a run that was cut, perhaps while it was written:
    // it must not be taken for the one that this read makes.
    remove_Leftovers(DIR_WORK_SW, ".tar");
    remove_Leftovers(DIR_WORK_SW, ".tar.gz");

    enter_StagingDir();
    Status = transfer_Distribution(&DirectionGet, Slaves);
    if (Status == 0)
        Status = make_Archive();

    int i = chdir(DIR_WORK_SW);
    ASSERT(i >= 0, "i >= 0");
    run_Command("rm -R tmp");
    i = chdir(DIR_WORK);
    ASSERT(i >= 0, "i >= 0");
    return Status;
}

int put_SlaveDistribution(BM_SLAVE_CAST Slaves, const char *DistributionName)
{
    print_Out("\nput_SlaveDistribution - Slave = %016llX     %s\n", get_Printable(Slaves),
              DistributionName);
    int Status = chdir(DIR_WORK_SW);
    ASSERT(Status >= 0, "Status >= 0");
    remove_Leftovers(DIR_WORK_SW, ".tar"); // else sent in the place of an archive that is damaged
    char Path[TEXT_SIZE];
    snprintf(Path, sizeof Path, "%s.tar.gz", DistributionName);
    const int64_t PackedSize = get_GzipSize(Path);
    run_Command("gunzip -f %s.tar.gz", DistributionName);
    Status = make_WorkDir(DIR_WORK_SW_TMP);
    if (Status != 0)
        return Status;

    enter_StagingDir();
    run_Command("tar -xf ../%s.tar", DistributionName);
    Status = ctrl_StagedFiles(DistributionName, PackedSize);
    if (Status == 0)
        Status = send_StagedFiles(Slaves);

    if (chdir(DIR_WORK) != 0 && Status == 0) {
        REPORT("Erreur : chdir(%s)", DIR_WORK);
        Status = GEN_ERR_PRG_VANTREL;
    }
    run_Command("rm -R " DIR_WORK_SW_TMP);
    run_Command("rm " DIR_WORK_SW "/%s.tar", DistributionName);
    return Status;
}

#include "Log.h"
#include "A2l.h"
#include "Version.h"
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>

static constexpr int LOG_CLOSED = -2;
static constexpr int STAMP_SIZE = 20; // of ctime: day, month, day, time and a blank
static constexpr int MESSAGE_SIZE = TEXT_SIZE - STAMP_SIZE;
static constexpr int CTIME_SIZE = 26; // line feed and NUL included
static constexpr size_t BLOCK_SIZE = 512;

int ErrorFile = LOG_CLOSED;
char ErrString[TEXT_SIZE + 1];
char ErrOutText[TEXT_SIZE + 1];
int UserFile = LOG_CLOSED;
char UserString[TEXT_SIZE + 1];
char UserOutText[TEXT_SIZE + 1];

// Guards the buffers and descriptors above.
static std::mutex ReportLock;

static void make_TimeText(char (&Text)[CTIME_SIZE])
{
    const time_t Now = time(nullptr);
    if (ctime_r(&Now, Text) == nullptr)
        Text[0] = 0;
}

static int write_Text(int File, const char *Text)
{
    return static_cast<int>(write(File, Text, strlen(Text)));
}

// Copies what follows the position of pSource. 0, or -1 when it could not be read or written whole.
static int copy_Rest(FILE *pSource, const char *TargetName)
{
    FILE *const pTarget = fopen(TargetName, "w");
    if (!pTarget)
        return -1;
    char Block[BLOCK_SIZE];
    int Status = 0;
    size_t Count;
    while (Status == 0 && (Count = fread(Block, 1, sizeof Block, pSource)) > 0) {
        if (fwrite(Block, 1, Count, pTarget) < Count)
            Status = -1;
    }
    // On the card before it takes the log's place.
    if (fflush(pTarget) != 0 || fsync(fileno(pTarget)) != 0)
        Status = -1;
    if (fclose(pTarget) != 0 || ferror(pSource))
        Status = -1;
    return Status;
}

int ErrorTail(const char *Path, int Keep)
{
    FILE *const pLog = fopen(Path, "r");
    if (!pLog)
        return 0;
    const std::string SideName = std::string(Path) + "_TAIL";
    fseeko(pLog, 0, SEEK_END);
    const off_t Size = ftello(pLog);
    if (Size <= Keep) {
        fclose(pLog);
        return 0;
    }
    int Status = fseeko(pLog, Size - Keep, SEEK_SET) == 0 ? 0 : -1;
    if (Status == 0)
        Status = copy_Rest(pLog, SideName.c_str());
    fclose(pLog);
    // The log is replaced at once: there is no moment without it.
    if (Status == 0 && rename(SideName.c_str(), Path) != 0)
        Status = -1;
    return Status;
}

static int open_Log(const char *Path, int *pFile, char (&OutText)[TEXT_SIZE + 1])
{
    const std::lock_guard<std::mutex> Guard(ReportLock);
    *pFile = open(Path, O_RDWR | O_CREAT | O_APPEND | O_NONBLOCK, 0666);
    if (*pFile < 0) {
        print_Out("\n\tLe fichier n'existe pas !");
        return -1;
    }
    char TimeText[CTIME_SIZE];
    make_TimeText(TimeText);
    lseek(*pFile, 0, SEEK_END);
    snprintf(OutText, sizeof OutText, "\n\nProjet : %s\n%s", "qx", TimeText);
    return write_Text(*pFile, OutText);
}

static int close_Log(int *pFile, char (&OutText)[TEXT_SIZE + 1])
{
    const std::lock_guard<std::mutex> Guard(ReportLock);
    if (*pFile == LOG_CLOSED)
        return 0;
    char TimeText[CTIME_SIZE];
    make_TimeText(TimeText);
    lseek(*pFile, 0, SEEK_END);
    snprintf(OutText, sizeof OutText, "Fin - %s\n", TimeText);
    write_Text(*pFile, OutText);
    const int Status = close(*pFile);
    // The receive thread may still report: not into whatever is opened next under this number.
    *pFile = LOG_CLOSED;
    return Status;
}

int ErrorInit(const char *Path)
{
    return open_Log(Path, &ErrorFile, ErrOutText);
}

int ErrorClose()
{
    return close_Log(&ErrorFile, ErrOutText);
}

int UserInit(const char *Path)
{
    return open_Log(Path, &UserFile, UserOutText);
}

int UserClose()
{
    return close_Log(&UserFile, UserOutText);
}

void write_Version()
{
    const std::lock_guard<std::mutex> Guard(ReportLock);
    snprintf(ErrString, sizeof ErrString, "Version : %d.%d.%d - %s  %s\n", VERSION_MAJOR,
             VERSION_MINOR, VERSION_PATCH, BUILD_DATE, BUILD_TIME);
    write_Text(ErrorFile, ErrString);
}

void print_Out(const char *Format, ...)
{
    va_list Arguments;
    va_start(Arguments, Format);
    vprintf(Format, Arguments);
    va_end(Arguments);
    fflush(stdout);
}

// ErrString becomes the time stamp, always STAMP_SIZE characters. Under the lock.
static void stamp_ErrString()
{
    char TimeText[CTIME_SIZE];
    make_TimeText(TimeText);
    snprintf(ErrString, sizeof ErrString, "%-*.*s", STAMP_SIZE, STAMP_SIZE, TimeText);
}

// The finished line goes out. Under the lock.
static void write_ReportLine(const char *Source, int Line)
{
    snprintf(ErrOutText, sizeof ErrOutText, "%s %hu : ", Source, static_cast<unsigned short>(Line));
    write_Text(ErrorFile, ErrOutText);
    write_Text(ErrorFile, ErrString);
    write_Text(ErrorFile, "\n");
    print_Out("%s%s\n", ErrOutText, ErrString);
}

void report_Error(const char *Source, int Line, const char *Format, ...)
{
    const std::lock_guard<std::mutex> Guard(ReportLock);
    stamp_ErrString();
    va_list Arguments;
    va_start(Arguments, Format);
    vsnprintf(ErrString + STAMP_SIZE, MESSAGE_SIZE + 1, Format, Arguments);
    va_end(Arguments);
    write_ReportLine(Source, Line);
}

void report_TimeStamp(const char *Source, int Line, const char *Text)
{
    const std::lock_guard<std::mutex> Guard(ReportLock);
    stamp_ErrString();
    char Stamp[STAMP_SIZE + 1];
    memcpy(Stamp, ErrString, sizeof Stamp);
    snprintf(ErrString + STAMP_SIZE, MESSAGE_SIZE + 1, "%s%s", Stamp, Text);
    write_ReportLine(Source, Line);
}

void stop_Assertion(const char *Source, int Line, const char *Text)
{
    fprintf(stderr, "qx: %s:%d: Assertion `%s' failed.\n", Source, Line, Text);
    end_Request();
    abort();
}

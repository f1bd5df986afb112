#include "preload/Outside.h"
#include "preload/Next.h"
#include "preload/Session.h"
#include "preload/Turn.h"
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <link.h>
#include <new>
#include <set>
#include <stdio_ext.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qxsim::outside
{
namespace
{

namespace fs = std::filesystem;

const std::vector<OutsideFault> *Faults;
const PowerCut *Cut; // null: none
// Threads may be parallel.
std::array<std::atomic<unsigned>, std::size(OutsideCallNames)> Counts;
// Never destroyed: they are read when the process ends.
std::vector<std::string> &Commands = *new std::vector<std::string>;
std::set<std::string> &Opened = *new std::set<std::string>;

// From its call of exit on nothing is the program's own: what calls then was linked into it to
// count what it did.
std::atomic<bool> Ended;

[[noreturn]] void end_Program(int Status)
{
    Ended = true;
    ::exit(Status);
}

const OutsideFault *find_Fault(OutsideCall Call, unsigned Nth)
{
    for (const OutsideFault &Planned : *Faults) {
        if (Planned.Call == Call && (Planned.Nth == 0 || Planned.Nth == Nth)) {
            return &Planned;
        }
    }
    return nullptr;
}

// What a call met outside the process.
enum class Effect { None, Polled, Reached, Changed };

// Numbers in rising order, as runs of them.
class NumberRanges
{
  public:
    void add(unsigned Number)
    {
        if (!Runs.empty() && Runs.back().second + 1 == Number) {
            Runs.back().second = Number;
        } else {
            Runs.emplace_back(Number, Number);
        }
    }

    std::string show() const
    {
        std::string Text;
        for (const auto &[First, Last] : Runs) {
            Text += (Text.empty() ? "" : ",") + std::to_string(First);
            Text += First == Last ? "" : "-" + std::to_string(Last);
        }
        return Text;
    }

  private:
    std::vector<std::pair<unsigned, unsigned>> Runs;
};

struct CallNumbers {
    NumberRanges Reaching;
    NumberRanges Changing;
};

// Polls of the driver that find nothing: no frame, or the timer. A loader that waits polls again
// and again; what it makes of the first ones it makes of all until something happens.
constexpr unsigned NB_POLLS_TOLD = 3;
struct Polls {
    unsigned NbEvents{}; // NbEvents of the whole at the last one ...
    unsigned Count{};    // so many times
};

// All three are met with the turn only.
std::array<CallNumbers, std::size(OutsideCallNames)> &Known =
    *new std::array<CallNumbers, std::size(OutsideCallNames)>; // never destroyed, as above
Polls PollsForFrame, PollsOfTimer;
unsigned NbEvents; // calls that reached beyond the process, polls aside

void note_Effect(OutsideCall Call, unsigned Nth, Effect Met)
{
    const turn::Inside Guard;
    CallNumbers &Kind = Known[static_cast<std::size_t>(Call)];
    if (Met != Effect::None) {
        Kind.Reaching.add(Nth);
        NbEvents += Met == Effect::Polled ? 0 : 1;
    }
    if (Met == Effect::Changed) {
        Kind.Changing.add(Nth);
    }
}

Effect count_Poll(Polls &Earlier)
{
    const turn::Inside Guard;
    if (Earlier.NbEvents != NbEvents) {
        Earlier = {NbEvents, 0};
    }
    return ++Earlier.Count <= NB_POLLS_TOLD ? Effect::Polled : Effect::None;
}

bool is_Cut(OutsideCall Call, unsigned Nth, CutMoment When)
{
    return Cut != nullptr && Cut->Call == Call && Cut->Nth == Nth && Cut->When == When;
}

void do_Nothing() {}

// One call of the program. Really makes it, Fail(fault) stands for it when it is to fail, Tell(its
// result) says what it met, Half does what of it is done when the power goes in its middle.
template <typename Call, typename Failure, typename Telling, typename Middle = void (*)()>
auto pass(OutsideCall Kind, Call Really, Failure Fail, Telling Tell, Middle Half = do_Nothing)
{
    if (Ended) {
        return Really();
    }
    const unsigned Nth = ++Counts[static_cast<std::size_t>(Kind)];
    if (is_Cut(Kind, Nth, CutMoment::Before)) {
        session::cut_Power();
    }
    if (is_Cut(Kind, Nth, CutMoment::Middle)) {
        Half();
        session::cut_Power();
    }
    const OutsideFault *const Planned = find_Fault(Kind, Nth);
    const auto Result = Planned == nullptr ? Really() : Fail(*Planned);
    if (Planned == nullptr) {
        note_Effect(Kind, Nth, Tell(Result));
    }
    if (is_Cut(Kind, Nth, CutMoment::After)) {
        session::cut_Power();
    }
    return Result;
}

// A failure that leaves errno and returns Result.
template <typename T>
auto make_Failure(T Result)
{
    return [Result](const OutsideFault &Planned) {
        errno = Planned.Errno;
        return Result;
    };
}

// For calls that meet the same whatever comes of them.
constexpr auto tell_Reached = [](const auto &) { return Effect::Reached; };
constexpr auto tell_Changed = [](const auto &) { return Effect::Changed; };

// Files by number and by name.

// Where Path leads to, links followed; below /proc they would tell the process's number.
void note_Opened(const char *Path)
{
    if (Ended) {
        return;
    }
    std::error_code Error;
    const bool Process = strncmp(Path, "/proc/", 6) == 0;
    const fs::path Real =
        Process ? fs::path{Path} : fs::weakly_canonical(fs::absolute(Path), Error);
    const turn::Inside Guard;
    Opened.insert(Error ? Path : Real.string());
}

int open_Path(const char *Path, int Flags, ...)
{
    mode_t Mode = 0;
    if ((Flags & O_CREAT) != 0) {
        va_list Arguments;
        va_start(Arguments, Flags);
        Mode = va_arg(Arguments, mode_t);
        va_end(Arguments);
    }
    note_Opened(Path);
    const bool Driver = strcmp(Path, session::DRIVER_PATH) == 0;
    return pass(
        Driver ? OutsideCall::Driver : OutsideCall::Open, [&] { return ::open(Path, Flags, Mode); },
        make_Failure(-1),
        [&](int) {
            return !Driver && (Flags & (O_CREAT | O_TRUNC)) != 0 ? Effect::Changed
                                                                 : Effect::Reached;
        });
}

ssize_t read_Fd(int Fd, void *Data, std::size_t Size)
{
    return pass(
        OutsideCall::Read, [&] { return ::read(Fd, Data, Size); }, make_Failure(ssize_t{-1}),
        tell_Reached);
}

ssize_t write_Fd(int Fd, const void *Data, std::size_t Size)
{
    const auto Write = [&](std::size_t Part) { return ::write(Fd, Data, Part); };
    if (Fd == STDOUT_FILENO || Fd == STDERR_FILENO) {
        return Write(Size);
    }
    return pass(
        OutsideCall::Write, [&] { return Write(Size); }, make_Failure(ssize_t{-1}), tell_Changed,
        [&] { Write(Size / 2); });
}

int sync_Fd(int Fd)
{
    return pass(
        OutsideCall::Write, [&] { return ::fsync(Fd); }, make_Failure(-1), tell_Changed);
}

int close_Fd(int Fd)
{
    return pass(
        OutsideCall::Close, [&] { return ::close(Fd); },
        [&](const OutsideFault &Planned) {
            ::close(Fd);
            return make_Failure(-1)(Planned);
        },
        tell_Reached);
}

int rename_Path(const char *Old, const char *New)
{
    return pass(
        OutsideCall::Rename, [&] { return ::rename(Old, New); }, make_Failure(-1), tell_Changed);
}

int link_Path(const char *Old, const char *New)
{
    return pass(
        OutsideCall::Rename, [&] { return ::link(Old, New); }, make_Failure(-1), tell_Changed);
}

int remove_Path(const char *Path)
{
    return pass(
        OutsideCall::Remove, [&] { return ::remove(Path); }, make_Failure(-1), tell_Changed);
}

int unlink_Path(const char *Path)
{
    return pass(
        OutsideCall::Remove, [&] { return ::unlink(Path); }, make_Failure(-1), tell_Changed);
}

int make_Folder(const char *Path, mode_t Mode)
{
    return pass(
        OutsideCall::Mkdir, [&] { return ::mkdir(Path, Mode); }, make_Failure(-1), tell_Changed);
}

int change_Folder(const char *Path)
{
    return pass(
        OutsideCall::Chdir, [&] { return ::chdir(Path); }, make_Failure(-1), tell_Reached);
}

// Streams. What the program writes to its terminal is no file.

bool is_Terminal(const FILE *Stream)
{
    return Stream == nullptr || Stream == stdin || Stream == stdout || Stream == stderr;
}

// As the C library leaves a stream on which reading or writing has failed.
template <typename T>
auto make_StreamFailure(FILE *Stream, T Result)
{
    return [=](const OutsideFault &Planned) {
        Stream->_flags |= _IO_ERR_SEEN;
        return make_Failure(Result)(Planned);
    };
}

// Of what still waits in the stream's buffer, half reaches the file.
void write_HalfOfBuffer(FILE *Stream)
{
    const auto Waiting = static_cast<off_t>(__fpending(Stream));
    struct stat Whole {
    };
    if (Waiting > 0 && ::fflush(Stream) == 0 && fstat(fileno(Stream), &Whole) == 0) {
        (void)!ftruncate(fileno(Stream), Whole.st_size - (Waiting + 1) / 2);
    }
}

FILE *open_Stream(const char *Path, const char *Mode)
{
    note_Opened(Path);
    return pass(
        OutsideCall::Open, [&] { return ::fopen(Path, Mode); },
        make_Failure(static_cast<FILE *>(nullptr)),
        [&](FILE *) { return *Mode == 'r' ? Effect::Reached : Effect::Changed; });
}

// Bytes that the stream has read ahead.
std::ptrdiff_t get_NbWaiting(const FILE *Stream)
{
    return Stream->_IO_read_end - Stream->_IO_read_ptr;
}

template <typename Call, typename T>
auto pass_Read(FILE *Stream, Call Really, T Failure)
{
    if (is_Terminal(Stream)) {
        return Really();
    }
    const std::ptrdiff_t Waiting = get_NbWaiting(Stream);
    return pass(OutsideCall::Read, Really, make_StreamFailure(Stream, Failure), [&](const auto &) {
        const bool Filled = Waiting == 0 || get_NbWaiting(Stream) > Waiting || feof(Stream) != 0;
        return Filled ? Effect::Reached : Effect::None;
    });
}

template <typename Call, typename T>
auto pass_Write(FILE *Stream, Call Really, T Failure)
{
    if (is_Terminal(Stream)) {
        return Really();
    }
    const std::size_t Waiting = __fpending(Stream);
    return pass(
        OutsideCall::Write, Really, make_StreamFailure(Stream, Failure),
        [&](const auto &) {
            const std::size_t Left = __fpending(Stream);
            return Left == 0 || Left < Waiting ? Effect::Changed : Effect::None;
        },
        [&] {
            Really();
            write_HalfOfBuffer(Stream);
        });
}

std::size_t read_Stream(void *Data, std::size_t Size, std::size_t Count, FILE *Stream)
{
    return pass_Read(
        Stream, [&] { return ::fread(Data, Size, Count, Stream); }, std::size_t{});
}

char *read_Line(char *Line, int Size, FILE *Stream)
{
    return pass_Read(
        Stream, [&] { return ::fgets(Line, Size, Stream); }, static_cast<char *>(nullptr));
}

int read_Character(FILE *Stream)
{
    return pass_Read(
        Stream, [&] { return ::fgetc(Stream); }, EOF);
}

// The C library reads where it seeks to.
int seek_Stream(FILE *Stream, off_t Offset, int From)
{
    return pass(
        OutsideCall::Read, [&] { return ::fseeko(Stream, Offset, From); },
        make_StreamFailure(Stream, -1), tell_Reached);
}

std::size_t write_Stream(const void *Data, std::size_t Size, std::size_t Count, FILE *Stream)
{
    return pass_Write(
        Stream, [&] { return ::fwrite(Data, Size, Count, Stream); }, std::size_t{});
}

int write_Text(const char *Text, FILE *Stream)
{
    return pass_Write(
        Stream, [&] { return ::fputs(Text, Stream); }, EOF);
}

int write_Character(int Character, FILE *Stream)
{
    return pass_Write(
        Stream, [&] { return ::fputc(Character, Stream); }, EOF);
}

int write_Arguments(FILE *Stream, const char *Format, va_list Arguments)
{
    return pass_Write(
        Stream, [&] { return ::vfprintf(Stream, Format, Arguments); }, -1);
}

int write_Formatted(FILE *Stream, const char *Format, ...)
{
    va_list Arguments;
    va_start(Arguments, Format);
    const int Result = write_Arguments(Stream, Format, Arguments);
    va_end(Arguments);
    return Result;
}

int flush_Stream(FILE *Stream)
{
    return pass_Write(
        Stream, [&] { return ::fflush(Stream); }, EOF);
}

// A close that fails loses what still waits in the buffer.
int close_Stream(FILE *Stream)
{
    const bool Held = __fpending(Stream) > 0;
    return pass(
        OutsideCall::Close, [&] { return ::fclose(Stream); },
        [&](const OutsideFault &Planned) {
            __fpurge(Stream);
            ::fclose(Stream);
            return make_Failure(EOF)(Planned);
        },
        [Held](int) { return Held ? Effect::Changed : Effect::Reached; },
        [&] { write_HalfOfBuffer(Stream); });
}

// Memory.

template <typename Call>
auto pass_Allocation(Call Really)
{
    return pass(OutsideCall::Allocation, Really, make_Failure(decltype(Really()){}), tell_Reached);
}

void *allocate(std::size_t Size)
{
    return pass_Allocation([&] { return ::malloc(Size); });
}

void *allocate_Zeroed(std::size_t Count, std::size_t Size)
{
    return pass_Allocation([&] { return ::calloc(Count, Size); });
}

char *duplicate(const char *Text)
{
    return pass_Allocation([&] { return ::strdup(Text); });
}

void *allocate_Array(std::size_t Size, const std::nothrow_t &)
{
    return pass_Allocation([&] { return ::operator new[](Size, std::nothrow); });
}

// The shell.

// The next word of a command line, without its quotes; "" at the end.
std::string take_Word(std::string_view &Command)
{
    Command.remove_prefix(std::min(Command.find_first_not_of(' '), Command.size()));
    const bool Quoted = !Command.empty() && Command.front() == '"';
    Command.remove_prefix(Quoted ? 1 : 0);
    const std::size_t End = std::min(Command.find(Quoted ? '"' : ' '), Command.size());
    std::string Word{Command.substr(0, End)};
    Command.remove_prefix(std::min(End + 1, Command.size()));
    return Word;
}

// The largest file of the current folder, "" when there is none.
fs::path find_Largest()
{
    std::error_code Ignored;
    fs::path Largest;
    for (const fs::directory_entry &Entry : fs::directory_iterator{".", Ignored}) {
        if (Entry.is_regular_file(Ignored) &&
            (Largest.empty() || Entry.file_size(Ignored) > fs::file_size(Largest, Ignored))) {
            Largest = Entry.path();
        }
    }
    return Largest;
}

// The file that a command has made which makes one.
fs::path find_Product(std::string_view Command)
{
    const std::string Program = take_Word(Command);
    std::string First = take_Word(Command);
    const bool Option = First == "-f" || First == "-cf";
    const bool Packing = Program == "tar" && First == "-cf";
    if (Program == "tar" && First == "-xf") {
        return find_Largest(); // one of those that it unpacks
    }
    First = Option ? take_Word(Command) : First;
    std::error_code Ignored;
    if (Program == "cp") {
        const fs::path Target = take_Word(Command);
        return fs::is_directory(Target, Ignored) ? Target / fs::path{First}.filename() : Target;
    }
    if (Program == "gzip") {
        return First + ".gz";
    }
    return Packing ? fs::path{First} : fs::path{First}.replace_extension();
}

// A command that makes a file has written half of it; any other has not begun.
void run_HalfOf(const char *Command)
{
    if (is_MakingFile(Command)) {
        (void)!::system(Command);
        const fs::path Product = find_Product(Command);
        std::error_code Ignored;
        fs::resize_file(Product, fs::file_size(Product, Ignored) / 2, Ignored);
    }
}

int run_Command(const char *Command)
{
    Commands.emplace_back(Command);
    return pass(
        OutsideCall::Shell, [&] { return ::system(Command); },
        [&](const OutsideFault &Planned) {
            if (Planned.Half) {
                run_HalfOf(Command);
            } else if (Planned.Run) {
                (void)!::system(Command);
            }
            return Planned.ExitStatus << 8;
        },
        tell_Changed, [&] { run_HalfOf(Command); });
}

// Driver and threads.

int request_Driver(int Fd, unsigned long Request, void *Argument)
{
    return pass(
        OutsideCall::Driver, [&] { return ::ioctl(Fd, Request, Argument); }, make_Failure(-1),
        [Request](int Result) {
            switch (session::get_RequestKind(Request).value_or(DriverRequest::Open)) {
            case DriverRequest::Send:
            case DriverRequest::Reset:
                return Effect::Changed;
            case DriverRequest::Timer:
                return count_Poll(PollsOfTimer);
            case DriverRequest::Receive:
                return Result == 0 ? Effect::Reached : count_Poll(PollsForFrame);
            default:
                return Effect::Reached;
            }
        });
}

int create_Thread(pthread_t *Handle, const pthread_attr_t *Attributes, void *(*Start)(void *),
                  void *Argument)
{
    return pass(
        OutsideCall::Thread, [&] { return ::pthread_create(Handle, Attributes, Start, Argument); },
        [](const OutsideFault &Planned) { return Planned.Errno; }, tell_Reached);
}

// What the program calls, and what it meets instead.
struct StandIn {
    const char *Name;
    void *Function;
};

template <typename F>
void *get_Address(F *Function)
{
    return reinterpret_cast<void *>(Function);
}

const StandIn StandIns[] = {
    {"open", get_Address(open_Path)},
    {"open64", get_Address(open_Path)},
    {"fopen", get_Address(open_Stream)},
    {"fopen64", get_Address(open_Stream)},
    {"read", get_Address(read_Fd)},
    {"fread", get_Address(read_Stream)},
    {"fgets", get_Address(read_Line)},
    {"fgetc", get_Address(read_Character)},
    {"getc", get_Address(read_Character)},
    {"fseek", get_Address(seek_Stream)}, // a long is an off_t here
    {"fseeko", get_Address(seek_Stream)},
    {"fseeko64", get_Address(seek_Stream)},
    {"write", get_Address(write_Fd)},
    {"fsync", get_Address(sync_Fd)},
    {"fwrite", get_Address(write_Stream)},
    {"fputs", get_Address(write_Text)},
    {"fputc", get_Address(write_Character)},
    {"putc", get_Address(write_Character)},
    {"fprintf", get_Address(write_Formatted)},
    {"vfprintf", get_Address(write_Arguments)},
    {"fflush", get_Address(flush_Stream)},
    {"close", get_Address(close_Fd)},
    {"fclose", get_Address(close_Stream)},
    {"rename", get_Address(rename_Path)},
    {"link", get_Address(link_Path)},
    {"remove", get_Address(remove_Path)},
    {"unlink", get_Address(unlink_Path)},
    {"mkdir", get_Address(make_Folder)},
    {"chdir", get_Address(change_Folder)},
    {"malloc", get_Address(allocate)},
    {"calloc", get_Address(allocate_Zeroed)},
    {"strdup", get_Address(duplicate)},
    {"_ZnamRKSt9nothrow_t", get_Address(allocate_Array)}, // new (std::nothrow) T[n]
    {"system", get_Address(run_Command)},
    {"ioctl", get_Address(request_Driver)},
    {"pthread_create", get_Address(create_Thread)},
    {"exit", get_Address(end_Program)},
};

// The tables of the program's dynamic linker.
struct DynamicTables {
    const ElfW(Sym) * Symbols{};
    const char *Names{};
    struct {
        const ElfW(Rela) * First{};
        std::size_t Size{}; // bytes
    } Slots[2];             // of functions called, of functions whose address is taken
};

// The dynamic linker's tables hold addresses as numbers.
// NOLINTBEGIN(performance-no-int-to-ptr)
DynamicTables read_Dynamic(const ElfW(Dyn) * Entry)
{
    DynamicTables Read;
    for (; Entry->d_tag != DT_NULL; ++Entry) {
        const ElfW(Addr) Value = Entry->d_un.d_ptr;
        switch (Entry->d_tag) {
        case DT_SYMTAB:
            Read.Symbols = reinterpret_cast<const ElfW(Sym) *>(Value);
            break;
        case DT_STRTAB:
            Read.Names = reinterpret_cast<const char *>(Value);
            break;
        case DT_JMPREL:
            Read.Slots[0].First = reinterpret_cast<const ElfW(Rela) *>(Value);
            break;
        case DT_PLTRELSZ:
            Read.Slots[0].Size = Value;
            break;
        case DT_RELA:
            Read.Slots[1].First = reinterpret_cast<const ElfW(Rela) *>(Value);
            break;
        case DT_RELASZ:
            Read.Slots[1].Size = Value;
            break;
        default:
            break;
        }
    }
    return Read;
}

// The slot may lie in memory that was made read only once it was filled.
void set_Slot(void **Slot, void *Function)
{
    const auto PageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto Page = reinterpret_cast<std::uintptr_t>(Slot) & ~(PageSize - 1);
    if (mprotect(reinterpret_cast<void *>(Page), PageSize, PROT_READ | PROT_WRITE) != 0) {
        next::die("the loader's calls cannot be watched");
    }
    *Slot = Function;
}

void fill_Slot(ElfW(Addr) Base, const DynamicTables &Tables, const ElfW(Rela) & Slot)
{
    const ElfW(Sym) &Symbol = Tables.Symbols[ELF64_R_SYM(Slot.r_info)];
    if (Symbol.st_shndx != SHN_UNDEF) {
        return;
    }
    for (const StandIn &Offered : StandIns) {
        if (strcmp(Tables.Names + Symbol.st_name, Offered.Name) == 0) {
            set_Slot(reinterpret_cast<void **>(Base + Slot.r_offset), Offered.Function);
        }
    }
}

// Of the objects that are loaded, the program comes first.
int watch_Program(dl_phdr_info *Program, std::size_t, void *)
{
    for (int i = 0; i < Program->dlpi_phnum; ++i) {
        const ElfW(Phdr) &Part = Program->dlpi_phdr[i];
        if (Part.p_type != PT_DYNAMIC) {
            continue;
        }
        const DynamicTables Tables =
            read_Dynamic(reinterpret_cast<const ElfW(Dyn) *>(Program->dlpi_addr + Part.p_vaddr));
        for (const auto &Slots : Tables.Slots) {
            for (std::size_t k = 0; k < Slots.Size / sizeof *Slots.First; ++k) {
                fill_Slot(Program->dlpi_addr, Tables, Slots.First[k]);
            }
        }
    }
    return 1;
}
// NOLINTEND(performance-no-int-to-ptr)

} // namespace

void start(const std::vector<OutsideFault> &Planned, const std::optional<PowerCut> &PlannedCut)
{
    Faults = &Planned;
    Cut = PlannedCut ? &*PlannedCut : nullptr;
    dl_iterate_phdr(watch_Program, nullptr);
}

unsigned get_Count(OutsideCall Call)
{
    return Counts[static_cast<std::size_t>(Call)];
}

std::string get_Reaching(OutsideCall Call)
{
    return Known[static_cast<std::size_t>(Call)].Reaching.show();
}

std::string get_Changing(OutsideCall Call)
{
    return Known[static_cast<std::size_t>(Call)].Changing.show();
}

const std::vector<std::string> &get_Commands()
{
    return Commands;
}

const std::set<std::string> &get_Opened()
{
    return Opened;
}

} // namespace qxsim::outside

#include "runner/Sandbox.h"
#include "runner/Paths.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;

// Of the host's root these are not there inside: they are the machine's own, or nobody's business.
constexpr std::array<std::string_view, 12> Hidden{"boot",  "dev", "home", "lost+found",
                                                  "media", "mnt", "proc", "root",
                                                  "run",   "srv", "tmp",  "var"};

using Words = std::vector<std::string>;

constexpr double PARALLEL_SPEED = 100; // unless one is given

void add(Words &Command, std::initializer_list<std::string> Added)
{
    Command.insert(Command.end(), Added);
}

// The host's programs and libraries, read only.
void add_HostFolders(Words &Command)
{
    for (const fs::directory_entry &Entry : fs::directory_iterator{"/"}) {
        const std::string Path = Entry.path();
        if (std::find(Hidden.begin(), Hidden.end(), Path.substr(1)) != Hidden.end()) {
            continue;
        }
        if (Entry.is_symlink()) {
            add(Command, {"--symlink", fs::read_symlink(Path), Path});
        } else if (Entry.is_directory()) {
            add(Command, {"--ro-bind", Path, Path});
        }
    }
}

// Where a loader that was built to count its own coverage writes: GCOV_PREFIX names a folder, which
// is the same inside.
std::string get_CoverageFolder()
{
    const char *const Folder = getenv("GCOV_PREFIX");
    return Folder != nullptr ? Folder : "";
}

Words make_Command(const Tools &Used, const fs::path &Work, const fs::path &Run,
                   const Words &Arguments)
{
    Words Command{"bwrap", "--unshare-user",   "--uid", "0", "--gid", "0", "--cap-add",
                  "ALL",   "--die-with-parent"};
    add_HostFolders(Command);
    add(Command, {"--dev", "/dev", "--tmpfs", "/proc", "--dir", "/tmp", "--dir", MOUNT_CARD});
    add(Command, {"--dir", "/mnt/removable", "--dir", "/mnt/net"});
    add(Command, {"--ro-bind", "/proc", FOLDER_PROC});
    add(Command, {"--ro-bind", Used.Loader, PATH_QX, "--ro-bind", Used.Runner, PATH_QXSIM});
    add(Command,
        {"--ro-bind", Used.Preload, PATH_PRELOAD, "--ro-bind", Used.Scripts, FOLDER_SCRIPTS});
    add(Command, {"--bind", Work, FOLDER_MACHINE, "--bind", Run, FOLDER_RUN});
    add(Command, {"--bind", Work / "config", "/var/vantrel/config"});
    add(Command, {"--bind", Work / "vantrel", "/home/user/vantrel"});
    add(Command, {"--symlink", MOUNT_CARD, "/home/user/save"});
    add(Command, {"--symlink", std::string{FOLDER_SCRIPTS} + "/usbmount", "/home/user/usbmount"});
    if (const std::string Folder = get_CoverageFolder(); !Folder.empty()) {
        add(Command, {"--bind", Folder, Folder});
    }
    add(Command, {"--chdir", "/", PATH_QXSIM, "--inside"});
    Command.insert(Command.end(), Arguments.begin(), Arguments.end());
    return Command;
}

// Settings of the sanitizers with which the loader may have been built; the user's come last and
// win.
void add_SanitizerSettings(Words &Environment)
{
    static constexpr std::pair<const char *, const char *> OWN[] = {
        {"ASAN_OPTIONS", "verify_asan_link_order=0:"}, // the stand-ins stand before it
        {"TSAN_OPTIONS", "report_signal_unsafe=0:"},   // the results of a crash are written late
        {"LSAN_OPTIONS", ""},
        {"UBSAN_OPTIONS", "print_stacktrace=1:"},
    };
    for (const auto &[Name, Setting] : OWN) {
        const char *const User = getenv(Name);
        Environment.push_back(std::string{Name} + "=" + Setting + (User != nullptr ? User : ""));
    }
}

double get_ParallelRate(const RunSettings &Settings)
{
    return !Settings.Parallel ? 0 : Settings.Speed > 0 ? Settings.Speed : PARALLEL_SPEED;
}

// Nothing else of the host's settings reaches the loader, so that a run is the same everywhere.
Words make_Environment(const RunSettings &Settings)
{
    Words Environment{std::string{"PATH="} + FOLDER_SCRIPTS +
                          ":/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                      "HOME=/",
                      "LC_ALL=C",
                      "TZ=UTC0",
                      std::string{"QXSIM_RUN="} + FOLDER_RUN,
                      "QXSIM_SPEED=" + std::to_string(Settings.Parallel ? 0 : Settings.Speed),
                      "QXSIM_PARALLEL=" + std::to_string(get_ParallelRate(Settings)),
                      "QXSIM_LIMIT=" + std::to_string(Settings.Limit)};
    add_SanitizerSettings(Environment);
    if (const std::string Folder = get_CoverageFolder(); !Folder.empty()) {
        Environment.push_back("GCOV_PREFIX=" + Folder);
    }
    return Environment;
}

std::vector<char *> make_Pointers(Words &Texts)
{
    std::vector<char *> Pointers;
    for (std::string &Text : Texts) {
        Pointers.push_back(Text.data());
    }
    Pointers.push_back(nullptr);
    return Pointers;
}

int wait_For(pid_t Child)
{
    int Status = 0;
    while (waitpid(Child, &Status, 0) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error{std::string{"waitpid: "} + strerror(errno)};
        }
    }
    return Status;
}

// Interrupts of the terminal are the loader's; this process stays to clean up.
class IgnoredInterrupts
{
  public:
    IgnoredInterrupts() : Interrupt{signal(SIGINT, SIG_IGN)}, Quit{signal(SIGQUIT, SIG_IGN)} {}
    ~IgnoredInterrupts()
    {
        restore();
    }
    IgnoredInterrupts(const IgnoredInterrupts &) = delete;
    IgnoredInterrupts &operator=(const IgnoredInterrupts &) = delete;
    void restore() const
    {
        signal(SIGINT, Interrupt);
        signal(SIGQUIT, Quit);
    }

  private:
    sighandler_t Interrupt;
    sighandler_t Quit;
};

} // namespace

int run_Sandbox(const Tools &Used, const fs::path &Work, const fs::path &Run,
                const RunSettings &Settings)
{
    Words Command = make_Command(Used, Work, Run, Settings.Arguments);
    Words Environment = make_Environment(Settings);
    const std::vector<char *> Argv = make_Pointers(Command);
    const std::vector<char *> Envp = make_Pointers(Environment);
    const IgnoredInterrupts Ignored;
    const pid_t Child = fork();
    if (Child < 0) {
        throw std::runtime_error{std::string{"fork: "} + strerror(errno)};
    }
    if (Child == 0) {
        Ignored.restore();
        execvpe(Argv[0], Argv.data(), Envp.data());
        const int Reason = errno;
        constexpr std::string_view Text = "qxsim: bwrap (package bubblewrap) cannot be started: ";
        (void)!write(STDERR_FILENO, Text.data(), Text.size());
        errno = Reason;
        perror("");
        _exit(127);
    }
    const int Status = wait_For(Child);
    std::ifstream Wait{Run / NAME_WAIT};
    int Loader = 0;
    if (Wait >> Loader) {
        return Loader;
    }
    if (WIFSIGNALED(Status)) {
        return Status; // interrupted
    }
    throw std::runtime_error{"the loader could not be started"};
}

} // namespace qxsim

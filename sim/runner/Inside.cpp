#include "machine/MachineFolder.h"
#include "runner/Paths.h"
#include "runner/Sandbox.h"
#include "runner/Strays.h"
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <system_error>
#include <unistd.h>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;

constexpr fs::copy_options WHOLE = fs::copy_options::recursive | fs::copy_options::copy_symlinks;

[[noreturn]] void fail(const std::string &What)
{
    throw std::system_error{errno, std::generic_category(), What};
}

void mount_Or_Throw(const char *Source, const std::string &Target, const char *Type,
                    unsigned long Flags, const char *Data)
{
    if (mount(Source, Target.c_str(), Type, Flags, Data) != 0) {
        fail("mount " + Target);
    }
}

// /proc is the kernel's, but for the list of modules, which the kernel does not let anyone write
// and some kernels do not have.
void prepare_Proc(const DriverSpec &Driver)
{
    for (const fs::directory_entry &Entry : fs::directory_iterator{FOLDER_PROC}) {
        const std::string Name = Entry.path().filename();
        if (Name != "modules" && !isdigit(static_cast<unsigned char>(Name[0]))) {
            fs::create_symlink(Entry.path(), fs::path{"/proc"} / Name);
        }
    }
    std::ofstream{"/proc/modules"}
        << "usbcore 303104 0 - Live 0x00000000\n"
        << (Driver.ModuleLoaded ? "can 16384 1 - Live 0x00000000\n" : "");
}

// Sanitizers look a process up by its number.
void link_Process(pid_t Process)
{
    const std::string Number = std::to_string(Process);
    fs::create_symlink(fs::path{FOLDER_PROC} / Number, fs::path{"/proc"} / Number);
}

// The platform's own programs on the card, unless the machine's folder brings them.
class CardPrograms
{
  public:
    explicit CardPrograms(const fs::path &Card) : Folder{Card / "exe"}
    {
        OwnFolder = fs::create_directories(Folder);
        for (const char *Name : {"mount_net", "umount_net"}) {
            if (!fs::exists(fs::symlink_status(Folder / Name))) {
                fs::create_symlink(fs::path{FOLDER_SCRIPTS} / Name, Folder / Name);
                Own.push_back(Folder / Name);
            }
        }
    }
    ~CardPrograms()
    {
        std::error_code Ignored;
        for (const fs::path &Path : Own) {
            fs::remove(Path, Ignored);
        }
        if (OwnFolder) {
            fs::remove(Folder, Ignored); // stays when the loader put something there
        }
    }
    CardPrograms(const CardPrograms &) = delete;
    CardPrograms &operator=(const CardPrograms &) = delete;

  private:
    fs::path Folder;
    bool OwnFolder{};
    std::vector<fs::path> Own;
};

// PATH_CARD is what the card holds: the machine's folder itself, or memory of the card's size.
void prepare_Card(const CardSpec &Card, const fs::path &Folder)
{
    if (!Card.Size) {
        fs::create_directory_symlink(Folder, PATH_CARD);
        return;
    }
    fs::create_directory(PATH_CARD);
    const std::string Size = "mode=755,size=" + std::to_string(*Card.Size);
    mount_Or_Throw("card", PATH_CARD, "tmpfs", 0, Size.c_str());
    fs::copy(Folder, PATH_CARD, WHOLE);
}

void insert_Card(const CardSpec &Card)
{
    if (Card.Mounted) {
        mount_Or_Throw(PATH_CARD, MOUNT_CARD, nullptr, MS_BIND, nullptr);
    }
}

void keep_Card(const CardSpec &Card, const fs::path &Folder)
{
    if (Card.Size) {
        for (const fs::directory_entry &Entry : fs::directory_iterator{Folder}) {
            fs::remove_all(Entry.path());
        }
        fs::copy(PATH_CARD, Folder, WHOLE);
    }
}

// What sim/scripts/storage reads.
void prepare_Scripts(const Machine &Described)
{
    const fs::path Folder = fs::path{FOLDER_RUN} / "scripts";
    fs::create_directories(Folder);
    for (const auto &[Name, Spec] : Described.Scripts) {
        std::ofstream{Folder / Name} << Spec.From << ' ' << Spec.ExitStatus << '\n';
    }
}

[[noreturn]] void become_Loader(const std::vector<std::string> &Arguments)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    signal(SIGINT, SIG_DFL);
    signal(SIGQUIT, SIG_DFL);
    link_Process(getpid());
    setenv("LD_PRELOAD", PATH_PRELOAD, 1);
    std::vector<std::string> Words{PATH_QX};
    Words.insert(Words.end(), Arguments.begin(), Arguments.end());
    std::vector<char *> Argv;
    std::transform(Words.begin(), Words.end(), std::back_inserter(Argv),
                   [](std::string &Word) { return Word.data(); });
    Argv.push_back(nullptr);
    execv(PATH_QX, Argv.data());
    perror("qxsim: the loader cannot be executed");
    _exit(EX_NOINPUT);
}

int run_Loader(const std::vector<std::string> &Arguments)
{
    signal(SIGINT, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    const pid_t Loader = fork();
    if (Loader < 0) {
        fail("fork");
    }
    if (Loader == 0) {
        become_Loader(Arguments);
    }
    int Status = 0;
    while (waitpid(Loader, &Status, 0) < 0 && errno == EINTR) {
    }
    return Status;
}

} // namespace

int run_Inside(const std::vector<std::string> &Arguments)
{
    const fs::path CardFolder = fs::path{FOLDER_MACHINE} / "card";
    const Machine Described = read_Machine(FOLDER_MACHINE);
    prepare_Proc(Described.Driver);
    prepare_Scripts(Described);
    int Status = 0;
    prepare_Card(Described.Card, CardFolder);
    {
        const CardPrograms Programs{PATH_CARD};
        insert_Card(Described.Card);
        const Tree Before = read_Tree();
        Status = run_Loader(Arguments);
        write_Strays(fs::path{FOLDER_RUN} / NAME_RESULT, Before, read_Tree());
    }
    keep_Card(Described.Card, CardFolder);
    // Last: its presence says that everything went well.
    std::ofstream{fs::path{FOLDER_RUN} / NAME_WAIT} << Status << '\n';
    return 0;
}

} // namespace qxsim

#include "start/Start.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace qxstart
{

namespace fs = std::filesystem;

namespace
{

// A good start takes some ten virtual seconds; a board that is silent at every turn, a few times
// that.
constexpr const char *LIMIT = "600";      // virtual seconds
constexpr const char *LIMIT_REAL = "300"; // real seconds: nothing of the kind, a blocked loader

// Runs a program to its end, its outputs in files. Returns its exit status, -1 after a signal.
int run_Program(std::vector<std::string> Words, const fs::path &Output, const fs::path &Errors)
{
    std::vector<char *> Pointers;
    Pointers.reserve(Words.size() + 1);
    for (std::string &Word : Words) {
        Pointers.push_back(Word.data());
    }
    Pointers.push_back(nullptr);

    constexpr int FLAGS = O_WRONLY | O_CREAT | O_TRUNC;
    posix_spawn_file_actions_t Actions;
    posix_spawn_file_actions_init(&Actions);
    posix_spawn_file_actions_addopen(&Actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&Actions, STDOUT_FILENO, Output.c_str(), FLAGS, 0666);
    posix_spawn_file_actions_addopen(&Actions, STDERR_FILENO, Errors.c_str(), FLAGS, 0666);
    pid_t Child = 0;
    const int Failure =
        posix_spawnp(&Child, Pointers[0], &Actions, nullptr, Pointers.data(), environ);
    posix_spawn_file_actions_destroy(&Actions);
    if (Failure != 0) {
        throw std::system_error{Failure, std::generic_category(), Words[0]};
    }
    int Status = 0;
    while (waitpid(Child, &Status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
}

void read_Result(const fs::path &Path, Start &Ended)
{
    std::istringstream Lines{read_Text(Path)};
    for (std::string Line; std::getline(Lines, Line);) {
        const std::size_t Equals = std::min(Line.find('='), Line.size() - 1);
        Ended.Result[Line.substr(0, Equals)] = Line.substr(Equals + 1);
    }
    if (Ended.Result.contains("status")) {
        Ended.Status = std::stoi(Ended.Result["status"]);
    }
    if (Ended.Result.contains("signal")) {
        Ended.Signal = std::stoi(Ended.Result["signal"]);
        Ended.InTime = Ended.Result["limit_reached"] == "0";
    }
}

} // namespace

std::string show_Command(const Programs &Used, const fs::path &Machine)
{
    return Used.Simulator.string() + " --limit " + LIMIT + " --loader " + Used.Loader.string() +
           " " + Machine.string();
}

Start run_Start(const Programs &Used, const fs::path &Machine, const fs::path &Folder,
                const std::vector<std::string> &Options, const std::vector<std::string> &Arguments)
{
    fs::remove(Folder / "result");
    fs::remove(Folder / "trace");
    std::vector<std::string> Words{"timeout",
                                   "--kill-after=10",
                                   LIMIT_REAL,
                                   Used.Simulator,
                                   "--quiet",
                                   "--limit",
                                   LIMIT,
                                   "--loader",
                                   Used.Loader,
                                   "--trace",
                                   Folder / "trace",
                                   "--result",
                                   Folder / "result"};
    Words.insert(Words.end(), Options.begin(), Options.end());
    Words.insert(Words.end(), {Machine, "--"});
    Words.insert(Words.end(), Arguments.begin(), Arguments.end());

    Start Ended;
    const auto Begin = std::chrono::steady_clock::now();
    Ended.Exit = run_Program(Words, Folder / "output", Folder / "errors");
    Ended.RealSeconds =
        std::chrono::duration<double>{std::chrono::steady_clock::now() - Begin}.count();
    Ended.Output = read_Text(Folder / "output");
    Ended.Errors = read_Text(Folder / "errors");
    Ended.Trace = read_Text(Folder / "trace");
    read_Result(Folder / "result", Ended);
    return Ended;
}

fs::path make_TemporaryFolder(const std::string &Name)
{
    std::string Template = fs::temp_directory_path() / (Name + ".XXXXXX");
    if (mkdtemp(Template.data()) == nullptr) {
        throw std::system_error{errno, std::generic_category(), Template};
    }
    return Template;
}

std::string read_Text(const fs::path &Path)
{
    std::ifstream File{Path, std::ios::binary};
    return {std::istreambuf_iterator<char>{File}, {}};
}

void write_Text(const fs::path &Path, const std::string &Text)
{
    fs::create_directories(Path.parent_path());
    std::ofstream File{Path, std::ios::binary};
    File << Text;
    File.close();
    if (!File) {
        throw std::runtime_error{Path.string() + ": cannot be written"};
    }
}

} // namespace qxstart

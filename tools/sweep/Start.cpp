#include "sweep/Start.h"

#include "sweep/SweepMachine.h"
#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace qxsweep
{

namespace fs = std::filesystem;

namespace
{

// A good start takes some ten virtual seconds; a board that is silent at every turn, a few times
// that.
constexpr const char *LIMIT = "600";      // virtual seconds
constexpr const char *LIMIT_REAL = "300"; // real seconds: nothing of the kind, a blocked loader

// Runs a program to its end, its outputs in files.
void run_Program(std::vector<std::string> Words, const fs::path &Output, const fs::path &Errors)
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
    while (waitpid(Child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

std::string show_Command(const Programs &Used, const fs::path &Machine)
{
    return Used.Simulator.string() + " --limit " + LIMIT + " --loader " + Used.Loader.string() +
           " " + Machine.string();
}

Start run_Start(const Programs &Used, const fs::path &Machine, const fs::path &Folder)
{
    fs::remove(Folder / "result");
    run_Program({"timeout", "--kill-after=10", LIMIT_REAL, Used.Simulator, "--quiet", "--keep",
                 "--limit", LIMIT, "--loader", Used.Loader, "--trace", Folder / "trace", "--result",
                 Folder / "result", Machine},
                Folder / "output", Folder / "errors");

    Start Ended;
    Ended.Output = read_Text(Folder / "output");
    Ended.Errors = read_Text(Folder / "errors");
    std::istringstream Lines{read_Text(Folder / "result")};
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
    return Ended;
}

} // namespace qxsweep

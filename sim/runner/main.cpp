// qxsim: runs the unmodified loader on a machine that is described in a folder.
#include "machine/MachineFolder.h"
#include "runner/Paths.h"
#include "runner/Report.h"
#include "runner/Sandbox.h"
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <stdexcept>
#include <sysexits.h>
#include <system_error>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using namespace qxsim;

constexpr const char *USAGE =
    "Usage: qxsim [OPTION]... MACHINE [-- ARGUMENT...]\n"
    "Runs the boot loader qx on the simulated machine in the folder MACHINE, with ARGUMENTs.\n"
    "\n"
    "  --loader FILE   the loader (default: the qx that was built with this program)\n"
    "  --keep          work on MACHINE itself: the next start goes on from this one\n"
    "  --trace FILE    write the bus traffic in candump's log format\n"
    "  --result FILE   write what came of the run as lines KEY=VALUE\n"
    "  --speed N       N virtual seconds a real one (default: as fast as possible)\n"
    "  --limit N       end the loader after N virtual seconds (default 3600, 0 never)\n"
    "  --parallel      run the loader's threads in parallel, in real time --speed times faster\n"
    "                  (default 100); nothing is repeatable then\n"
    "  --quiet         no report, only what the loader prints\n"
    "  --help          this text\n"
    "  --version       the version\n"
    "\n"
    "The exit status is the loader's, 128 and the number of the signal that ended it, or 124 when\n"
    "the limit did. Of qxsim itself: 64 wrong usage, 65 a wrong machine, 71 the loader could not "
    "be\n"
    "run. The result file tells both kinds apart.\n";

struct Options {
    fs::path Machine;
    fs::path Loader;
    fs::path Trace;
    fs::path Result;
    bool Keep{};
    bool Quiet{};
    RunSettings Settings;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

double read_Number(const char *Text)
{
    char *End = nullptr;
    const double Number = strtod(Text, &End);
    if (End == Text || *End != 0 || !(Number >= 0 && Number <= 1e9)) {
        throw UsageError{std::string{"not a number from 0 to 1000000000: "} + Text};
    }
    return Number;
}

[[noreturn]] void print_AndExit(const char *Text)
{
    fputs(Text, stdout);
    exit(EX_OK);
}

Options read_Options(int argc, char *argv[])
{
    static const option Long[] = {
        {"loader", required_argument, nullptr, 'l'},
        {"keep", no_argument, nullptr, 'k'},
        {"trace", required_argument, nullptr, 't'},
        {"result", required_argument, nullptr, 'r'},
        {"speed", required_argument, nullptr, 's'},
        {"limit", required_argument, nullptr, 'm'},
        {"parallel", no_argument, nullptr, 'p'},
        {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, 'v'},
        {nullptr, 0, nullptr, 0},
    };
    Options Read;
    int Option = 0;
    while ((Option = getopt_long(argc, argv, "+", Long, nullptr)) != -1) {
        switch (Option) {
        case 'l':
            Read.Loader = optarg;
            break;
        case 'k':
            Read.Keep = true;
            break;
        case 't':
            Read.Trace = optarg;
            break;
        case 'r':
            Read.Result = optarg;
            break;
        case 's':
            Read.Settings.Speed = read_Number(optarg);
            break;
        case 'm':
            Read.Settings.Limit = read_Number(optarg);
            break;
        case 'p':
            Read.Settings.Parallel = true;
            break;
        case 'q':
            Read.Quiet = true;
            break;
        case 'h':
            print_AndExit(USAGE);
        case 'v':
            print_AndExit("qxsim 1.0\n");
        default:
            throw UsageError{"try qxsim --help"};
        }
    }
    if (optind == argc) {
        throw UsageError{"the folder of a machine is missing; try qxsim --help"};
    }
    Read.Machine = argv[optind];
    const bool Separated = optind + 1 < argc && strcmp(argv[optind + 1], "--") == 0;
    if (optind + 1 < argc && !Separated) {
        throw UsageError{std::string{"arguments of the loader stand after --: "} +
                         argv[optind + 1]};
    }
    for (int i = optind + 2; i < argc; ++i) {
        Read.Settings.Arguments.emplace_back(argv[i]);
    }
    return Read;
}

// The first of Names, in the folder of this program, that is there.
fs::path find_Near(const fs::path &Program, std::initializer_list<const char *> Names)
{
    for (const char *Name : Names) {
        const fs::path Candidate = Program.parent_path() / Name;
        if (fs::exists(Candidate)) {
            return fs::canonical(Candidate);
        }
    }
    throw UsageError{std::string{*Names.begin()} + " is not there, beside " + Program.string()};
}

// Built or installed, the tools lie near each other.
Tools find_Tools(const fs::path &Loader)
{
    Tools Found;
    Found.Runner = fs::canonical("/proc/self/exe");
    Found.Preload = find_Near(Found.Runner, {"qxsim_preload.so", "../lib/qxsim/qxsim_preload.so"});
    Found.Scripts = find_Near(Found.Runner, {"scripts", "../lib/qxsim/scripts"});
    if (Loader.empty()) {
        Found.Loader = find_Near(Found.Runner, {"qx", "../src/qx"});
    } else if (access(Loader.c_str(), X_OK) != 0 || fs::is_directory(Loader)) {
        throw UsageError{"not a program: " + Loader.string()};
    } else {
        Found.Loader = fs::canonical(Loader);
    }
    return Found;
}

// Removed at the end of the run.
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        std::string Template = fs::temp_directory_path() / "qxsim.XXXXXX";
        if (mkdtemp(Template.data()) == nullptr) {
            throw std::system_error{errno, std::generic_category(), Template};
        }
        Path = Template;
    }
    ~TemporaryFolder()
    {
        std::error_code Ignored;
        fs::remove_all(Path, Ignored);
    }
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;
    fs::path Path;
};

// Folders that the machine need not bring: an empty RAM disk, a new card. What is there is taken as
// it is.
void complete_Folder(const fs::path &Folder, std::initializer_list<const char *> Contents)
{
    if (fs::create_directory(Folder)) {
        for (const char *Name : Contents) {
            fs::create_directory(Folder / Name);
        }
    }
}

void complete_Folders(const fs::path &Work)
{
    complete_Folder(Work / "config", {});
    complete_Folder(Work / "vantrel", {"tmp", "config"});
    complete_Folder(Work / "card", {"log", "slave_hw", "slave_sw"});
}

fs::path prepare_Work(const Options &Given, const fs::path &Scratch)
{
    fs::path Work = fs::canonical(Given.Machine);
    if (!Given.Keep) {
        fs::copy(Work, Scratch / "machine",
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        Work = Scratch / "machine";
    }
    complete_Folders(Work);
    return Work;
}

int run(const Options &Given)
{
    const Tools Used = find_Tools(Given.Loader);
    const Machine Before = read_Machine(Given.Machine);
    const TemporaryFolder Scratch;
    const fs::path Work = prepare_Work(Given, Scratch.Path);
    const fs::path Run = Scratch.Path / "run";
    fs::create_directory(Run);

    fflush(stdout);
    const Outcome Left = read_Outcome(Run, run_Sandbox(Used, Work, Run, Given.Settings));
    if (is_PowerCut(Left)) {
        fs::remove_all(Work / "vantrel"); // a RAM disk
    }
    if (!Given.Trace.empty()) {
        fs::copy_file(Run / NAME_TRACE, Given.Trace, fs::copy_options::overwrite_existing);
    }
    if (!Given.Result.empty()) {
        write_ResultFile(Given.Result, Left);
    }
    if (!Given.Quiet) {
        print_Report(Left, Before, read_Machine(Work), Work / "config");
    }
    return get_ExitStatus(Left);
}

int fail(int Status, const char *Text)
{
    fprintf(stderr, "qxsim: %s\n", Text);
    return Status;
}

} // namespace

int main(int argc, char *argv[])
{
    try {
        if (argc > 1 && strcmp(argv[1], "--inside") == 0) {
            return run_Inside({argv + 2, argv + argc});
        }
        return run(read_Options(argc, argv));
    } catch (const UsageError &Error) {
        return fail(EX_USAGE, Error.what());
    } catch (const MachineError &Error) {
        return fail(EX_DATAERR, Error.what());
    } catch (const std::exception &Error) {
        return fail(EX_OSERR, Error.what());
    }
}

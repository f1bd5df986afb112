// qxsweep: starts a machine again and again, each time with one fault, and holds every start to the
// contract (Judge.h).
#include "start/Start.h"
#include "sweep/Judge.h"
#include "sweep/Plan.h"
#include "sweep/SweepMachine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>

namespace
{

namespace fs = std::filesystem;
using namespace qxstart;
using namespace qxsweep;

constexpr int EXIT_USAGE = 2;

constexpr const char *USAGE =
    "Usage: qxsweep [OPTION]... [MACHINE]\n"
    "Starts MACHINE, a folder as qxsim takes it, once as it is, and then again with every fault\n"
    "that a board can show at every command of that first start, with every call failing that\n"
    "reaches beyond the process, and with the power cut where one changes something: one fault a\n"
    "run. Each is held to the contract of docs/reliability.md. Without MACHINE: one that uses\n"
    "every service.\n"
    "\n"
    "  --loader FILE   the loader (default: the qx of this build)\n"
    "  --sample N      only N runs, drawn at random\n"
    "  --seed S        draws the same ones again\n"
    "  --match TEXT    only runs whose line in the list has TEXT\n"
    "  --jobs N        runs at a time (default: one a processor)\n"
    "  --list          say what would be run\n"
    "  --verbose       say what came of each run\n"
    "  --make FOLDER   leave the machine without MACHINE in FOLDER\n"
    "  --help          this text\n"
    "\n"
    "Exit status: 0 every run kept the contract, 1 one did not, 2 wrong usage.\n";

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    Programs Used{QXSIM_PROGRAM, QX_PROGRAM};
    fs::path Machine;
    fs::path Made;
    std::string Match;
    std::optional<unsigned> Sample;
    std::optional<unsigned> Seed;
    unsigned Jobs{std::max(1U, std::thread::hardware_concurrency())};
    bool List{};
    bool Verbose{};
};

unsigned read_Number(const char *Text)
{
    char *End = nullptr;
    const unsigned long Number = strtoul(Text, &End, 10);
    if (End == Text || *End != 0 || Number > UINT32_MAX) {
        throw UsageError{std::string{"not a number: "} + Text};
    }
    return static_cast<unsigned>(Number);
}

Options read_Options(int argc, char *argv[])
{
    static const option Long[] = {
        {"loader", required_argument, nullptr, 'l'}, {"sample", required_argument, nullptr, 'n'},
        {"seed", required_argument, nullptr, 's'},   {"match", required_argument, nullptr, 'm'},
        {"jobs", required_argument, nullptr, 'j'},   {"list", no_argument, nullptr, 'i'},
        {"verbose", no_argument, nullptr, 'v'},      {"make", required_argument, nullptr, 'f'},
        {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0},
    };
    Options Read;
    int Option = 0;
    while ((Option = getopt_long(argc, argv, "", Long, nullptr)) != -1) {
        switch (Option) {
        case 'l':
            Read.Used.Loader = fs::absolute(optarg);
            break;
        case 'n':
            Read.Sample = read_Number(optarg);
            break;
        case 's':
            Read.Seed = read_Number(optarg);
            break;
        case 'm':
            Read.Match = optarg;
            break;
        case 'j':
            Read.Jobs = std::max(1U, read_Number(optarg));
            break;
        case 'i':
            Read.List = true;
            break;
        case 'v':
            Read.Verbose = true;
            break;
        case 'f':
            Read.Made = optarg;
            break;
        case 'h':
            fputs(USAGE, stdout);
            exit(EXIT_SUCCESS);
        default:
            throw UsageError{"try qxsweep --help"};
        }
    }
    if (optind < argc) {
        Read.Machine = argv[optind];
    }
    return Read;
}

std::string show_Run(const PlannedRun &Planned)
{
    return Planned.Kind + ": " + Planned.Place;
}

// The sweep: the machine as it is, what came of its good start, the verdicts on all others.
class Sweep
{
  public:
    explicit Sweep(const Options &Asked) : Given{Asked}
    {
        if (Given.Machine.empty()) {
            make_Machine(Scratch / "good");
        } else {
            fs::copy(Given.Machine, Scratch / "good", fs::copy_options::recursive);
        }
        Toml = read_Text(Scratch / "good/machine.toml");
        Store = read_Store(Scratch / "good");
    }
    ~Sweep()
    {
        std::error_code Ignored;
        fs::remove_all(NbFailed == 0 ? Scratch : Scratch / "good", Ignored);
    }
    Sweep(const Sweep &) = delete;
    Sweep &operator=(const Sweep &) = delete;

    // The first start, and what is to be run after it.
    std::vector<PlannedRun> plan()
    {
        const fs::path Folder = Scratch / "first";
        const Start First = start(Folder);
        const Verdict Judged = judge_Start(First, Folder / "machine", Store, QX_SOURCES);
        if (First.Status != 0 || !Judged.Breaches.empty()) {
            throw std::runtime_error{"the machine does not start without a fault: " +
                                     Judged.Outcome + "\n" + First.Output + First.Errors};
        }
        const std::vector<ReceivedCommand> Commands = read_Commands(First.Trace, Scratch / "good");
        check_Commands(Commands, First);
        Expected[0] = read_Results(Folder / "machine");
        run_Start(Given.Used, Folder / "machine", Folder,
                  {"--keep"}); // as after a cut at its very end
        Expected[1] = read_Results(Folder / "machine");
        fs::remove_all(Folder);
        printf("%zu commands in a good start of %zu boards\n", Commands.size(),
               find_Boards(Toml).size());
        std::vector<PlannedRun> Plan = plan_BoardFaults(Commands, find_Boards(Toml));
        const std::vector<PlannedRun> Outside = plan_OutsideFaults(First.Result);
        Plan.insert(Plan.end(), Outside.begin(), Outside.end());
        return Plan;
    }

    // All of Plan, several at a time. Whether every run kept the contract.
    bool run(const std::vector<PlannedRun> &Plan)
    {
        std::atomic<std::size_t> Next{0};
        std::vector<std::thread> Workers;
        for (unsigned i = 0; i < Given.Jobs; ++i) {
            Workers.emplace_back([&] {
                for (std::size_t Own = Next++; Own < Plan.size(); Own = Next++) {
                    run_One(Own, Plan[Own]);
                }
            });
        }
        for (std::thread &Worker : Workers) {
            Worker.join();
        }
        return NbFailed == 0;
    }

    void print_Tables() const
    {
        printf("\n%7s  kind of fault\n", "runs");
        for (const auto &[Kind, Count] : Kinds) {
            printf("%7u  %s\n", Count, Kind.c_str());
        }
        printf("\n%7s  ended with\n", "runs");
        for (const auto &[Outcome, Count] : Outcomes) {
            printf("%7u  %s\n", Count, Outcome.c_str());
        }
        printf(
            "\n%u runs left a part of a result file where they may\n%u runs broke the contract\n",
            NbParts, NbFailed);
    }

  private:
    // A start on a copy of the machine, Folder/machine, with the tables in addition.
    Start start(const fs::path &Folder, const std::string &Board = {},
                const std::string &Tables = {}) const
    {
        fs::create_directory(Folder);
        prepare(Folder / "machine", Board, Tables);
        return run_Start(Given.Used, Folder / "machine", Folder, {"--keep"});
    }

    void prepare(const fs::path &Machine, const std::string &Board, const std::string &Tables) const
    {
        fs::copy(Scratch / "good", Machine, fs::copy_options::recursive);
        write_Text(Machine / "machine.toml", add_Tables(Toml, Board, Tables));
    }

    // A fault that strikes another command than it names would be no fault at all.
    static void check_Commands(const std::vector<ReceivedCommand> &Commands, const Start &First)
    {
        std::map<std::string, unsigned> Counts;
        for (const ReceivedCommand &Each : Commands) {
            ++Counts[Each.Board];
        }
        for (const auto &[Name, Count] : Counts) {
            if (First.Result.at("board." + Name + ".commands") != std::to_string(Count)) {
                throw std::runtime_error{"the trace and board " + Name + " tell differently"};
            }
        }
    }

    // The start with the fault; after a cut, the one that follows it.
    Verdict try_Fault(const fs::path &Folder, const PlannedRun &Planned) const
    {
        const fs::path Machine = Folder / "machine";
        Start Ended = start(Folder, Planned.Board, Planned.Toml);
        if (!Planned.Cut) {
            return judge_Start(Ended, Machine, Store, QX_SOURCES);
        }
        const bool Cut = Ended.Result.contains("cut") && Ended.Result.at("cut") == "1";
        // A start that had told everything need not be repeated by the next one.
        const bool Told = read_Results(Machine) == Expected.front();
        write_Text(Machine / "machine.toml", Toml);
        Ended = run_Start(Given.Used, Machine, Folder, {"--keep"});
        Verdict Judged = judge_Start(Ended, Machine, Store, QX_SOURCES);
        Judged.Outcome += " (start after a cut)";
        if (!Cut) {
            Judged.Breaches.push_back("the power was not cut");
        }
        if (const std::string Difference = check_Recovery(read_Results(Machine), Expected, Told);
            !Difference.empty()) {
            Judged.Breaches.push_back(Difference);
        }
        return Judged;
    }

    void run_One(std::size_t Number, const PlannedRun &Planned)
    {
        const fs::path Folder = Scratch / std::to_string(Number);
        const Verdict Judged = try_Fault(Folder, Planned);
        const std::lock_guard<std::mutex> Guard{Lock};
        ++Kinds[Planned.Kind];
        ++Outcomes[Judged.Outcome];
        NbParts += Judged.PartOfResult ? 1 : 0;
        if (Given.Verbose) {
            printf("%s: %s%s\n", show_Run(Planned).c_str(), Judged.Outcome.c_str(),
                   Judged.PartOfResult ? ", a part of a result file" : "");
        }
        if (Judged.Breaches.empty()) {
            fs::remove_all(Folder);
            return;
        }
        ++NbFailed;
        prepare(Folder / "again", Planned.Board, Planned.Toml);
        printf("\nFAILED %s: %s\n", show_Run(Planned).c_str(), Judged.Outcome.c_str());
        for (const std::string &Breach : Judged.Breaches) {
            printf("    %s\n", Breach.c_str());
        }
        printf("%s  in %s/again/machine.toml; again with\n    %s\n%s", Planned.Toml.c_str(),
               Folder.c_str(), show_Command(Given.Used, Folder / "again").c_str(),
               Planned.Cut ? "  with --keep, then once more without [cut]\n" : "");
        fflush(stdout);
    }

    const Options &Given;
    fs::path Scratch{make_TemporaryFolder("qxsweep")};
    std::string Toml;
    std::map<std::string, std::string> Store; // before any start
    std::array<Results, 2> Expected;          // of a good start, and of one more
    std::mutex Lock;                          // guards what follows, while workers run
    std::map<std::string, unsigned> Kinds;
    std::map<std::string, unsigned> Outcomes;
    unsigned NbParts{};
    unsigned NbFailed{};
};

// The same runs for the same seed, on every machine.
void draw_Sample(std::vector<PlannedRun> &Plan, const Options &Given)
{
    const unsigned Seed = Given.Seed.value_or(std::random_device{}());
    printf("sample of %u out of %zu runs; draw it again with --sample %u --seed %u\n",
           *Given.Sample, Plan.size(), *Given.Sample, Seed);
    std::mt19937 Draw{Seed};
    const std::size_t Kept = std::min<std::size_t>(*Given.Sample, Plan.size());
    for (std::size_t i = 0; i < Kept; ++i) {
        std::swap(Plan[i], Plan[i + Draw() % (Plan.size() - i)]);
    }
    Plan.resize(Kept);
}

int sweep(const Options &Given)
{
    if (!Given.Made.empty()) {
        make_Machine(Given.Made);
        return EXIT_SUCCESS;
    }
    Sweep Runs{Given};
    std::vector<PlannedRun> Plan = Runs.plan();
    std::erase_if(Plan, [&Given](const PlannedRun &Planned) {
        return show_Run(Planned).find(Given.Match) == std::string::npos;
    });
    if (Plan.empty()) {
        throw UsageError{"no run has \"" + Given.Match + "\""};
    }
    if (Given.Sample) {
        draw_Sample(Plan, Given);
    }
    if (Given.List) {
        for (const PlannedRun &Planned : Plan) {
            printf("%s\n", show_Run(Planned).c_str());
        }
        return EXIT_SUCCESS;
    }
    printf("%zu runs, %u at a time\n", Plan.size(), Given.Jobs);
    fflush(stdout);
    const bool Kept = Runs.run(Plan);
    Runs.print_Tables();
    return Kept ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    try {
        return sweep(read_Options(argc, argv));
    } catch (const UsageError &Error) {
        fprintf(stderr, "qxsweep: %s\n", Error.what());
        return EXIT_USAGE;
    } catch (const std::exception &Error) {
        fprintf(stderr, "qxsweep: %s\n", Error.what());
        return EXIT_FAILURE;
    }
}

#include "Scenario.h"
#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace
{

constexpr const char *LIMIT = "3600"; // virtual seconds, unless a test says another

// How such a run ends depends on chance, but not that it does. A thread that still runs at the end
// has a moment to show its races.
void run_InParallel(const char *Loader, const fs::path &Machine, const fs::path &Base,
                    std::vector<std::string> Options, const std::vector<std::string> &Arguments)
{
    const bool Limited = std::count(Options.begin(), Options.end(), "--limit") > 1;
    Options.emplace_back("--parallel");
    setenv("TSAN_OPTIONS", "atexit_sleep_ms=100", 1);
    const Start Ended = run_Start({QXSIM_PROGRAM, Loader}, Machine, Base, Options, Arguments);
    unsetenv("TSAN_OPTIONS");
    if (Ended.Errors.find("ThreadSanitizer") != std::string::npos) {
        throw std::runtime_error{"in parallel the sanitizer finds\n" + Ended.Errors};
    }
    if (Ended.Result.empty() || !(Limited || Ended.InTime)) {
        throw std::runtime_error{"in parallel the loader does not end\n" + Ended.Output};
    }
}

// The lists of loader.errors or loader.todo that are not empty, and its result.
std::string find_Lists(const std::string &Text)
{
    static constexpr const char *LISTS[] = {"addresse", "timeout", "replace", "modify", "needing"};
    std::istringstream Lines{Text};
    std::string Found;
    for (std::string Line; std::getline(Lines, Line);) {
        const std::string Number = Line.substr(0, Line.find(' '));
        const bool Remark = Line.find('#') != std::string::npos;
        for (const char *Word : LISTS) {
            const bool Listed =
                Line.find("# Nb ") != std::string::npos && Line.find(Word) != std::string::npos;
            Found += Listed ? std::string{" "} + Word + "=" + Number : "";
        }
        Found += Number.size() == 3 && !Remark && Number != "000" ? " " + Number : "";
    }
    return Found;
}

} // namespace

std::string ScenarioRun::get_Outcome() const
{
    std::string Text = Signal != 0 ? "signal " + std::to_string(Signal)
                       : Status    ? std::to_string(*Status)
                                   : "exit " + std::to_string(Exit);
    for (const char *Name : {"loader.errors", "loader.todo"}) {
        Text += Files.contains(Name) ? find_Lists(Files.at(Name)) : "";
    }
    const bool Started = std::all_of(Result.begin(), Result.end(), [](const auto &Each) {
        return !Each.first.ends_with(".state") || Each.second == "started";
    });
    return Text + (Started ? " started" : "");
}

bool ScenarioRun::has_Report(const std::string &Report) const
{
    return (Log + Output + Errors).find(Report) != std::string::npos;
}

std::string ScenarioRun::make_AtShell(const std::string &Table, const std::string &Command,
                                      const std::string &Keys) const
{
    unsigned Nth = 1;
    while (!Result.at("shell." + std::to_string(Nth)).starts_with(Command)) {
        ++Nth;
    }
    return Table + "\ncall = \"shell\"\nnth = " + std::to_string(Nth) + "\n" + Keys + "\n";
}

Scenario::Scenario()
    : SmallMachine{make_TemporaryFolder("scenario") / "machine"}, Base{get_Folder().parent_path()}
{
}

Scenario::~Scenario()
{
    std::error_code Ignored;
    fs::remove_all(Base, Ignored);
}

ScenarioRun Scenario::run(const std::vector<std::string> &Options,
                          const std::vector<std::string> &Arguments)
{
    const fs::path &Machine = get_Folder();
    std::vector<std::string> Used{"--limit", LIMIT};
    Used.insert(Used.end(), Options.begin(), Options.end());
    write();
    if (const char *const Loader = getenv("QX_PARALLEL_LOADER")) {
        run_InParallel(Loader, Machine, Base, Used, Arguments);
    }
    Used.emplace_back("--keep");
    ScenarioRun Run{
        run_Start({QXSIM_PROGRAM, QX_PROGRAM}, Machine, Base, Used, Arguments), "", {}, {}};
    Run.Log = read_Text(Machine / "card/log/loader.log");
    for (const auto &Entry : fs::directory_iterator{Machine / "config"}) {
        Run.Files[Entry.path().filename()] = read_Text(Entry.path());
    }
    for (const auto &Entry : fs::directory_iterator{Machine / "card/slave_sw"}) {
        Run.Store.push_back(Entry.path().filename());
    }
    std::sort(Run.Store.begin(), Run.Store.end());
    return Run;
}

ScenarioRun Scenario::run_Expecting(const std::string &Outcome, const std::string &Report)
{
    ScenarioRun Run = run();
    EXPECT_EQ(Run.get_Outcome(), Outcome) << Run.Output << Run.Errors;
    EXPECT_TRUE(Run.has_Report(Report)) << Report << "\n" << Run.Output;
    return Run;
}

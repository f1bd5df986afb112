// Whole runs of the unmodified loader on small machines.
//
//     Scenario Machine;
//     Machine.add_Board("pump", 2, 17).FuncAddr2 = 1;
//     const ScenarioRun Run = Machine.run();
//     EXPECT_EQ(Run.Status, 0);
//
// When the environment variable QX_PARALLEL_LOADER names a loader that was built with the thread
// sanitizer, each run is preceded by one of that loader on a copy of the machine, its threads
// really in parallel. run throws when the sanitizer finds anything then, or the loader does not
// end.
#pragma once

#include "start/SmallMachine.h"
#include "start/Start.h"

using namespace qxstart;

struct ScenarioRun : Start {
    std::string Log;                          // loader.log, earlier runs included
    std::map<std::string, std::string> Files; // of /var/vantrel/config, by name
    std::vector<std::string> Store;           // names in the store, sorted

    // What came of it: "0 started" when all is well. First the whole status, "exit 255" or
    // "signal 6"; then of loader.errors and loader.todo the first line's number but 000 and the
    // lists that are not empty, by a word of theirs; "started" when every board is:
    // "0 timeout=1 002 modify=2".
    std::string get_Outcome() const;

    // Whether log, output or error output have it.
    bool has_Report(const std::string &Report) const;

    // "[[outside.fault]]" or "[cut]", as Table says, with Keys, at the first command of the shell
    // that begins so. Throws std::out_of_range when this run had none.
    std::string make_AtShell(const std::string &Table, const std::string &Command,
                             const std::string &Keys) const;
};

// A machine without boards, in a temporary folder that goes with the object.
class Scenario : public SmallMachine
{
  public:
    Scenario();
    ~Scenario();
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;

    // The machine is switched on (again). Options are those of qxsim, Arguments the loader's.
    ScenarioRun run(const std::vector<std::string> &Options = {},
                    const std::vector<std::string> &Arguments = {});

    // The same; expects this outcome, and Report somewhere in the log or the output.
    ScenarioRun run_Expecting(const std::string &Outcome, const std::string &Report = "");

  private:
    std::filesystem::path Base; // holds the folder of the machine and what runs leave
};

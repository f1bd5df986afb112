// Small machines in a test's own code, and whole runs of the unmodified loader on them.
//
//     Scenario Machine;
//     Machine.add_Board("pump", 2, 17).FuncAddr2 = 1;
//     Machine.Boards[0].Toml = "[[board.fault]]\nkind = \"silence\"\nservice = 24\n";
//     const ScenarioRun Run = Machine.run();
//     EXPECT_EQ(Run.Status, 0);
//
// As it comes, a machine is one that the loader starts without a remark: every board is what
// appl.conf expects, its distribution is in the store, the protocols agree.
//
// When the environment variable QX_PARALLEL_LOADER names a loader that was built with the thread
// sanitizer, each run is preceded by one of that loader on a copy of the machine, its threads
// really in parallel. run throws when the sanitizer finds anything then, or the loader does not
// end.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Bytes that neither repeat nor compress, the same for every test.
std::string make_Noise(std::size_t Size);

// The software of a board, or an archive in the store.
struct Software {
    std::string Name{"PUMP"};
    std::array<unsigned, 3> Version{1, 2, 3}; // version, sub-version, compilation
    std::vector<std::uint8_t> Types{20};      // board types that it serves
    unsigned IndexLow{1};                     // hardware indices of compatibility that it accepts
    unsigned IndexHigh{9};
    std::map<std::string, std::string> Files{{"program.txt", "the program\n"}};
    std::optional<std::vector<std::uint8_t>> Header{}; // sheader.bin; nullopt: a right one

    std::string get_DistributionName() const; // "PUMP.1.2.3"
};

struct ScenarioBoard {
    std::string Name;
    unsigned BoardType{}; // physical address
    unsigned BoardNumber{};

    // Of its line in appl.conf.
    unsigned State{3};
    std::string Device{"cana"};
    unsigned FuncAddr1{}; // the physical address, unless set
    unsigned FuncAddr2{};
    unsigned HwInfo4{210};
    unsigned HwInfo9{1};
    std::optional<Software> Expected; // nullopt: Runs
    unsigned TypeId{20};

    Software Runs;     // what the board has
    bool Stored{true}; // the store has Runs, too

    // Items by tag as machine.toml writes them ("{ short = 4 }"); "" takes an item of the model
    // away. Software items are those of Runs, but for these.
    std::map<unsigned, std::string> HardwareItems;
    std::map<unsigned, std::string> SoftwareItems;
    std::map<unsigned, std::string> LoaderItems;

    std::string Keys; // further keys of [[board]], a line each: "present = false\n"
    std::string Toml; // further tables of the board: "[[board.fault]]\n..."
};

struct TracedFrame {
    std::int64_t Micros{}; // since power-on
    std::uint32_t Identifier{};
    std::vector<std::uint8_t> Data;

    bool operator==(const TracedFrame &) const = default;
};

struct ScenarioRun {
    int Exit{};                // of qxsim: 8 bits, 128 and the signal
    std::optional<int> Status; // the whole status, when the loader came to its own end
    int Signal{};              // that ended the loader, 0 none
    double RealSeconds{};      // that qxsim took
    std::string Output;        // of the loader
    std::string Errors;        // standard error of loader and qxsim
    std::string Log;           // loader.log, earlier runs included
    std::string Trace;         // the bus, as candump writes it
    std::vector<TracedFrame> Frames;
    std::map<std::string, std::string> Files;  // of /var/vantrel/config, by name
    std::vector<std::string> Store;            // names in the store, sorted
    std::map<std::string, std::string> Result; // of qxsim --result

    // Frames with the service MT and the function byte Fn, from the master or from a board.
    std::vector<TracedFrame> find_Frames(std::uint8_t MT, std::uint8_t Fn) const;

    // What came of it: "0 started" when all is well. First the whole status, "exit 255" or
    // "signal 6"; then of loader.errors and loader.todo the first line's number but 000 and the
    // lists that are not empty, by a word of theirs; "started" when every board is:
    // "0 timeout=1 002 modify=2".
    std::string get_Outcome() const;
};

class Scenario
{
  public:
    // A machine without boards, in a temporary folder that goes with the object.
    Scenario();
    ~Scenario();
    Scenario(const Scenario &) = delete;
    Scenario &operator=(const Scenario &) = delete;

    // The reference stays good.
    ScenarioBoard &add_Board(const std::string &Name, unsigned BoardType, unsigned BoardNumber);

    // Puts an archive into the store before the next run.
    void store(const Software &Packed);
    void store(const std::string &DistributionName, const std::string &Content);

    // The machine is switched on (again): files of boards and card go on from the last run, what
    // is set below is written anew. Options are those of qxsim, Arguments the loader's.
    ScenarioRun run(const std::vector<std::string> &Options = {},
                    const std::vector<std::string> &Arguments = {});

    // The same; expects this outcome, and Report somewhere in the log or the output.
    ScenarioRun run_Expecting(const std::string &Outcome, const std::string &Report = "");

    // The machine's folder, for what has no place below: card/, vantrel/ and so on.
    const std::filesystem::path &get_Folder() const;

    std::deque<ScenarioBoard> Boards;
    std::string Toml;                         // further tables of machine.toml
    std::optional<std::string> ApplConf;      // instead of the text made from Boards
    std::optional<std::string> ApplProtocols; // instead of the four lines and these:
    std::vector<std::string> Protocols{"cana 4 1 2"};
    std::vector<std::string> Todo;       // requests for the next run only, "cana 2 1 PUMP.1.2.4"
    std::optional<std::string> ApplTodo; // the whole file for the next run only
    std::vector<std::string> Database;   // entries, "card 210 A 1 0 0000FF"; none: no database

  private:
    std::string make_MachineToml() const;
    void write_Config();
    void write_Storage();

    std::filesystem::path Base; // holds the folder of the machine and what runs leave
    std::filesystem::path Folder;
    bool Started{};
};

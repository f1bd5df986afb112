#include "Support.h"
#include "Config.h"
#include "Exit.h"
#include "Init.h"
#include "InterfacesCan.h"
#include "SHeader.h"
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;

void require(bool Condition, const std::string &Text)
{
    if (Condition)
        return;
    fprintf(stderr, "FOUND: %s\n", Text.c_str());
    abort();
}

// --- In the place of what would leave the process ---

extern "C" {

// exit_Process(int) and stop_Assertion(const char *, int, const char *)
[[noreturn]] void __wrap__Z12exit_Processi(int Status)
{
    throw END("exit " + std::to_string(Status));
}

[[noreturn]] void __wrap__Z14stop_AssertionPKciS0_(const char *, int, const char *Text)
{
    throw END(Text);
}

int __real_system(const char *Command);

// The commands that the loader gives to the shell, without one: a shell for every input would take
// nearly all of the time. Archives are neither packed nor unpacked. A text from outside must not
// have reached the command; others than the loader's are the fuzzer's own.
int __wrap_system(const char *Command)
{
    std::string Plain = Command;
    std::erase(Plain, '"');
    std::istringstream Text(Plain);
    const std::vector<std::string> Words{std::istream_iterator<std::string>(Text), {}};
    const std::string &Verb = Words.front(), &Last = Words.back();
    std::error_code Error;
    if (Verb == "test") // -d DIRECTORY
        return fs::is_directory(Last) ? 0 : 1;
    if (Verb == "rm")
        return Last == "*" || fs::remove_all(Last, Error) > 0 ? 0 : 1;
    if (Verb == "cp")
        return fs::copy_file(Words[1], Last / fs::path(Words[1]).filename(), Error) ? 0 : 1;
    if (Verb == "gunzip") // its "compressed" files are plain
        return rename(Last.c_str(), fs::path(Last).stem().c_str());
    if (Verb == "grep") // the driver's module: none, so that no thread is started
        return 1;
    if (Verb != "tar" && Verb != "gzip" && Verb != "ins_cf" && Verb != "rm_cf")
        return __real_system(Command);
    require(Plain.find_first_of("`$;&|<>\\'(){}[]?!#~^") == Plain.npos, "for the shell: " + Plain);
    return 0;
}

// The whole host's disks would be flushed.
void __wrap_sync() {}

int LLVMFuzzerInitialize(int *, char ***)
{
    enter_PrivateFolders();
    require(freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null"); // progress and reports
    return 0;
}
}

// --- The machine ---

void start_Machine(int Count)
{
    reset_FakeCan();
    FakeCan.TicksPerRead = 50; // the first empty poll is after the deadline
    NbSlaves = static_cast<uint8_t>(Count);
    NbBroadcasts = static_cast<uint8_t>(Count + FIRST_TYPE_GROUP);
    Slave = static_cast<SLAVE *>(calloc(NbSlaves, sizeof(SLAVE)));
    Broadcast = static_cast<BROADCAST *>(calloc(NbBroadcasts, sizeof(BROADCAST)));
    // No group has a mask yet: no interface is opened.
    require(init_Variables() == 0 && init_Interfaces() == 0, "no memory");
    init_Variables_Master();
    for (int i = 0; i < Count; i++) {
        SLAVE &Board = Slave[i];
        Board.Mask = i < 64 ? BM_SLAVE_CAST{1} << i : 0;
        Board.State = 3;
        Board.Device = CAN_A;
        Board.BoardType = Board.FuncAddr1 = static_cast<uint8_t>(1 + i / 8);
        Board.BoardNumber = Board.FuncAddr2 = static_cast<uint8_t>(1 + i % 8);
    }
    make_BroadcastMask();
    Device[CAN_A].File = 5;
}

void stop_Machine()
{
    FakeCan.OnSend = nullptr;
    Device[CAN_A].File = -10;
    close_ConfigFile();
    close_ProtocolsFile();
    close_SheaderFile();
    exit_All();
    TimeoutMask = ReplaceSlavesMask = NoDistributionMask = ForcedDownloadMask = 0;
    require(chdir("/") == 0, "chdir");
}

void receive_Answer(uint8_t MT, BM_SLAVE_CAST Sender, const std::string &Message)
{
    const size_t NbP = Message.size() - 1;
    const bool Multi = NbP > SINGLE_PARAMETERS;
    const size_t Last = Multi ? (NbP - 1) / FRAME_PARAMETERS : 0;
    for (size_t k = 0; k <= Last; k++) {
        std::vector<uint8_t> Data(Message.begin(), Message.begin() + 1);
        if (Multi)
            Data.push_back(static_cast<uint8_t>(k == 0 ? SEQ_FIRST | Last : Last - k));
        const size_t Room = Multi ? FRAME_PARAMETERS : SINGLE_PARAMETERS;
        const std::string Part = Message.substr(1 + k * Room, Room);
        Data.insert(Data.end(), Part.begin(), Part.end());
        const CAN_FRAME Frame = make_AnswerFrame(MT, 1, 1, Data, Multi);
        fill_pAns(&Frame, &Sender);
    }
}

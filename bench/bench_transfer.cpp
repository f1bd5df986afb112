// What a file transfer reaches on the simulated machine, beside what the bus allows for this
// protocol, and where the rest of the time goes. Virtual time, the same on every host, but for the
// last column: exit status 1 when a whole start with its transfer takes more than a tenth of the
// transfer's virtual time.
//
// A chunk of a download is a command of 768 bytes in 128 frames and its acknowledge: without stuff
// bits 128 x 131 + 83 = 16851 bits. A chunk of an upload is a command of two bytes, and 766 bytes
// in an answer of 128 frames. The limit is the payload over the time that all these frames take.
//
// The rest of the time: board, its response time; poll, the loader's look at the bus every 10 ms;
// quantum, what a tenth of the usual one saves (a wait of the machine takes at least a quantum).
#include "bus/Bus.h"
#include "bus/FrameText.h"
#include "Scenario.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

using namespace qxsim;

constexpr std::size_t NB_PAYLOAD = 256UL * 1024;
constexpr unsigned QUANTUM = 100; // the usual one
constexpr double REAL_SHARE_MAX = 0.1;

// Sums in seconds, from the start of the open to the end of the close's answer.
struct Transfer {
    unsigned NbExchanges{};
    double Whole{};
    double Frames{};    // with stuff bits and interframe spaces
    double Unstuffed{}; // the same without stuff bits
    double Board{};     // from a command to the start of its answer
    double Master{};    // from an answer to the start of the next command
    double Real{};      // that the whole start takes on this host
};

bool is_Command(const TracedFrame &Traced)
{
    return (Traced.Sent.Identifier & 0x3FF0) == 0x3F0;
}

bool is_Open(const TracedFrame &Traced)
{
    return Traced.Sent.Identifier >> 24 == 25 && is_Command(Traced) &&
           Traced.Sent.Data[0] == 0x40 && (Traced.Sent.Data[1] & 0x80) != 0;
}

bool is_Closed(const TracedFrame &Traced)
{
    return Traced.Sent.Identifier >> 24 == 25 && !is_Command(Traced) && Traced.Sent.Data[0] == 4;
}

// Of the second file that is opened; the first is sheader.bin.
Transfer sum_Frames(const std::vector<TracedFrame> &Frames, double Bit)
{
    const auto Header = std::find_if(Frames.begin(), Frames.end(), is_Open);
    const auto First = std::find_if(Header + 1, Frames.end(), is_Open);
    const auto Last = std::find_if(First, Frames.end(), is_Closed);
    Transfer Sum;
    double Free = 0; // when the bus was free again after the last frame
    for (auto i = First; i <= Last; ++i) {
        const double Duration = count_FrameBits(i->Sent) * Bit;
        const double End =
            std::chrono::duration<double>{i->At - First->At}.count() + NB_INTERFRAME_BITS * Bit;
        const double Idle = i == First ? 0 : End - Duration - Free;
        if (i != First && is_Command(*i) != is_Command(*(i - 1))) {
            (is_Command(*i) ? Sum.Master : Sum.Board) += Idle;
            Sum.NbExchanges += is_Command(*i) ? 0 : 1;
        }
        Sum.Frames += Duration;
        Sum.Unstuffed += count_UnstuffedFrameBits(i->Sent) * Bit;
        Sum.Whole += Idle + Duration;
        Free = End;
    }
    return Sum;
}

// Quantum: the shortest wait of a thread, in microseconds.
Transfer measure(bool Upload, unsigned BitRate, unsigned Quantum)
{
    Software Big;
    Big.Files = {{"data.bin", make_Noise(NB_PAYLOAD)}};
    Scenario Machine;
    Machine.Toml = "[bus]\nbit_rate = " + std::to_string(BitRate) +
                   "\n[clock]\ndate = 1773469800\nquantum_us = " + std::to_string(Quantum) + "\n";
    MachineBoard &Board = Machine.add_Board("board", 2, 17);
    Board.Stored = false;
    Board.Runs = Big;
    if (!Upload) { // what it runs is too old for its hardware
        Board.Runs = {"PUMP", {1, 0, 0}, {20}, 1, 1};
        Board.Expected = Big;
        Machine.store(Big);
    }
    const ScenarioRun Run = Machine.run();
    if (Run.get_Outcome() != "0 started") {
        fputs((Run.Output + Run.Errors).c_str(), stderr);
        exit(2);
    }
    Transfer Measured = sum_Frames(read_Trace(Run.Trace), 1.0 / BitRate);
    Measured.Real = Run.RealSeconds;
    return Measured;
}

double get_Percent(double Part, double Whole)
{
    return 100 * Part / Whole;
}

} // namespace

int main()
{
    const double Payload = NB_PAYLOAD;
    bool TooSlow = false;
    printf("%zu bytes          bytes a second        limit   parts of the time, %%             "
           "seconds\n"
           "            kbit/s  reached  stuffed unstuffed  frames  board   poll quantum  virtual  "
           "real\n",
           NB_PAYLOAD);
    for (const bool Upload : {false, true}) {
        for (const unsigned BitRate : {125'000U, 250'000U, 500'000U, 1'000'000U}) {
            const Transfer Usual = measure(Upload, BitRate, QUANTUM);
            const double Poll = measure(Upload, BitRate, QUANTUM / 10).Master;
            printf("%-11s %6u %8.0f %8.0f %9.0f %7.1f %6.1f %6.1f %7.1f %8.1f %5.2f\n",
                   Upload ? "upload" : "download", BitRate / 1000, Payload / Usual.Whole,
                   Payload / Usual.Frames, Payload / Usual.Unstuffed,
                   get_Percent(Usual.Frames, Usual.Whole), get_Percent(Usual.Board, Usual.Whole),
                   get_Percent(Poll, Usual.Whole), get_Percent(Usual.Master - Poll, Usual.Whole),
                   Usual.Whole, Usual.Real);
            TooSlow = TooSlow || Usual.Real > REAL_SHARE_MAX * Usual.Whole;
        }
    }
    return TooSlow ? 1 : 0;
}

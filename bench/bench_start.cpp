// How long whole starts take on this host: real seconds from qxsim's start to its end, medians, and
// the processor time of all its processes, which shows whether the host had other things to do.
// Exit status 1 when a goal is missed.
#include "Scenario.h"
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

namespace
{

constexpr std::size_t NB_STARTS = 9;

// A start of the machine in Folder, which stays as it is.
double measure_Start(const std::string &Folder)
{
    const std::string Line =
        std::string{QXSIM_PROGRAM} + " --quiet '" + Folder + "' >/dev/null 2>&1";
    const auto Begin = std::chrono::steady_clock::now();
    if (std::system(Line.c_str()) != 0) {
        fprintf(stderr, "The loader failed: %s\n", Line.c_str());
        exit(2);
    }
    return std::chrono::duration<double>{std::chrono::steady_clock::now() - Begin}.count();
}

// Seconds of all children that have ended.
double get_ChildrenTime()
{
    rusage Used{};
    getrusage(RUSAGE_CHILDREN, &Used);
    return static_cast<double>(Used.ru_utime.tv_sec + Used.ru_stime.tv_sec) +
           static_cast<double>(Used.ru_utime.tv_usec + Used.ru_stime.tv_usec) / 1e6;
}

// False: the goal is missed.
bool report(const char *What, const std::string &Folder, double Goal)
{
    std::vector<double> Seconds(NB_STARTS);
    const double Before = get_ChildrenTime();
    std::generate(Seconds.begin(), Seconds.end(), [&Folder] { return measure_Start(Folder); });
    std::sort(Seconds.begin(), Seconds.end());
    const double Median = Seconds[NB_STARTS / 2];
    printf("%-28s %.3f s (%.3f to %.3f), processor %.3f s, goal %.1f s%s\n", What, Median,
           Seconds.front(), Seconds.back(), (get_ChildrenTime() - Before) / NB_STARTS, Goal,
           Median > Goal ? ": MISSED" : "");
    return Median <= Goal;
}

} // namespace

int main()
{
    Scenario Big; // nothing to do: the time is the questions'
    for (unsigned i = 0; i < 64; ++i) {
        Big.add_Board("b" + std::to_string(i), 2 + i / 31, 1 + i % 31);
    }
    Big.run();
    const bool Example = report("filling_line, first start", EXAMPLE_MACHINE, 0.3);
    const bool Boards = report("64 boards, nothing to do", Big.get_Folder(), 1.0);
    return Example && Boards ? 0 : 1;
}

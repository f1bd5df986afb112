#include "Exit.h"
#include "Log.h"
#include "PrivateFolders.h"
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace
{

testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);
const char SOURCE[] = "../src/Config";

// The master's clock.
extern "C" time_t time(time_t *) noexcept
{
    return 1421934889;
}

// A wrong byte anywhere between header and trailer, a report that differs on standard output, a
// message that overruns its field or loses the end of its line when it is cut, one log written into
// the other.
TEST(Log, HoldsHeaderVersionReportsTrailer)
{
    umask(022);
    setenv("TZ", "UTC0", 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorInit(PATH_LOG), 39);
    EXPECT_EQ(UserInit("/var/user"), 39);
    write_Version();
    report_Error(SOURCE, 504, "Erreur : fopen(%s)", "x");
    report_TimeStamp(SOURCE, 7, "- NbBoucle = 3");
    report_Error(SOURCE, 1, "%s", std::string(200, 'x').c_str());
    report_TimeStamp(SOURCE, 1, std::string(200, 'x').c_str());
    EXPECT_EQ(ErrorClose() + UserClose(), 0);
    const std::string Time = "Thu Jan 22 13:54:49 ", Head = "\n\nProjet : qx\n" + Time + "2015\n",
                      End = "Fin - " + Time + "2015\n\n";
    const std::string Reports = "../src/Config 504 : " + Time + "Erreur : fopen(x)\n" +
                                "../src/Config 7 : " + Time + Time + "- NbBoucle = 3\n" +
                                "../src/Config 1 : " + Time + std::string(120, 'x') + "\n" +
                                "../src/Config 1 : " + Time + Time + std::string(100, 'x') + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), Reports);
    EXPECT_EQ(read_File(PATH_LOG),
              Head + "Version : 1.1.6 - Jan 22 2015  15:04:49\n" + Reports + End);
    EXPECT_EQ(read_File("/var/user"), Head + End);
    EXPECT_EQ(std::filesystem::status(PATH_LOG).permissions(), std::filesystem::perms{0644});
}

// "-v" and the usage end without a log; a log that cannot be opened fails only at the close.
TEST(Log, ClosedAndUnopened)
{
    EXPECT_EQ(ErrorClose(), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorInit("/home/nowhere/loader.log"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n\tLe fichier n'existe pas !");
    EXPECT_EQ(ErrorFile, -1);
    REPORT("perdu");
    EXPECT_EQ(ErrorClose(), -1);
}

// A log that is cut at its very size, or lost when it cannot be cut.
TEST(Log, TailKeepsTheLastBytes)
{
    const char Path[] = "/home/user/save/log/tail";
    const std::string SidePath = std::string(Path) + "_TAIL";
    std::filesystem::create_directory(SidePath); // no side file can be made
    EXPECT_EQ(ErrorTail(Path, 20000), 0);
    EXPECT_FALSE(std::filesystem::exists(Path));
    const std::string Kept = "b" + std::string(19998, 'c') + "d";
    write_File(Path, Kept);
    EXPECT_EQ(ErrorTail(Path, 20000), 0);
    EXPECT_EQ(ErrorTail(Path, 19999), -1);
    EXPECT_EQ(read_File(Path), Kept);
}

// Reports of the two threads mixed into one another (the thread sanitizer sees a missing lock
// always), and an earlier run's log that is not kept.
TEST(Log, TwoThreadsWriteWholeLines)
{
    const auto Report = [](const char *Text) {
        for (int i = 0; i < 2000; i++)
            report_Error(SOURCE, 9, "%s%s", Text, Text);
    };
    testing::internal::CaptureStdout();
    write_File("/var/threads", "earlier run\n");
    ErrorInit("/var/threads");
    std::thread Other(Report, "abcd");
    Report("efgh");
    Other.join();
    ErrorClose();
    const std::string Out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(read_File("/var/threads").substr(12 + 39, Out.size()) == Out);
    std::istringstream Lines(Out);
    const std::string Stamp = "../src/Config 9 : Thu Jan 22 13:54:49 ";
    int Whole = 0;
    for (std::string Line; std::getline(Lines, Line);)
        Whole += Line == Stamp + "abcdabcd" || Line == Stamp + "efghefgh";
    EXPECT_EQ(Whole, 4000);
}

// The receive thread ends the process while the main thread waits for it: a wait that never ends,
// a status that is lost, a stream that is not flushed.
TEST(Exit, EndsFromTheOtherThread)
{
    const auto End = [] {
        fputs("left", fopen("/var/left", "w"));
        std::thread([] { exit_Process(-898); }).join();
    };
    EXPECT_EXIT(End(), testing::ExitedWithCode(126), "");
    EXPECT_EQ(read_File("/var/left"), "left");
}

} // namespace

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

// Time stamps of ctime's shape become "TIME ", with a year behind them "TIME YEAR".
std::string hide_Times(std::string Text)
{
    struct tm Time;
    for (size_t i = 0; i < Text.size(); i++) {
        const char *pStamp = &Text[i];
        if (strptime(pStamp, "%a %b %e %T %Y", &Time) == pStamp + 24)
            Text.replace(i, 24, "TIME YEAR");
        else if (strptime(pStamp, "%a %b %e %T", &Time) == pStamp + 19)
            Text.replace(i, 19, "TIME");
    }
    return Text;
}

// A wrong byte anywhere between header and trailer, a report that differs on standard output, a
// message that overruns its field or loses the end of its line when it is cut.
TEST(Log, HoldsHeaderVersionReportsTrailer)
{
    umask(022);
    testing::internal::CaptureStdout();
    EXPECT_EQ(ErrorInit(PATH_LOG), 39);
    write_Version();
    report_Error(SOURCE, 504, "Erreur : fopen(%s)", "x");
    report_TimeStamp(SOURCE, 7, "- NbBoucle = 3");
    report_Error(SOURCE, 1, "%s", std::string(200, 'x').c_str());
    report_TimeStamp(SOURCE, 1, std::string(200, 'x').c_str());
    EXPECT_EQ(ErrorClose(), 0);
    const std::string Reports = "../src/Config 504 : TIME Erreur : fopen(x)\n"
                                "../src/Config 7 : TIME TIME - NbBoucle = 3\n"
                                "../src/Config 1 : TIME " +
                                std::string(120, 'x') + "\n../src/Config 1 : TIME TIME " +
                                std::string(100, 'x') + "\n";
    EXPECT_EQ(hide_Times(testing::internal::GetCapturedStdout()), Reports);
    EXPECT_EQ(hide_Times(read_File(PATH_LOG)), "\n\nProjet : qx\nTIME YEAR\n"
                                               "Version : 1.1.6 - Jan 22 2015  15:04:49\n" +
                                                   Reports + "Fin - TIME YEAR\n\n");
    struct stat Info;
    ASSERT_EQ(stat(PATH_LOG, &Info), 0);
    EXPECT_EQ(Info.st_mode & 0777, 0644u);
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

// A cut at the wrong byte, and a failed cut that loses the log.
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

    std::filesystem::remove(SidePath);
    write_File(Path, "a" + Kept);
    EXPECT_EQ(ErrorTail(Path, 20000), 0);
    EXPECT_EQ(read_File(Path), Kept);
    EXPECT_FALSE(std::filesystem::exists(SidePath));
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
    std::istringstream Lines(hide_Times(Out));
    int Whole = 0;
    for (std::string Line; std::getline(Lines, Line);)
        Whole +=
            Line == "../src/Config 9 : TIME abcdabcd" || Line == "../src/Config 9 : TIME efghefgh";
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

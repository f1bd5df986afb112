#include "qxdist/Archive.h"
#include "SHeader.h"
#include "Tables.h"
#include <cstdlib>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using namespace qxdist;

struct QXDIST : testing::Test {
    fs::path Folder = fs::temp_directory_path() / ("test_qxdist." + std::to_string(getpid()));
    FileTable Files = {{"a", {'x'}}, {"sub/b", {}}};

    void SetUp() override
    {
        write_Folder(Folder / "in", Files);
        fs::current_path(Folder);
    }

    void TearDown() override
    {
        fs::current_path("/");
        fs::remove_all(Folder);
    }

    // The exit status of qxdist; what it says goes into the file "said".
    static int run(const std::string &Words)
    {
        return WEXITSTATUS(system((QXDIST_PROGRAM " " + Words + " >said 2>&1").c_str()));
    }

    static std::string get_Problem(const FileTable &Members)
    {
        write_Archive("ABC.1.2.3.tar.gz", Members);
        const std::vector<std::string> Problems = verify_Archive("ABC.1.2.3.tar.gz");
        return Problems.empty() ? "" : Problems.front();
    }
};

const std::string IDENTITY = " --name ABC --version 1 --sub-version 2 --compilation 3 ";

// Every byte of a header: what stage writes is what boards and loader read.
TEST_F(QXDIST, StageWritesTheHeader)
{
    ASSERT_EQ(
        run("stage -o out in" + IDENTITY + "--types 1,4,9 --index 5-260 --record 7:130:65535"), 0);
    // clang-format off
    const Bytes Expected = {
        6, 1, 0, 0, 0, 101, 0, 0, 0, 60, 0, 8, 0, 0, 0, 30, 0, 2, // eight records, two files
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0, 0, 1, 'q', 'x', 'd', 'i', 's', 't', 0, 'a', 0,
        0, 0, 0, 0, 'q', 'x', 'd', 'i', 's', 't', 0, 's', 'u', 'b', '/', 'b', 0,
        1, 2, 6, 0x12, 0x02, // types 1, 4 and 9
        2, 3, 5, 'A', 'B', 'C', 3, 2, 2, 0, 1, 4, 2, 2, 0, 2, 5, 2, 2, 0, 3,
        7, 2, 130, 255, 255,
        9, 2, 2, 0, 5, 10, 2, 2, 1, 4};
    // clang-format on
    const FileTable Staged = read_Folder("out");
    EXPECT_EQ(Staged.at("sheader.bin"), Expected);
    EXPECT_EQ(Staged.at("a"), Files.at("a"));

    fs::current_path("out");
    char Name[DISTRIBUTION_SIZE] = "";
    EXPECT_EQ(make_DistributionName_FromSheader(Name), 0); // the loader's own reader
    EXPECT_STREQ(Name, "ABC.1.2.3");
}

TEST_F(QXDIST, PacksTheSameBytesAtAnyTime)
{
    ASSERT_EQ(run("pack -o one in" + IDENTITY), 0);
    fs::last_write_time("in/a", fs::file_time_type::clock::now() - std::chrono::hours(1000));
    fs::permissions("in/a", fs::perms::owner_all);
    ASSERT_EQ(run("pack in --output=two" + IDENTITY), 0);
    EXPECT_EQ(run("verify one/ABC.1.2.3.tar.gz two/ABC.1.2.3.tar.gz"), 0);
    EXPECT_EQ(system("cmp one/ABC.1.2.3.tar.gz two/ABC.1.2.3.tar.gz"), 0);
    EXPECT_EQ(run("list one/ABC.1.2.3.tar.gz"), 0);
    EXPECT_EQ(system("grep -q '  2  text           ABC' said && grep -q '        1  a' said"), 0);
}

TEST_F(QXDIST, VerifyFindsWhatTheLoaderWouldNotTake)
{
    ASSERT_EQ(run("stage -o out in" + IDENTITY), 0);
    const FileTable Good = read_Folder("out");
    EXPECT_EQ(get_Problem(Good), "");
    const auto Damaged = [&Good](const auto &Damage) {
        FileTable Members = Good;
        Damage(Members, Members["sheader.bin"]);
        return get_Problem(Members);
    };
    EXPECT_EQ(Damaged([](auto &Members, auto &) { Members.erase("sheader.bin"); }),
              "it holds no sheader.bin");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[1] = 2; }),
              "the header does not begin with the signature 06 01");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header.push_back(0); }),
              "the header says that it has 91 bytes, but it has 92");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[9] = 91; }),
              "the offset of the records, 91, lies outside the header of 91 bytes");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[11] = 200; }),
              "the header ends inside its records");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[16] = 1; }),
              "the header ends inside its file list");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[11] = 5; }),
              "the header has 5 records; the loader stops at one with fewer than 6");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[69] = 1; }),
              "tag 3, a part of the version, is '257' and not a number from 0 to 255");
    EXPECT_EQ(Damaged([](auto &, auto &Header) { Header[41] = '-'; }),
              "the file name '-' begins with '-', holds a blank or a character that a shell obeys, "
              "or is no path below the folder");
    EXPECT_EQ(Damaged([](auto &Members, auto &) { Members.erase("a"); }),
              "the file 'a' is listed but not there");
    EXPECT_EQ(Damaged([](auto &Members, auto &) { Members["a"].push_back(0); }),
              "the file 'a' has 2 bytes, the header says 1");
    EXPECT_EQ(Damaged([](auto &Members, auto &) { Members["c"]; }),
              "the file 'c' is there but not listed");
    EXPECT_EQ(
        Damaged([](auto &, auto &Header) { Header[63] = 'D'; }),
        "the header names the distribution DBC.1.2.3, the archive's name says something else");
    fs::resize_file("ABC.1.2.3.tar.gz", 100);
    EXPECT_EQ(run("verify ABC.1.2.3.tar.gz"), 1);
}

TEST_F(QXDIST, WrongUseIsToldFromFailure)
{
    EXPECT_EQ(run("--help"), 0);
    for (const char *Words : {"", "unpack x", "pack -o out in", "list", "verify --loud x"})
        EXPECT_EQ(run(Words), 2) << Words;
    for (const char *Option : {"--version 256", "--types 1,x", "--index 9-5", "--record 1:2"})
        EXPECT_EQ(run("stage -o out in" + IDENTITY + Option), 2) << Option;
    for (const char *Option : {"--name 'a b'", "--record 2:5:twice", "--record 7:1:200",
                               "--record 7:6:0G", "--record 7:10:0"})
        EXPECT_EQ(run("stage -o out in" + IDENTITY + Option), 1) << Option;
    write_Folder("in", {{".hidden", {}}});
    EXPECT_EQ(run("stage -o out in" + IDENTITY), 1);
    EXPECT_EQ(run("list missing.tar.gz"), 1);
    EXPECT_FALSE(fs::exists("out"));
}

} // namespace

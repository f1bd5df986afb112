#include "FileTools.h"
#include "Log.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// A machine whose card and network share are mounted by the platform's commands; /proc/mounts shows
// the card's name in the device and in other letters.
struct Storage : testing::Test {
    void SetUp() override
    {
        setenv("PATH", "/mnt/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
        set_Command("/mnt/bin/ins_cf", "mount -t tmpfs /dev/MNT/Cf /mnt/card");
        set_Command("/mnt/bin/rm_cf", "umount /mnt/card");
        set_Command("/home/user/usbmount", "exit 0");
        set_Command("/home/user/save/exe/mount_net", "exit 1");
        set_Command("/home/user/save/exe/umount_net", "exit 1");
        std::filesystem::create_directories("/mnt/card");
        write_File(FILE, "card");
    }
    void TearDown() override
    {
        system("umount /mnt/card 2> /dev/null");
    }
    void set_Command(const std::string &Path, const std::string &Body)
    {
        write_Script(Path, "echo -n ${0##*/}${1:+ $*}, >> /var/calls\n" + Body);
    }
    // What Work returns, the commands that it ran, and its reports: "-997 ins_cf,Error : mount\n".
    template <typename... PARAMETERS>
    std::string run(int (*Work)(PARAMETERS...), std::type_identity_t<PARAMETERS>... Parameters)
    {
        write_File("/var/calls", "");
        std::string Result;
        const std::string Reports =
            get_Reports([&] { Result = std::to_string(Work(Parameters...)) + " "; });
        Result += read_File("/var/calls");
        return Result + (Reports.starts_with("FileTools: ") ? Reports.substr(11) : Reports);
    }

    static constexpr const char *FILE = "/home/user/save/file";
};

// Storage that stays mounted, that is unmounted under somebody else, or a result that the unmount
// changes.
TEST_F(Storage, IsMountedOnlyForTheWork)
{
    EXPECT_EQ(run(ctrl_FilePresence, FILE), "1 ins_cf,rm_cf,");
    EXPECT_EQ(run(ctrl_FilePresence, "/home/user/saved"), "0 ins_cf,rm_cf,"); // so it begins
    EXPECT_EQ(run(ctrl_DirPresence, "/home/user"), "1 ");

    EXPECT_EQ(run(mount, "/home/user/save"), "0 ins_cf,");
    EXPECT_EQ(run(ctrl_mount, "/home/user/save"), "1 ");
    EXPECT_EQ(run(make_Dir, "/home/user/save/new"), "0 ");
    EXPECT_EQ(run(umount, "/home/user/save/anything"), "0 rm_cf,");
    EXPECT_EQ(run(mount, "/home/user/save/anything"), "0 "); // mounts by exact names only
    EXPECT_EQ(run(ctrl_mount, "/home/user/vantrel"), "1 ");

    set_Command("/mnt/bin/rm_cf", "umount /mnt/card; exit 3");
    EXPECT_EQ(run(ctrl_FilePresence, FILE), "1 ins_cf,rm_cf,Error : umount\n");
    EXPECT_EQ(run(ctrl_DirPresence, "/home/user/save/new"), "1 ins_cf,rm_cf,Erreur : umount\n");
    EXPECT_EQ(run(make_Dir, "/home/user/save/new"), "0 ins_cf,rm_cf,Error : umount\n");
}

// Another device's commands, work on storage that is not there.
TEST_F(Storage, FailedMountSkipsTheWork)
{
    EXPECT_EQ(run(ctrl_FilePresence, "/mnt/removable/x"),
              "0 usbmount /mnt/removable,usbmount /mnt/removable umount,");
    EXPECT_EQ(run(mount, "/mnt/net"), "-997 mount_net,");
    EXPECT_EQ(run(umount, "/mnt/net"), "-996 umount_net,");
    set_Command("/mnt/bin/ins_cf", "exit 1");
    EXPECT_EQ(run(ctrl_FilePresence, FILE), "-997 ins_cf,Error : mount\n");
    EXPECT_EQ(run(ctrl_DirPresence, "/home/user/save"), "-997 ins_cf,Erreur : mount\n");
    EXPECT_EQ(run(make_Dir, "/home/user/save/never"), "-997 ins_cf,Erreur : mount\n");
    EXPECT_FALSE(std::filesystem::exists("/home/user/save/never"));
}

// Storage unmounted in another order (a share's own commands lie on the card), or left mounted.
TEST_F(Storage, CopyMountsBothSides)
{
    EXPECT_EQ(run(copy_File, FILE, "/home/user/vantrel/tmp"),
              "0 ins_cf,rm_cf,ins_cf,rm_cf,"); // its presence, then the copy
    EXPECT_EQ(read_File("/home/user/vantrel/tmp/file"), "card");
    EXPECT_EQ(run(copy_File, FILE, "/mnt/removable/x"),
              "-998 ins_cf,rm_cf,ins_cf,usbmount /mnt/removable,"
              "rm_cf,usbmount /mnt/removable umount,"
              "Erreur : cp \"/home/user/save/file\" \"/mnt/removable/x\" (Status = 256)\n");
    EXPECT_EQ(run(copy_File, FILE, "/mnt/net/file"), // the card stays mounted
              "-997 ins_cf,rm_cf,ins_cf,mount_net,Erreur : mount\n");
    EXPECT_EQ(run(copy_File, "/nowhere", "/nowhere"), "0 ");
    EXPECT_EQ(run(copy_File, "/nowhere", "/var/x"),
              "-892 Erreur : Source n'existe pas (\"/nowhere\")\n");
    EXPECT_EQ(run(copy_File, nullptr, "/var/x"), "-898 Erreur : Source == NULL\n");
    EXPECT_EQ(run(copy_File, "/nowhere", nullptr), "-898 Erreur : Target == NULL\n");
}

// Half a file that passes for a whole one: on a full card, or because nothing marked it.
TEST_F(Storage, ACopyIsWholeOrNotThere)
{
    const std::string Marker = "/home/user/save/.copy.copying";
    write_File("/var/copy", "half");
    std::filesystem::create_directories("/var/folder/copy"); // cp cannot copy it
    EXPECT_EQ(copy_File("/var/folder/copy", "/home/user/save/copy"), -998);
    EXPECT_FALSE(std::filesystem::exists("/home/user/save/copy"));
    EXPECT_FALSE(std::filesystem::exists(Marker));

    std::filesystem::create_directory(Marker); // no marker can be made
    EXPECT_EQ(run(copy_File, "/var/copy", "/home/user/save"),
              "-998 ins_cf,rm_cf,"
              "Erreur : cp \"/var/copy\" \"/home/user/save\" (Status = -1)\n"
              "FileTools: Erreur : unlink(/home/user/save/.copy.copying)\n");
    EXPECT_FALSE(std::filesystem::exists("/home/user/save/copy"));
    std::filesystem::remove(Marker);
}

TEST_F(Storage, MakesOneDirectory)
{
    umask(0);
    EXPECT_EQ(run(make_Dir, "/var/one") + run(make_Dir, "/var/one"), "0 0 ");
    EXPECT_EQ(std::filesystem::status("/var/one").permissions(), std::filesystem::perms::all);
    EXPECT_EQ(run(make_Dir, "/var/two/three"), "-994 Erreur : test -d \"/var/two/three\"\n");
    EXPECT_EQ(run(ctrl_FilePresence, nullptr), "0 Erreur : pas de nom de fichier\n");
}

// A log without the failed condition or its trailer, and a name at the bound that is refused.
TEST_F(Storage, AssertionsCompleteTheLogFirst)
{
    EXPECT_EQ(ctrl_DirPresence(std::string(129, 'd').c_str()), 0);
    EXPECT_EQ(ctrl_mount(std::string(89, 'd').c_str()), 0);
    ErrorInit(PATH_LOG);
    EXPECT_DEATH((dup2(2, 1), ctrl_DirPresence(std::string(130, 'd').c_str())),
                 "^Assert : ../src/FileTools [0-9]+ \n../src/FileTools .*[0-9] "
                 "\\(strlen\\(DirName\\) \\+ 10 < 140\\)\n"
                 "qx: .*: Assertion `\\(strlen\\(DirName\\) \\+ 10 < 140\\)' failed");
    const std::string Log = read_File(PATH_LOG);
    EXPECT_EQ(ErrorClose(), 0);
    EXPECT_NE(Log.find("(strlen(DirName) + 10 < 140)\nFin - "), std::string::npos) << Log;
    EXPECT_DEATH(ctrl_mount(std::string(90, 'd').c_str()), "\\(strlen\\(Dev\\) \\+ 50 < 140\\)'");
    EXPECT_DEATH(copy_File("/home/user/save/file", std::string(110, 't').c_str()),
                 "Assertion `\\(strlen\\(Source\\) \\+ strlen\\(Target\\) \\+ 10 < 140\\)'");
}

TEST(Bytes, AreReadUpToTheEnd)
{
    write_File("/var/bytes", std::string("\xFF\x00\x01\x02", 4));
    FILE *const pFile = fopen("/var/bytes", "r");
    uint8_t Buffer[4] = {};
    EXPECT_EQ(read_Bytes_FromFile(pFile, Buffer, 2), 2);
    EXPECT_EQ(Buffer[0], 0xFF);
    EXPECT_EQ(read_Bytes_FromFile(pFile, Buffer, 0), 0); // takes a byte all the same
    EXPECT_EQ(read_Bytes_FromFile(pFile, Buffer, 4), 1);
    EXPECT_EQ(Buffer[0], 0x02);
    fclose(pFile);
}

TEST(Text, IsFoundInPiecesOfALine)
{
    write_File("/var/text", "Tmpfs /MNT/Cf\n" + std::string(96, 'x') + "needle\nNeedles");
    EXPECT_EQ(grep("/mnt/cf", "/var/text", 0), 1);
    EXPECT_EQ(grep("/mnt/cf", "/var/text", 0x101), 0);
    EXPECT_EQ(grep("xnee", "/var/text", 1), 1);
    EXPECT_EQ(grep("xneed", "/var/text", 1), 0); // cut there
    EXPECT_EQ(grep("needles", "/var/text", 0x100), 1);
    EXPECT_EQ(grep("x", "/var/absent", 1), 0);
    EXPECT_STREQ(stristr("aAaB", "AB"), "aB");
    EXPECT_STREQ(stristr("abc", ""), "abc");
    EXPECT_EQ(stristr("ab", "abc"), nullptr);
}

// A name from a board that would leave its folder, become an option or reach the shell.
TEST(Names, FromOutsideAreChecked)
{
    for (const char *Name :
         {"a", "a/b-c_d.e,f", ".a", "..a", "a..", "...", "a@b%c+d=e:f", "\xC3\xA9"})
        EXPECT_TRUE(ctrl_SafeName(Name)) << Name;
    for (const char *Name : {"", "-a", "/a", "a/", "a//b", ".", "..", "a/../b", "./a", "a/.", "a b",
                             "a\tb", "a\nb", "\x7F", "a`b"})
        EXPECT_FALSE(ctrl_SafeName(Name)) << Name;
    for (const char Character : std::string("\"'\\$;&|<>(){}[]*?!#~^"))
        EXPECT_FALSE(ctrl_SafeName((std::string("a") + Character).c_str())) << Character;
    EXPECT_TRUE(ctrl_SafeDistributionName("NAME.1.2.3"));
    EXPECT_FALSE(ctrl_SafeDistributionName("a/b"));
    EXPECT_FALSE(ctrl_SafeDistributionName("-a"));
}

} // namespace

#include "PrivateFolders.h"
#include "Tar.h"
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace
{

testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// A distribution packed by the platform's tools in /home/user: its files, dist.tar, dist.tar.gz.
struct Tar : testing::Test {
    void SetUp() override
    {
        write_File("/home/user/dist/sheader.bin", std::string(155, 'H'));
        write_File("/home/user/dist/sub/" + std::string(120, 'n'), "a name that needs two headers");
        write_File("/home/user/dist/zeros.bin", std::string(5000, '\0')); // look like an end marker
        ASSERT_EQ(chdir("/home/user/dist"), 0);
        ASSERT_EQ(system("tar -cf ../dist.tar * && gzip -k -f ../dist.tar"), 0);
        Whole = read_File("/home/user/dist.tar");
    }
    std::string Whole;
};

} // namespace

// A cut that passes for an archive: in a header, in a file, between two files, in zeros.
TEST_F(Tar, AnArchiveThatBreaksOffIsSeen)
{
    EXPECT_EQ(ctrl_Tar("../dist.tar"), 1);
    const size_t Marker = Whole.find_last_not_of('\0') / 512 * 512 + 512 + 5120; // behind zeros.bin
    for (size_t Size = 0; Size <= Marker; Size += Size % 512 == 0 ? 200 : 312) {
        write_File("../cut.tar", Whole.substr(0, Size));
        EXPECT_EQ(ctrl_Tar("../cut.tar"), 0) << Size << " of " << Marker;
    }
    EXPECT_EQ(ctrl_Tar("../absent.tar"), 0);

    std::string Huge = Whole; // a size that leads far out of the file, and none
    Huge.replace(124, 12, "777777777777");
    write_File("../cut.tar", Huge);
    EXPECT_EQ(ctrl_Tar("../cut.tar"), 0);
    write_File("../cut.tar", Huge.replace(124, 12, "\x80garbage    "));
    EXPECT_EQ(ctrl_Tar("../cut.tar"), 0);
}

TEST_F(Tar, ACompressedFileTellsWhatItHolds)
{
    const auto Size = static_cast<int64_t>(Whole.size());
    EXPECT_EQ(get_GzipSize("../dist.tar.gz"), Size);
    std::filesystem::resize_file("../dist.tar.gz",
                                 std::filesystem::file_size("../dist.tar.gz") - 1);
    EXPECT_NE(get_GzipSize("../dist.tar.gz"), Size);
    write_File("../short.gz", "abc");
    EXPECT_EQ(get_GzipSize("../short.gz"), -1);
    write_File("../short.gz", "\xFF\xFE\xFD\xFC");
    EXPECT_EQ(get_GzipSize("../short.gz"), 0xFCFDFEFF);
}

// Half a file that goes to a board; a whole archive of another tool that is refused.
TEST_F(Tar, AFileThatWasUnpackedHasItsSize)
{
    EXPECT_EQ(ctrl_Unpacked("../dist.tar"), 1);
    EXPECT_EQ(ctrl_Unpacked("../absent.tar"), 1);
    const size_t Marker = Whole.find_last_not_of('\0') / 512 * 512 + 512 + 5120;
    write_File("../bare.tar", Whole.substr(0, Marker));
    EXPECT_EQ(ctrl_Unpacked("../bare.tar"), 1) << "no end marker";
    ASSERT_EQ(system("tar -rf ../dist.tar ./zeros.bin"), 0); // twice, under two names
    ASSERT_EQ(system("echo longer >> sheader.bin; tar -rf ../dist.tar sheader.bin"), 0);
    EXPECT_EQ(ctrl_Unpacked("../dist.tar"), 1) << "of two files the later counts";
    // Other spellings of names: with "./", and in two parts of which the second is no name.
    ASSERT_EQ(system("tar -cf ../dot.tar ./zeros.bin && truncate -s 5 zeros.bin"), 0);
    EXPECT_EQ(ctrl_Unpacked("../dot.tar"), 0);
    ASSERT_EQ(system("tar -xf ../dot.tar"), 0);
    const std::string Folder(60, 'd');
    const std::string File(60, 'f');
    write_File("./" + Folder + "/" + File, "abc");
    write_File("./" + File, "of another size");
    ASSERT_EQ(system(("tar --format=ustar -cf ../parts.tar " + Folder).c_str()), 0);
    EXPECT_EQ(ctrl_Unpacked("../parts.tar"), 1);
    std::string Blanks = Whole;
    Blanks.replace(124, 12, "        233 "); // as older tools write 155 bytes
    write_File("../bare.tar", Blanks);
    write_File("./sheader.bin", std::string(155, 'H'));
    EXPECT_EQ(ctrl_Unpacked("../bare.tar"), 1);
    write_File("./sheader.bin", "cut");
    EXPECT_EQ(ctrl_Unpacked("../bare.tar"), 0);
    write_File("../bare.tar", Whole.substr(0, 600)); // damaged, not cut while unpacking
    EXPECT_EQ(ctrl_Unpacked("../bare.tar"), 1);

    write_File("./sheader.bin", std::string(155, 'H') + "longer\n");
    std::filesystem::resize_file("zeros.bin", 4999);
    EXPECT_EQ(ctrl_Unpacked("../dist.tar"), 0);
    write_File("../bare.tar", Whole.substr(0, Marker - 200)); // zeros.bin is cut in the archive
    EXPECT_EQ(ctrl_Unpacked("../bare.tar"), -1);
    std::filesystem::remove("zeros.bin"); // whoever needs it sees that
    EXPECT_EQ(ctrl_Unpacked("../dist.tar"), 1);
}

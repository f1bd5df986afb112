#include "Bench.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include "SHeader.h"
#include <filesystem>

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// ABC.1.2.-1 with two files, written by hand.
static const char *const HEADER = "06 01 00 00 00 61 00 00 00 1E 00 06 00 00 00 3F 00 02 " // 0
                                  "AA AA AA AA 12 34 56 78 9A BC DE F0 "                   // 18
                                  "03 02 02 00 01 "                                        // 30
                                  "02 05 05 41 42 43 00 00 "                               // 35
                                  "04 02 02 00 02 "                                        // 43
                                  "05 02 82 FF FF "                                        // 48
                                  "09 02 02 00 00 "                                        // 53
                                  "0A 02 02 00 FF "                                        // 58
                                  "EE EE EE EE EE EE EE EE EE EE EE 61 2E 62 69 6E 00 "    // 63
                                  "EE EE EE EE EE EE EE EE EE EE EE 62 2E 64 61 74 00 ";   // 80

struct SHEADER_TEST : testing::Test {
    char Name[DISTRIBUTION_SIZE] = "untouched";
    SHEADER Sheader{};

    void SetUp() override
    {
        std::filesystem::current_path("/var/tmp");
        std::filesystem::remove("sheader.bin");
    }

    void TearDown() override
    {
        close_SheaderFile();
    }

    static void write_Header(const std::vector<uint8_t> &Bytes)
    {
        write_File("/var/tmp/sheader.bin", {Bytes.begin(), Bytes.end()});
    }
};

TEST_F(SHEADER_TEST, ReadsEveryField)
{
    write_Header(from_Hex(HEADER));
    ASSERT_EQ(open_SheaderFile(&Sheader), 0);
    EXPECT_EQ(ftell(SheaderFile), 0);
    EXPECT_EQ(Sheader.signature, 0x0601);
    EXPECT_EQ(Sheader.size, 97u);
    EXPECT_EQ(Sheader.offset_SwInfo, 30u);
    EXPECT_EQ(Sheader.nb_SwInfo, 6);
    EXPECT_EQ(Sheader.offset_Files, 63u);
    EXPECT_EQ(Sheader.nb_Files, 2);
    EXPECT_EQ(Sheader.Word22, 0x1234); // a skip of the wrong length
    EXPECT_EQ(Sheader.Byte25, 0x78);
    EXPECT_EQ(Sheader.Long26, 0x9ABCDEF0u);

    uint8_t Record[INFO_SW_SIZE] = {};
    ASSERT_EQ(read_InfoSw(&Sheader, 4, Record), 5);
    EXPECT_EQ(to_Hex(Record, 5), "04 02 02 00 02");
    EXPECT_EQ(read_InfoSw(&Sheader, 1, Record), 0);
    close_SheaderFile();
    EXPECT_EQ(make_DistributionName_FromSheader(Name), 0);
    EXPECT_STREQ(Name, "ABC.1.2.-1");
    EXPECT_EQ(SheaderFile, nullptr);
}

// Each lie of a header: the bytes put at an offset, the size of the file (0: unchanged), what is
// reported. None may stop the program, name a distribution or leave the header open.
TEST_F(SHEADER_TEST, RefusesLies)
{
    const std::tuple<size_t, const char *, size_t, const char *> Lies[] = {
        {0, "06", 1, "Erreur : lecture dans sheader.bin\n"},
        {0, "06 01 00", 3, "Erreur : lecture dans sheader.bin\n"},
        {5, "08", 8, "Erreur : lecture dans sheader.bin\n"}, // a table that is not there
        {2, "80", 0, "Erreur : dimensions sheader.bin != valeur dans fichier\n"},
        {0, "06 01 00 00 00 1D 00 00 00 10 00 06 00 00 00 10 00 02", 29,
         "Erreur : lecture dans sheader.bin\n"},
        {35, "07", 0, "Erreur : lecture\n"},          // no name
        {36, "7D", 0, "Erreur : lecture\n"},          // a name that ends behind the file
        {31, "FF", 0, "Erreur : lecture\n"},          // a record that does
        {38, "41 24 42", 0, "Erreur : conversion\n"}, // a name that a shell would obey
        {38, "00", 0, "Erreur : conversion\n"},
        {49, "01", 0, "Erreur : conversion\n"}, // a number of one byte for two
    };
    for (const auto &[Offset, Lie, FileSize, Report] : Lies) {
        SCOPED_TRACE(std::to_string(Offset) + ": " + Lie);
        std::vector<uint8_t> Bytes = from_Hex(HEADER);
        const std::vector<uint8_t> Patch = from_Hex(Lie);
        std::copy(Patch.begin(), Patch.end(), &Bytes[Offset]);
        Bytes.resize(FileSize != 0 ? FileSize : Bytes.size());
        write_Header(Bytes);
        const std::string Reports =
            get_Reports([&] { EXPECT_EQ(make_DistributionName_FromSheader(Name), -495); });
        EXPECT_NE(Reports.find(std::string("SHeader: ") + Report), std::string::npos) << Reports;
        EXPECT_STREQ(Name, "untouched");
        EXPECT_EQ(SheaderFile, nullptr);
    }
}

// A name that fits its own buffer but not together with the numbers must not be cut, and a record
// longer than its buffer not overrun it.
TEST_F(SHEADER_TEST, RefusesLongNames)
{
    for (const size_t Length : {32u, 33u, 125u, 126u, 255u}) {
        std::vector<uint8_t> Bytes = from_Hex(HEADER);
        Bytes[36] = static_cast<uint8_t>(Length);
        Bytes.insert(Bytes.begin() + 43, Length - 5, 'y');
        std::fill_n(&Bytes[38], 5, 'y');
        Bytes[4] = static_cast<uint8_t>(Bytes.size() >> 8);
        Bytes[5] = static_cast<uint8_t>(Bytes.size());
        write_Header(Bytes);
        Name[0] = 0;
        EXPECT_EQ(make_DistributionName_FromSheader(Name), Length == 32 ? 0 : -495);
        EXPECT_STREQ(Name, Length == 32 ? "yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy.1.2.-1" : "");
    }
}

TEST_F(SHEADER_TEST, LeavesATooShortFileToItsCaller)
{
    EXPECT_EQ(open_SheaderFile(&Sheader), -891);
    EXPECT_EQ(SheaderFile, nullptr);
    write_Header({0x06});
    EXPECT_EQ(open_SheaderFile(&Sheader), -495);
    EXPECT_NE(SheaderFile, nullptr);
}

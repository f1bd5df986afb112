#include "A2l.h"
#include "Exit.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>

using std::string;

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

static const string TODO = "/var/vantrel/config/appl.todo";
static const string HEADER = "4698 # signature\n1421934889\nappl 2.0.3\n0\n";

// Two slaves share an address: the second of them must never win.
static SLAVE Slaves[] = {{1, 0, 0, 5, 0, 0, 1, 1, 0, 0, "", {}, 0, 0},
                         {2, 0, 0, 5, 0, 0, 2, 1, 0, 0, "", {}, 0, 0},
                         {4, 0, 0, 5, 0, 0, 2, 1, 0, 0, "", {}, 0, 0},
                         {8, 0, 0, 3, 0, 0, 2, 1, 0, 0, "", {}, 0, 0}};

// Reads a todo file with Text and returns the reports. Requests of an earlier call are forgotten.
static string read_Todo(const string &Text, int WantedStatus)
{
    Slave = Slaves;
    NbSlaves = 4;
    exit_Variables();
    ForcedDownloadMask = 0;
    write_File(TODO, Text);
    string Reports = get_Reports([=] { EXPECT_EQ(read_Todo_FromA2lFile(), WantedStatus) << Text; });
    EXPECT_FALSE(std::filesystem::exists(TODO)) << Text; // else it is carried out again
    return Reports;
}

// Requests reach the slave at the functional address and nobody else; lines that ask for nothing
// possible, and names that would not fit or reach the shell, change nothing.
TEST(A2l, Requests)
{
    EXPECT_EQ(read_Todo(HEADER + "cana 2 1 OLD.1.2.3\n"
                                 "cana0  002  001  PUMP.1.4.12 # comment\r\n"
                                 "cana 2 1\n"
                                 "\n"
                                 "cana 258 1 WRAPPED.1.1.1\n"
                                 "cana 4294967298 1 WRAPPED.1.1.1\n"
                                 "cana 2 1 1234567890123456789012345678901234567890\n"
                                 "cana 2 1 ../../etc/passwd\n"
                                 "cana 2 1 x;reboot\n"
                                 "ttyS0 2 1 123456789012345678901234567890123456789",
                        0),
              "");
    EXPECT_EQ(ForcedDownloadMask, 0xAu);
    EXPECT_STREQ(ForcedDistributions[0], "");
    EXPECT_STREQ(ForcedDistributions[1], "PUMP.1.4.12");
    EXPECT_STREQ(ForcedDistributions[2], "");
    EXPECT_STREQ(ForcedDistributions[3], "123456789012345678901234567890123456789");
}

// Faults of the header are told apart and request nothing; a header alone is none, and allocates
// nothing either.
TEST(A2l, Header)
{
    const string Cases[][2] = {
        {"", "Erreur de lecture de la signature."},
        {string("\0\xFF\n", 3), "Erreur de conversion de la signature."},
        {"4697", "La signature n'est pas correcte."},
        {"4698\n", "Erreur de lecture de la date."},
        {"4698\n\n", "Erreur de lecture de la version de l'application."},
        {"4698\n\n\n", "Erreur de lecture de la version du fichier."},
        {"4698\n\n\nx\n", "Erreur de conversion de la version du fichier."},
    };
    for (const auto &[Text, Report] : Cases)
        EXPECT_EQ(read_Todo(Text, -496), "A2l: " + Report + "\n");
    for (const char *Text : {"4698\n1\nx\n0\n", "4698\n1\nx\n7"}) {
        EXPECT_EQ(read_Todo(Text, 0), "");
        EXPECT_EQ(ForcedDistributions, nullptr);
    }
    EXPECT_EQ(read_Todo_FromA2lFile(), 0); // no file
}

// An unknown device stops the reading but not what was requested before it; a long line is read in
// pieces of 128 characters, of which the second begins with no device.
TEST(A2l, UnknownDevice)
{
    EXPECT_EQ(read_Todo(HEADER + "cana 1 1 A.1.1.1\ncan 2 1 B.1.1.1\ncana 2 1 C.1.1.1\n", -496),
              "A2l: Error : Device unknown = can\n");
    EXPECT_EQ(ForcedDownloadMask, 1u);
    EXPECT_STREQ(ForcedDistributions[0], "A.1.1.1");
    EXPECT_EQ(read_Todo(HEADER + "cana 1 1 A.1.1.1 " + string(111, '#') + "xyz 1 2\n", -496),
              "A2l: Error : Device unknown = xyz\n");
}

// A todo that cannot be deleted (a folder, here) must show in the status.
TEST(A2l, CannotBeDeleted)
{
    exit_Variables();
    ForcedDownloadMask = 0;
    std::filesystem::create_directory(TODO);
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(read_Todo_FromA2lFile(), -488); }),
              "A2l: Erreur de lecture de la signature.\n"
              "A2l: Error : rm /var/vantrel/config/appl.todo\n");
}

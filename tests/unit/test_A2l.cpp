#include "A2l.h"
#include "Exit.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include <filesystem>

using std::string;

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

static const string TODO = "/var/vantrel/config/appl.todo";
static const string HEADER = "4698 # signature\n1421934889\nappl 2.0.3\n0\n";
static const string NAME_39 = "123456789012345678901234567890123456789";

// Two slaves share an address: the second of them must never win.
static SLAVE Slaves[] = {{1, 0, 0, 5, 0, 0, 1, 1, 0, 0, "", {}, 0, 0},
                         {2, 0, 0, 5, 0, 0, 2, 1, 0, 0, "", {}, 0, 0},
                         {4, 0, 0, 5, 0, 0, 2, 1, 0, 0, "", {}, 0, 0},
                         {8, 0, 0, 3, 0, 0, 2, 1, 0, 0, "", {}, 0, 0}};

// The status of reading the todo file, a '|' and the reports; then, when there is room for
// requests, one line of theirs, with a '+' before those whose slave is marked.
static string read_Todo()
{
    Slave = Slaves;
    NbSlaves = 4;
    exit_Variables();
    ForcedDownloadMask = 0;
    int Status = 1;
    const string Reports = get_Reports([&] { Status = read_Todo_FromA2lFile(); });
    string Text = std::to_string(Status) + "|" + Reports;
    for (int i = 0; ForcedDistributions && i < NbSlaves; i++)
        Text += ((ForcedDownloadMask & Slaves[i].Mask) != 0 ? "+" : ",") +
                string(ForcedDistributions[i]);
    return Text;
}

// Requests reach the slave at the functional address and nobody else. Lines that ask for nothing
// possible, and names that would not fit or reach the shell, change nothing. An unknown device
// stops the reading, but not what was requested before; a long line comes in pieces of 128
// characters. Faults of the header are told apart and request nothing; a header alone allocates
// nothing either.
TEST(A2l, Todo)
{
    const string Cases[][2] = {
        {HEADER +
             "cana 2 1 OLD.1.2.3\n"
             "cana0  002  001  PUMP.1.4.12 # comment\r\n"
             "cana 2 1\n\ncana 2 257 WRAPPED.1.1.1\n"
             "cana 4294967298 1 WRAPPED.1.1.1\ncana 2 1 0" +
             NAME_39 + "\ncana 2 1 a/B.1.1.1\ncana 2 1 x;reboot\nttyS0 2 1 " + NAME_39,
         "0|,+PUMP.1.4.12,+" + NAME_39},
        {HEADER + "cana 1 1 A.1.1.1\ncan 2 1 B.1.1.1\ncana 2 1 C.1.1.1\n",
         "-496|A2l: Error : Device unknown = can\n+A.1.1.1,,,"},
        {HEADER + "cana 1 1 A.1.1.1 " + string(111, '#') + "xyz 1 2\n",
         "-496|A2l: Error : Device unknown = xyz\n+A.1.1.1,,,"},
        {"", "-496|A2l: Erreur de lecture de la signature.\n"},
        {string("\0\xFF\n", 3), "-496|A2l: Erreur de conversion de la signature.\n"},
        {"4698\n", "-496|A2l: Erreur de lecture de la date.\n"},
        {"4698\n\n", "-496|A2l: Erreur de lecture de la version de l'application.\n"},
        {"4698\n\n\nx\n", "-496|A2l: Erreur de conversion de la version du fichier.\n"},
        {"4698\n1\nx\n7\n", "0|"},
    };
    for (const auto &[Text, Result] : Cases) {
        write_File(TODO, Text);
        EXPECT_EQ(read_Todo(), Result) << Text;
        EXPECT_FALSE(std::filesystem::exists(TODO)) << Text; // else it is carried out again
    }
    EXPECT_EQ(read_Todo(), "0|");
    std::filesystem::create_directory(TODO); // opens, but cannot be deleted
    EXPECT_EQ(read_Todo(), "-488|A2l: Erreur de lecture de la signature.\n"
                           "A2l: Error : rm /var/vantrel/config/appl.todo\n");
}

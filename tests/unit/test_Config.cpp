#include "Config.h"
#include "PrivateFolders.h"
#include "Reports.h"
#include "Tables.h"
#include <ctime>
#include <unistd.h>

using std::string;
using testing::ExitedWithCode;

static testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);

// The master's clock.
extern "C" time_t time(time_t *) noexcept
{
    return 1421934889;
}

static const string CONF = "/var/vantrel/config/appl.conf";
static const string PROTOCOLS = "/var/vantrel/config/appl.protocols";
static const string HEADER = "4698 # signature\n1421934889\nappl 2.0.3\n0\n";

// An input, the status that it gives and its one report.
struct CASE {
    string Text;
    int Status;
    string Report;
};

// Each fault of the header has its own status and text; what only looks like one (comment, 16-bit
// wrap, negative date, carriage returns, no last line feed, long line in two pieces) passes.
TEST(Config, Header)
{
    const CASE Cases[] = {
        {HEADER, 0, ""},
        {"4698\r\n1421934888\r\n\r\n0\r\n", 0, ""},
        {" +70234abc\n-5\nx\n65536", 0, ""},
        {"4698\n1\n" + string(139, 'x') + "0\n", 0, ""},
        {"", -499, "Erreur de lecture de la signature."},
        {string("\0004698\n", 6), -499, "Erreur de conversion de la signature."},
        {"4699\n", -898, "La signature n'est pas correcte."},
        {"4698\n", -499, "Erreur de lecture de la date."},
        {"4698\ntoday\n", -898, "Erreur de conversion de la date."},
        {"4698\n1421934890\n", -898, "Warning : Date du fichier de configuration"},
        {"4698\n4294967295\n", -898, "Warning : Date du fichier de configuration"},
        {"4698\n99999999999999999999999\n", -898, "Warning : Date du fichier de configuration"},
        {"4698\n1\n", -499, "Erreur de lecture de la version de l'application."},
        {"4698\n1\nx\n", -499, "Erreur de lecture de la version."},
        {"4698\n1\nx\n\n", -499, "Erreur de conversion de la version."},
        {"4698\n1\nx\n-1\n", -898, "La version n'est pas reconnue."},
    };
    for (const auto &[Text, Status, Report] : Cases) {
        write_File(CONF, Text);
        int Read = 1;
        EXPECT_EQ(get_Reports([&] { Read = open_ConfigFile(); }),
                  Report.empty() ? "" : "Config: " + Report + "\n");
        EXPECT_EQ(Read, Status) << Text;
        EXPECT_EQ(ConfigFile ? ftell(ConfigFile) : -1, Status == 0 ? 0 : -1) << Text;
        close_ConfigFile();
        close_ConfigFile();
    }
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(ctrl_ConfigFile(), -898); }),
              "Config: La version n'est pas reconnue.\nConfig: Erreur : open_ConfigFile\n");
    unlink(CONF.c_str());
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(ctrl_ConfigFile(), -899); }),
              "Config: Erreur : ctrl_FilePresence(/var/vantrel/config/appl.conf)\n");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(open_ConfigFile(), -500); }),
              "Config: Erreur : fopen(/var/vantrel/config/appl.conf)\n");
}

static int read_Count(const string &Line)
{
    close_ConfigFile();
    write_File(CONF, HEADER + Line);
    EXPECT_EQ(open_ConfigFile(), 0);
    return read_NbSlaves_FromConfig();
}

// Counts that the group table cannot hold are refused; counts that no table can hold stop.
TEST(Config, NumberOfSlaves)
{
    EXPECT_EQ(read_Count("0xF7 # slaves"), 0);
    EXPECT_EQ(NbSlaves, 247);
    EXPECT_NE(ConfigFile, nullptr);
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(read_Count("248\n"), -499); }),
              "Config: Erreur : nombre de slaves = 248\n");
    EXPECT_EQ(ConfigFile, nullptr);
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(read_Count(""), -499); }),
              "Config: Erreur de lecture de la version.\n");
    EXPECT_EQ(get_Reports([] { EXPECT_EQ(read_Count("two\n"), -499); }),
              "Config: Erreur de conversion de la version.\n");
    for (const char *Count : {"0", "256", "4294967297", "99999999999999999999999"})
        EXPECT_DEATH(read_Count(Count), "\\(i > 0\\) && \\(i < 256\\)") << Count;
}

static SLAVE Slaves[2];

// Reads Lines as the lines of two slaves.
static int read_Slaves(const string &Lines)
{
    read_Count("2\n" + Lines);
    Slaves[0] = Slaves[1] = {};
    Slave = Slaves;
    return read_SlaveConfig();
}

// The fields in the order of the line.
static string get_Fields(const SLAVE &Of)
{
    string Text = Of.DistName;
    for (int Field :
         {int{Of.State}, int{Of.Device}, int{Of.BoardType}, int{Of.BoardNumber}, int{Of.FuncAddr1},
          int{Of.FuncAddr2}, int{Of.HwInfo4}, int{Of.HwInfo9}, int{Of.DistVersion[0]},
          int{Of.DistVersion[1]}, int{Of.DistVersion[2]}, int{Of.TypeId}})
        Text += " " + std::to_string(Field);
    return Text;
}

// Every field goes to its own place, cut to its width. A faulty line is refused before it overruns
// a field or lets a name near the shell; of it only what is stored directly is there.
TEST(Config, SlaveLines)
{
    ASSERT_EQ(read_Slaves("259 cana0 258 257 260 261 65636 -2 ABCDEFGHIJK 257 260 268 263 more\r\n"
                          "1\tttyS0 1 2 3 4 5 6 V-1_b.2 7 8 9 10"),
              0);
    EXPECT_NE(ConfigFile, nullptr);
    EXPECT_EQ(get_Fields(Slaves[0]), "ABCDEFGHIJK 3 5 2 1 4 5 100 65534 1 4 12 7");
    EXPECT_EQ(get_Fields(Slaves[1]), "V-1_b.2 1 3 1 2 3 4 5 6 7 8 9 10");

    const CASE Cases[] = {
        {"", 0, "Erreur de lecture de la version."},
        {"3 cana 2 1 4 5 10 9 PUMP 1 4 12\n", 1, "Erreur de lecture."},
        {"3 can 2 1 4 5 10 9 PUMP 1 4 12 7\n", 1, "Erreur : Device inconnu = can"},
        {"3 cana5678901234567890 2 1 4 5 10 9 PUMP 1 4 12 7\n", 0, "Erreur de lecture."},
        {"3 cana 2 1 4 5 10 9 ABCDEFGHIJKL 1 4 12 7\n", 1, "Erreur de lecture."},
        {"3 cana 2 1 4 5 10 9 $(reboot) 1 4 12 7\n", 1, "Erreur de lecture."},
        {"3 cana 2 1 4 5 10 9 a/b 1 4 12 7\n", 1, "Erreur de lecture."},
        {string("3 cana 2 1 4 5 10 9 PUMP \0 1 4 12 7\n", 36), 1, "Erreur de lecture."},
        {"3 cana 2 1 4 5 10 9 PUMP 1 4 " + string(120, ' ') + "12 7\n", 1, "Erreur de lecture."},
    };
    for (const auto &[Text, HwRead, Report] : Cases) {
        EXPECT_EQ(get_Reports([&, Line = "1 cana 1 1 1 1 1 1 A 1 1 1 1\n" + Text] {
                      EXPECT_EQ(read_Slaves(Line), -499);
                  }),
                  "Config: " + Report + "\n");
        EXPECT_EQ(ConfigFile, nullptr);
        EXPECT_EQ(get_Fields(Slaves[0]), "A 1 5 1 1 1 1 1 1 1 1 1 1");
        EXPECT_EQ(Slaves[1].Device, 0);
        EXPECT_EQ(Slaves[1].HwInfo4, HwRead * 10) << Text;
    }
}

static void open_Protocols(const string &Text)
{
    write_File(PROTOCOLS, Text);
    open_ProtocolsFile();
}

// Each fault of appl.protocols ends the process with its own status (its low 8 bits); no date is a
// fault, and appl.conf must be closed.
TEST(Protocols, Header)
{
    unlink(PROTOCOLS.c_str());
    EXPECT_EXIT((dup2(2, 1), open_ProtocolsFile()), ExitedWithCode(125), "ctrl_FilePresence");
    EXPECT_EXIT((dup2(2, 1), open_Protocols("4698\n1\nx\n")), ExitedWithCode(13),
                "Erreur de lecture de la version du fichier\\.");
    EXPECT_EXIT((dup2(2, 1), open_Protocols("4698\n1\nx\n1\n")), ExitedWithCode(126),
                "La version n'est pas reconnue\\.");
    read_Count("1");
    EXPECT_DEATH(open_Protocols(HEADER), "ConfigFile == \\(\\(void \\*\\)0\\)");
    close_ConfigFile();
    open_Protocols("4698\n99999999999999999999999\nx\n0\n");
    close_ProtocolsFile();
}

// Looks for structure Wanted of cana, with 8 and 9 as parameters before; "structure min max".
static string choose_Protocol(const string &Lines, int16_t Wanted, bool Cut = false)
{
    BROADCAST Groups[NB_INTERFACES] = {};
    Groups[CAN_A] = {1, CAN_A, 0, Wanted, -1, 8, 9};
    open_Protocols(HEADER + Lines);
    EXPECT_EQ(Cut ? truncate(PROTOCOLS.c_str(), 5) : 0, 0);
    Broadcast = Groups;
    read_Protocol_FromProtocolsFile(CAN_A);
    close_ProtocolsFile();
    return std::to_string(Groups[CAN_A].ProtocolStructure) + " " +
           std::to_string(Groups[CAN_A].ProtocolParam1) + " " +
           std::to_string(Groups[CAN_A].ProtocolParam2);
}

// The wanted structure, else the next lower one, the first of equal lines, of this interface only.
// A file that lost its header in the meantime gives no old numbers.
TEST(Protocols, Choice)
{
    const string Lines = "cana 3 1 2\ncana2  7 70000 4 # comment\r\nttyS0 8 5 5\ncana 7 6 6\n"
                         "cana 300 1 1\ncana 65535 2 2\ncana 5 1 2\ncana 5 3 4";
    EXPECT_EQ(choose_Protocol(Lines, 255), "7 4464 4");
    EXPECT_EQ(choose_Protocol(Lines, 6), "5 1 2");
    EXPECT_EQ(choose_Protocol(Lines, 5), "5 1 2");
    EXPECT_EQ(choose_Protocol(Lines, 2), "-1 8 9");
    EXPECT_EQ(choose_Protocol("", 255), "-1 8 9");
    EXPECT_EQ(choose_Protocol("", 255, true), "-1 65535 65535");
    for (const char *Faulty : {"cana 3 1\n", "\n"})
        EXPECT_EXIT((dup2(2, 1), choose_Protocol(Faulty, 255)), ExitedWithCode(13),
                    "de lecture\\.");
}

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

// An input, the status (or number) that it gives, and its one report, "" none.
using CASE = std::tuple<string, int, string>;

template <typename CALL>
static void expect_Result(int Status, const string &Report, CALL Call)
{
    EXPECT_EQ(get_Reports([&] { EXPECT_EQ(Call(), Status) << Report; }),
              Report.empty() ? "" : "Config: " + Report + "\n");
}

// Each fault of the header has its own status and text; what only looks like one (comment, 16-bit
// wrap, negative date, no last line feed) passes.
TEST(Config, Header)
{
    const CASE Cases[] = {
        {" +70234abc\n-5\nx\n65536", 0, ""},
        {"", -499, "Erreur de lecture de la signature."},
        {string("\0004698\n", 6), -499, "Erreur de conversion de la signature."},
        {"4699\n", -898, "La signature n'est pas correcte."},
        {"4698\n", -499, "Erreur de lecture de la date."},
        {"4698\ntoday\n", -898, "Erreur de conversion de la date."},
        {"4698\n1421934890\n", -898, "Warning : Date du fichier de configuration"},
        {"4698\n4294967295\n", -898, "Warning : Date du fichier de configuration"},
        {"4698\n1\n", -499, "Erreur de lecture de la version de l'application."},
        {"4698\n1\nx\n", -499, "Erreur de lecture de la version."},
        {"4698\n1\nx\n\n", -499, "Erreur de conversion de la version."},
        {"4698\n1\nx\n-1\n", -898, "La version n'est pas reconnue."},
    };
    for (const auto &[Text, Status, Report] : Cases) {
        write_File(CONF, Text);
        expect_Result(Status, Report, open_ConfigFile);
        EXPECT_EQ(ConfigFile ? ftell(ConfigFile) : -1, Status == 0 ? 0 : -1) << Text;
        close_ConfigFile();
        close_ConfigFile();
    }
    expect_Result(-898, "La version n'est pas reconnue.\nConfig: Erreur : open_ConfigFile",
                  ctrl_ConfigFile);
    unlink(CONF.c_str());
    expect_Result(-899, "Erreur : ctrl_FilePresence(" + CONF + ")", ctrl_ConfigFile);
    expect_Result(-500, "Erreur : fopen(" + CONF + ")", open_ConfigFile);
}

static SLAVE Slaves[247];

// Reads a file with Lines behind the header: the number of slaves, then the slaves.
static int read_Conf(const string &Lines)
{
    close_ConfigFile();
    write_File(CONF, HEADER + Lines);
    EXPECT_EQ(open_ConfigFile(), 0);
    const int Status = read_NbSlaves_FromConfig();
    Slaves[0] = {};
    Slave = Slaves;
    return Status != 0 ? Status : read_SlaveConfig();
}

// The fields in the order of the line.
static string get_Fields(const SLAVE &S)
{
    return testing::PrintToString(std::tuple(+S.State, +S.Device, +S.BoardType, +S.BoardNumber,
                                             +S.FuncAddr1, +S.FuncAddr2, S.HwInfo4, S.HwInfo9,
                                             string(S.DistName), +S.DistVersion[0],
                                             +S.DistVersion[1], +S.DistVersion[2], +S.TypeId));
}

// Every field goes to its own place, cut to its width. A faulty line is refused before it overruns
// a field or lets a name near the shell; of it only what is stored directly is there. Counts that
// the group table cannot hold are refused; counts that no table can hold stop.
TEST(Config, Slaves)
{
    EXPECT_EQ(read_Conf("2\n259 cana567890123456789 258 257 260 261 65636 -2 ABCDEFGHIJK 257 260 "
                        "268 263 more\r\n"
                        "1\tttyS0 1 2 3 4 5 6 V-1_b.2 7 8 9 10"),
              0);
    EXPECT_NE(ConfigFile, nullptr);
    EXPECT_EQ(get_Fields(Slaves[0]),
              R"((3, 5, 2, 1, 4, 5, 100, 65534, "ABCDEFGHIJK", 1, 4, 12, 7))");
    EXPECT_EQ(get_Fields(Slaves[1]), R"((1, 3, 1, 2, 3, 4, 5, 6, "V-1_b.2", 7, 8, 9, 10))");

    const CASE Cases[] = {
        {"", 0, "Erreur de lecture de la version."},
        {"two\n", 0, "Erreur de conversion de la version."},
        {"248\n", 0, "Erreur : nombre de slaves = 248"},
        {"0xF7 # slaves\n", 0, "Erreur de lecture de la version."},
        {"1\n3 cana 2 1 4 5 10 9 PUMP 1 4 12\n", 10, "Erreur de lecture."},
        {"1\n3 can 2 1 4 5 10 9 PUMP 1 4 12 7\n", 10, "Erreur : Device inconnu = can"},
        {"1\n3 cana5678901234567890 2 1 4 5 10 9 PUMP 1 4 12 7\n", 0, "Erreur de lecture."},
        {"1\n3 cana 2 1 4 5 10 9 ABCDEFGHIJKL 1 4 12 7\n", 10, "Erreur de lecture."},
        {"1\n3 cana 2 1 4 5 10 9 $(reboot) 1 4 12 7\n", 10, "Erreur de lecture."},
        {"1\n3 cana 2 1 4 5 10 9 a/b 1 4 12 7\n", 10, "Erreur de lecture."},
        {"1\n3 cana 2 1 4 5 10 9 PUMP 1 " + string(120, ' ') + "4 12 7\n", 10,
         "Erreur de lecture."},
    };
    for (const auto &[Text, HwInfo4, Report] : Cases) {
        expect_Result(-499, Report, [&Text = Text] { return read_Conf(Text); });
        EXPECT_EQ(ConfigFile == nullptr, Text != "two\n");
        EXPECT_EQ(Slaves[0].Device, 0);
        EXPECT_EQ(Slaves[0].HwInfo4, HwInfo4) << Text;
    }
    for (const char *Count : {"0", "256", "4294967297"})
        EXPECT_DEATH(read_Conf(Count), "\\(i > 0\\) && \\(i < 256\\)") << Count;
}

// Reads all of appl.protocols with Text for cana, structure Wanted, with the parameters 8 and 9
// before: (structure, lowest level, highest level). Cut: the file loses its header once it is open.
static string choose_Protocol(const string &Text, int16_t Wanted, bool Cut = false)
{
    BROADCAST Groups[NB_INTERFACES] = {};
    BROADCAST &Group = Groups[CAN_A] = {1, CAN_A, 0, Wanted, -1, 8, 9};
    write_File(PROTOCOLS, Text);
    open_ProtocolsFile();
    EXPECT_EQ(Cut ? truncate(PROTOCOLS.c_str(), 5) : 0, 0);
    Broadcast = Groups;
    read_Protocol_FromProtocolsFile(CAN_A);
    close_ProtocolsFile();
    return testing::PrintToString(
        std::tuple(Group.ProtocolStructure, Group.ProtocolParam1, Group.ProtocolParam2));
}

// Each fault of appl.protocols ends the process with its own status (its low 8 bits).
TEST(Protocols, Faults)
{
    const CASE Cases[] = {
        {"4698\n1\nx\n", -499, "Erreur de lecture de la version du fichier\\."},
        {HEADER + "ttyS0 3 1\n", -499, "Erreur de lecture\\."},
    };
    for (const auto &[Text, Status, Report] : Cases)
        EXPECT_EXIT((dup2(2, 1), choose_Protocol(Text, 255)), ExitedWithCode(Status & 0xFF),
                    Report);
    unlink(PROTOCOLS.c_str());
    EXPECT_EXIT((dup2(2, 1), open_ProtocolsFile()), ExitedWithCode(125), "ctrl_FilePresence");
}

// The wanted structure, else the next lower one, the first of equal lines, of this interface only.
// Any date will do. A file that lost its header in the meantime gives no old numbers.
TEST(Protocols, Choice)
{
    const string Text = "4698\n99999999999999999999999\nx\n0\ncana 3 1 2\n"
                        "cana2  7 70000 4 # comment\r\nttyS0 8 5 5\ncana 7 6 6\n"
                        "cana 300 1 1\ncana 65535 2 2\ncana 5 1 2\ncana 5 3 4";
    EXPECT_EQ(choose_Protocol(Text, 255), "(7, 4464, 4)");
    EXPECT_EQ(choose_Protocol(Text, 6), "(5, 1, 2)");
    EXPECT_EQ(choose_Protocol(Text, 5), "(5, 1, 2)");
    EXPECT_EQ(choose_Protocol(Text, 2), "(-1, 8, 9)");
    EXPECT_EQ(choose_Protocol(HEADER, 255), "(-1, 8, 9)");
    EXPECT_EQ(choose_Protocol(HEADER, 255, true), "(-1, 65535, 65535)");
}

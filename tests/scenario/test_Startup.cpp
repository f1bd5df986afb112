// The beginning of a run: options, files of the run before, what makes a start impossible.
#include "Findings.h"

// An option that starts the machine, touches the log or another file, or looks at its followers;
// results of the run before that the application takes for new.
TEST(Startup, OptionsRemoveOldResultsAndDoNothingElse)
{
    const std::string Head = "\nVersion : 1.1.6 - Jan 22 2015  15:04:49\n\n";
    const std::string Usage =
        "Fonctionnement :  qx [OPTION]\n\n"
        "  Sans option   lance le loader\n"
        "  -h            help\n"
        "  -v            crée le fichier de transfert loader.versions en incluant\n"
        "                uniquement les formats de fichier et la version du loader.\n\n"
        "Attention : seul le premier paramètre est traité ; les suivants sont ignorés.\n\n";
    const std::string Written =
        "Crée le fichier de transfert loader.versions en incluant uniquement\n"
        "les formats de fichier et la version du loader.\n\n";
    const std::string Versions =
        "4698              # File : /var/vantrel/config/loader.versions\n"
        "1773469800        # Creation date of the file (time_t) : 14.03.2026 06:30:00\n"
        "1.1.6             # Version of the Loader\n"
        "0     0     0     # File format (Used  Min  Max)\n";
    for (const std::string Option : {"-h", "-vv", "-v"}) {
        Scenario Machine;
        for (const char *Name : {"conf", "errors", "protocols", "todo", "versions", "own"})
            write_Text(Machine.get_Folder() / "config/loader." += Name, "old");
        ScenarioRun Run = Machine.run({}, {Option, "-v"});
        EXPECT_EQ(Run.Output, Head + (Option == "-v" ? Written : Usage));
        EXPECT_EQ(Run.Files.size(), 4U); // and the two of the application
        EXPECT_EQ(Run.Files["loader.own"], "old");
        EXPECT_EQ(Run.Files["loader.versions"], Option == "-v" ? Versions : "old");
        EXPECT_EQ(std::to_string(Run.Exit) + Run.Log + Run.Trace, "0");
    }
}

// A start on half a configuration, or one that is refused although the file is good; an end with
// another status than the application knows, or a command sent before it.
TEST(Startup, AStartThatCannotBeEndsWithItsStatus)
{
    check("a missing file", WITH(Machine.ApplConf = ""), "-899 init_All,",
          "Config: Erreur : ctrl_FilePresence(/var/vantrel/config/appl.conf),", ".*");
    check("12 fields",
          WITH(Machine.ApplConf = "4698\n0\n1\n0\n1\n3 cana 2 17 2 1 210 1 PUMP 1 2 3\n"),
          "-489 501 init_All, errors:", "Config: Erreur de lecture.,", ".*");
    check(
        "missing directories",
        WITH(std::filesystem::create_directory(Machine.get_Folder() / "vantrel")),
        "signal 6 init_All,",
        "Init: Erreur : dir /home/user/vantrel/tmp/,Init: Erreur : dir /home/user/vantrel/config,",
        ".*");
    check("no driver", WITH(Machine.Toml = "[driver]\nmodule_loaded = false\n"),
          "-488 502 init_All, errors:",
          "Interfaces: Erreur : open_Can(5) = -891,Init: Erreur : init_Interfaces = -891,", ".*");
}

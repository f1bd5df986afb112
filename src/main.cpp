// The loader: one pass over the machine at every start, before the application.
#include "A2l.h"
#include "Exit.h"
#include "Init.h"
#include "L2a.h"
#include "Loader.h"
#include "Log.h"
#include "MT_BoardState.h"
#include "Paths.h"
#include "Status.h"
#include "Version.h"
#include <cstring>

static const char SOURCE[] = "../src/main";
static constexpr int LOG_KEPT = 20000; // bytes of earlier runs kept in the log

struct PHASE {
    const char *Name;
    int (*run)(); // 0, or a negative status that ends the chain
};

// From the restart of the slaves to the download.
static const PHASE Checks[] = {
    {"ctrl_HW", ctrl_HW},
    {"AdPhys2AdCan", AdPhys2AdCan},
    {"ctrl_NewSlavesPresence", ctrl_NewSlavesPresence},
    {"ctrl_SW", ctrl_SW},
    {"upload_Distributions_FromSlaves", upload_Distributions_FromSlaves},
    {"ctrl_NewSlavesSw", ctrl_NewSlavesSw},
    {"read_Todo_FromA2lFile", read_Todo_FromA2lFile},
};

// Opens the line of a phase; its OK closes the line of the phase before.
static void announce(const char *Name)
{
    print_Out("OK\n%-50s", Name);
}

static int run_Phase(const PHASE &Phase)
{
    announce(Phase.Name);
    return Phase.run();
}

static void start_Log()
{
    print_Out("Opening log file: %s\n", PATH_LOG);
    ErrorTail(PATH_LOG, LOG_KEPT);
    // Without a log (-1) the machine still has to start; only an empty header is a fault.
    if (ErrorInit(PATH_LOG) == 0) {
        print_Out("Error main - Opening file %s!\n", PATH_LOG);
        exit_Process(-1);
    }
    write_Version();
}

static void end_Log()
{
    if (ErrorClose() != 0) {
        print_Out("Erreur main - Fermeture du fichier %s !\n", PATH_LOG);
        exit_Process(-1);
    }
}

static int run_Checks()
{
    announce("restart_AllSlaves");
    restart_AllSlaves(); // who did not restart is found by the phases
    for (const PHASE &Phase : Checks) {
        const int Status = run_Phase(Phase);
        if (Status != 0)
            return Status;
    }
    return 0;
}

// Forced slaves now run what was asked for: what the configuration wants of them is read anew, and
// what still differs is downloaded.
static int update_ForcedSlaves()
{
    int Status = update_SlavesInfo_Sw();
    if (Status != 0)
        return Status;
    ASSERT(ForcedDownloadMask == 0, "ForcedDownloadMask == (BM_SLAVE_CAST) 0");
    Status = download_Distributions_ToSlaves();
    return Status != 0 ? Status : ctrl_SW();
}

static int run_Download()
{
    int Status = run_Phase({"download_Distributions_ToSlaves", download_Distributions_ToSlaves});
    if (Status != 0)
        return Status;

    Status = ctrl_SW(); // UpdateSwMask: who still differs
    ForcedDownloadMask &= ~UpdateSwMask;
    NoDistributionMask &= ~ForcedDownloadMask;
    if (Status == 0 && ForcedDownloadMask != 0 && (TimeoutMask | ReplaceSlavesMask) == 0)
        Status = update_ForcedSlaves();

    // Who differs after a download lacks the right distribution.
    NoDistributionMask |= UpdateSwMask;
    UpdateSwMask = 0;
    return Status;
}

static int run_Start()
{
    int Status = run_Phase({"start_Applications", start_Applications});
    if (Status == 0 && create_Loader_Protocols() != 0)
        Status = ERR_MASTER_OS;
    return Status;
}

static bool is_ReadyToStart()
{
    return Broadcast[BROADCAST_ALL].Mask != 0 &&
           (TimeoutMask | ReplaceSlavesMask | NoDistributionMask | MultipleSlavesOnAddMask) == 0;
}

// Everything that needs the bus.
static int run_Phases()
{
    int Status = run_Checks();
    if (Status == 0 && (UpdateSwMask | ForcedDownloadMask) != 0)
        Status = run_Download();
    if (Status == 0 && NoDistributionMask == 0)
        Status = run_Phase({"ctrl_Protocols", ctrl_Protocols});

    // Deliberately forgets an earlier failure: a machine whose masks are clean is started.
    if (MultipleSlavesOnAddMask == 0)
        Status = create_Loader_Config();
    if (Status == 0 && is_ReadyToStart())
        Status = run_Start();
    return Status;
}

static void print_Result(bool Done)
{
    print_Out("%s\n", Done ? "OK" : "FAILED");
}

static int run_Loader()
{
    start_Log();
    print_Out("Version qui fonctionne pas en remote !!!\n");
    print_Out("Lancement du loader\n");

    print_Out("\n%-50s\n", "init_All");
    int Status = init_All();
    if (Status == 0)
        Status = run_Phases();
    print_Result(Status == 0);

    // The application reads what went wrong, so these are written whatever happened.
    print_Out("%-50s", "create_Loader_Files");
    print_Result(create_Loader_Files(Status) == 0);
    end_Log();

    print_Out("Sortie du programme\n");
    exit_All();
    return Status;
}

static int write_Versions()
{
    print_Out("Crée le fichier de transfert loader.versions en incluant uniquement\n"
              "les formats de fichier et la version du loader.\n\n");
    const int Status = create_Loader_Versions();
    if (Status != 0) {
        REPORT("Erreur : create_Loader_Versions (Status = %i)", Status);
        print_Out("\nErreur : create_Loader_Versions (Status = %i)\n\n", Status);
    }
    return Status;
}

static int print_Usage()
{
    print_Out("Fonctionnement :  qx [OPTION]\n\n"
              "  Sans option   lance le loader\n"
              "  -h            help\n"
              "  -v            crée le fichier de transfert loader.versions en incluant\n"
              "                uniquement les formats de fichier et la version du loader.\n\n"
              "Attention : seul le premier paramètre est traité ; les suivants sont ignorés.\n\n");
    return 0;
}

static int run_Option(const char *Option)
{
    const int Status = strcmp(Option, "-v") == 0 ? write_Versions() : print_Usage();
    end_Log();
    return Status;
}

int main(int argc, char *argv[])
{
    print_Out("\nVersion : %d.%d.%d - %s  %s\n\n", VERSION_MAJOR, VERSION_MINOR, VERSION_PATCH,
              BUILD_DATE, BUILD_TIME);
    remove_L2a_Files();
    exit_Process(argc > 1 ? run_Option(argv[1]) : run_Loader());
}

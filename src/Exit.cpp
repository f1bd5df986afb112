#include "Exit.h"
#include "A2l.h"
#include "Interfaces.h"
#include "Log.h"
#include <atomic>
#include <cstdlib>
#include <unistd.h>

static const char SOURCE[] = "../src/Exit";

template <typename T>
static void free_Table(T **ppTable)
{
    free(*ppTable);
    *ppTable = nullptr;
}

// What a start that failed half way had built: no interface, and any part of the tables.
static void free_PartOfTables()
{
    free_Table(&Cmd.pP);
    for (int i = 0; i < NB_ANS; i++) {
        free_Table(&AnsTmp[i].pCdm);
        free_Table(&AnsTransf[i].pAnsIndex);
        free_Table(&AnsFree[i].pAnsIndex);
        for (int j = 0; pAns[i] && j < AnsDef[i].Size; j++)
            free_Table(&pAns[i][j].pP);
        free_Table(&pAns[i]);
    }
    free_Table(&Slave);
    free_Table(&Broadcast);
}

int exit_All()
{
    // The last table that a start builds: with it, all of them are there.
    if (AnsTmp[NB_ANS - 1].pCdm) {
        close_Interfaces();
        exit_Variables_Slaves();
    } else {
        free_PartOfTables();
    }
    exit_Variables();
    return 0;
}

void exit_Variables_Slaves()
{
    ASSERT(Slave != nullptr, "Slave != ((void *)0)");
    free_Table(&Slave);
    ASSERT(Broadcast != nullptr, "Broadcast != ((void *)0)");
    free_Table(&Broadcast);
}

void exit_Variables()
{
    free_Table(&ForcedDistributions);
}

void exit_Process(int Status)
{
    // exit must not run twice at the same time. acq_rel: the first call sees what was done before
    // it; the others only wait.
    static std::atomic<bool> Ending{false};
    if (Ending.exchange(true, std::memory_order_acq_rel)) {
        for (;;)
            pause();
    }
    end_Request();
    exit(Status);
}

// appl.conf, read by the whole start-up: tables and groups are built from it. The interfaces stay
// closed (no driver), so boards on CAN A end the start.
#include "Exit.h"
#include "FileTools.h"
#include "Init.h"
#include "Paths.h"
#include "Support.h"
#include <cstring>

static void ctrl_Tables()
{
    BM_SLAVE_CAST All = 0;
    for (int i = 0; i < NbSlaves; i++) {
        require(Slave[i].Device < NB_INTERFACES, "Device");
        require(memchr(Slave[i].DistName, 0, DIST_NAME_SIZE) != nullptr,
                "DistName without its end");
        require(ctrl_SafeDistributionName(Slave[i].DistName), "DistName for the shell");
        All |= Slave[i].Device != 0 ? Slave[i].Mask : 0;
    }
    require(NbBroadcasts >= FIRST_TYPE_GROUP && NbBroadcasts <= FIRST_TYPE_GROUP + NbSlaves,
            "NbBroadcasts");
    BM_SLAVE_CAST Grouped = 0;
    for (int j = FIRST_TYPE_GROUP; j < NbBroadcasts; j++) {
        require((Grouped & Broadcast[j].Mask) == 0, "a slave in two groups");
        Grouped |= Broadcast[j].Mask;
    }
    require(Broadcast[BROADCAST_ALL].Mask == All && Grouped == All, "a slave without its group");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    write_File(PATH_APPL_CONF, std::string(pData, pData + Size));
    // The assertions: a count that is none, two boards on one address.
    run_Loader({"exit -499", "exit -898", "(i > 0) && (i < 256)", "ctrl_AddressUnicity() == 0"},
               [] {
                   init_All();
                   if (Broadcast != nullptr)
                       ctrl_Tables();
               });
    stop_Machine();
    return 0;
}

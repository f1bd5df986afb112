// appl.protocols, asked as the agreement with the boards asks it: from the highest structure down.
#include "Config.h"
#include "Paths.h"
#include "Support.h"

static void walk_Structures(int DeviceIndex)
{
    BROADCAST &Group = Broadcast[DeviceIndex];
    Group.ProtocolStructure = 255;
    for (int i = 0; i < 16; i++) {
        const int16_t Wanted = Group.ProtocolStructure;
        read_Protocol_FromProtocolsFile(DeviceIndex);
        require(Group.ProtocolStructure >= -1 && Group.ProtocolStructure <= Wanted, "structure");
        if (Group.ProtocolStructure-- == -1)
            return;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    write_File(PATH_APPL_PROTOCOLS, std::string(pData, pData + Size));
    start_Machine(1);
    // The assertion: a header without a line feed at its end.
    run_Loader({"exit -499", "exit -898", "feof(ProtocolsFile) == 0"}, [] {
        open_ProtocolsFile();
        walk_Structures(TTYS_0);
        walk_Structures(CAN_A);
    });
    stop_Machine();
    return 0;
}

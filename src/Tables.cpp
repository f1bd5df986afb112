#include "Tables.h"
#include <cstring>

const char *const DEVICE_Names[NB_INTERFACES] = {
    "", "stdin", "stdout", "ttyS0", "ttyS1", "cana", "internal_lcd", "internal_keypad"};
DEVICE Device[NB_INTERFACES];
int32_t Master;
SLAVE *Slave;
uint8_t NbSlaves;
BROADCAST *Broadcast;
uint8_t NbBroadcasts;

BM_SLAVE_CAST TimeoutMask;
BM_SLAVE_CAST ReplaceSlavesMask;
BM_SLAVE_CAST MultipleSlavesOnAddMask;
BM_SLAVE_CAST NewSlavesMask;
BM_SLAVE_CAST NoDistributionMask;
BM_SLAVE_CAST UpdateSwMask;
BM_SLAVE_CAST ForcedDownloadMask;

int find_Device(const char *Word)
{
    for (int i = 1; i < NB_INTERFACES; i++) {
        if (strncmp(Word, DEVICE_Names[i], strlen(DEVICE_Names[i])) == 0)
            return i;
    }
    return 0;
}

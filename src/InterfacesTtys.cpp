#include "InterfacesTtys.h"
#include "Log.h"
#include "Tables.h"

static const char SOURCE[] = "../src/InterfacesTtys";

int open_Ttys(int /*DeviceIndex*/)
{
    return 0;
}

int close_Ttys(int DeviceIndex)
{
    ASSERT(DeviceIndex == TTYS_0, "DeviceIndex == TTYS_0");
    const char Text[] = ""; // a serial line has nothing to say yet
    print_Out("\n%s\n", Text);
    return 0;
}

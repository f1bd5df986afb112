// Start-up: answer tables, directories, slave and broadcast tables, interfaces.
#ifndef QX_INIT_H
#define QX_INIT_H

#include "Tables.h"

int init_All();
int init_Variables();
int ctrl_Directories();
int init_Variables_Master();
int init_Variables_Slaves();
void init_Variables_Broadcasts();
void make_BroadcastMask();
int make_BroadcastMask_ForSlaveType(int Group, int First, int End);
int ctrl_AddressUnicity();
unsigned get_NbSlavesFromMask(BM_SLAVE_CAST Mask);

#endif

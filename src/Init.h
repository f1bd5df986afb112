// Start-up: answer tables, directories, slave and broadcast tables, interfaces.
#ifndef QX_INIT_H
#define QX_INIT_H

#include "Tables.h"

// Prepares everything that the phases need, and opens the interfaces (the receive thread runs
// then). 0; ERR_MASTER_OS or ERR_MASTER_HW: some of it is missing, exit_All frees the rest. A
// configuration that cannot be used ends the process with its status, or by assertion.
int init_All();

// Clears Cmd and allocates the answer tables (but AnsTmp) in their initial state. 0 or
// SYST_ERR_ALLOC; what was allocated before a failure stays for exit_All.
int init_Variables();

// 0, or GEN_ERR_CONFIG when a working directory of the master is missing; reports each.
int ctrl_Directories();

// Sets the master's node number. Returns 0.
int init_Variables_Master();

// Allocates Slave and fills it from appl.conf. 0, SYST_ERR_ALLOC, or what read_SlaveConfig
// returned (the records before the faulty line are filled). A bad slave count ends the process,
// two slaves at one address stop it by assertion.
int init_Variables_Slaves();

// Allocates Broadcast, one record a slave after the fixed ones, and builds the groups. A failed
// allocation ends the process.
void init_Variables_Broadcasts();

// Builds every group anew from Slave, and publishes the senders; to be called again after a slave's
// Device was set to 0. Protocol numbers stay. Groups:
//     0                    BROADCAST_ALL, the slaves of groups 1..7
//     1..7                 the slaves of each interface
//     8..NbBroadcasts-1    the slaves of each pair (Device, BoardType), in the order of their
//                          first slaves
void make_BroadcastMask();

// Makes Group of the slaves in service First..End-1, which share one interface and board type. 0,
// or -1 when they do not.
int make_BroadcastMask_ForSlaveType(int Group, int First, int End);

// 0, or GEN_ERR_CONFIG when two slaves share a physical or a functional address; reports it.
int ctrl_AddressUnicity();

// Slaves in Mask, 0..64.
unsigned get_NbSlavesFromMask(BM_SLAVE_CAST Mask);

#endif

// The loader's picture of the machine: one record a configured slave, one a broadcast group, the
// open interfaces, and the slave masks through which the phases hand their findings to each other
// and, at the end, to the result files.
//
// Plain global data without a lock: only the main thread touches it. What the receive thread needs
// of it (who sent a frame) is published by publish_Senders (InterfacesCan.h).
#ifndef QX_TABLES_H
#define QX_TABLES_H

#include <cstdint>
#include <pthread.h>

// Slave mask: bit i stands for the slave with index i in Slave (the order of appl.conf, from 0).
// Slaves with an index of 64 or more have the mask 0: they can be configured, but no phase
// reaches them.
typedef uint64_t BM_SLAVE_CAST;

constexpr int DIST_NAME_SIZE = 12;    // mnemonic in a slave record, NUL included
constexpr int DISTRIBUTION_SIZE = 40; // whole distribution name ("NAME.1.2.3"), NUL included

struct SLAVE {
    BM_SLAVE_CAST Mask;  // this slave's bit
    uint8_t Changed;     // 1: hardware item 4 or 9 of the board found differs from appl.conf
    uint8_t State;       // 0x01 application is started, 0x02 by the start command with address
                         // and protocol; 0: the slave is not required and is dropped
    uint8_t Device;      // index into DEVICE_Names, 1..7; 0: not in service
    uint8_t BoardType;   // BT, first part of the bus address
    uint8_t BoardNumber; // BN, second part of the bus address
    uint8_t FuncAddr1;   // functional address, becomes the BT
    uint8_t FuncAddr2;   // functional address, becomes the BN
    uint16_t HwInfo4;    // expected hardware item 4 (compared as signed)
    uint16_t HwInfo9;    // expected hardware item 9 (compared as signed)
    char DistName[DIST_NAME_SIZE]; // base name of the software distribution
    uint8_t DistVersion[3];        // its version, sub-version and compilation
    uint8_t TypeId;                // type that the board's hardware and software maps must hold
    uint16_t IndexOfCompatibility; // hardware item 8 as read (compared as signed)
};

struct BROADCAST {
    BM_SLAVE_CAST Mask;        // slaves of the group
    uint8_t Device;            // interface of the group, 0 for BROADCAST_ALL or an unused group
    uint8_t BoardType;         // board type, of the groups from FIRST_TYPE_GROUP on
    int16_t ProtocolStructure; // protocol structure of the interface, -1 none
    int16_t ProtocolLevel;     // protocol level agreed with the slaves, -1 none
    uint16_t ProtocolParam1;   // lowest level the application accepts (appl.protocols)
    uint16_t ProtocolParam2;   // highest level the application accepts
};

struct DEVICE {
    int File;           // descriptor; -1 being opened, -2 driver absent, -10 closed
    pthread_t RxThread; // receive thread of the interface
};

// Device indices.
constexpr int TTYS_0 = 3;
constexpr int CAN_A = 5;
constexpr int NB_CAN = 6; // one past the last CAN interface
constexpr int NB_INTERFACES = 8;

// Groups: 0 every slave in service, 1..7 an interface each, from 8 a pair of interface and type.
constexpr int BROADCAST_ALL = 0;
constexpr int FIRST_TYPE_GROUP = 8;

extern const char *const DEVICE_Names[NB_INTERFACES];
extern DEVICE Device[NB_INTERFACES];
extern int32_t Master;       // node number of the master on the bus
extern SLAVE *Slave;         // NbSlaves records, null before init_Variables_Slaves
extern uint8_t NbSlaves;     // 1..247
extern BROADCAST *Broadcast; // NbBroadcasts records, null before init_Variables_Broadcasts
extern uint8_t NbBroadcasts; // groups in use, FIRST_TYPE_GROUP included

extern BM_SLAVE_CAST TimeoutMask;             // did not answer
extern BM_SLAVE_CAST ReplaceSlavesMask;       // board must be replaced
extern BM_SLAVE_CAST MultipleSlavesOnAddMask; // share one address
extern BM_SLAVE_CAST NewSlavesMask;           // another board than the configured one
extern BM_SLAVE_CAST NoDistributionMask;      // no suitable distribution on the master
extern BM_SLAVE_CAST UpdateSwMask;            // software is to be downloaded
extern BM_SLAVE_CAST ForcedDownloadMask;      // download asked for by appl.todo

// Index (1..7) of the device whose name begins Word, the first in table order; 0: none. Only as
// many characters as the table's name has are compared, so "cana0" is "cana".
int find_Device(const char *Word);

#endif

// Readers of the application's configuration: appl.conf and appl.protocols.
#ifndef QX_CONFIG_H
#define QX_CONFIG_H

#include <cstdint>
#include <cstdio>

extern FILE *ConfigFile;       // appl.conf while it is open, else null
extern int16_t Config_Version; // file format version of the file read last
extern FILE *ProtocolsFile;    // appl.protocols while it is open, else null

int ctrl_ConfigFile();
int open_ConfigFile();
void close_ConfigFile();
int read_NbSlaves_FromConfig();
int read_SlaveConfig();

int open_ProtocolsFile();
void close_ProtocolsFile();
void read_Protocol_FromProtocolsFile(int DeviceIndex);

#endif

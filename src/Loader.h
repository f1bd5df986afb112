// The phases of a start, one after the other: presence and addressing, hardware types, software,
// distributions, protocols, start of the applications.
#ifndef QX_LOADER_H
#define QX_LOADER_H

#include "Tables.h"

// Presence and addressing.
int ctrl_HW();
int AdPhys2AdCan();
int ctrl_NewSlavesPresence();
int ctrl_SlavePresence();
int ctrl_SlaveIntegrity(int ByteIndex);

// Hardware type compatibility.
int ctrl_HwTypeIdCompatibility();
int ctrl_TypeId(int16_t TypeId, const uint8_t *TypeIdMap, int16_t Length);
int read_HwTypeId_FromDbFile(BM_SLAVE_CAST SlaveMask, char *DbDate, uint8_t *pTypeId);
int get_HexaByte(const char *Text);

// Software.
int ctrl_SW();
int ctrl_NewSlavesSw();
int ctrl_SwTypeIdCompatibility();
void ctrl_IndexOfCompatibility();

// Distributions.
int upload_Distributions_FromSlaves();
int download_Distributions_ToSlaves();
int update_SlavesInfo_Sw();

// Protocols and start.
int ctrl_Protocols();
int start_Applications();

#endif

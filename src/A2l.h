// Reader of appl.todo, by which the application forces distributions onto slaves.
#ifndef QX_A2L_H
#define QX_A2L_H

#include "Tables.h"
#include <cstdio>

extern FILE *A2lFile;                                  // appl.todo while it is open, else null
extern char (*ForcedDistributions)[DISTRIBUTION_SIZE]; // requested name a slave index, "" none

int read_Todo_FromA2lFile();

#endif

// Writers of the result files that the application reads after the loader.
#ifndef QX_L2A_H
#define QX_L2A_H

#include "Tables.h"
#include <cstdio>

extern FILE *L2aFile;           // the result file being written, else null
extern uint8_t A2l_L2a_Version; // file format version

int create_Loader_Versions();
int create_Loader_Protocols();
int create_Loader_Config();
int create_Loader_Todo(int Status);
int create_Loader_Errors(int Status);
int create_Loader_Files(int Status);
void remove_L2a_Files();
void write_L2a_Header(const char *Path);
void write_SlavesIndentity(FILE *pFile, BM_SLAVE_CAST Mask);

#endif

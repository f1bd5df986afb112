// Status codes: every operation of the loader returns 0 for success or one of these negative
// values (a few return positive counts, said where they are declared). The process ends with the
// status of its run, of which the system keeps the low 8 bits.
#ifndef QX_STATUS_H
#define QX_STATUS_H

// name, value, meaning
#define QX_STATUS_TABLE(X)                                                                         \
    X(ERR_FILE_SIZE_PUT, -484,                                                                     \
      "size of the file on the slave differs from the master's after a put")                       \
    X(ERR_FILE_SLAVE, -485, "file unknown on the slave, or size mismatch after a get")             \
    X(ERR_MASTER_NVM_FULL, -486, "master storage full")                                            \
    X(ERR_MASTER_OS, -488, "a file or directory operation on the master failed")                   \
    X(ERR_MASTER_HW, -489, "master resource failure")                                              \
    X(ERR_INFO_UNKNOWN, -490, "the slave does not know the item, or its value did not convert")    \
    X(ERR_INFO_ANSWER, -491, "the slave answered an information request with an error")            \
    X(ERR_ANSWER_WRITE, -492, "the slave answered a write with an error")                          \
    X(ERR_TIMEOUT, -493, "no answer")                                                              \
    X(ERR_SLAVES_DB, -494, "hardware database absent or invalid")                                  \
    X(ERR_SHEADER, -495, "software header file or a file name in it unreadable")                   \
    X(ERR_TODO_FILE, -496, "header of appl.todo invalid")                                          \
    X(ERR_CONFIG_READ, -499, "appl.conf or appl.protocols unreadable or malformed")                \
    X(ERR_CONFIG_OPEN, -500, "appl.conf or appl.protocols cannot be opened")                       \
    X(GEN_ERR_FCLOSE, -890, "closing a file failed")                                               \
    X(GEN_ERR_FOPEN, -891, "opening a file or the CAN driver failed")                              \
    X(GEN_ERR_NO_FILE, -892, "source file of a copy does not exist")                               \
    X(GEN_ERR_FORMAT, -895, "bad format in an information conversion")                             \
    X(GEN_ERR_MULTIPLE_ADDRESS, -896, "two boards answer at one address")                          \
    X(GEN_ERR_PRG_VANTREL, -898, "a command could not be sent, or an unexpected state")            \
    X(GEN_ERR_CONFIG, -899, "missing directory or file, or duplicate address")                     \
    X(SYST_ERR_THREAD, -990, "receive thread could not be started")                                \
    X(SYST_ERR_MKDIR, -994, "directory could not be made")                                         \
    X(SYST_ERR_UMOUNT, -996, "unmount failed")                                                     \
    X(SYST_ERR_MOUNT, -997, "mount failed")                                                        \
    X(SYST_ERR_COPY, -998, "a copy command failed")                                                \
    X(SYST_ERR_ALLOC, -1000, "memory allocation failed")

enum STATUS : int {
#define QX_STATUS_NAME(Name, Value, Meaning) Name = (Value),
    QX_STATUS_TABLE(QX_STATUS_NAME)
#undef QX_STATUS_NAME
};

// What a slave's file service answers in byte 0 of an error answer. 129, 130, 131, 133 and 135
// have no name of their own; the comments where they are tested say what each means.
enum FILE_STATUS : int {
    ERR_FILE_UNKNOWN = 128,
    ERR_FILE_CHKSUM = 132,
};

#endif

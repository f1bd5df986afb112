// Every fixed path of the loader. Directories and limits are part of the program, not settings.
#ifndef QX_PATHS_H
#define QX_PATHS_H

// Texts built at run time (paths, shell commands, log lines) are held in buffers of this size.
constexpr int TEXT_SIZE = 140;

// Log, kept on the card.
#define PATH_LOG "/home/user/save/log/loader.log"

// What the application writes for the loader.
#define DIR_CONFIG "/var/vantrel/config/"
#define PATH_APPL_CONF DIR_CONFIG "appl.conf"
#define PATH_APPL_PROTOCOLS DIR_CONFIG "appl.protocols"
#define PATH_APPL_TODO DIR_CONFIG "appl.todo"

// The request of appl.todo while a start carries it out, for the first time and once more.
#define PATH_TODO_CUT DIR_CONFIG ".appl.todo.cut"
#define PATH_TODO_REPEATED DIR_CONFIG ".appl.todo.repeated"

// What the loader writes for the application.
#define PATH_LOADER_VERSIONS DIR_CONFIG "loader.versions"
#define PATH_LOADER_CONF DIR_CONFIG "loader.conf"
#define PATH_LOADER_PROTOCOLS DIR_CONFIG "loader.protocols"
#define PATH_LOADER_TODO DIR_CONFIG "loader.todo"
#define PATH_LOADER_ERRORS DIR_CONFIG "loader.errors"

// Working directories of the master, in memory.
#define DIR_WORK "/home/user/vantrel"
#define DIR_WORK_SW DIR_WORK "/slave_sw"
#define DIR_WORK_SW_TMP DIR_WORK_SW "/tmp"
#define DIR_WORK_HW DIR_WORK "/slave_hw"

// Store and hardware database, on the card.
#define DIR_STORE "/home/user/save/slave_sw"
#define PATH_SLAVES_DB "/home/user/save/slave_hw/slaves_db.txt"

#endif

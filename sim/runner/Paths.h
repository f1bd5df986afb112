// Where things lie inside the run's own file system. Nothing of the host's /home, /tmp, /var, /mnt
// or /run is there, so these names are free.
#pragma once

namespace qxsim
{

constexpr const char *FOLDER_INSIDE = "/run/qxsim";
constexpr const char *FOLDER_MACHINE = "/run/qxsim/machine"; // the machine, or a copy of it
constexpr const char *FOLDER_RUN = "/run/qxsim/run";         // what the run leaves for the report
constexpr const char *FOLDER_SCRIPTS = "/run/qxsim/scripts"; // the platform's scripts
constexpr const char *FOLDER_PROC = "/run/qxsim/proc";       // the kernel's /proc
constexpr const char *PATH_CARD = "/run/qxsim/card";         // what ins_cf mounts
constexpr const char *PATH_QX = "/run/qxsim/qx";
constexpr const char *PATH_QXSIM = "/run/qxsim/qxsim";
constexpr const char *PATH_PRELOAD = "/run/qxsim/qxsim_preload.so";
constexpr const char *MOUNT_CARD = "/mnt/cf";

// In the folder of the run. The card's mark makes ins_cf fail.
constexpr const char *NAME_CARD_GONE = "card_gone";
constexpr const char *NAME_TRACE = "trace";
constexpr const char *NAME_OUTPUT = "output"; // records "NANOSECONDS BYTES\n" and that many bytes
constexpr const char *NAME_RESULT = "result"; // lines "key=value"
constexpr const char *NAME_WAIT = "wait";     // the loader's wait status

} // namespace qxsim

// Private copies of the folders that the loader's fixed paths lead to, for unit tests: /home, /var
// and /mnt are empty memory file systems that only this process and its children see. Nothing of
// the host is read or changed, as root or as an ordinary user.
#ifndef QX_PRIVATEFOLDERS_H
#define QX_PRIVATEFOLDERS_H

#include <gtest/gtest.h>
#include <string>

// Moves the process, as root of a user namespace of its own, into a private mount namespace and
// makes the folders that the loader expects: /home/user/vantrel/tmp, /home/user/vantrel/config,
// /home/user/save/log, /var/vantrel/config. Must be called before any thread exists; a second call
// does nothing. Ends the process when the host forbids it: a test that went on would work on the
// host's folders. The process may mount(2) and change owners inside.
void enter_PrivateFolders();

// Enters them before the first test of a program:
//     testing::Environment *const Folders = testing::AddGlobalTestEnvironment(new PRIVATE_FOLDERS);
struct PRIVATE_FOLDERS : testing::Environment {
    void SetUp() override
    {
        enter_PrivateFolders();
    }
};

// Writes a whole file, replacing an old one; a missing folder on the way is made.
void write_File(const std::string &Path, const std::string &Content);

// An executable shell script: write_Script("/mnt/bin/ins_cf", "exit 1").
void write_Script(const std::string &Path, const std::string &Body);

// The whole file, "" when it is absent.
std::string read_File(const std::string &Path);

#endif

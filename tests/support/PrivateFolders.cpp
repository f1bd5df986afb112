#include "PrivateFolders.h"
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sstream>
#include <sys/mount.h>
#include <unistd.h>

namespace
{

void must(bool Done, const char *What)
{
    if (Done)
        return;
    perror(What);
    _exit(1);
}

void write_ProcFile(const char *Path, const std::string &Content)
{
    FILE *const pFile = fopen(Path, "w");
    must(pFile && fputs(Content.c_str(), pFile) >= 0 && fclose(pFile) == 0, Path);
}

void enter_Namespaces()
{
    const std::string User = std::to_string(geteuid());
    const std::string Group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) {
        write_ProcFile("/proc/self/setgroups", "deny"); // else a user may not map its group
        write_ProcFile("/proc/self/uid_map", "0 " + User + " 1");
        write_ProcFile("/proc/self/gid_map", "0 " + Group + " 1");
    } else { // a host without user namespaces still lets root have its own mounts
        must(unshare(CLONE_NEWNS) == 0, "unshare");
    }
    must(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mount --make-rprivate");
}

} // namespace

void enter_PrivateFolders()
{
    static bool Entered = false;
    if (Entered)
        return;
    enter_Namespaces();
    for (const char *Root : {"/home", "/var", "/mnt"})
        must(mount("none", Root, "tmpfs", 0, "mode=755") == 0, Root);
    for (const char *Folder : {"/home/user/vantrel/tmp", "/home/user/vantrel/config",
                               "/home/user/save/log", "/var/vantrel/config", "/var/tmp"})
        std::filesystem::create_directories(Folder);
    Entered = true;
}

void write_File(const std::string &Path, const std::string &Content)
{
    std::filesystem::create_directories(std::filesystem::path(Path).parent_path());
    std::ofstream File(Path, std::ios::binary | std::ios::trunc);
    File << Content;
    must(File.flush().good(), Path.c_str());
}

void write_Script(const std::string &Path, const std::string &Body)
{
    write_File(Path, "#!/bin/sh\n" + Body + "\n");
    std::filesystem::permissions(Path, std::filesystem::perms::owner_all);
}

std::string read_File(const std::string &Path)
{
    std::ostringstream Content;
    Content << std::ifstream(Path, std::ios::binary).rdbuf();
    return Content.str();
}

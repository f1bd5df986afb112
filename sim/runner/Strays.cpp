#include "runner/Strays.h"
#include "runner/Paths.h"
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 6> Known{
    FOLDER_MACHINE, FOLDER_RUN, "/var/vantrel/config", "/home/user/vantrel", PATH_CARD, MOUNT_CARD};

// Programs and libraries of the host are read only.
bool is_Watched(const fs::path &Folder)
{
    const char *const Coverage = getenv("GCOV_PREFIX");
    return std::find(Known.begin(), Known.end(), Folder.native()) == Known.end() &&
           (Coverage == nullptr || Folder != Coverage) && access(Folder.c_str(), W_OK) == 0;
}

// The entry's own kind is what the folder says, which need not be so for a mounted device.
std::string describe(const fs::path &Path)
{
    const fs::file_type Kind = fs::symlink_status(Path).type();
    std::string Text = std::to_string(static_cast<int>(Kind));
    if (Kind == fs::file_type::regular) {
        Text += " " + std::to_string(fs::file_size(Path)) + " " +
                std::to_string(fs::last_write_time(Path).time_since_epoch().count());
    }
    return Text;
}

// The link for the sanitizers, which the loader's process makes for itself.
bool is_Process(const fs::path &Path)
{
    return Path.parent_path() == "/proc" && isdigit(Path.filename().native()[0]) != 0;
}

} // namespace

Tree read_Tree()
{
    Tree Read;
    fs::recursive_directory_iterator Entry{"/"};
    for (; Entry != fs::recursive_directory_iterator{}; ++Entry) {
        if (is_Process(Entry->path())) {
            continue;
        }
        Read[Entry->path()] = describe(Entry->path());
        if (!Entry->is_symlink() && Entry->is_directory() && !is_Watched(Entry->path())) {
            Entry.disable_recursion_pending();
        }
    }
    return Read;
}

void write_Strays(const fs::path &Result, const Tree &Before, const Tree &After)
{
    std::ofstream File{Result, std::ios::app};
    int Number = 0;
    const auto Write = [&](const char *What, const std::string &Path) {
        File << "stray." << ++Number << '=' << What << ' ' << Path << '\n';
    };
    for (const auto &[Path, Found] : After) {
        const auto Old = Before.find(Path);
        if (Old == Before.end()) {
            Write("created", Path);
        } else if (Old->second != Found) {
            Write("changed", Path);
        }
    }
    for (const auto &[Path, Found] : Before) {
        if (!After.contains(Path)) {
            Write("removed", Path);
        }
    }
}

} // namespace qxsim

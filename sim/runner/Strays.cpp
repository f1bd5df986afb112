#include "runner/Strays.h"
#include "runner/Paths.h"
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <unistd.h>

namespace qxsim
{
namespace
{

namespace fs = std::filesystem;

constexpr std::array<std::string_view, 8> Known{
    FOLDER_INSIDE,        "/dev",           "/proc",    "/var/vantrel/config",
    "/home/user/vantrel", "/mnt/removable", "/mnt/net", MOUNT_CARD};

// Programs and libraries of the host are read only.
bool is_Watched(const fs::path &Folder)
{
    const char *const Coverage = getenv("GCOV_PREFIX");
    return std::find(Known.begin(), Known.end(), Folder.native()) == Known.end() &&
           (Coverage == nullptr || Folder != Coverage) && access(Folder.c_str(), W_OK) == 0;
}

std::string describe(const fs::directory_entry &Entry)
{
    std::string Text = std::to_string(static_cast<int>(Entry.symlink_status().type()));
    if (!Entry.is_symlink() && Entry.is_regular_file()) {
        Text += " " + std::to_string(Entry.file_size()) + " " +
                std::to_string(Entry.last_write_time().time_since_epoch().count());
    }
    return Text;
}

} // namespace

Tree read_Tree()
{
    Tree Read;
    fs::recursive_directory_iterator Entry{"/"};
    for (; Entry != fs::recursive_directory_iterator{}; ++Entry) {
        Read[Entry->path()] = describe(*Entry);
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

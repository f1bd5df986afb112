// The loader's own world: a mount namespace in which its fixed paths are the machine's folders. It
// needs bubblewrap and user namespaces, neither root nor anything of the host.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qxsim
{

struct Tools {
    std::filesystem::path Loader;
    std::filesystem::path Runner;  // this program
    std::filesystem::path Preload; // qxsim_preload.so
    std::filesystem::path Scripts; // folder with the platform's scripts
};

struct RunSettings {
    double Speed{};                     // virtual seconds a real one, 0: as fast as possible
    double Limit{3600};                 // virtual seconds, 0: none
    bool Parallel{};                    // the loader's threads really run in parallel
    std::vector<std::string> Arguments; // of the loader
};

// Runs the loader on the machine in Work, a folder that is written to; the results go to Run.
// Returns the loader's wait status. Throws std::runtime_error when the loader could not be started.
int run_Sandbox(const Tools &Used, const std::filesystem::path &Work,
                const std::filesystem::path &Run, const RunSettings &Settings);

// The part that runs inside: puts the storage in place, runs the loader, keeps what it wrote on the
// card. Returns the exit status of this process, 0 when the loader was run.
int run_Inside(const std::vector<std::string> &Arguments);

} // namespace qxsim

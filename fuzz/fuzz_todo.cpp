// appl.todo for four boards, functional addresses 1 1 to 1 4 on cana. It never ends the process.
#include "A2l.h"
#include "FileTools.h"
#include "Paths.h"
#include "Support.h"
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    write_File(PATH_APPL_TODO, std::string(pData, pData + Size));
    start_Machine(4);
    run_Loader({}, [] {
        const int Status = read_Todo_FromA2lFile();
        require(Status == 0 || Status == -496, "status " + std::to_string(Status));
        require(A2lFile == nullptr && ctrl_FilePresence(PATH_APPL_TODO) == 0, "the file is left");
    });
    for (int i = 0; ForcedDistributions != nullptr && i < NbSlaves; i++) {
        const char *const Name = ForcedDistributions[i];
        require(memchr(Name, 0, DISTRIBUTION_SIZE) != nullptr, "a name without its end");
        require((ForcedDownloadMask >> i & 1) == (Name[0] != '\0'), "mask");
        require(Name[0] == '\0' || ctrl_SafeDistributionName(Name), "a name for the shell");
    }
    stop_Machine();
    return 0;
}

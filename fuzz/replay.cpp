// Plays every input of a corpus folder once, for builds without a fuzzer: replay FOLDER
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *Count, char ***Arguments);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size);

int main(int Count, char **Arguments)
{
    // Read before the private folders hide a corpus in /home.
    std::map<std::string, std::vector<char>> Inputs;
    for (const auto &Entry : std::filesystem::directory_iterator(Count > 1 ? Arguments[1] : ".")) {
        std::ifstream File(Entry.path(), std::ios::binary);
        Inputs[Entry.path().filename()].assign(std::istreambuf_iterator<char>(File), {});
    }
    LLVMFuzzerInitialize(&Count, &Arguments);
    for (const auto &[Name, Bytes] : Inputs) {
        fprintf(stderr, "%s\n", Name.c_str()); // the last one is the one that failed
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(Bytes.data()), Bytes.size());
    }
    return Inputs.empty() ? 1 : 0;
}

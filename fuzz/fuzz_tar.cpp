// An archive of tar in the store, from any tool, whole or not, and its beginning as a file of gzip.
// Nothing of it is unpacked but "sheader.bin" of three bytes.
#include "Support.h"
#include "Tar.h"
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    write_File("/home/user/a.tar", std::string(pData, pData + Size));
    write_File("/home/user/tmp/sheader.bin", "abc");
    require(chdir("/home/user/tmp") == 0, "chdir");
    const int Unpacked = ctrl_Unpacked("../a.tar");
    const int Whole = ctrl_Tar("../a.tar");

    require(chdir("/home") == 0, "chdir");
    const int NotUnpacked = ctrl_Unpacked("user/a.tar"); // no file is there that could be cut
    require(Unpacked >= 0 || !Whole, "whole, and breaks off");
    require(NotUnpacked == 1 && Unpacked <= 1, "cut, and no file is there");
    require(!Whole || Size >= 512, "whole without an end marker");
    const int64_t Packed = get_GzipSize("user/a.tar");
    require(Size < 4 ? Packed == -1 : (Packed & 0xFF) == pData[Size - 4], "gzip's size");
    return 0;
}

// slaves_db.txt, looked up for a board with identity 12, letter D, versions 9 and 9.
#include "InterfacesCan.h"
#include "Loader.h"
#include "MT_Info.h"
#include "Paths.h"
#include "Status.h"
#include "Support.h"
#include <cstring>
#include <memory>

using namespace std::string_literals;

// Fn, answer code, tag, length, type, value.
static void answer(const CAN_FRAME &Frame)
{
    static const std::string Identity = "\0\0\x04\x02\x02\0\x0C"s;
    static const std::string Letter = "\0\0\x05\x02\x05\x44\0"s;
    static const std::string Version = "\0\0\x06\x02\x02\0\x09"s;
    const uint8_t Tag = Frame.Data[1];
    receive_Answer(MT_INFO, 1, Tag == 4 ? Identity : Tag == 5 ? Letter : Version);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    write_File(PATH_SLAVES_DB ".gz", std::string(pData, pData + Size));
    start_Machine(1);
    FakeCan.OnSend = answer;
    run_Loader({}, [] {
        const auto pMap = std::make_unique<uint8_t[]>(TYPE_MAP_SIZE);
        const auto pDate = std::make_unique<char[]>(DB_DATE_SIZE);
        const int Result = read_HwTypeId_FromDbFile(1, pDate.get(), pMap.get());
        require(Result == ERR_SLAVES_DB || (Result >= 0 && Result < TYPE_MAP_SIZE), "result");
        if (Result < 0)
            return;
        require(strlen(pDate.get()) > 0 && pMap[static_cast<size_t>(Result)] == 0, "its end");
        ctrl_TypeId(255, pMap.get(), static_cast<int16_t>(Result));
    });
    stop_Machine();
    return 0;
}

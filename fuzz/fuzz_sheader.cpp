// sheader.bin, as a board gives it to be saved in the store: the files that it lists are fetched
// (they are empty) and the archive is named by it. A size of FFFFFFFF stands for the true one.
#include "FileTools.h"
#include "InterfacesCan.h"
#include "MT_FileManage.h"
#include "Support.h"
#include <algorithm>

using namespace std::string_literals;

static std::string Header; // the board's sheader.bin
static std::string Name;   // mode and name of the file opened last
static std::string Unread; // of that file

// Open, read and close of a file.
static void answer(const CAN_FRAME &Frame)
{
    const int Function = Frame.Data[0] & MASK_FUNCTION;
    const bool Multi = (Frame.Identifier & ID_MULTI_FRAME) != 0;
    if (!Multi || (Frame.Data[1] & SEQ_FIRST) != 0)
        Name.clear();
    Name.append(Frame.Data + (Multi ? 2 : 1), Frame.Data + Frame.Length);
    if (Multi && (Frame.Data[1] & SEQ_COUNT) != 0)
        return; // more of the name follows
    std::string Answer(1, static_cast<char>(Function));
    if (Function == 0) {
        require(ctrl_SafeName(Name.c_str() + 1), "a file outside: " + Name.substr(1));
        Unread = Name == "\0sheader.bin\0"s ? Header : "";
        Answer +=
            "\0\0\0"s + static_cast<char>(Unread.size() >> 8) + static_cast<char>(Unread.size());
    } else if (Function == 2 && Unread.empty()) {
        Answer = "\x42\x85"s; // the end of the file
    } else if (Function == 2) {
        Answer += "\0"s + Unread.substr(0, NB_FILE_READ);
        Unread.erase(0, NB_FILE_READ);
    } else {
        Answer += "\0"s;
    }
    receive_Answer(MT_FILEMANAGE, 1, Answer);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    Header.assign(pData, pData + std::min<size_t>(Size, 0xFFFF));
    // The one size that a mutation keeps true.
    if (Size > 6 && Header.compare(2, 4, "\xFF\xFF\xFF\xFF") == 0)
        Header.replace(2, 4, {0, 0, static_cast<char>(Size >> 8), static_cast<char>(Size)});
    start_Machine(1);
    FakeCan.OnSend = answer;
    // The assertion: fewer records than the largest tag that is asked for.
    run_Loader({"pSHeader->nb_SwInfo > Tag"}, [] { get_SlaveDistribution(1); });
    stop_Machine();
    return 0;
}

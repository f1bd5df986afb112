// Information records. The input is a row of answers, each a length byte and that many bytes:
// Fn, of which bit 6 (an error answer) counts, answer code, record. The records are converted; then
// a board tells its distribution name with the first four answers, and three boards their protocols
// with the first three. Boards without an answer are silent.
#include "FileTools.h"
#include "InterfacesCan.h"
#include "MT_Info.h"
#include "Status.h"
#include "Support.h"
#include <cstring>
#include <memory>

static std::vector<std::string> Answers;
static size_t NbAsked;

static void convert(const std::string &Answer)
{
    if (Answer.size() < 2)
        return;
    const size_t NbRecord = Answer.size() - 2;
    const auto pRecord = std::make_unique<uint8_t[]>(NbRecord); // to the byte: overruns show
    memcpy(pRecord.get(), Answer.data() + 2, NbRecord);
    std::string Whole;
    for (const unsigned SizeText : {766u, 40u, 1u}) {
        const auto pText = std::make_unique<char[]>(SizeText);
        const int Status = Info2string(pRecord.get(), static_cast<int>(NbRecord), pText.get(),
                                       static_cast<int>(SizeText));
        require(memchr(pText.get(), 0, SizeText) != nullptr, "a text without its end");
        if (SizeText == 766)
            Whole = pText.get();
        require(Status == 0 ? pText.get() == Whole : Status == GEN_ERR_FORMAT && pText[0] == '\0',
                "a text that is cut");
    }
    int32_t Value = 1;
    const int Status = Info2long(pRecord.get(), static_cast<int>(NbRecord), &Value);
    require(Status == 0 || (Status == GEN_ERR_FORMAT && Value == 0), "Info2long");
}

static void answer_Next(BM_SLAVE_CAST Sender)
{
    if (NbAsked < Answers.size() && !Answers[NbAsked].empty()) {
        std::string Answer = Answers[NbAsked];
        Answer[0] = static_cast<char>((Answer[0] & FLAG_ACK) | (INFO_SOFTWARE & MASK_FUNCTION));
        receive_Answer(MT_INFO, Sender, Answer);
    }
    NbAsked++;
}

static void name_Distribution()
{
    char Name[DISTRIBUTION_SIZE];
    NbAsked = 0;
    FakeCan.OnSend = [](const CAN_FRAME &) { answer_Next(2); };
    if (make_DistributionName_FromSlave(2, Name) == 0)
        require(ctrl_SafeDistributionName(Name), "a name for the shell");
}

static void agree_Protocol()
{
    TimeoutMask = ReplaceSlavesMask = NoDistributionMask = 0;
    Broadcast[CAN_A].ProtocolStructure = 4;
    Broadcast[CAN_A].ProtocolParam1 = 2;
    Broadcast[CAN_A].ProtocolParam2 = 5;
    NbAsked = 0;
    FakeCan.OnSend = [](const CAN_FRAME &) {
        for (const BM_SLAVE_CAST Sender : {1u, 2u, 4u})
            answer_Next(Sender);
    };
    const int Level = get_Protocol_FromSlaves(CAN_A) == 0 ? Broadcast[CAN_A].ProtocolLevel : 2;
    require(Level >= 2 && Level <= 5, "a level that the application does not speak");
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t Size)
{
    Answers.clear();
    for (const uint8_t *pEnd = pData + Size; pData < pEnd; pData += Answers.back().size()) {
        const size_t Length = *pData++;
        Answers.emplace_back(pData,
                             pData + std::min<size_t>(Length, static_cast<size_t>(pEnd - pData)));
    }
    start_Machine(3);
    run_Loader({}, [] {
        for (const std::string &Answer : Answers)
            convert(Answer);
        name_Distribution();
        agree_Protocol();
    });
    stop_Machine();
    return 0;
}

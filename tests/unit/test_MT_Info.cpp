#include "Bench.h"
#include "MT_Info.h"
#include "Reports.h"
#include "Status.h"
#include <unistd.h>

static std::string make_Text(const std::string &Header, const std::string &Text)
{
    return Header + " " + to_Hex(reinterpret_cast<const uint8_t *>(Text.data()), int(Text.size()));
}

// A record as a number, or as a text of 16 bytes; "! " and the report of a failure, which leaves 0
// and no text.
static std::string convert(const std::vector<uint8_t> &Record, bool ToLong)
{
    char Text[16] = "earlier text";
    int32_t Value = 99;
    const int NbRecord = int(Record.size());
    int Status = 0;
    const std::string Reports = get_Reports([&] {
        Status = ToLong ? Info2long(Record.data(), NbRecord, &Value)
                        : Info2string(Record.data(), NbRecord, Text, sizeof Text);
    });
    std::string Result = ToLong ? std::to_string(Value) : Text;
    if (Status == 0 && Reports.empty())
        return Result;
    EXPECT_EQ(Status, GEN_ERR_FORMAT) << Reports;
    EXPECT_EQ(Result, ToLong ? "0" : "") << Reports;
    return Reports.substr(0, Reports.size() - 1).replace(0, strlen("MT_Info: Erreur :"), "!");
}

TEST(MT_Info, Conversions)
{
    const std::string Format = "! Info2string - Format", Digits = "123456789012345";
    const std::string NoText = Format + " time_t - Ne doit pas exister";
    const std::string NoLong = "! Info2long - Format", TooLong = "! Info2long - Float trop long";
    const std::string Cases[][4] = {
        {"char is signed", "00 01 01 C8", "200", "200"},
        {"Len of char", "00 02 01 01 01", Format + " char", NoLong + " char"},
        {"short sign", "00 02 02 FF FE", "-2", "65534"},
        {"unsigned printed", "00 02 82 01 02", "", "258"},
        {"Len of short", "00 01 02 01", Format + " short", NoLong + " short"},
        {"long of 64 bits", "00 04 03 80 00 00 00", "-2147483648", "-2147483648"},
        {"unsigned clamped", "00 04 83 FF FF FF FE", "", "-2"},
        {"long beyond answer", "00 04 03 01 02 03", Format + " long", NoLong + " long"},
        {"digit is a number", "00 01 04 37", "7", NoLong + " char ascii"},
        {"Len of ascii", "00 00 04", Format + " char ascii", NoLong + " char ascii"},
        {"text beyond Len", "00 02 05 31 32 33", "12", "12"},
        {"text behind NUL", "00 04 05 31 00 32 33", "1", "1"},
        {"number in a text", make_Text("00 05 05", " -7 x"), " -7 x", "-7"},
        {"no number", make_Text("00 03 05", "A12"), "A12", "! Info2long(A12) - Pas numérique"},
        {"above 32 bits", make_Text("00 0A 05", "3000000000"), "3000000000", "2147483647"},
        {"below 32 bits", make_Text("00 0B 05", "-3000000000"), "-3000000000", "-2147483648"},
        {"unsigned text", make_Text("00 0A 85", "3000000000"), "", "-1294967296"},
        {"unsigned above", make_Text("00 0A 85", "4294967297"), "", "-1"},
        {"unsigned minus", make_Text("00 02 85", "-5"), "", "-5"},
        {"text fits", make_Text("00 0F 05", Digits), Digits, "2147483647"},
        {"text cut", make_Text("00 10 05", Digits + "6"), Format, "2147483647"},
        {"text beyond answer", "00 04 05 31", Format, NoLong},
        {"bytes", "00 02 06 01 0A", " 01 0A", "! Type = 6 ne doit pas exister"},
        {"bytes cut", "00 06 08 01 02 03 04 05 06", Format, "! Type = 8 ne doit pas exister"},
        {"float order", "00 04 07 00 00 C0 BF", "-1.500000", "-1"},
        {"float Len", "00 03 07 00 00 C0", Format + " float", NoLong + " float"},
        {"float limit", "00 04 07 00 00 00 4F", Format + " float", "2147483647"},
        {"float above", "00 04 07 01 00 00 4F", Format + " float", TooLong},
        {"float below", "00 04 07 00 00 80 FF", "-inf", "-2147483648"},
        {"float NaN", "00 04 07 00 00 C0 7F", "nan", "0"},
        {"unsigned float", "00 04 87 5E D0 32 4F", "", "-1294967296"},
        {"unsigned limit", "00 04 87 00 00 80 4F", "", "-1"},
        {"unsigned too long", "00 04 87 01 00 80 4F", "", TooLong},
        {"unsigned below 0", "00 04 87 00 00 80 BF", "", "0"},
        {"time order", "00 04 09 66 00 00 01", NoText, "1711276033"},
        {"unsigned time", "00 04 89 00 00 00 01", "", NoLong + " time_t"},
        {"unknown type", "00 01 0A 07", "", "0"},
        {"absent bytes", "00", "", "0"},
    };
    for (const auto &[Fault, Record, Text, Long] : Cases) {
        EXPECT_EQ(convert(from_Hex(Record), false), Text) << Fault;
        EXPECT_EQ(convert(from_Hex(Record), true), Long) << Fault;
    }
}

// A status and the masks of time-outs, boards to replace and boards without distribution: "-1 200".
static std::string get_Result(int Status)
{
    std::ostringstream Result;
    Result << Status << ' ' << TimeoutMask << ReplaceSlavesMask << NoDistributionMask;
    return Result.str();
}

// Absent, silent and faulty boards taken for each other; an answer that is left for the next read.
TEST_F(BENCH, ReadOfOneItem)
{
    Script = {{{2, "00 00 04 02 02 01 2C"}}, {{2, "40 80"}}, {{2, "00 00 04 01 02 01"}}, {}};
    int32_t Value = 0;
    EXPECT_EQ(get_Result(get_Long_Info_FromSlave(2, INFO_HARDWARE, 4, &Value)), "0 000");
    EXPECT_EQ(Value, 300);
    for (const char *Result : {"-490 000", "-1 020", "-1 220"}) {
        EXPECT_EQ(get_Result(get_Long_Info_FromSlave(2, INFO_HARDWARE, 4, &Value)), Result);
        EXPECT_NE(get_pAns(&Cmd, &pAns2Cmd), 1) << "the answer that did not convert";
    }
    EXPECT_EQ(get_Sent(), std::vector<std::string>(4, "181043F0#40 04"));

    Script = {{{1, "41 05"}}};
    EXPECT_EQ(get_Result(get_Info_FromSlave(1, INFO_SOFTWARE, 2)), "-491 230");
    for (const BM_SLAVE_CAST Wrong : {0, 3, 8}) // none, two, one that is on no interface
        EXPECT_EQ(get_Info_FromSlave(Wrong, INFO_SOFTWARE, 2), GEN_ERR_PRG_VANTREL);
    EXPECT_EQ(FakeCan.Sent.size(), 5u);
    EXPECT_EXIT(get_Long_Info_FromSlave(3, 64, 4, &Value), testing::ExitedWithCode(126), "");
}

// A lost extreme, a slave that is not asked, a lesser trouble that hides a greater one.
TEST_F(BENCH, MinMaxOverSlaves)
{
    const char *const Silent = "", *const Unknown = "40 80", *const Refused = "40 05";
    const char *const Minus2 = "00 00 02 04 03 FF FF FF FE", *const Seven = "00 00 02 01 01 07";
    const char *const Damaged = "00 00 02 02 01 07";
    const std::tuple<const char *, const char *, const char *, int, int32_t, int32_t> Cases[] = {
        {Seven, Minus2, Seven, 0, -2, 7},
        {Unknown, Seven, Unknown, -490, 7, 7},
        {Damaged, Silent, Minus2, -493, -2, -2},
        {Silent, Unknown, Damaged, -493, INT32_MAX, INT32_MIN},
        {Silent, Refused, Silent, -491, INT32_MAX, INT32_MIN},
    };
    int32_t Min = 0, Max = 0;
    for (const auto &[First, Second, Third, Status, Lowest, Highest] : Cases) {
        FakeCan.Sent.clear();
        Script = {{{1, First}}, {{2, Second}}, {{4, Third}}};
        EXPECT_EQ(get_Info_MinMax_FromSlaves(7, 0, 2, &Min, &Max), Status);
        EXPECT_EQ(std::pair(Min, Max), std::pair(Lowest, Highest));
        EXPECT_EQ(get_Sent(),
                  (std::vector<std::string>{"180843F0#40 02", "181043F0#40 02", "180883F0#40 02"}));
    }
    Groups[CAN_A].Mask = 3; // board 2 is on no interface
    EXPECT_EXIT((dup2(2, 1), get_Info_MinMax_FromSlaves(4, 0, 2, &Min, &Max)),
                testing::ExitedWithCode(126),
                "FATAL - Status : -898 - Slave: 0000000000000004\n"
                ".*Function : 0x00   Tag : 2\n");
}

// A write with wrong bytes, or one that a board refused and that passes for done.
TEST_F(BENCH, WriteOfOneItem)
{
    static const uint8_t Map[UINT16_MAX] = {0x01, 0x0A};
    Script = {{{2, "20 00"}}, {{2, "60 05"}}, {}};
    EXPECT_EQ(set_Info_ToSlave(2, INFO_WRITE_HARDWARE, 1, 6, 2, Map), 0);
    EXPECT_EQ(get_Sent(), std::vector<std::string>{"181043F0#60 01 02 06 01 0A"});
    EXPECT_EQ(get_Result(set_Info_ToSlave(2, INFO_WRITE_HARDWARE, 1, 6, 2, Map)), "-492 020");
    EXPECT_EQ(get_Result(set_Info_ToSlave(4, INFO_WRITE_HARDWARE, 1, 6, 765, Map)), "-493 420");
    EXPECT_EQ(Cmd.NbP, 768);
    EXPECT_EQ(to_Hex(Cmd.pP, 4), "01 FD 06 01");
    // Just above, and where NbP would turn negative or start again at 0.
    for (const uint16_t Len : std::initializer_list<uint16_t>{766, 32765, 65535})
        EXPECT_DEATH(set_Info_ToSlave(4, INFO_WRITE_HARDWARE, 1, 6, Len, Map),
                     "InterfacesCan:.*pMsg->NbP <= 768");
}

// A name that is cut, lets a board's text into the shell, or is taken although an item is missing.
TEST_F(BENCH, DistributionName)
{
    const std::string Long(33, 'N');
    const char *const One = "01 00 03 02 02 00 01";
    // Fault, the board's name and version item 4, status, name of the distribution.
    const std::tuple<const char *, std::string, const char *, int, std::string> Cases[] = {
        {"not joined", "ABC", "01 00 04 02 02 01 2C", 0, "ABC.1.300.1"},
        {"39 characters refused", Long, One, 0, Long + ".1.1.1"},
        {"40 characters taken", Long + "N", One, -895, Long + "N.1.1"},
        {"long name cut", Long + Long, One, -895, ""},
        {"slash", "A/B", One, -895, "A/B.1.1.1"},
        {"unknown item", "ABC", "41 80", -490, "ABC.1"},
    };
    char Name[DISTRIBUTION_SIZE];
    for (const auto &[Fault, Mnemo, Third, Status, Expected] : Cases) {
        const auto Size = static_cast<uint8_t>(Mnemo.size());
        const std::string Header = "01 00 02 " + to_Hex(&Size, 1) + " 05";
        Script = {{{4, make_Text(Header, Mnemo)}}, {{4, One}}, {{4, Third}}, {{4, One}}};
        EXPECT_EQ(make_DistributionName_FromSlave(4, Name), Status) << Fault;
        EXPECT_EQ(Name, Expected) << Fault;
        EXPECT_NE(get_pAns(&Cmd, &pAns2Cmd), 1) << "answer kept: " << Fault;
    }
    EXPECT_EQ(make_DistributionName_FromSlave(0, Name), GEN_ERR_PRG_VANTREL);
}

// A level that a slave or the application does not know; a slave in the wrong list.
TEST_F(BENCH, ProtocolOfAnInterface)
{
    const char *const From1To5 = "01 00 0B 06 06 FF 01 05 00 00 00";
    const char *const From3To9 = "01 00 0B 09 06 04 00 09 FF 03 09 00 00 00";
    const char *const Any = "01 00 0B 05 06 FF 00 FF 00 00";
    const char *const Silent = "";
    struct {
        const char *Fault;
        std::string Second, Third; // answers of boards 1 and 2; board 0 accepts 1 to 5
        uint16_t Param1, Param2;
        int Level;
        const char *Result;
    } const Cases[] = {
        {"level", From3To9, Any, 2, 4, 4, "0 000"},
        {"level above a slave's", From3To9, Any, 2, 9, 5, "0 000"},
        {"application too new", From3To9, Any, 6, 9, -1, "-1 000"},
        {"application too old", From3To9, Any, 0, 2, -1, "-1 000"},
        {"application unset", Any, Any, 0xFFFF, 0xFFFF, -1, "-1 000"},
        {"slaves apart", "01 00 0B 05 06 FF 06 09 00 00", Any, 0, 9, -1, "-1 000"},
        {"structure unknown", "01 00 0B 05 06 04 00 09 00 00", Any, 0, 9, -1, "-1 000"},
        {"last triple read", "01 00 0B 03 06 FF 00 09", Any, 0, 9, -1, "-1 000"},
        {"triple cut", "01 00 0B 0C 06 04 00 09 04 00 09 FF 00", Any, 0, 9, -1, "-1 000"},
        {"odd length", "01 00 0B 07 06 FF 00 09 00 00 00 00", Any, 0, 9, -1, "-490 002"},
        {"not bytes", "01 00 0B 05 05 FF 00 09 00 00", Any, 0, 9, -1, "-490 002"},
        {"item unknown", Any, "41 80", 0, 9, -1, "-490 004"},
        {"silence", "41 80", Silent, 0, 9, -1, "-493 402"},
        {"error", "41 05", Silent, 0, 9, -1, "-491 420"},
    };
    for (const auto &Case : Cases) {
        TimeoutMask = ReplaceSlavesMask = NoDistributionMask = 0;
        FakeCan.Sent.clear();
        Groups[CAN_A].ProtocolStructure = 255;
        Groups[CAN_A].ProtocolLevel = -1;
        Groups[CAN_A].ProtocolParam1 = Case.Param1;
        Groups[CAN_A].ProtocolParam2 = Case.Param2;
        Script = {{{2, Case.Second}, {1, From1To5}, {4, Case.Third}}};
        EXPECT_EQ(get_Result(get_Protocol_FromSlaves(CAN_A)), Case.Result) << Case.Fault;
        EXPECT_EQ(Groups[CAN_A].ProtocolLevel, Case.Level) << Case.Fault;
        EXPECT_EQ(get_Sent(), std::vector<std::string>{"180003F0#41 0B"}) << Case.Fault;
    }
}

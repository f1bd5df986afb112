#include "qxdist/Header.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <set>
#include <string_view>

namespace qxdist
{

namespace
{

constexpr std::uint16_t SIGNATURE = 0x0601;
constexpr std::size_t NB_FIXED = 30; // bytes before the tables
constexpr std::size_t NB_NAME_MAX = 39;
constexpr std::string_view SIZE_MARK{"qxdist\0", 7}; // behind the size in a file's 11 bytes

// What a value must look like, by type number.
struct TypeRule {
    const char *Name;
    std::size_t Length; // 0: any
};
constexpr std::array<TypeRule, 10> TYPE_RULES = {{{"", 0},
                                                  {"char", 1},
                                                  {"short", 2},
                                                  {"long", 4},
                                                  {"char ascii", 1},
                                                  {"text", 0},
                                                  {"bytes", 0},
                                                  {"float", 4},
                                                  {"bytes", 0},
                                                  {"time_t", 4}}};

unsigned get_TypeNumber(std::uint8_t Type)
{
    return Type & 0x7Fu;
}

bool is_Unsigned(std::uint8_t Type)
{
    return (Type & 0x80u) != 0;
}

bool is_Integer(std::uint8_t Type)
{
    const unsigned Number = get_TypeNumber(Type);
    return Number == 1 || Number == 2 || Number == 3 || Number == 9;
}

void append_Number(Bytes &To, std::uint32_t Number, std::size_t Width)
{
    for (; Width > 0; --Width)
        To.push_back(static_cast<std::uint8_t>(Number >> (8 * (Width - 1))));
}

std::uint32_t get_Number(const Bytes &From, std::size_t Offset, std::size_t Width)
{
    std::uint32_t Number = 0;
    for (; Width > 0; --Width)
        Number = Number << 8 | From[Offset++];
    return Number;
}

Bytes make_Bytes(std::string_view Text)
{
    return {Text.begin(), Text.end()};
}

Bytes parse_Hexadecimal(const std::string &Text)
{
    if (Text.size() % 2 != 0)
        throw Error("'" + Text + "' is not made of pairs of hexadecimal digits");
    Bytes Value;
    for (std::size_t i = 0; i < Text.size(); i += 2) {
        std::uint8_t Byte{};
        const char *const pEnd = Text.data() + i + 2;
        if (std::from_chars(Text.data() + i, pEnd, Byte, 16).ptr != pEnd)
            throw Error("'" + Text + "' is not made of pairs of hexadecimal digits");
        Value.push_back(Byte);
    }
    return Value;
}

Bytes parse_Integer(const std::string &Text, std::uint8_t Type)
{
    const std::size_t Width = TYPE_RULES[get_TypeNumber(Type)].Length;
    const std::int64_t Range = std::int64_t{1} << (8 * Width);
    const std::int64_t Low = is_Unsigned(Type) ? 0 : -Range / 2;
    const std::int64_t High = is_Unsigned(Type) ? Range : Range / 2;
    std::int64_t Number{};
    const char *const pEnd = Text.data() + Text.size();
    const auto Parsed = std::from_chars(Text.data(), pEnd, Number);
    if (Parsed.ec != std::errc{} || Parsed.ptr != pEnd || Number < Low || Number >= High)
        throw Error("'" + Text + "' is not a number from " + std::to_string(Low) + " to " +
                    std::to_string(High - 1));
    Bytes Value;
    append_Number(Value, static_cast<std::uint32_t>(Number), Width);
    return Value;
}

// The four bytes travel in the order that the master's processor keeps them in: lowest first.
Bytes parse_Float(const std::string &Text)
{
    float Number{};
    const char *const pEnd = Text.data() + Text.size();
    if (std::from_chars(Text.data(), pEnd, Number).ptr != pEnd || Text.empty())
        throw Error("'" + Text + "' is not a number");
    Bytes Value;
    append_Number(Value, std::bit_cast<std::uint32_t>(Number), 4);
    std::reverse(Value.begin(), Value.end());
    return Value;
}

std::int64_t get_Integer(const Record &From)
{
    const std::size_t Width = From.Value.size();
    const std::int64_t Number = get_Number(From.Value, 0, Width);
    const std::int64_t Range = std::int64_t{1} << (8 * Width);
    return !is_Unsigned(From.Type) && Number >= Range / 2 ? Number - Range : Number;
}

bool fits_Type(const Record &Checked)
{
    const unsigned Number = get_TypeNumber(Checked.Type);
    if (Number == 0 || Number >= TYPE_RULES.size())
        return false;
    const std::size_t Length = TYPE_RULES[Number].Length;
    return Length == 0 || Length == Checked.Value.size();
}

const Record *find_Record(const Header &In, std::uint8_t Tag)
{
    const auto Found = std::find_if(In.Records.begin(), In.Records.end(),
                                    [Tag](const Record &Each) { return Each.Tag == Tag; });
    return Found == In.Records.end() ? nullptr : &*Found;
}

const Record &get_Record(const Header &In, std::uint8_t Tag)
{
    const Record *const pFound = find_Record(In, Tag);
    if (pFound == nullptr)
        throw Error("the header has no record with tag " + std::to_string(Tag));
    return *pFound;
}

bool is_Safe(const std::string &Name)
{
    constexpr std::string_view UNSAFE = "`\"'\\$;&|<>(){}[]*?!#~^ \x7F";
    const auto is_Unsafe = [UNSAFE](char Character) {
        return static_cast<unsigned char>(Character) < 0x20 ||
               UNSAFE.find(Character) != std::string_view::npos;
    };
    if (Name.starts_with('-') || std::any_of(Name.begin(), Name.end(), is_Unsafe))
        return false;
    for (std::size_t Start = 0;;) {
        const std::size_t Slash = std::min(Name.find('/', Start), Name.size());
        const std::string Component = Name.substr(Start, Slash - Start);
        if (Component.empty() || Component == "." || Component == "..")
            return false;
        if (Slash == Name.size())
            return true;
        Start = Slash + 1;
    }
}

void check_Range(const Bytes &Content, std::size_t Offset, std::size_t Length, const char *What)
{
    if (Offset > Content.size() || Content.size() - Offset < Length)
        throw Error(std::string("the header ends inside ") + What);
}

std::vector<Record> parse_Records(const Bytes &Content, std::size_t Offset, unsigned Count)
{
    std::vector<Record> Records;
    for (; Count > 0; --Count) {
        check_Range(Content, Offset, 3, "its records");
        const std::uint8_t Length = Content[Offset + 1];
        check_Range(Content, Offset + 3, Length, "its records");
        const auto Value = Content.begin() + static_cast<std::ptrdiff_t>(Offset) + 3;
        Records.push_back({Content[Offset], Content[Offset + 2], {Value, Value + Length}});
        Offset += 3u + Length;
    }
    return Records;
}

std::vector<ListedFile> parse_Files(const Bytes &Content, std::size_t Offset, unsigned Count)
{
    std::vector<ListedFile> Files;
    for (; Count > 0; --Count) {
        check_Range(Content, Offset, 11, "its file list");
        ListedFile File;
        if (std::equal(SIZE_MARK.begin(), SIZE_MARK.end(), &Content[Offset + 4]))
            File.Size = get_Number(Content, Offset, 4);
        for (Offset += 11;; ++Offset) {
            check_Range(Content, Offset, 1, "its file list");
            if (Content[Offset] == 0)
                break;
            File.Name += static_cast<char>(Content[Offset]);
        }
        ++Offset;
        Files.push_back(std::move(File));
    }
    return Files;
}

std::size_t parse_Offset(const Bytes &Content, std::size_t Field, const char *What)
{
    const std::size_t Offset = get_Number(Content, Field, 4);
    if (Offset >= Content.size())
        throw Error(std::string("the offset of ") + What + ", " + std::to_string(Offset) +
                    ", lies outside the header of " + std::to_string(Content.size()) + " bytes");
    return Offset;
}

} // namespace

Record make_Record(std::uint8_t Tag, std::uint8_t Type, const std::string &Text)
{
    Record Made{Tag, Type, {}};
    switch (get_TypeNumber(Type)) {
    case 1:
    case 2:
    case 3:
    case 9:
        Made.Value = parse_Integer(Text, Type);
        break;
    case 4:
    case 5:
        Made.Value = make_Bytes(Text);
        break;
    case 6:
    case 8:
        Made.Value = parse_Hexadecimal(Text);
        break;
    case 7:
        Made.Value = parse_Float(Text);
        break;
    default:
        break;
    }
    if (!fits_Type(Made))
        throw Error("'" + Text + "' is no value of type " + std::to_string(Type));
    if (Made.Value.size() > NB_VALUE_MAX)
        throw Error("the value of tag " + std::to_string(Tag) + " has more than " +
                    std::to_string(NB_VALUE_MAX) + " bytes");
    return Made;
}

Record make_ShortRecord(std::uint8_t Tag, unsigned Value)
{
    Record Made{Tag, TYPE_SHORT, {}};
    append_Number(Made.Value, Value, 2);
    return Made;
}

Record make_TypesRecord(const std::vector<std::uint8_t> &Types)
{
    Record Made{TAG_TYPES, TYPE_BYTES, {}};
    for (const std::uint8_t Type : Types) {
        Made.Value.resize(std::max<std::size_t>(Made.Value.size(), Type / 8u + 1u));
        Made.Value[Type / 8u] |= static_cast<std::uint8_t>(1u << Type % 8u);
    }
    return Made;
}

std::string show_Type(std::uint8_t Type)
{
    const unsigned Number = get_TypeNumber(Type);
    if (Number == 0 || Number >= TYPE_RULES.size())
        return "type " + std::to_string(Type);
    return (is_Unsigned(Type) ? "unsigned " : "") + std::string(TYPE_RULES[Number].Name);
}

std::string show_Value(const Record &Shown)
{
    const unsigned Number = get_TypeNumber(Shown.Type);
    if (fits_Type(Shown) && is_Integer(Shown.Type))
        return std::to_string(get_Integer(Shown));
    if (fits_Type(Shown) && (Number == 4 || Number == 5)) {
        std::string Text(Shown.Value.begin(), Shown.Value.end());
        std::replace_if(
            Text.begin(), Text.end(),
            [](char Character) { return static_cast<unsigned char>(Character) < 0x20; }, '?');
        return Text;
    }
    if (fits_Type(Shown) && Number == 7) {
        Bytes Value = Shown.Value;
        std::reverse(Value.begin(), Value.end());
        return std::to_string(std::bit_cast<float>(get_Number(Value, 0, 4)));
    }
    std::string Text;
    for (const std::uint8_t Byte : Shown.Value) {
        std::array<char, 3> Pair{};
        std::snprintf(Pair.data(), Pair.size(), "%02X", Byte);
        Text += Pair.data();
    }
    return Text;
}

Bytes make_Header(const Header &Written)
{
    Bytes Records;
    for (const Record &Each : Written.Records) {
        append_Number(Records, Each.Tag, 1);
        append_Number(Records, static_cast<std::uint32_t>(Each.Value.size()), 1);
        append_Number(Records, Each.Type, 1);
        Records.insert(Records.end(), Each.Value.begin(), Each.Value.end());
    }
    Bytes Files;
    for (const ListedFile &Each : Written.Files) {
        append_Number(Files, Each.Size.value_or(0), 4);
        const std::string Rest =
            (Each.Size ? std::string(SIZE_MARK) : std::string(7, '\0')) + Each.Name + '\0';
        Files.insert(Files.end(), Rest.begin(), Rest.end());
    }
    // An offset must lie in the header, also that of an empty list: the records come last.
    Bytes Content;
    append_Number(Content, SIGNATURE, 2);
    append_Number(Content, static_cast<std::uint32_t>(NB_FIXED + Files.size() + Records.size()), 4);
    append_Number(Content, static_cast<std::uint32_t>(NB_FIXED + Files.size()), 4);
    append_Number(Content, static_cast<std::uint32_t>(Written.Records.size()), 2);
    append_Number(Content, NB_FIXED, 4);
    append_Number(Content, static_cast<std::uint32_t>(Written.Files.size()), 2);
    Content.resize(NB_FIXED);
    Content.insert(Content.end(), Files.begin(), Files.end());
    Content.insert(Content.end(), Records.begin(), Records.end());
    return Content;
}

Header parse_Header(const Bytes &Content)
{
    if (Content.size() < NB_FIXED)
        throw Error("the header has only " + std::to_string(Content.size()) + " bytes");
    if (get_Number(Content, 0, 2) != SIGNATURE)
        throw Error("the header does not begin with the signature 06 01");
    if (get_Number(Content, 2, 4) != Content.size())
        throw Error("the header says that it has " + std::to_string(get_Number(Content, 2, 4)) +
                    " bytes, but it has " + std::to_string(Content.size()));
    const std::size_t Records = parse_Offset(Content, 6, "the records");
    const std::size_t Files = parse_Offset(Content, 12, "the file list");
    return {parse_Records(Content, Records, get_Number(Content, 10, 2)),
            parse_Files(Content, Files, get_Number(Content, 16, 2))};
}

std::string get_DistributionName(const Header &Named)
{
    const Record &NameRecord = get_Record(Named, TAG_NAME);
    std::string Name = show_Value(NameRecord);
    if (NameRecord.Type != TYPE_TEXT || !is_Safe(Name) || Name.find('/') != std::string::npos)
        throw Error("the name '" + Name + "' (tag 2) is not one for a file");
    for (std::uint8_t Tag = TAG_VERSION; Tag <= TAG_ASKED_MAX; ++Tag) {
        const Record &Version = get_Record(Named, Tag);
        if (!fits_Type(Version) || !is_Integer(Version.Type) || get_Integer(Version) < 0 ||
            get_Integer(Version) > 255)
            throw Error("tag " + std::to_string(Tag) + ", a part of the version, is '" +
                        show_Value(Version) + "' and not a number from 0 to 255");
        Name += "." + show_Value(Version);
    }
    if (Name.size() > NB_NAME_MAX)
        throw Error("the distribution's name " + Name + " has more than " +
                    std::to_string(NB_NAME_MAX) + " characters");
    return Name;
}

std::string check_FileName(const std::string &Name)
{
    const std::string Quoted = "the file name '" + Name + "' ";
    if (Name.empty())
        return "a file name is empty";
    if (Name.size() > NB_FILE_NAME_MAX)
        return Quoted + "has more than " + std::to_string(NB_FILE_NAME_MAX) + " characters";
    if (!is_Safe(Name))
        return Quoted + "begins with '-', holds a blank or a character that a shell obeys, or is "
                        "no path below the folder";
    if (Name.starts_with('.'))
        return Quoted + "begins with a dot: it gets lost when the loader saves the distribution";
    return "";
}

std::vector<std::string> check_Header(const Header &Checked)
{
    std::vector<std::string> Problems;
    if (Checked.Records.size() <= TAG_ASKED_MAX)
        Problems.push_back("the header has " + std::to_string(Checked.Records.size()) +
                           " records; the loader stops at one with fewer than " +
                           std::to_string(TAG_ASKED_MAX + 1));
    try {
        static_cast<void>(get_DistributionName(Checked));
    } catch (const Error &Fault) {
        Problems.emplace_back(Fault.what());
    }
    std::set<std::uint8_t> Tags;
    for (const Record &Each : Checked.Records) {
        const std::string Tag = "tag " + std::to_string(Each.Tag);
        if (!Tags.insert(Each.Tag).second)
            Problems.push_back(Tag + " is there twice");
        if (Each.Value.size() > NB_VALUE_MAX)
            Problems.push_back(Tag + " has a value of more than " + std::to_string(NB_VALUE_MAX) +
                               " bytes");
        if (!fits_Type(Each))
            Problems.push_back(Tag + " has a value of " + std::to_string(Each.Value.size()) +
                               " bytes, which " + show_Type(Each.Type) + " never has");
    }
    std::set<std::string> Names;
    for (const ListedFile &Each : Checked.Files) {
        if (const std::string Problem = check_FileName(Each.Name); !Problem.empty())
            Problems.push_back(Problem);
        if (Each.Name == NAME_HEADER || !Names.insert(Each.Name).second)
            Problems.push_back("the file '" + Each.Name + "' is listed twice");
    }
    return Problems;
}

} // namespace qxdist

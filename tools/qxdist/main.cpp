// qxdist: makes, lists and checks software distributions.
#include "qxdist/Archive.h"

#include <algorithm>
#include <charconv>
#include <getopt.h>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace
{

using namespace qxdist;

constexpr int EXIT_USAGE = 2;

constexpr char HELP[] =
    R"(Usage: qxdist pack  -o OUTDIR DIR --name N --version V --sub-version S --compilation C [OPTION]...
       qxdist stage -o OUTDIR DIR --name N --version V --sub-version S --compilation C [OPTION]...
       qxdist list ARCHIVE
       qxdist verify ARCHIVE...
Make, list and check software distributions.

pack     writes OUTDIR/N.V.S.C.tar.gz, the files of DIR with their sheader.bin, as the loader keeps
         distributions in its store. The same input gives the same bytes.
stage    writes the same files, unpacked, into OUTDIR, as a board has them.
         A sheader.bin in DIR is not taken over; a new one is made.
list     prints the records of the header, then the files with their sizes.
verify   checks header, file list, sizes and the archive's name.

  -o, --output OUTDIR        where to write; made when it is missing
      --name N               name of the distribution, at most 39 characters with the version
      --version V            version, 0 to 255
      --sub-version S        sub-version, 0 to 255
      --compilation C        compilation, 0 to 255
      --types T[,T]...       types of board that the software serves, each 0 to 255 (tag 1)
      --index LOW-HIGH       hardware indices that it accepts, 0 to 32767 (tags 9 and 10); all of
                             them by default
      --record TAG:TYPE:VALUE
                             another record; may be given again. TYPE and VALUE: 1 char, 2 short,
                             3 long, 9 time: a number (add 128 to TYPE: unsigned); 4: a character;
                             5: a text; 6, 8: pairs of hexadecimal digits; 7: a float
  -h, --help                 this text

Exit status: 0 done, 1 failed or not in order, 2 wrong usage.
)";

// The command line cannot be understood.
class UsageError : public Error
{
  public:
    using Error::Error;
};

struct Request {
    std::filesystem::path Output;
    std::string Name;
    std::optional<std::vector<std::uint8_t>> Types;
    std::optional<unsigned> Version, SubVersion, Compilation;
    unsigned IndexLow{0};
    unsigned IndexHigh{32767};
    std::vector<Record> Others;
    std::vector<std::string> Operands;
};

unsigned parse_Number(const std::string &Text, unsigned Max, const std::string &What)
{
    unsigned Number{};
    const char *const pEnd = Text.data() + Text.size();
    const auto Parsed = std::from_chars(Text.data(), pEnd, Number);
    if (Parsed.ec != std::errc{} || Parsed.ptr != pEnd || Number > Max)
        throw UsageError(What + ": '" + Text + "' is not a number from 0 to " +
                         std::to_string(Max));
    return Number;
}

std::uint8_t parse_Byte(const std::string &Text, const std::string &What)
{
    return static_cast<std::uint8_t>(parse_Number(Text, 255, What));
}

std::vector<std::uint8_t> parse_Types(const std::string &Text)
{
    std::vector<std::uint8_t> Types;
    std::istringstream List(Text);
    for (std::string Word; std::getline(List, Word, ',');)
        Types.push_back(parse_Byte(Word, "--types"));
    return Types;
}

void parse_Index(const std::string &Text, Request &To)
{
    const std::size_t Dash = std::min(Text.find('-'), Text.size());
    To.IndexLow = parse_Number(Text.substr(0, Dash), 32767, "--index");
    To.IndexHigh =
        parse_Number(Dash < Text.size() ? Text.substr(Dash + 1) : Text, 32767, "--index");
    if (To.IndexLow > To.IndexHigh)
        throw UsageError("--index: " + Text + " is an empty range");
}

Record parse_Record(const std::string &Text)
{
    const std::size_t First = Text.find(':');
    const std::size_t Second = First == std::string::npos ? First : Text.find(':', First + 1);
    if (Second == std::string::npos)
        throw UsageError("--record: '" + Text + "' is not of the form TAG:TYPE:VALUE");
    const std::uint8_t Tag = parse_Byte(Text.substr(0, First), "--record, tag");
    const std::uint8_t Type =
        parse_Byte(Text.substr(First + 1, Second - First - 1), "--record, type");
    return make_Record(Tag, Type, Text.substr(Second + 1));
}

Request parse_Options(int NbWords, char **Words)
{
    enum : int { NAME = 256, VERSION, SUB_VERSION, COMPILATION, TYPES, INDEX, RECORD };
    static const option Options[] = {{"output", required_argument, nullptr, 'o'},
                                     {"name", required_argument, nullptr, NAME},
                                     {"version", required_argument, nullptr, VERSION},
                                     {"sub-version", required_argument, nullptr, SUB_VERSION},
                                     {"compilation", required_argument, nullptr, COMPILATION},
                                     {"types", required_argument, nullptr, TYPES},
                                     {"index", required_argument, nullptr, INDEX},
                                     {"record", required_argument, nullptr, RECORD},
                                     {nullptr, 0, nullptr, 0}};
    Request Asked;
    for (int Option; (Option = getopt_long(NbWords, Words, "o:", Options, nullptr)) != -1;) {
        switch (Option) {
        case 'o':
            Asked.Output = optarg;
            break;
        case NAME:
            Asked.Name = optarg;
            break;
        case VERSION:
            Asked.Version = parse_Byte(optarg, "--version");
            break;
        case SUB_VERSION:
            Asked.SubVersion = parse_Byte(optarg, "--sub-version");
            break;
        case COMPILATION:
            Asked.Compilation = parse_Byte(optarg, "--compilation");
            break;
        case TYPES:
            Asked.Types = parse_Types(optarg);
            break;
        case INDEX:
            parse_Index(optarg, Asked);
            break;
        case RECORD:
            Asked.Others.push_back(parse_Record(optarg));
            break;
        default: // getopt_long said what is wrong
            throw UsageError("");
        }
    }
    Asked.Operands.assign(Words + optind, Words + NbWords);
    return Asked;
}

// Every record of the header, in order of the tags.
std::vector<Record> make_Records(const Request &Asked)
{
    std::vector<Record> Records = Asked.Others;
    if (Asked.Types)
        Records.push_back(make_TypesRecord(*Asked.Types));
    Records.push_back(make_Record(TAG_NAME, TYPE_TEXT, Asked.Name));
    Records.push_back(make_ShortRecord(TAG_VERSION, *Asked.Version));
    Records.push_back(make_ShortRecord(TAG_VERSION + 1, *Asked.SubVersion));
    Records.push_back(make_ShortRecord(TAG_VERSION + 2, *Asked.Compilation));
    Records.push_back(make_ShortRecord(TAG_INDEX_LOW, Asked.IndexLow));
    Records.push_back(make_ShortRecord(TAG_INDEX_HIGH, Asked.IndexHigh));
    std::stable_sort(Records.begin(), Records.end(),
                     [](const Record &Left, const Record &Right) { return Left.Tag < Right.Tag; });
    return Records;
}

void make(const std::string &Command, const Request &Asked)
{
    if (Asked.Operands.size() != 1 || Asked.Output.empty() || Asked.Name.empty() ||
        !Asked.Version || !Asked.SubVersion || !Asked.Compilation)
        throw UsageError(Command + " needs one folder, -o, --name, --version, --sub-version and "
                                   "--compilation");
    const FileTable Files =
        make_Distribution(make_Records(Asked), read_Folder(Asked.Operands.front()));
    if (Command == "stage")
        write_Folder(Asked.Output, Files);
    else
        write_Archive(Asked.Output / (get_DistributionName(get_Header(Files)) + ".tar.gz"), Files);
}

void list(const Request &Asked)
{
    if (Asked.Operands.size() != 1)
        throw UsageError("list needs one archive");
    const std::string &Archive = Asked.Operands.front();
    FileTable Members;
    Header Listed;
    try {
        Members = read_Archive(Archive);
        Listed = get_Header(Members);
    } catch (const Error &Fault) {
        throw Error(Archive + ": " + Fault.what());
    }
    std::cout << "tag  type           value\n";
    for (const Record &Each : Listed.Records)
        std::cout << std::setw(3) << unsigned{Each.Tag} << "  " << std::left << std::setw(13)
                  << show_Type(Each.Type) << "  " << std::right << show_Value(Each) << '\n';
    std::cout << "\n     size  file\n";
    for (const auto &[Name, Content] : Members)
        std::cout << std::setw(9) << Content.size() << "  " << Name << '\n';
}

bool verify(const Request &Asked)
{
    if (Asked.Operands.empty())
        throw UsageError("verify needs an archive");
    bool Good = true;
    for (const std::string &Archive : Asked.Operands) {
        const std::vector<std::string> Problems = verify_Archive(Archive);
        for (const std::string &Problem : Problems)
            std::cerr << "qxdist: " << Archive << ": " << Problem << '\n';
        if (Problems.empty())
            std::cout << Archive << ": ok\n";
        Good = Good && Problems.empty();
    }
    return Good;
}

int run(int NbWords, char **Words)
{
    const std::string Command = NbWords > 1 ? Words[1] : "";
    for (int i = 1; i < NbWords; ++i) {
        if (std::string(Words[i]) == "--help" || std::string(Words[i]) == "-h") {
            std::cout << HELP;
            return EXIT_SUCCESS;
        }
    }
    if (Command != "pack" && Command != "stage" && Command != "list" && Command != "verify")
        throw UsageError(Command.empty() ? "what is to be done?"
                                         : "'" + Command + "' is no command of qxdist");
    Words[1] = Words[0]; // the name in the messages of getopt_long
    const Request Asked = parse_Options(NbWords - 1, Words + 1);
    if (Command == "verify")
        return verify(Asked) ? EXIT_SUCCESS : EXIT_FAILURE;
    if (Command == "list")
        list(Asked);
    else
        make(Command, Asked);
    return EXIT_SUCCESS;
}

} // namespace

int main(int NbWords, char **Words)
{
    try {
        return run(NbWords, Words);
    } catch (const UsageError &Fault) {
        if (*Fault.what() != '\0')
            std::cerr << "qxdist: " << Fault.what() << '\n';
        std::cerr << "Try 'qxdist --help'.\n";
        return EXIT_USAGE;
    } catch (const std::exception &Fault) {
        std::cerr << "qxdist: " << Fault.what() << '\n';
        return EXIT_FAILURE;
    }
}

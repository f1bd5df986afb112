#include "board/BoardFiles.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace qxsim
{

namespace
{

constexpr std::uint8_t ERROR_UNKNOWN = 128;
constexpr std::uint8_t ERROR_NOTHING_OPEN = 129;
constexpr std::uint8_t ERROR_ALREADY_OPEN = 130;
constexpr std::uint8_t ERROR_REFUSED = 131;
constexpr std::uint8_t ERROR_END_OF_FILE = 133;

std::uint32_t read_Number(const Command &Received, std::size_t First, std::size_t Count)
{
    std::uint32_t Number = 0;
    for (std::size_t i = First; i < First + Count; ++i) {
        Number = Number << 8 | Received.get_Byte(i);
    }
    return Number;
}

Answer make_LengthAnswer(std::uint32_t Length)
{
    return make_Success(
        {static_cast<std::uint8_t>(Length >> 24), static_cast<std::uint8_t>(Length >> 16),
         static_cast<std::uint8_t>(Length >> 8), static_cast<std::uint8_t>(Length)});
}

// The name of an open command, empty when it has no NUL.
std::string get_Name(const Command &Received)
{
    const auto &Bytes = Received.Parameters;
    const auto First = Bytes.begin() + (Bytes.empty() ? 0 : 1);
    const auto End = std::find(First, Bytes.end(), 0);
    return End == Bytes.end() ? std::string{} : std::string{First, End};
}

// A board keeps its files in one tree and makes none outside it.
bool is_WritableName(const std::string &Name)
{
    return Name.front() != '/' && ("/" + Name + "/").find("/../") == std::string::npos;
}

} // namespace

Answer FileService::serve_Command(const Command &Received, FileTable &Files, const Strikes &Struck)
{
    switch (Received.Function) {
    case 0:
        return open_File(Received, Files, Struck);
    case 1:
        return write_File(Received, Files, Struck);
    case 2:
        return read_File(Received, Files, Struck);
    case 3:
        return seek_File(Received, Files);
    case 4:
        return close_File(Files);
    default:
        return make_Error(ERROR_UNKNOWN);
    }
}

void FileService::restart()
{
    Open.reset();
    Expected.reset();
    Missing.clear();
}

std::optional<SoftwareHeader> FileService::take_Distribution()
{
    if (!Expected || !Missing.empty()) {
        return std::nullopt;
    }
    return std::exchange(Expected, std::nullopt);
}

Answer FileService::open_File(const Command &Received, FileTable &Files, const Strikes &Struck)
{
    if (!Open && find_Strike(Struck, FaultKind::AlreadyOpen) != nullptr) {
        Open = OpenFile{};
    }
    if (Open) {
        return make_Error(ERROR_ALREADY_OPEN);
    }
    const std::string Name = get_Name(Received);
    if (Name.empty() || Received.get_Byte(0) > static_cast<std::uint8_t>(Mode::Append)) {
        return make_Error(ERROR_REFUSED);
    }

    const auto Use = static_cast<Mode>(Received.get_Byte(0));
    if (Use == Mode::Read && !Files.contains(Name)) {
        return make_Error(ERROR_UNKNOWN);
    }
    if (Use != Mode::Read && !is_WritableName(Name)) {
        return make_Error(ERROR_REFUSED);
    }
    auto &Content = Files[Name];
    if (Use == Mode::Write) {
        Content.clear();
    }
    Open = OpenFile{Name, Use, Use == Mode::Append ? Content.size() : 0};

    const bool Negative = find_Strike(Struck, FaultKind::NegativeLength) != nullptr;
    return make_LengthAnswer(Negative ? UINT32_MAX : static_cast<std::uint32_t>(Content.size()));
}

// What the open file holds; nothing when it is the one that a fault says was forgotten.
const std::vector<std::uint8_t> &FileService::get_Content(const FileTable &Files) const
{
    static const std::vector<std::uint8_t> NOTHING;
    const auto Found = Files.find(Open->Name);
    return Found == Files.end() ? NOTHING : Found->second;
}

Answer FileService::write_File(const Command &Received, FileTable &Files, const Strikes &Struck)
{
    if (!Open || Open->Use == Mode::Read) {
        return make_Error(ERROR_REFUSED);
    }
    std::size_t Count = Received.Parameters.size();
    if (const Fault *pShort = find_Strike(Struck, FaultKind::ShortWrite)) {
        Count -= std::min<std::size_t>(Count, pShort->Code);
    }
    auto &Content = Files[Open->Name];
    Content.resize(std::max(Content.size(), Open->Position + Count));
    std::copy_n(Received.Parameters.data(), Count, Content.data() + Open->Position);
    Open->Position += Count;
    return make_Success();
}

Answer FileService::read_File(const Command &Received, const FileTable &Files,
                              const Strikes &Struck)
{
    if (!Open) {
        return make_Error(ERROR_NOTHING_OPEN);
    }
    if (Open->Use != Mode::Read) {
        return make_Error(ERROR_REFUSED);
    }
    if (find_Strike(Struck, FaultKind::NoData) != nullptr) {
        return make_Success();
    }
    const auto &Content = get_Content(Files);
    if (Open->Position >= Content.size()) {
        return make_Error(ERROR_END_OF_FILE);
    }
    const std::size_t Count = std::min({std::size_t{read_Number(Received, 0, 2)},
                                        Content.size() - Open->Position, NB_PARAMETERS_MAX - 1});
    const auto *pFirst = Content.data() + Open->Position;
    Open->Position += Count;
    return make_Success({pFirst, pFirst + Count});
}

Answer FileService::seek_File(const Command &Received, const FileTable &Files)
{
    if (!Open) {
        return make_Error(ERROR_NOTHING_OPEN);
    }
    const auto Size = static_cast<std::int64_t>(get_Content(Files).size());
    const std::int64_t Origins[] = {0, static_cast<std::int64_t>(Open->Position), Size};
    const std::uint8_t Origin = Received.get_Byte(0);
    const auto Offset = static_cast<std::int32_t>(read_Number(Received, 1, 4));
    if (Origin >= std::size(Origins) || Origins[Origin] + Offset < 0 ||
        Origins[Origin] + Offset > Size) {
        return make_Error(ERROR_REFUSED);
    }
    Open->Position = static_cast<std::size_t>(Origins[Origin] + Offset);
    return make_Success();
}

Answer FileService::close_File(const FileTable &Files)
{
    if (!Open) {
        return make_Error(ERROR_NOTHING_OPEN);
    }
    const OpenFile Closed = *Open;
    Open.reset();
    if (Closed.Use != Mode::Read) {
        note_Written(Closed.Name, Files);
    }
    return make_Success();
}

// A new header starts a distribution; a broken one ends it.
void FileService::note_Written(const std::string &Name, const FileTable &Files)
{
    if (Name == NAME_SHEADER) {
        Expected = parse_SoftwareHeader(Files.at(Name));
        Missing = Expected ? Expected->Files : std::set<std::string>{};
    }
    Missing.erase(Name);
}

} // namespace qxsim

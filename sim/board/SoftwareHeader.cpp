#include "board/SoftwareHeader.h"

#include <algorithm>

namespace qxsim
{

namespace
{

constexpr std::uint32_t SIGNATURE = 0x0601;
constexpr std::uint32_t NB_FIXED = 30; // bytes before the tables
constexpr std::uint32_t NB_SKIPPED = 11;
constexpr std::uint8_t GROUP_SOFTWARE = 1;

// Reads on from an offset; once it has been asked for more than there is, everything is 0 and
// is_Damaged tells so.
class Reader
{
  public:
    explicit Reader(const std::vector<std::uint8_t> &Read) : Content{Read} {}

    void go_To(std::uint32_t Offset)
    {
        Damaged = Damaged || Offset >= Content.size();
        Position = Offset;
    }

    std::vector<std::uint8_t> read_Bytes(std::size_t Count)
    {
        if (Damaged || Content.size() - Position < Count) {
            Damaged = true;
            return std::vector<std::uint8_t>(Count);
        }
        const auto *pFirst = Content.data() + Position;
        Position += Count;
        return {pFirst, pFirst + Count};
    }

    std::uint32_t read_Number(std::size_t Count)
    {
        std::uint32_t Number = 0;
        for (const std::uint8_t Byte : read_Bytes(Count)) {
            Number = Number << 8 | Byte;
        }
        return Number;
    }

    std::string read_Text()
    {
        std::string Text;
        while (const std::uint32_t Byte = read_Number(1)) {
            Text += static_cast<char>(Byte);
        }
        return Text;
    }

    bool is_Damaged() const
    {
        return Damaged;
    }

  private:
    const std::vector<std::uint8_t> &Content;
    std::size_t Position{};
    bool Damaged{};
};

void read_Items(Reader &From, std::uint32_t Count, ItemTable &Items)
{
    for (; Count > 0 && !From.is_Damaged(); --Count) {
        const auto Tag = static_cast<std::uint8_t>(From.read_Number(1));
        const std::uint32_t Length = From.read_Number(1);
        const auto Type = static_cast<std::uint8_t>(From.read_Number(1));
        Items.try_emplace({GROUP_SOFTWARE, Tag}, Item{Type, From.read_Bytes(Length)});
    }
}

void read_Files(Reader &From, std::uint32_t Count, std::set<std::string> &Files)
{
    for (; Count > 0 && !From.is_Damaged(); --Count) {
        From.read_Bytes(NB_SKIPPED);
        Files.insert(From.read_Text());
    }
}

} // namespace

std::optional<SoftwareHeader> parse_SoftwareHeader(const std::vector<std::uint8_t> &Content)
{
    Reader From{Content};
    if (From.read_Number(2) != SIGNATURE || From.read_Number(4) != Content.size() ||
        Content.size() < NB_FIXED) {
        return std::nullopt;
    }
    const std::uint32_t OffsetItems = From.read_Number(4);
    const std::uint32_t NbItems = From.read_Number(2);
    const std::uint32_t OffsetFiles = From.read_Number(4);
    const std::uint32_t NbFiles = From.read_Number(2);

    SoftwareHeader Header;
    From.go_To(OffsetItems);
    read_Items(From, NbItems, Header.Items);
    From.go_To(OffsetFiles);
    read_Files(From, NbFiles, Header.Files);
    if (From.is_Damaged()) {
        return std::nullopt;
    }
    return Header;
}

} // namespace qxsim

// One table of a TOML file, read key by key: what is out of range, of the wrong type or unknown is
// refused with the file's name, the line and the key.
#pragma once

#include "machine/MachineFolder.h"
#include <set>
#include <string>
#include <string_view>

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

namespace qxsim
{

class Section
{
  public:
    // Prefix stands before the keys in messages: "board.", "" for the file's own table.
    Section(const toml::table &Read, std::string_view FileName, std::string KeyPrefix)
        : Table{Read}, File{FileName}, Prefix{std::move(KeyPrefix)}
    {
    }

    // The key's value or null; the key counts as known from now on.
    const toml::node *find(std::string_view Key)
    {
        Known.insert(std::string{Key});
        return Table.get(Key);
    }

    // The readers leave Value as it is when the key is absent.

    void read(std::string_view Key, bool &Value)
    {
        if (const toml::node *Found = find(Key)) {
            Value = get<bool>(*Found, Key, "must be true or false");
        }
    }

    void read(std::string_view Key, std::string &Value)
    {
        if (const toml::node *Found = find(Key)) {
            Value = get<std::string>(*Found, Key, "must be a text");
        }
    }

    // Min and Max are both allowed.
    template <typename T>
    void read(std::string_view Key, T &Value, std::int64_t Min, std::int64_t Max)
    {
        if (const toml::node *Found = find(Key)) {
            Value = static_cast<T>(get_Number(*Found, Key, Min, Max));
        }
    }

    // A time in whole units, 0 to an hour.
    void read(std::string_view Key, Time &Value, Time Unit)
    {
        std::int64_t Count = Value / Unit;
        read(Key, Count, 0, std::chrono::hours{1} / Unit);
        if (Table.contains(Key)) {
            Value = Count * Unit;
        }
    }

    // Bytes as "02 10 FF".
    void read(std::string_view Key, std::vector<std::uint8_t> &Value)
    {
        const toml::node *Found = find(Key);
        if (Found == nullptr) {
            return;
        }
        static constexpr const char *Rule = "must be bytes as in \"02 1F\"";
        const auto Text = get<std::string>(*Found, Key, Rule);
        Value.clear();
        for (std::size_t i = 0; i < Text.size(); i += 3) {
            const std::string_view Pair = std::string_view{Text}.substr(i, 2);
            if (Pair.size() != 2 || get_Digit(Pair[0]) < 0 || get_Digit(Pair[1]) < 0 ||
                (i + 2 < Text.size() && Text[i + 2] != ' ') || i + 3 == Text.size()) {
                fail(*Found, Key, Rule);
            }
            Value.push_back(
                static_cast<std::uint8_t>(get_Digit(Pair[0]) * 16 + get_Digit(Pair[1])));
        }
    }

    // Calls Read(Section &) for the key's table.
    template <typename Reader>
    void read_Table(std::string_view Key, Reader Read)
    {
        if (const toml::node *Found = find(Key)) {
            read_Section(*Found, Key, "must be a table", Read);
        }
    }

    // Calls Read(Section &) for each table of the key's array.
    template <typename Reader>
    void read_Tables(std::string_view Key, Reader Read)
    {
        const toml::node *Found = find(Key);
        if (Found == nullptr) {
            return;
        }
        const toml::array *Tables = Found->as_array();
        if (Tables == nullptr) {
            fail(*Found, Key, "must be an array of tables");
        }
        for (const toml::node &Element : *Tables) {
            read_Section(Element, Key, "must be an array of tables", Read);
        }
    }

    template <typename T>
    T get(const toml::node &Found, std::string_view Key, const char *Rule) const
    {
        const auto *Value = Found.as<T>();
        if (Value == nullptr) {
            fail(Found, Key, Rule);
        }
        return Value->get();
    }

    std::int64_t get_Number(const toml::node &Found, std::string_view Key, std::int64_t Min,
                            std::int64_t Max) const
    {
        const std::string Rule = "must be " + std::to_string(Min) + " to " + std::to_string(Max);
        const auto Number = get<std::int64_t>(Found, Key, Rule.c_str());
        if (Number < Min || Number > Max) {
            fail(Found, Key, Rule);
        }
        return Number;
    }

    void require(std::string_view Key)
    {
        if (find(Key) == nullptr) {
            fail(Table, Key, "is missing");
        }
    }

    [[noreturn]] void fail(const toml::node &Where, std::string_view Key,
                           const std::string &Text) const
    {
        throw MachineError{File + ":" + std::to_string(Where.source().begin.line) + ": " + Prefix +
                           std::string{Key} + ": " + Text};
    }

    // To be called when every key that there may be has been read.
    void refuse_UnknownKeys() const
    {
        for (const auto &[Key, Value] : Table) {
            if (!Known.contains(std::string{Key.str()})) {
                fail(Value, Key.str(), "unknown key");
            }
        }
    }

    const toml::table &get_Table() const
    {
        return Table;
    }

  private:
    template <typename Reader>
    void read_Section(const toml::node &Found, std::string_view Key, const char *Rule, Reader &Read)
    {
        const toml::table *Inner = Found.as_table();
        if (Inner == nullptr) {
            fail(Found, Key, Rule);
        }
        Section Entered{*Inner, File, Prefix + std::string{Key} + "."};
        Read(Entered);
        Entered.refuse_UnknownKeys();
    }

    static int get_Digit(char Digit)
    {
        static constexpr std::string_view Digits = "0123456789ABCDEFabcdef";
        const std::size_t At = Digits.find(Digit);
        if (At == std::string_view::npos) {
            return -1;
        }
        return static_cast<int>(At < 16 ? At : At - 6);
    }

    const toml::table &Table;
    std::string File;
    std::string Prefix;
    std::set<std::string> Known;
};

} // namespace qxsim

// Tables of small machines and what the loader is to find on them.
#pragma once

#pragma GCC diagnostic ignored "-Wmaybe-uninitialized" // <regex> with g++ 12 and sanitizers
#include "Scenario.h"
#include <gtest/gtest.h>
#include <regex>

// The first group of every match, each with a comma behind it.
inline std::string join_Matches(const std::string &Text, const std::string &Pattern)
{
    const std::regex Regex{Pattern, std::regex::multiline};
    std::string Joined;
    for (std::sregex_iterator i{Text.begin(), Text.end(), Regex}; i != std::sregex_iterator{}; ++i)
        Joined += i->str(1) + ",";
    return Joined;
}

// "168883F0#440102," of the master's frames that Pattern describes whole.
inline std::string get_Frames(const ScenarioRun &Run, const std::string &Pattern)
{
    return join_Matches(Run.Trace, "cana ((?=.{5}3F)" + Pattern + ")$");
}

// "Loader: Timeout," of every report in the log; "Timeout 7 16 41," (slaves, MT, Fn) of a time-out.
inline std::string get_Reports(const ScenarioRun &Run)
{
    const std::regex Line{"src/(\\w+) \\d+ : .{20}"};
    const std::regex Timeout{"Interfaces: (Timeout) : Slave = 0x0{15}(.)  MT = 0x(..)  Fn = 0x"};
    const std::string Log = std::regex_replace(Run.Log, Line, "$1: ");
    return join_Matches(std::regex_replace(Log, Timeout, "$1 $2 $3 "), "^\\.\\./(.*)$");
}

// Outcome, last phase, result files, and the lines of errors, protocols and todo:
// "0 timeout=1 ctrl_HW, conf errors:002 002,".
inline std::string get_Findings(const ScenarioRun &Run)
{
    std::string Text = join_Matches(Run.Output, "^(?!create_L)(\\w+) {9,}");
    Text = Run.get_Outcome() + " " + Text.substr(Text.rfind(',', Text.size() - 2) + 1);
    for (const auto &[Name, Content] : Run.Files) {
        if (Name == "loader.conf")
            Text += " conf";
        else if (Name.starts_with("loader."))
            Text += " " + Name.substr(7) + ":" + join_Matches(Content, "^(?:cana)? +(\\d{3}.*)$");
    }
    return Text;
}

// "error 22 4 code=130\nnth=1": error answers of service 22, function 4; further keys by lines.
inline std::string fault(const std::string &Words)
{
    const std::regex Fixed{"^(\\w+) (\\d+) (\\d+) ?"};
    const char *const Toml = "[[board.fault]]\nkind = \"$1\"\nservice = $2\nfunction = $3\n";
    return std::regex_replace(Words, Fixed, Toml) + "\n";
}

// What is different in a case: WITH(Left.State = 0; Machine.Todo = {"x"}).
#define WITH(...)                                                                                  \
    [](Scenario &Machine) {                                                                        \
        [[maybe_unused]] auto &Left = Machine.Boards[0];                                           \
        [[maybe_unused]] auto &Right = Machine.Boards[1];                                          \
        [[maybe_unused]] auto &Heat = Machine.Boards[2];                                           \
        __VA_ARGS__;                                                                               \
    }

inline const std::string STARTED = "0 started start_Applications, conf protocols:004 002 000,";
inline const std::string UNCHECKED =
    "0 started start_Applications, conf protocols:4294967295 4294967295 000,";
constexpr const char *ABSENT = "present = false\n";

// Left and right go from 2.17 and 2.18 to 2.1 and 2.2, heat stays at 3.1.
struct Line : Scenario {
    explicit Line(void (*change)(Scenario &))
    {
        add_Board("left", 2, 17).FuncAddr2 = 1;
        add_Board("right", 2, 18).FuncAddr2 = 2;
        add_Board("heat", 3, 1);
        change(*this);
    }
};

// One case of a table; Fault, of the loader, is what it would catch. Frames are those that Pattern
// describes.
inline void check(const char *Fault, void (*change)(Scenario &), const std::string &Findings,
                  const std::string &Reports = "", const std::string &Pattern = "",
                  const std::string &Frames = "")
{
    SCOPED_TRACE(Fault);
    const ScenarioRun Run = Line{change}.run();
    EXPECT_EQ(get_Findings(Run), Findings) << Run.Errors;
    EXPECT_EQ(get_Reports(Run), Reports);
    EXPECT_EQ(get_Frames(Run, Pattern), Frames);
}

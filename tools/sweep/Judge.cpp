#include "sweep/Judge.h"

#include "../src/Status.h"
#include "qxdist/Archive.h"
#include <algorithm>
#include <csignal>
#include <sstream>

namespace qxsweep
{

namespace fs = std::filesystem;
using namespace qxstart;

namespace
{

constexpr const char *RESULT_FILES[] = {"loader.conf", "loader.protocols", "loader.todo",
                                        "loader.errors"};
constexpr std::size_t NB_HEADER_LINES = 4;
constexpr int CODE_FIRST = 128; // of a board, as the exit status of a transfer
constexpr int CODE_LAST = 255;

bool has_Text(const std::string &Text, const std::string &Part)
{
    return Text.find(Part) != std::string::npos;
}

bool is_Documented(int Status)
{
    static const int STATUSES[] = {
#define STATUS_ENTRY(Name, Value, Meaning) Value,
        QX_STATUS_TABLE(STATUS_ENTRY)
#undef STATUS_ENTRY
            0,
        -1, 1};
    return std::find(std::begin(STATUSES), std::end(STATUSES), Status) != std::end(STATUSES) ||
           (Status >= CODE_FIRST && Status <= CODE_LAST);
}

// The text of "qx: ../src/Loader:137: Assertion `! TimeoutMask' failed.", "" when the source does
// not hold it.
std::string find_Assertion(const std::string &Errors, const fs::path &Sources)
{
    const std::size_t Begin = Errors.find("qx: ../src/");
    const std::size_t Name = Begin + 11;
    const std::size_t Colon = Errors.find(':', std::min(Name, Errors.size()));
    const std::size_t Quote = Errors.find("Assertion `", std::min(Begin, Errors.size()));
    const std::size_t End = Errors.find("' failed.\n", std::min(Quote, Errors.size()));
    if (Begin == std::string::npos || End == std::string::npos) {
        return "";
    }
    const std::string Text = Errors.substr(Quote + 11, End - Quote - 11);
    const std::string Source = read_Text(Sources / (Errors.substr(Name, Colon - Name) + ".cpp"));
    return has_Text(Source, "\"" + Text + "\"") ? Text : "";
}

void judge_End(const Start &Ended, const fs::path &Sources, Verdict &Judged)
{
    for (const char *Word : {"Sanitizer", "runtime error:"}) {
        if (has_Text(Ended.Errors, Word)) {
            Judged.Outcome = "a sanitizer's report";
            Judged.Breaches.push_back("a sanitizer reports");
            return;
        }
    }
    if (!Ended.InTime) {
        Judged.Outcome = Ended.Result.empty() ? "no end in real time" : "no end in virtual time";
        Judged.Breaches.push_back("the loader did not end");
    } else if (Ended.Signal == SIGABRT) {
        const std::string Assertion = find_Assertion(Ended.Errors, Sources);
        Judged.Outcome = "assertion " + Assertion;
        if (Assertion.empty()) {
            Judged.Breaches.push_back("aborted without one of the assertions of the sources");
        }
    } else if (Ended.Signal != 0 || !Ended.Status) {
        Judged.Outcome = "signal " + std::to_string(Ended.Signal);
        Judged.Breaches.push_back("ended by a signal");
    } else {
        Judged.Outcome = "status " + std::to_string(*Ended.Status);
        if (!is_Documented(*Ended.Status)) {
            Judged.Breaches.push_back("a status that is not documented");
        }
    }
}

std::vector<std::string> split_Lines(const std::string &Text)
{
    std::vector<std::string> Lines;
    std::istringstream Rest{Text};
    for (std::string Line; std::getline(Rest, Line);) {
        Lines.push_back(Line);
    }
    return Lines;
}

// How many lines the file has that begins with Lines; 0: it is not long enough to say.
std::size_t count_Expected(const std::string &Name, const std::vector<std::string> &Lines)
{
    std::size_t Expected = NB_HEADER_LINES;
    if (Name == "loader.conf") { // a count, then four lines a board
        return Lines.size() > Expected ? Expected + 1 + 4 * std::stoul(Lines[Expected]) : 0;
    }
    if (Name == "loader.protocols") { // a line for the one interface that boards are on
        return Expected + 1;
    }
    ++Expected; // the result, then lists, each with a line before it that begins with its length
    for (std::size_t Lists = Name == "loader.errors" ? 3 : 2; Lists > 0; --Lists) {
        if (Lines.size() <= Expected) {
            return 0;
        }
        Expected += 1 + std::stoul(Lines[Expected]);
    }
    return Expected;
}

void judge_ResultFiles(const Start &Ended, const fs::path &Machine, Verdict &Judged)
{
    const bool Normal = has_Text(Ended.Output, "Sortie du programme\n");
    for (const char *Name : RESULT_FILES) {
        const fs::path Path = Machine / "config" / Name;
        const std::string Problem =
            fs::exists(Path) ? check_ResultFile(Name, read_Text(Path)) : std::string{};
        if (!Problem.empty() && Normal) {
            Judged.Breaches.push_back(std::string{Name} + ": " + Problem);
        }
        Judged.PartOfResult = Judged.PartOfResult || !Problem.empty();
    }
    if (!Normal && Ended.Status) {
        Judged.Outcome += ", half way";
    }
    if (Normal) { // loader.protocols is written when the applications have been started
        Judged.Outcome += fs::exists(Machine / "config/loader.protocols") ? ", started" : "";
        Judged.Outcome += fs::exists(Machine / "config/loader.errors") ? ", loader.errors" : "";
    }
}

void judge_Store(const fs::path &Machine, const std::map<std::string, std::string> &Before,
                 Verdict &Judged)
{
    const std::map<std::string, std::string> Now = read_Store(Machine);
    for (const auto &[Name, Content] : Before) {
        if (!Now.contains(Name)) {
            Judged.Breaches.push_back("lost from the store: " + Name);
        }
    }
    for (const auto &[Name, Content] : Now) {
        if (Before.contains(Name) && Before.at(Name) == Content) {
            continue;
        }
        for (const std::string &Problem :
             qxdist::verify_Archive(Machine / "card/slave_sw" / Name)) {
            Judged.Breaches.push_back("changed or new in the store: ");
            Judged.Breaches.back().append(Name).append(": ").append(Problem);
        }
    }
}

} // namespace

std::map<std::string, std::string> read_Store(const fs::path &Machine)
{
    std::map<std::string, std::string> Store;
    for (const fs::directory_entry &Entry : fs::directory_iterator{Machine / "card/slave_sw"}) {
        Store[Entry.path().filename()] = read_Text(Entry.path());
    }
    // An archive with a marker beside it is not there for anyone.
    std::erase_if(Store, [&](const auto &Stored) {
        const std::string &Name = Stored.first;
        return fs::exists(Machine / "card/slave_sw" / ("." + Name + ".copying")) ||
               (Name.starts_with(".") && Name.ends_with(".copying"));
    });
    return Store;
}

Results read_Results(const fs::path &Machine)
{
    Results Found;
    for (const char *Name : RESULT_FILES) {
        if (const fs::path Path = Machine / "config" / Name; fs::exists(Path)) {
            const std::vector<std::string> Lines = split_Lines(read_Text(Path));
            for (std::size_t i = NB_HEADER_LINES; i < Lines.size(); ++i) {
                Found[Name] += Lines[i] + "\n";
            }
        }
    }
    return Found;
}

std::string check_Recovery(const Results &Found, const std::array<Results, 2> &Expected, bool Told)
{
    if (Found == Expected[0] || (Told && Found == Expected[1])) {
        return "";
    }
    std::string Shown = "other results than without the cut:";
    for (const auto &[Name, Text] : Found) {
        Shown.append("\n").append(Name).append("\n").append(Text);
    }
    return Shown;
}

std::string check_ResultFile(const std::string &Name, const std::string &Text)
{
    try {
        const std::vector<std::string> Lines = split_Lines(Text);
        const std::size_t Expected = count_Expected(Name, Lines);
        if (Text.empty() || Text.back() != '\n') {
            return "the last line is not complete";
        }
        if (Lines.size() != Expected) {
            return std::to_string(Lines.size()) + " lines instead of " + std::to_string(Expected);
        }
        return Lines.front().starts_with("4698 ") ? "" : "no signature";
    } catch (const std::exception &) {
        return "a count is no number";
    }
}

Verdict judge_Start(const Start &Ended, const fs::path &Machine,
                    const std::map<std::string, std::string> &Before, const fs::path &Sources)
{
    Verdict Judged;
    judge_End(Ended, Sources, Judged);
    judge_ResultFiles(Ended, Machine, Judged);
    judge_Store(Machine, Before, Judged);
    return Judged;
}

} // namespace qxsweep

// The store of distributions: what goes in, what comes out, and what no accident does to it.
#include "Findings.h"
#include <algorithm>

namespace
{

qxdist::Bytes make_Bytes(const char *Hex)
{
    return qxdist::make_Record(0, qxdist::TYPE_BYTES, Hex).Value;
}

// sheader.bin of PUMP.1.2.3 with the file a.txt.
const qxdist::Bytes HEADER = make_Bytes("060100000061"             //  2 size
                                        "0000002F00080000001E0001" //  6 records, 10 number
                                        "000000000000000000000000" // 12 file list, 16 number
                                        "0000000000000000000000612E74787400" // 30 file, 41 name
                                        "01030600001002040550554D50" // 47 types, 53 name, 56 PUMP
                                        "030202000104020200020502020003" // 60, 65, 70 versions
                                        "09020200010A02020009"           // 75, 80 hardware indices
                                        "0B0906040102020101000000");     // 85 protocols

// What the board says of itself, whatever its header says.
const std::map<unsigned, std::string> ITEMS{{1, "{ bytes = \"00 00 10\" }"},
                                            {2, "\"PUMP\""},
                                            {3, "{ short = 1 }"},
                                            {4, "{ short = 2 }"},
                                            {5, "{ short = 3 }"},
                                            {9, "{ short = 1 }"},
                                            {10, "{ short = 9 }"}};

using Patch = std::pair<std::size_t, const char *>; // place, bytes

void patch_Header(Software &Patched, const std::vector<Patch> &Patches)
{
    Patched.Files = {{"a.txt", "text"}};
    Patched.Header = HEADER;
    for (const auto &[Place, Hex] : Patches) {
        const qxdist::Bytes Written = make_Bytes(Hex);
        std::copy(Written.begin(), Written.end(), Patched.Header->data() + Place);
    }
}

// A board that is to be saved as PUMP.1.2.3, one that is to receive VALVE.2.0.0 from the store, and
// an archive there that nobody asks for.
void build_Machine(Scenario &Machine)
{
    Machine.add_Board("saved", 2, 17).Stored = false;
    MachineBoard &Updated = Machine.add_Board("updated", 3, 1);
    Updated.Runs = {"VALVE", {1, 0, 0}, {20}, 1, 1};
    Updated.Expected = {"VALVE", {2, 0, 0}};
    Updated.Stored = false;
    Machine.store(*Updated.Expected);
    Machine.store("KEPT.1.0.0", "not even an archive");
}

// Runs the machine. Store: the distributions that are there then; those that were there before have
// not changed, new ones are whole.
void check_Run(Scenario &Machine, const char *Outcome, const char *Report, const char *Store)
{
    const auto Folder = Machine.get_Folder() / "card/slave_sw";
    const qxdist::FileTable Before = qxdist::read_Folder(Folder);
    Machine.run_Expecting(Outcome, Report);
    std::string Names;
    for (const auto &[Name, Content] : qxdist::read_Folder(Folder)) {
        Names += (Names.empty() ? "" : " ") + Name.substr(0, Name.find('.'));
        if (Before.contains(Name)) {
            EXPECT_EQ(Content, Before.at(Name)) << Name;
        } else {
            EXPECT_EQ(qxdist::verify_Archive(Folder / Name), std::vector<std::string>{});
        }
    }
    EXPECT_EQ(Names, Store);
}

} // namespace

// An archive that an accident of the card takes along, or leaves half written; a store that is
// given up too early, or taken for reachable. (Boards are started all the same.)
TEST(Store, TheCardDecides)
{
    const std::string OUT = "[card]\nmounted = false\n[scripts]\n"; // the log cannot be closed
    const std::tuple<std::string, const char *, const char *, const char *> Cases[] = {
        {"", "0 started", "", "KEPT PUMP VALVE"},
        {"[card]\nsize = 40960", "0 started", "SSD probablement pleine", "KEPT VALVE"},
        {"[card]\ngone_ms = 2300", "0 started", "SSD non accessible", "KEPT VALVE"},
        {"[card]\ngone_ms = 3000", "0 started", "Erreur : mount", "KEPT VALVE"},
        {OUT, "-1 started", "", "KEPT PUMP VALVE"},
        {OUT + "rm_cf = {}", "-1 started", "Error : umount", "KEPT PUMP VALVE"},
        {OUT + "ins_cf = { from = 1 }", "-1 started", "Error : mount", "KEPT VALVE"},
        {OUT + "ins_cf = { from = 2 }", "-1 started", "Erreur : mount", "KEPT VALVE"},
        {OUT + "ins_cf = { from = 3 }", "-1 started", "non accessible", "KEPT PUMP VALVE"},
        {OUT + "ins_cf = { from = 4 }", "-892", "n'existe pas (\"/home", "KEPT PUMP VALVE"},
        {OUT + "ins_cf = { from = 5 }", "-1 started", "Erreur : -997", "KEPT PUMP VALVE"},
    };
    for (const auto &[Toml, Outcome, Report, Store] : Cases) {
        SCOPED_TRACE(Toml);
        Scenario Machine;
        build_Machine(Machine);
        Machine.Toml = Toml + "\n";
        Machine.Boards[0].Runs.Files["program.txt"] = make_Noise(60000);
        check_Run(Machine, Outcome, Report, Store);
    }
}

// An archive that is there and read out again, or looked into; one that cannot be unpacked deleted.
TEST(Store, WhatIsThereIsTrusted)
{
    for (const char *Name : {"PUMP.1.2.3", "VALVE.2.0.0"}) {
        Scenario Machine;
        build_Machine(Machine);
        Machine.store(Name, "damaged");
        check_Run(Machine, "0 started", "", "KEPT PUMP VALVE");
    }
}

// A header that is believed, of a board and of an archive: the loader reads past it, stores what
// nobody can use, or keeps in the store what no board can be given.
TEST(Store, HeadersThatLie)
{
    const std::tuple<std::vector<Patch>, const char *, const char *, const char *> Cases[] = {
        {{{0, "0601"}}, "0 started", "", "KEPT PUMP VALVE"},
        {{{0, "0602"}}, "0 needing=2", "Erreur : signature sheader.bin", "KEPT"},
        {{{2, "00000060"}}, "0 needing=2", "Erreur : dimensions sheader.bin != valeur", "KEPT"},
        {{{6, "00000061"}}, "0 needing=2", "Erreur : offset hors fichier", "KEPT"},
        {{{12, "FFFFFFFF"}}, "0 needing=2", "Erreur : offset hors fichier", "KEPT"},
        {{{12, "00000060"}}, "0 needing=2", "Erreur de lecture du nom de fichier : 0", "KEPT"},
        {{{41, "2E2E2F61"}}, "0 needing=2", "Erreur de lecture du nom de fichier : 0", "KEPT"},
        {{{16, "0002"}}, "0 needing=2", "Erreur de lecture du nom de fichier : 1", "KEPT"},
        {{{16, "0000"}}, "0 started", "", "KEPT PUMP VALVE"},       // the header alone
        {{{41, "62"}}, "129", "FATAL - Status: 129", "KEPT VALVE"}, // the board has no b.txt
        // The records name the archive that is saved. Those of one in the store are the board's.
        {{{10, "0005"}}, "signal 6", "pSHeader->nb_SwInfo > Tag", "KEPT VALVE"},
        {{{60, "0D"}}, "0 needing=1", "Erreur : lecture", "KEPT VALVE"},
        {{{10, "FFFF"}, {70, "0D"}}, "0 needing=2", "Erreur : lecture", "KEPT VALVE"},
        {{{71, "FF"}}, "0 needing=2", "Erreur : lecture", "KEPT VALVE"},
        {{{62, "07"}}, "0 needing=1", "Erreur : conversion", "KEPT VALVE"},
        {{{56, "2E2E2F61"}}, "0 needing=1", "Erreur : conversion", "KEPT VALVE"}, // ../a
        {{{56, "51"}}, "-892", "Erreur non gérée : -892", "KEPT VALVE"}, // the board says PUMP
    };
    for (const auto &[Patches, Outcome, Report, Store] : Cases) {
        SCOPED_TRACE(std::to_string(Patches[0].first) + " " + Patches[0].second);
        Scenario Machine;
        build_Machine(Machine);
        Machine.Boards[0].SoftwareItems = ITEMS;
        patch_Header(Machine.Boards[0].Runs, Patches);
        patch_Header(*Machine.Boards[1].Expected, Patches);
        Machine.store(*Machine.Boards[1].Expected);
        check_Run(Machine, Outcome, Report, Store);
    }
}

// A distribution that is read from each board that has it, or at each start, or that fills the
// memory when it has been saved.
TEST(Store, OneUploadServesAllBoardsAndAllStarts)
{
    Scenario Machine;
    for (unsigned i = 1; i <= 3; ++i) {
        Machine.add_Board("b" + std::to_string(i), 2, i).Stored = false;
    }
    const ScenarioRun First = Machine.run_Expecting("0 started");
    EXPECT_EQ(get_Frames(First, "19.{6}#408.*").size(), 2 * 26U); // two files are opened
    EXPECT_TRUE(std::filesystem::is_empty(Machine.get_Folder() / "vantrel/slave_sw"));
    check_Run(Machine, "0 started", "", "PUMP");
    EXPECT_EQ(Machine.run().Trace.find(" cana 19"), std::string::npos); // no file is asked for
}

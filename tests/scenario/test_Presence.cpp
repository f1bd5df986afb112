// Who is there, at which address, and whether it is the board that was there before.
#include "Findings.h"

static const char *const TWIN =
    "[[board]]\nname = \"twin\"\nboard_type = 2\nboard_number = 17\nresponse_us = 5000\n";

TEST(Presence, WhoAnswersThePoll)
{
    const std::string Found = "0 start_Applications, conf protocols:004 002 000,";
    std::string Polls; // 20 of them
    for (int i = 0; i < 20; ++i)
        Polls += "160003F0#40,";
    check("polls too few, a missing board asked on", WITH(Right.Keys = ABSENT),
          "0 timeout=1 ctrl_HW, conf errors:002 002,", "Timeout 2 18 40,MT_Info: Timeout,",
          "16.*#40|1.*#4001", Polls + "188883F0#4001,1800C3F0#4001,");
    check("a board missed that is not required", WITH(Heat.Keys = ABSENT; Heat.State = 0), Found,
          "", "16.*#4[024].*", Polls + "168883F0#440102,169083F0#440202,");
    check("such a board kept or left running; a late one given up; a poll's double remembered",
          WITH(Heat.State = 0; Right.Keys = "restart_ms = 2350\n";
               Left.Toml = fault("duplicate 22 0 nth=1") + fault("error 22 0 code=5\nnth=2")),
          Found, "Loader: Erreur non gérée : 5,", "16.*#4[02].*",
          "160003F0#40,160003F0#40,160003F0#40,1600C3F0#4201,");
    check(
        "its silence passed over, its address kept",
        WITH(Heat.State = 0; Heat.Toml = fault("silence 22 2")),
        "0 timeout=1 ctrl_HW, conf errors:000 000,",
        "Timeout 4 16 42,Interfaces: Slaves inconnus: 0004,Loader: Envoi de la commande,"
        "Interfaces: Message hors contexte :,Interfaces:  Slave 0000000000000001  MT 16  Fun 01,"
        "Interfaces: Message hors contexte :,Interfaces:  Slave 0000000000000002  MT 16  Fun 01,");
    check("two boards at one address read out", WITH(Left.Toml = TWIN),
          "-1 addresse=1 ctrl_HW, errors:002 001,", "", "1.*", "160003F0#430000,160003F0#40,");
    check("an answer after its poll forgotten", // it counts in the next one
          WITH(Right.Toml = fault("late 22 0 delay_ms=60\nnth=1")),
          "-1 addresse=1 ctrl_HW, errors:002 002,", "", "16.*#40", "160003F0#40,160003F0#40,");
}

TEST(Presence, IntegrityFlags)
{
    check("the wrong flag or board; silence taken for health",
          WITH(Left.Keys = "hardware_fault = 1\n"; Right.Toml = fault("silence 22 1 nth=1")),
          "0 timeout=1 replace=1 ctrl_HW, conf errors:002 002,002 001,", "Timeout 7 16 41,");
    check("a start prevented, or prepared, after a failure that no mask shows",
          WITH(Left.Toml = fault("error 22 1 code=5\nnth=2")), UNCHECKED,
          "Loader: Erreur non gérée : 5,", "1.*#(4500.*|410B)",
          "160883F8#4500FFFF,161083F8#4500FFFF,1600C3F8#4500FFFF,");
}

TEST(Presence, Addressing)
{
    const std::string Moved = "168883F0#440102,169083F0#440202,";
    const std::string Silent = "0 timeout=1 AdPhys2AdCan, conf errors:002 001,";
    check("a silent board that ends the phase or is looked for at its new address",
          WITH(Left.Toml = fault("silence 22 4")), Silent,
          "Timeout 1 16 44,Loader: Timeout,Timeout 1 18 40,MT_Info: Timeout,", "1.*#4(4|000).*",
          Moved + "188883F0#4000,181083F0#4000,1800C3F0#4000,");
    check("a first 130 taken for the answer", // another board at the address has moved
          WITH(Left.Toml = fault("error 22 4 code=130") + TWIN + fault("silence 22 0 nth=1") +
                           fault("silence 22 1 nth=1") + fault("silence 24 0 nth=1")),
          "0 replace=1 ctrl_NewSlavesPresence, conf errors:002 001,", "", "1.*#4(4|004).*",
          Moved + "180883F0#4004,181083F0#4004,1800C3F0#4004,");
    check("a wait without end", WITH(Left.Toml = fault("error 22 4 code=130")), Silent,
          "Timeout 1 16 44,Loader: Timeout,");
    check("two boards at a new address",
          WITH(Left.Toml = fault("error 22 4 code=130") + fault("duplicate 22 4")),
          "-896 AdPhys2AdCan,", "Loader: Adresse multiple : BT = 2   BN = 11,");
    check("another error passed over", WITH(Left.Toml = fault("error 22 4 code=131")),
          "1 AdPhys2AdCan,", "Loader: Erreur non gérée : 131,");
}

TEST(Presence, ExchangedBoards)
{
    check("a new board not started although it runs the right software",
          WITH(Left.HardwareItems = {{4, "{ short = 211 }"}, {9, "{ short = -1 }"}};
               Left.Expected.emplace().Name = "PUMPX"),
          "0 modify=1" + STARTED.substr(1) + " todo:002 001 00211 065535 PUMPX      001 002 003,");
    check("one started with the wrong compilation; item 9 not looked at",
          WITH(Left.HardwareItems[9] = "{ short = 2 }"; Left.Expected.emplace().Version[2] = 4),
          "0 modify=1 needing=1 read_Todo_FromA2lFile, conf todo:"
          "002 001 00210 000002 PUMP       001 002 004,002 001,");
    check("an end at a number that is none, or none at an unknown item",
          WITH(Left.HardwareItems[4] = "{ ascii = \"1\" }"; Right.HardwareItems[9] = "";
               Right.HardwareItems[4] = Heat.HardwareItems[4] = "{ short = 211 }"),
          "0 replace=2 modify=1 needing=1 ctrl_NewSlavesPresence, conf errors:002 001,002 002, "
          "todo:002 002 00211 000001 PUMP       001 002 003,002 002,",
          "MT_Info: Erreur : Info2long - Format char ascii,Loader: Erreur : conversion,");
    check("another board's findings cleared than the first one's",
          WITH(Left.HardwareItems[4] = Right.HardwareItems[4] = "{ short = 211 }";
               Right.Toml = fault("silence 24 1 tag=2\nnth=2")),
          "0 timeout=1 modify=1 needing=1 ctrl_NewSlavesSw, conf errors:002 002, "
          "todo:002 002 00211 000001 PUMP       001 002 003,002 002,",
          "Timeout 2 18 41,MT_Info: Timeout,");
}

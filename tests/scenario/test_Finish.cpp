// Agreeing on a protocol and starting the boards, which speak structure 4 with levels 1 to 2 and
// structure 2 with level 1.
#include "Findings.h"

TEST(Finish, ProtocolsByStructure)
{
    check("a refused structure kept, the next lower one left out, another interface's taken",
          WITH(Machine.Protocols = {"ttyS0 4 1 9", "cana 2 1 9", "cana 4 3 9", "cana 3 1 9"}),
          "0 started start_Applications, conf protocols:002 001 000,", "", "1.*#(410B|4581.*)",
          "180003F0#410B,180003F0#410B,180003F0#410B,160883F8#4581020102010000,"
          "161083F8#4581020202010000,1600C3F8#4581030102010000,");
    check("boards started that speak another", WITH(Machine.Protocols = {"cana 1 1 9"}),
          "0 needing=3 ctrl_Protocols, conf todo:002 001,002 002,003 001,");
    check("a board that knows none, fails or is silent taken for another",
          WITH(Left.Toml = fault("error 24 1 tag=11\ncode=128");
               Right.Toml = fault("error 24 1 tag=11\ncode=5");
               Heat.Toml = fault("silence 24 1 tag=11")),
          "0 timeout=1 replace=1 needing=1 ctrl_Protocols, conf errors:003 001,002 002, todo:002 "
          "001,",
          "MT_Info: Erreur : 5,Timeout 7 18 41,MT_Info: Timeout,");
}

TEST(Finish, StartOfTheApplications)
{
    check("the wrong start command; an error answer that stops the start",
          WITH(Left.State = 1; Right.Toml = fault("error 22 5 code=5")),
          "0 start_Applications, conf protocols:004 002 000,", "", "16.*#4[25](?!00).*",
          "160883F0#4202,161083F8#4581020204020000,1600C3F8#4581030104020000,");
    check("a start behind a silent board", WITH(Right.Toml = fault("silence 22 5")),
          "-1 timeout=1 start_Applications, conf errors:002 002,",
          "Timeout 2 16 45,Loader: Timeout,", "16.*#4581.*",
          "160883F8#4581020104020000,161083F8#4581020204020000,");
    check("a forbidden start", WITH(Left.State = 2), "signal 6 start_Applications, conf");
    // The receive thread ends the process while the other one waits.
    check("a frame of no message passed over", WITH(Left.Toml = fault("lone_continuation 22 5")),
          "-1 start_Applications, conf",
          "Interfaces: Pas trouvé de chaîne correspondant au message,"
          "Interfaces: Msg: Slave 0000000000000001   Id 160FC228    Fn 05,");
}

// The phases of a start, one after the other: presence and addressing, hardware types, software,
// distributions, protocols, start of the applications.
//
// A phase returns 0, or a negative status that stops the run: -1 when its findings are in the slave
// masks (TimeoutMask, ReplaceSlavesMask ...), one of Status.h otherwise. Masks are only added to,
// unless said here. A status that no phase expects is reported as "Erreur non gérée : %i" and ends
// the process with it. All of this is for the main thread; every phase blocks until the boards have
// answered or their time is over, and no answer is held after it.
//
// Phases work on the slaves in service (Device not 0), in ascending index. Some want to find
// TimeoutMask and ReplaceSlavesMask empty and assert it: every phase from ctrl_NewSlavesPresence
// on.
#ifndef QX_LOADER_H
#define QX_LOADER_H

#include "Tables.h"

// --- Presence and addressing ---

// Finds who is there, then who is sound and of the right type. -1 also when two boards share an
// address (MultipleSlavesOnAddMask): nothing else is asked then.
int ctrl_HW();

// Moves the slaves of CAN A from their physical to their functional address and keeps the new one
// in BoardType and BoardNumber. The last configured slave is never moved.
int AdPhys2AdCan();

// Finds the boards that were exchanged: hardware items 4 and 9 against the configuration. A new
// board alone is no failure; it is in NewSlavesMask, and in NoDistributionMask if item 4 differs.
int ctrl_NewSlavesPresence();

// Polls all slaves until each has answered, 20 times at most, 100 ms apart; recomputes
// MultipleSlavesOnAddMask. Slaves with State 0 are dropped from the tables, after a present one was
// put into board state 1; the others that stay silent go to TimeoutMask.
int ctrl_SlavePresence();

// Asks the slaves that are in play for their board state; ByteIndex is the flag to look at in the
// answer. 2, hardware: a board that raises it is to be replaced (-1). 3, software: it is to be
// updated, which is no failure. GEN_ERR_MULTIPLE_ADDRESS for an error answer.
int ctrl_SlaveIntegrity(int ByteIndex);

// --- Hardware type compatibility ---

// The hardware database, slaves_db.txt, kept compressed with gzip on the card. Text, by lines:
//     4699                      signature
//     1421280000                date, at most 10 digits
//     # comment                 ignored, as empty lines are
//     card 12 B 3 4 01FF        name, board identity (item 4), revision letter A..Z (item 5; may be
//                               left out, then it counts as a blank), versions A and B (items 6
//                               and 7), type map in pairs of hexadecimal digits
// Type map: type t is allowed when bit t % 8 of byte t / 8 is 1.
constexpr int TYPE_MAP_SIZE = 768; // a map as it is read from the database, with a 0 behind it
constexpr int DB_DATE_SIZE = 11;   // its date, NUL included

// Checks the type map of every board against its slot. A board whose own map does not cover its
// slot is looked up in the database and given the database's map and date (items 1 and 2) if these
// do; what stays incompatible is to be replaced. ERR_SLAVES_DB: no database, or one that is older
// than what a board carries; ERR_MASTER_OS, ERR_MASTER_HW: it could not be fetched.
int ctrl_HwTypeIdCompatibility();

// 1: TypeId is in the map of Length bytes, 0: it is not, -1: the map is too short to say.
int ctrl_TypeId(int16_t TypeId, const uint8_t *TypeIdMap, int16_t Length);

// Looks the board of the one slave of SlaveMask up. Returns how many bytes of pTypeId
// (TYPE_MAP_SIZE) the map takes, 0 when no entry is for this board, or a negative status. DbDate
// (DB_DATE_SIZE) is set with every result from 0 on. Moves the process to DIR_WORK_HW.
int read_HwTypeId_FromDbFile(BM_SLAVE_CAST SlaveMask, char *DbDate, uint8_t *pTypeId);

// Value of the one or two hexadecimal digits at the start of Text; 0 for an empty text, -1 when it
// starts with a blank or a tab, -2 (reported) for another character. 'a' is the one small letter
// that is taken.
int get_HexaByte(const char *Text);

// --- Software ---

// Software flag, type map and index of compatibility of every board: fills UpdateSwMask and
// NoDistributionMask. Runs again after a download.
int ctrl_SW();

// Of the exchanged boards (NewSlavesMask), leaves in NoDistributionMask those that do not run
// exactly the software configured for their slot. When a board fails to answer, bit 0 alone of
// both masks is cleared.
int ctrl_NewSlavesSw();

// The type maps of the software (item 1). A board whose software does not serve its slot's type
// goes to NoDistributionMask.
int ctrl_SwTypeIdCompatibility();

// Hardware index of the boards (item 8, kept in IndexOfCompatibility) against the range that their
// software accepts, bounds included (items 9 and 10): below it NoDistributionMask, above it
// UpdateSwMask.
void ctrl_IndexOfCompatibility();

// --- Distributions ---

// Saves in the store what the store lacks of the software that the boards run. A board whose
// software cannot be identified or read goes to UpdateSwMask. ERR_MASTER_NVM_FULL: the card is
// full; ERR_MASTER_OS: it cannot be reached, or the master's own files failed.
int upload_Distributions_FromSlaves();

// Sends the boards of ForcedDownloadMask what appl.todo asked for and the others of UpdateSwMask
// what their slot expects. Both masks are consumed; the forced downloads that were done are in
// ForcedDownloadMask afterwards. What the store lacks is in NoDistributionMask.
int download_Distributions_ToSlaves();

// After forced downloads (ForcedDownloadMask, consumed): what these boards report now becomes what
// their slot expects, and they go to NewSlavesMask, so that the application learns of it; to
// UpdateSwMask, if they report nothing that can be expected.
int update_SlavesInfo_Sw();

// --- Protocols and start ---

// Agrees on the highest protocol structure of appl.protocols that all slaves of an interface
// speak. A mismatch is no failure: the slaves are in NoDistributionMask.
int ctrl_Protocols();

// Starts the slaves' applications one by one. Stops at the first slave that does not answer (-1)
// or cannot be sent to (GEN_ERR_PRG_VANTREL); those before it stay started.
int start_Applications();

#endif

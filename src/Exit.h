// The end of a run.
#ifndef QX_EXIT_H
#define QX_EXIT_H

// Closes the interfaces (the receive thread is stopped and joined) and frees the tables. After a
// start that failed half way it frees what had been built. Returns 0.
int exit_All();

// Frees Slave and Broadcast; both must be allocated (asserted).
void exit_Variables_Slaves();

// Frees ForcedDistributions when it is allocated.
void exit_Variables();

// Ends the process with Status, from either thread: every end of the process but an assertion goes
// through here. Streams are flushed; the log gets no trailer. The first caller's status counts: a
// second one never returns, and waits for the process to end under it.
[[noreturn]] void exit_Process(int Status);

#endif

// What Ctrl+C, Ctrl+Break, closing the console, logging off and shutting down do to the command.
#pragma once

// Takes over from the system: until ZNIgnoreControlEvents is called each of them ends the process at once,
// with status -1. Without it the system decides the status, and some platforms give 0. False if the system
// refuses.
bool ZNTakeControlEvents();

// From here to the end of the process Ctrl+C and Ctrl+Break have no effect; the others wait for the end of
// the process, as long as the system lets them. An event that is being handled ends the process before this
// returns.
void ZNIgnoreControlEvents();

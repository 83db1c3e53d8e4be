// One daemon for each network namespace: two would own the same table, and each would sweep the other's
// isolation away. The lock is a local socket without a file, whose name belongs to the network namespace and
// goes with its holder, however that ends.
//
// Anybody may take such a name. One that is held by neither root nor this daemon's user is passed over for
// the next, and whoever has got one looks whether a daemon holds another.
#pragma once

#include <string>

// Takes the lock for as long as the process lives. Nothing, or who holds it, as a sentence.
std::string lockNamespace();
// Lets those go who have asked in vain, of whom a socket can hold so many. To be called now and then.
void greetLockSeekers();

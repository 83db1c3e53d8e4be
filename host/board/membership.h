// Who is an active member of which groups, told to the forwarding plane of a board of which ports carry
// groups to other machines. The daemon commands isolations of two ports and says nothing of members, so its
// tables are asked, through its own operation table: get next and get, which change nothing and report
// nothing.
//
// When
// ----
// Behind every request that may have changed a row, whatever became of it, that row is asked for before the
// reply goes out: so who is told that a port is a member finds it told to the plane. Behind events all rows
// are, before anybody hears that they are handled: the plane lets go of what the daemon has removed, never
// before. At the start the tables are empty.
//
// Thread-safety
// -------------
// The command server's task and that of the events call here, without the semaphore and without the board's
// lock, both of which are taken here. A lock of its own is held from the look at the tables until the plane
// has heard of it, so that none tells what the other has overtaken. Who holds the semaphore or the board's
// lock never waits for it.
#pragma once

// From now on, for the board of this process. Called once, before there are other tasks; does nothing where
// no port carries groups.
void followMembers();

/* Two control boards that mirror to one another, as host/board/peer_link, host/sockets/command_server and
 * `portisolatectl board resync` do it. two_boards.sh runs every check below, and says which of them has to find
 * something.
 *
 * A board has one server task. It carries out what its clients and the peer ask, one request at a time: a
 * client's request is handed to the peer first and carried out here afterwards, one of the peer is carried out
 * and answered. Whoever finds no room on the way to the peer waits for a time and gives up. A task of its own
 * takes in the peer's answers. A board may end at any moment and come back with empty tables; what it had been
 * sent is lost then, and what it had sent still arrives. Being stalled needs no statement of its own: a process
 * may rest anywhere for as long as it likes, and waiting for room may end at any time.
 *
 * The checks, by what the model is made with:
 *   LINK           no deadlock, whatever the boards hand to one another.
 *   RESYNC         resync at any moment: none without a change in between ends with different boards, or takes
 *                  a row from the standby board that the active one holds. No deadlock.
 *   QUIET          resync once everything has come to rest ends, with equal boards.
 *   TELLS          clients of board 0 alone, board 1 refuses row 1: boards that differ were told about.
 *   CROSSED        finds boards that end different. The shape of it: the client of 0 sets the row and that of 1
 *                  clears it, each request is handed over before the other one has arrived, and each board then
 *                  carries out its own change first and that of the other afterwards: set here, clear; cleared
 *                  there, set.
 * Planted faults, to see that the checks find them:
 *   FAULT_WAITS    nobody gives up waiting for room: two boards that wait for each other (with LINK)
 *   FAULT_KEEPS    resync removes nothing (with QUIET)
 *   FAULT_FIRST    resync empties the standby board before it fills it (with RESYNC)
 *   FAULT_DEAF     answers are thrown away (with TELLS)
 */
#define ROWS 2
#define ROOM 1     /* requests, or answers, on the way to one board */
#ifndef CHANGES
#define CHANGES 1  /* by the clients of one board */
#endif
#define ROUNDS 3   /* of a resync */

#define ROW(board, number) row[(board) * ROWS + (number)]
#define EQUAL (ROW(0, 0) == ROW(1, 0) && ROW(0, 1) == ROW(1, 1))
#define AT_REST (changes[0] == 0 && changes[1] == 0 && !busy[0] && !busy[1] && !down[0] && !down[1] && \
                 restarts == 0 && empty(requests[0]) && empty(requests[1]) && empty(answers[0]) && empty(answers[1]))

bit row[4];
chan requests[2] = [ROOM] of { byte, bit, byte };  /* to a board: row, value, life of the sender */
chan answers[2] = [ROOM] of { bit };               /* to a board: refused by the peer */
byte changes[2];                                   /* that clients still make */
bit busy[2];                                       /* the server is in a request of a client */
bit down[2];
byte life[2];                                      /* counts the starts of a board */
byte waiting[2];                                   /* requests that the peer has not answered */
bit told;                                          /* that the boards may differ */
bit dirty;                                         /* a row changed, and not by the resync */
byte restarts;                                     /* that may still come */
bit resynced;                                      /* a resync has ended and found nothing to do */

inline carry_out(board, number, value) {
    ROW(board, number) = value;
    dirty = 1
}

/* The limits of a board: row 1 is too much for board 1. */
#ifdef TELLS
#define REFUSES(board, number, value) ((board) == 1 && (number) == 1 && (value) == 1)
#else
#define REFUSES(board, number, value) false
#endif

inline hand_over(board, number, value, done) {
    if
    :: atomic { down[1 - board] -> told = 1; done = 1 }
    :: atomic { !down[1 - board] && nfull(requests[1 - board]) ->
           requests[1 - board]!number, value, life[board];
           waiting[board]++;
           done = 1 }
#ifndef FAULT_WAITS
    :: atomic { !down[1 - board] && full(requests[1 - board]) -> done = 0 }
#endif
    fi
}

proctype Server(byte board) {
    byte number, sender, mine;
    bit value, done;
end:
    do
    :: atomic { !down[board] && changes[board] > 0 ->
           changes[board]--;
           busy[board] = 1;
           mine = life[board];
           select (number : 0 .. ROWS - 1);
           select (value : 0 .. 1) };
       hand_over(board, number, value, done);
       atomic {
           if
           :: done && mine == life[board] && !down[board] -> carry_out(board, number, value)
           :: else -> skip
           fi;
           busy[board] = 0;
           number = 0; value = 0; done = 0; mine = 0 }
    :: atomic { !down[board] && nempty(requests[board]) && nfull(answers[1 - board]) ->
           requests[board]?number, value, sender;
           if
           :: REFUSES(board, number, value) -> skip
           :: else -> carry_out(board, number, value)
           fi;
           if
           :: sender == life[1 - board] && !down[1 - board] -> answers[1 - board]!REFUSES(board, number, value)
           :: else -> skip
           fi;
           number = 0; value = 0; sender = 0 }
    od
}

proctype Answers(byte board) {
    bit refused;
end:
    do
    :: atomic { !down[board] && nempty(answers[board]) ->
           answers[board]?refused;
           waiting[board]--;
#ifndef FAULT_DEAF
           told = told || refused;
#endif
           refused = 0 }
    od
}

/* The board ends and comes back, once. */
proctype Restart(byte board) {
    byte number, sender;
    bit value;
    if
    :: atomic { true ->
           down[board] = 1;
           life[board]++;
           do
           :: nempty(requests[board]) -> requests[board]?number, value, sender
           :: nempty(answers[board]) -> answers[board]?value
           :: nempty(answers[1 - board]) -> answers[1 - board]?value
           :: empty(requests[board]) && empty(answers[board]) && empty(answers[1 - board]) -> break
           od;
           ROW(board, 0) = 0;
           ROW(board, 1) = 0;
           told = 1;  /* by the other board, whose connection has ended */
           waiting[0] = 0;
           waiting[1] = 0;
           dirty = 1;
           number = 0; value = 0; sender = 0 };
       atomic { !busy[board] -> down[board] = 0 }
    :: true -> skip
    fi;
    restarts--
}

/* What the resync asks a board: its server has to be free for that. */
#define SERVED(board) (!busy[board] && !down[board])

inline remove(number) {
    if
    :: have[number] && !want[number] ->
       SERVED(0);
       if
       :: ROW(0, number) -> skip  /* the active board has taken it meanwhile */
       :: else -> atomic { SERVED(1) -> assert(dirty || !ROW(0, number)); ROW(1, number) = 0 }
       fi
    :: else -> skip
    fi
}

inline add(number) {
    if
    :: atomic { want[number] && !have[number] && SERVED(1) -> ROW(1, number) = 1 }
    :: !want[number] || have[number] -> skip
    fi
}

/* Board 0 is active, board 1 standby. */
proctype Resync() {
    bit want[ROWS], have[ROWS];
    byte round;
#ifdef QUIET
    AT_REST;
#endif
    do
    :: round == ROUNDS -> break
    :: else ->
       atomic { dirty = 0; round++ };
       atomic { SERVED(0) -> want[0] = ROW(0, 0) };
       atomic { SERVED(0) -> want[1] = ROW(0, 1) };
       atomic { SERVED(1) -> have[0] = ROW(1, 0) };
       atomic { SERVED(1) -> have[1] = ROW(1, 1) };
#ifdef FAULT_KEEPS
       if
       :: (!want[0] || have[0]) && (!want[1] || have[1]) -> resynced = 1; break
       :: else -> skip
       fi;
#else
       if
       :: want[0] == have[0] && want[1] == have[1] -> resynced = 1; break
       :: else -> skip
       fi;
#endif
#ifdef FAULT_FIRST
       atomic { SERVED(1) -> assert(dirty || !(ROW(0, 0) && ROW(1, 0))); ROW(1, 0) = 0; ROW(1, 1) = 0 };
       have[0] = 0;
       have[1] = 0;
#endif
       add(0);
       add(1);
#ifndef FAULT_KEEPS
       remove(0);
       remove(1)
#endif
    od;
    assert(dirty || !resynced || EQUAL);
#ifdef QUIET
    assert(resynced && EQUAL)
#endif
}

init {
    atomic {
        changes[0] = CHANGES;
#ifndef TELLS
        changes[1] = CHANGES;
#endif
        run Server(0);
        run Server(1);
        run Answers(0);
        run Answers(1);
#ifndef CROSSED
        restarts++;
        run Restart(1);
#endif
#if defined(LINK) || defined(QUIET)
        restarts++;
        run Restart(0);
#endif
#if defined(RESYNC) || defined(QUIET)
        run Resync()
#endif
    };
#ifdef CROSSED
    AT_REST;
    assert(EQUAL)
#endif
#ifdef TELLS
    AT_REST;
    assert(EQUAL || told)
#endif
}

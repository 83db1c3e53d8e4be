# Sourced by demo.sh, which provides `say`, `start_daemon` and `end_daemon`, has the programs in PATH, and ends the
# daemons that still run. Runs two control boards on one machine, each with a root of its own below the given folder,
# and shows what both hold and what happens when one fails.

# on SIDE COMMAND...: runs a command of portisolatectl on one of the boards.
on() {
    local side=$1
    shift
    printf '\n%s$ portisolatectl %s\n' "$side" "$*"
    PORTISOLATE_ROOT=$boards/$side portisolatectl "$@"
}

start_board() {
    start_daemon "$boards/$1"
    board_process[$1]=$started
}

# demo_two_boards FOLDER DESCRIPTIONS: FOLDER is empty, and the caller removes it; DESCRIPTIONS is boards/two.
demo_two_boards() {
    boards=$1
    declare -gA board_process=()
    local side
    for side in active standby; do
        mkdir -p "$boards/$side/tmp" "$boards/$side/etc/portisolate"
        cp "$2/$side/board.conf" "$boards/$side/etc/portisolate/"
        start_board "$side" || return 1
    done

    say "what is set on the active board is set on the standby board, too"
    on active group add 5 ge1/1 pon2/1 lag1
    on standby group list
    on standby matrix

    say "switch-over: the boards swap roles, then the board that was active fails"
    PORTISOLATE_ROOT=$boards/standby portisolatectl matrix >"$boards/before"
    on active board role standby
    on standby board role active
    end_daemon "${board_process[active]}" KILL
    on standby matrix
    PORTISOLATE_ROOT=$boards/standby portisolatectl matrix | cmp - "$boards/before" || return 1

    say "the remaining board works on alone, and reports this once"
    on standby group del 5 pon2/1
    on standby pair add ge1/2 pon2/2
    cat "$boards/standby/log"

    say "the failed board comes back with empty tables, as the standby board, and is made to hold the same"
    start_board active || return 1
    on active board role standby
    ! on standby status || return 1
    ! on standby board compare || return 1
    on standby board resync
    on standby status
    on active group list
    cmp <(PORTISOLATE_ROOT=$boards/active portisolatectl matrix) \
        <(PORTISOLATE_ROOT=$boards/standby portisolatectl matrix) || return 1
}

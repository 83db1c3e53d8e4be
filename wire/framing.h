// The sockets through which the outside reaches a running daemon on a host, as their clients see them. Every
// path takes the prefix of the environment variable PORTISOLATE_ROOT, empty by default.
#pragma once

#include <cstdint>

inline constexpr char ROOT_VARIABLE[] = "PORTISOLATE_ROOT";
inline constexpr char COMMAND_SOCKET_PATH[] = "/tmp/portisolatecmd.socket";
inline constexpr char RUN_FOLDER[] = "/run/portisolate";
inline constexpr char ROUTE_SOCKET_PATH[] = "/run/portisolate/route.socket";
inline constexpr char SHELL_SOCKET_PATH[] = "/run/portisolate/shell.socket";
inline constexpr char BOARD_SOCKET_PATH[] = "/run/portisolate/board.socket";
inline constexpr char PID_FILE[] = "/run/portisolate/pid";  // of the daemon: a decimal number and a line end

// The version of everything below and of the records, scalars and statuses beside it; the board's `about`
// tells it. The first number changes when a client of the former version would misread or be misread, the
// second when something is added.
inline constexpr uint32_t PROTOCOL_MAJOR = 1;
inline constexpr uint32_t PROTOCOL_MINOR = 0;

// Command socket (stream). All words are u32 in the host's byte order, all lengths in bytes:
//   request: length (of what follows) | opcode | column | index length | index | value length | value
//   reply:   length (of what follows) | status (i32) | index length | index | value length | value
// Opcodes and the shapes of their requests are in wire/operations.h, statuses in wire/status.h. Set and sync
// send the value; get sends no value bytes, its value length is the capacity that it offers. An index or
// value of length 0 reaches the handler as a null address. Get first and get next answer the key in `index`.
// A VLAN id is a 4-byte index. Many requests may be sent ahead; replies come in the order of the requests. A
// `length` outside the two bounds below ends the connection; whatever else is wrong is answered with a
// status.
inline constexpr uint32_t COMMAND_FRAME_MAX = 8192;  // largest `length` of a request
inline constexpr uint32_t COMMAND_WORDS_MIN = 16;    // smallest: the four words
inline constexpr uint32_t COMMAND_VALUE_MAX =
    2048;  // largest index or value; a larger capacity counts as this

// Route socket (datagram): u32 event group in the host's byte order, then the route messages.
//
// Shell socket (stream): one line with the name of an exported print function; the printout comes back, then
// the connection closes.
//
// Board socket (stream), one request per connection: one line, words separated by blanks. The answer's first
// line is "ok" or "error: TEXT"; lines that follow it up to the end of the connection are the result.

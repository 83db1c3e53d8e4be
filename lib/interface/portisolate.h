/* libportisolate: what a program needs to speak to the port-isolation daemon through its local sockets.
 *
 * Connections. A portisolate_connection stands for one daemon, below a root prefix. It connects when
 * something is asked, and again with the next request after it was cut off. Every wait of a call is bounded
 * by the connection's time-out, which counts for connecting, sending and the answer each.
 *
 * Results. A function that may fail answers PORTISOLATE_OK, or a negative number of enum portisolate_result.
 * portisolate_error() then has a sentence without a full stop, until another call on that connection fails.
 *
 * Memory. What a function hands out belongs to its handle, unless it says that it is to be freed. A text that
 * a connection hands out is valid until the next call on that connection, one of another handle as long as
 * the handle. Texts end with a 0 byte. Null may be freed.
 *
 * Threads. A handle, and what came of it, is used by one thread at a time. Different connections know nothing
 * of one another. The library keeps nothing else, starts no threads and touches no signals.
 *
 * Units. Times are milliseconds, sizes are bytes. Words in indexes and values are u32 in the byte order of
 * the machine. Interfaces are the board's numbers; a VLAN is 1 to 4095, and 0 stands for none or any.
 *
 * docs/protocol.md tells what goes over the sockets, docs/library.md how to build with this header. */
#ifndef PORTISOLATE_H
#define PORTISOLATE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define PORTISOLATE_API __attribute__((visibility("default")))
#else
#define PORTISOLATE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of the protocol that this header describes; no daemon of another major version is spoken to. */
#define PORTISOLATE_PROTOCOL_MAJOR 1
#define PORTISOLATE_PROTOCOL_MINOR 0

enum portisolate_result {
    PORTISOLATE_OK = 0,
    PORTISOLATE_UNREACHABLE = -1, /* nobody serves it, it did not answer in time, or the connection broke */
    PORTISOLATE_REFUSED = -2,     /* the daemon answered with a status, or the board with a sentence */
    PORTISOLATE_BROKEN = -3,      /* the answer makes no sense */
    PORTISOLATE_MISUSE = -4,      /* an argument is null or cannot be */
    PORTISOLATE_NO_MEMORY = -5,
    PORTISOLATE_OTHER_VERSION = -6, /* the daemon speaks another major version of the protocol */
    PORTISOLATE_END = -7,           /* there is nothing more */
    PORTISOLATE_LATE = -8,          /* nothing came in time; asking again is fine */
    PORTISOLATE_UNKNOWN = -9        /* there is nothing of that name or number */
};

/* The tables whose rows can be walked. */
enum portisolate_family {
    PORTISOLATE_GROUP = 1,      /* number: the group, member: an interface */
    PORTISOLATE_PAIR = 2,       /* number: the source, member: the target of a one-way pair */
    PORTISOLATE_VLAN_GROUP = 3, /* as GROUP, within a VLAN */
    PORTISOLATE_PON_OFF = 4     /* vlan: one in which PON isolation is switched off */
};

/* Which rows a walk is to find, added up. PON_OFF has nothing to match, and only a VLAN group has a VLAN. */
enum portisolate_match {
    PORTISOLATE_MATCH_ALL = 0,
    PORTISOLATE_MATCH_NUMBER = 1,
    PORTISOLATE_MATCH_VLAN = 2
};

struct portisolate_row {
    uint32_t number;
    uint32_t vlan;
    uint32_t member;
};

typedef struct portisolate_connection portisolate_connection;
typedef struct portisolate_walk portisolate_walk;
typedef struct portisolate_lines portisolate_lines;
typedef struct portisolate_notice portisolate_notice;

/* How an interface is called. Answers a text that is valid until the next call. */
typedef const char* (*portisolate_namer)(void* context, uint32_t number);

/* ---- Connections ---- */

/* The version of this library, such as "7.0.8". */
PORTISOLATE_API const char* portisolate_version(void);

/* `root` is the prefix of the daemon's paths, "" for the system's own; null takes it from PORTISOLATE_ROOT.
 * Connects to nothing yet. To be freed with portisolate_free; null without memory, or for a time-out below 1.
 */
PORTISOLATE_API portisolate_connection* portisolate_new(const char* root, int timeout);
PORTISOLATE_API void portisolate_free(portisolate_connection* connection);
/* What the last function that failed on this connection has to say, with the socket that it is about; ""
 * before that. The second has the reason alone, for a program with a sentence of its own. */
PORTISOLATE_API const char* portisolate_error(const portisolate_connection* connection);
PORTISOLATE_API const char* portisolate_reason(const portisolate_connection* connection);
/* Connects, where it is not connected, and asks for the version of the protocol. Requests do so by
 * themselves. */
PORTISOLATE_API int portisolate_connect(portisolate_connection* connection);
PORTISOLATE_API void portisolate_disconnect(portisolate_connection* connection);
/* The version of the protocol that the daemon tells of itself; 1.0 where it tells none. */
PORTISOLATE_API int portisolate_protocol(portisolate_connection* connection, uint32_t* major,
                                         uint32_t* minor);

/* ---- Requests ---- */

/* Sends a request and waits for the reply. `value` is for sets, `capacity` the room that a get offers for
 * one, at most 2048. PORTISOLATE_OK says that there is a reply: its status, 0 for success, is in `*status`,
 * which may not be null. */
PORTISOLATE_API int portisolate_request(portisolate_connection* connection, uint32_t opcode, uint32_t column,
                                        const void* index, size_t index_size, const void* value,
                                        size_t value_size, size_t capacity, int32_t* status);
/* Index and value of the last reply; the size may be 0. */
PORTISOLATE_API const void* portisolate_reply_index(const portisolate_connection* connection, size_t* size);
PORTISOLATE_API const void* portisolate_reply_value(const portisolate_connection* connection, size_t* size);
/* A scalar that is one word. */
PORTISOLATE_API int portisolate_scalar(portisolate_connection* connection, uint32_t id, uint32_t* value);

/* ---- Walks ---- */

/* A walk of a table in its order: of all rows, or of those that `match` says, whose number or VLAN is the
 * given one. Nothing is asked yet. To be freed; null without memory, or for a family that does not exist. */
PORTISOLATE_API portisolate_walk* portisolate_walk_new(int family, unsigned match, uint32_t number,
                                                       uint32_t vlan);
PORTISOLATE_API void portisolate_walk_free(portisolate_walk* walk);
/* The next row, or PORTISOLATE_END. Each is one request, so rows may come and go meanwhile. */
PORTISOLATE_API int portisolate_walk_next(portisolate_walk* walk, portisolate_connection* connection,
                                          struct portisolate_row* row);
/* The two halves of it, for a program that sends its requests by itself: what to send next, and what its
 * reply says. portisolate_walk_error tells what is wrong where the latter answers PORTISOLATE_BROKEN. */
PORTISOLATE_API uint32_t portisolate_walk_opcode(const portisolate_walk* walk);
PORTISOLATE_API const void* portisolate_walk_index(const portisolate_walk* walk, size_t* size);
PORTISOLATE_API int portisolate_walk_take(portisolate_walk* walk, int32_t status, const void* index,
                                          size_t size, struct portisolate_row* row);
PORTISOLATE_API const char* portisolate_walk_error(const portisolate_walk* walk);

/* ---- Names ---- */

/* The name of an interface, its number in digits where the board does not know it or cannot be asked: a
 * portisolate_namer whose context is a connection. Keeps what the board told, until portisolate_forget_names.
 */
PORTISOLATE_API const char* portisolate_interface_name(void* connection, uint32_t number);
PORTISOLATE_API int portisolate_interface_number(portisolate_connection* connection, const char* name,
                                                 uint32_t* number);
PORTISOLATE_API void portisolate_forget_names(portisolate_connection* connection);
/* "group"; null for what does not exist. */
PORTISOLATE_API const char* portisolate_family_name(int family);
/* The column of a family's rows, as requests carry it: "status" of rows, "state" of PON isolation; null for
 * another. */
PORTISOLATE_API const char* portisolate_column_name(int family, uint32_t column);
/* "mode" and its number; null, and PORTISOLATE_UNKNOWN, for what does not exist. */
PORTISOLATE_API const char* portisolate_scalar_name(uint32_t id);
PORTISOLATE_API int portisolate_scalar_number(const char* name, uint32_t* id);
/* A status in words, such as "not found: ...". */
PORTISOLATE_API const char* portisolate_status_text(int32_t status);

/* ---- Board, printouts, notifications ---- */

/* Sends a line to the board, such as "list", or "monitor" for notifications, whose stream has no end. The
 * lines of the answer are to be freed, and need the connection no more. */
PORTISOLATE_API int portisolate_ask_board(portisolate_connection* connection, const char* request,
                                          portisolate_lines** lines);
/* The next line, without its line end, within `timeout`; less than 0 waits for ever. `*line` is valid until
 * the next call. PORTISOLATE_LATE, PORTISOLATE_END, or a failure of which portisolate_lines_error tells. */
PORTISOLATE_API int portisolate_next_line(portisolate_lines* lines, int timeout, const char** line);
PORTISOLATE_API const char* portisolate_lines_error(const portisolate_lines* lines);
/* For poll; a line may be there already, so ask for one with a time-out of 0 first. */
PORTISOLATE_API int portisolate_lines_descriptor(const portisolate_lines* lines);
PORTISOLATE_API void portisolate_lines_free(portisolate_lines* lines);
/* What a print function of the daemon prints, such as portIsolateGrpShow. */
PORTISOLATE_API int portisolate_print(portisolate_connection* connection, const char* function,
                                      const char** text, size_t* size);

/* A line of the board's "monitor" in fields and in a sentence. `name` calls the interfaces in it; null leaves
 * their numbers. To be freed; null for a line that does not keep to the form, or without memory. */
PORTISOLATE_API portisolate_notice* portisolate_notice_new(const char* line, portisolate_namer name,
                                                           void* context);
PORTISOLATE_API void portisolate_notice_free(portisolate_notice* notice);
/* "request", "event", "hardware", "query", "log", or "dropped" where lines are missing. */
PORTISOLATE_API const char* portisolate_notice_kind(const portisolate_notice* notice);
/* "group 5, ge1/1: create"; empty where lines are missing. */
PORTISOLATE_API const char* portisolate_notice_sentence(const portisolate_notice* notice);
/* The fields in their order: name and value of one, null behind the last; and a value by its name, null for
 * none. */
PORTISOLATE_API const char* portisolate_notice_name(const portisolate_notice* notice, size_t position);
PORTISOLATE_API const char* portisolate_notice_value(const portisolate_notice* notice, size_t position);
PORTISOLATE_API const char* portisolate_notice_field(const portisolate_notice* notice, const char* name);

#ifdef __cplusplus
}
#endif

#endif

/* Prints the group table, then what happens, COUNT lines of it: cc follow.c $(pkg-config --cflags --libs libportisolate) */
#include <portisolate.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static void fail(portisolate_connection *daemon) {
    fprintf(stderr, "follow: %s\n", portisolate_error(daemon));
    exit(EXIT_FAILURE);
}

static void list_groups(portisolate_connection *daemon) {
    portisolate_walk *walk = portisolate_walk_new(PORTISOLATE_GROUP, PORTISOLATE_MATCH_ALL, 0, 0);
    struct portisolate_row row;
    int result;
    while ((result = portisolate_walk_next(walk, daemon, &row)) == PORTISOLATE_OK) {
        printf("group %u: %s\n", row.number, portisolate_interface_name(daemon, row.member));
    }
    portisolate_walk_free(walk);
    if (result != PORTISOLATE_END) fail(daemon);
}

int main(int argc, char **argv) {
    portisolate_connection *daemon = portisolate_new(NULL, 5000);
    portisolate_lines *lines;
    const char *line;
    int left = argc > 1 ? atoi(argv[1]) : 0;
    if (portisolate_ask_board(daemon, "monitor", &lines) != PORTISOLATE_OK) fail(daemon);
    list_groups(daemon);
    fflush(stdout);
    while (left > 0 && portisolate_next_line(lines, -1, &line) == PORTISOLATE_OK) {
        portisolate_notice *notice = portisolate_notice_new(line, portisolate_interface_name, daemon);
        const char *pid = notice ? portisolate_notice_field(notice, "pid") : NULL; /* of who sent a request */
        if (pid != NULL && atol(pid) != getpid() && left-- > 0) printf("%s\n", portisolate_notice_sentence(notice));
        portisolate_notice_free(notice);
    }
    portisolate_lines_free(lines);
    portisolate_free(daemon);
    return EXIT_SUCCESS;
}

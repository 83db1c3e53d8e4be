#include "host/linux/nft_events.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <libmnl/libmnl.h>
#include <linux/filter.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstddef>

#include "common/text.h"
#include "host/linux/nft_transaction.h"

namespace {

constexpr size_t DATAGRAM_MAX = 64 * 1024;
constexpr int RECEIVE_BUFFER = 8 * 1024 * 1024;  // bytes
constexpr int DATAGRAMS_MAX = 4096;              // taken at once
constexpr int GENERATION_WAIT = 5;               // milliseconds for the end of a transaction that has begun
// The name of its table is in the same attribute of whatever is in a table.
constexpr uint16_t TABLE_ATTRIBUTE = NFTA_TABLE_NAME;

struct Reading {
    TableNews& news;
    bool open = false;  // a transaction whose end has not been read
};

using Attributes = std::array<const nlattr*, NFTA_GEN_MAX + 1>;

int keepAttribute(const nlattr* attribute, void* data) {
    const uint16_t type = mnl_attr_get_type(attribute);
    if (type <= NFTA_GEN_MAX) (*static_cast<Attributes*>(data))[type] = attribute;
    return MNL_CB_OK;
}

bool holds(const nlattr* attribute, mnl_attr_data_type type) {
    return attribute != nullptr && mnl_attr_validate(attribute, type) >= 0;
}

int takeMessage(const nlmsghdr* message, void* data) {
    Reading& reading = *static_cast<Reading*>(data);
    if (message->nlmsg_type >> 8 != NFNL_SUBSYS_NFTABLES ||
        mnl_nlmsg_get_payload_len(message) < sizeof(nfgenmsg)) {
        return MNL_CB_OK;
    }
    Attributes attributes = {};
    mnl_attr_parse(message, sizeof(nfgenmsg), keepAttribute, &attributes);
    if ((message->nlmsg_type & 0xff) == NFT_MSG_NEWGEN) {
        const nlattr* process = attributes[NFTA_GEN_PROC_PID];
        const nlattr* name = attributes[NFTA_GEN_PROC_NAME];
        if (reading.open && holds(process, MNL_TYPE_U32) && holds(name, MNL_TYPE_NUL_STRING)) {
            reading.news.by = fmt::format("{}, process {}", safeText(mnl_attr_get_str(name)),
                                          ntohl(mnl_attr_get_u32(process)));
        }
        reading.open = false;
        return MNL_CB_OK;
    }
    const auto* header = static_cast<const nfgenmsg*>(mnl_nlmsg_get_payload(message));
    const nlattr* table = attributes[TABLE_ATTRIBUTE];
    if (header->nfgen_family != NFPROTO_BRIDGE || !holds(table, MNL_TYPE_NUL_STRING)) return MNL_CB_OK;
    if (std::string_view(mnl_attr_get_str(table)) == FILTER_TABLE) reading.news.touched = reading.open = true;
    return MNL_CB_OK;
}

// A datagram holds messages of one transaction. A filter of the socket sees numbers in network order.
int dropOwn(int fd, uint32_t own) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(nlmsghdr, nlmsg_pid)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(own), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, UINT32_MAX),
    };
    const sock_fprog filter = {static_cast<unsigned short>(std::size(program)), program};
    return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof(filter));
}

int subscribe(mnl_socket* socket, uint32_t own) {
    const int fd = mnl_socket_get_fd(socket);
    const int group = NFNLGRP_NFTABLES;
    if (mnl_socket_bind(socket, 0, MNL_SOCKET_AUTOPID) < 0 || dropOwn(fd, own) != 0) return errno;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &RECEIVE_BUFFER, sizeof(RECEIVE_BUFFER));
    return setsockopt(fd, SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) == 0 ? 0 : errno;
}

}  // namespace

int openTableEvents(TableEvents& events, uint32_t own) {
    events.buffer.resize(DATAGRAM_MAX);
    events.socket = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (events.socket == nullptr) return errno;
    const int problem = subscribe(events.socket, own);
    if (problem == 0) return 0;
    mnl_socket_close(events.socket);
    events.socket = nullptr;
    return problem;
}

bool awaitTableEvents(const TableEvents& events, int timeout) {
    pollfd input = {events.socket == nullptr ? -1 : mnl_socket_get_fd(events.socket), POLLIN, 0};
    return poll(&input, 1, timeout) > 0;
}

TableNews takeTableEvents(TableEvents& events) {
    TableNews news;
    Reading reading = {news};
    for (int taken = 0; taken < DATAGRAMS_MAX; ++taken) {
        const ssize_t length = mnl_socket_recvfrom(events.socket, events.buffer.data(), events.buffer.size());
        if (length >= 0) {
            mnl_cb_run(events.buffer.data(), static_cast<size_t>(length), 0, 0, takeMessage, &reading);
        } else if (errno == EAGAIN) {
            if (!reading.open || !awaitTableEvents(events, GENERATION_WAIT)) return news;
        } else if (errno != EINTR) {
            news.touched = true;
        }
    }
    return news;
}

#include "host/linux/nft_transaction.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <libnftnl/gen.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <cerrno>

namespace {

constexpr size_t MESSAGE_ROOM = 64 * 1024;
constexpr size_t BATCH_ROOM = 4096;  // for the rest of a transaction
constexpr int SEND_BUFFER = 64 * 1024 * 1024;
constexpr size_t SEND_BUFFER_LEAST = 128 * 1024;  // what every system allows
constexpr size_t ANSWER_ROOM = 64 * 1024;
constexpr uint32_t DUMP_TRIES = 10;  // of one that somebody else's change interrupts

nlmsghdr* appendHeader(Batch& batch, uint16_t type, uint16_t family, uint16_t flags, uint16_t resource) {
    Filter& filter = *batch.filter;
    if (filter.message.size() < batch.length + MESSAGE_ROOM + BATCH_ROOM) {
        filter.message.resize(batch.length + MESSAGE_ROOM + BATCH_ROOM);
    }
    nlmsghdr* header = mnl_nlmsg_put_header(filter.message.data() + batch.length);
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    header->nlmsg_seq = ++filter.sequence;
    auto* generic = static_cast<nfgenmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(nfgenmsg)));
    generic->nfgen_family = static_cast<uint8_t>(family);
    generic->version = NFNETLINK_V0;
    generic->res_id = htons(resource);
    return header;
}

// Every answer that waits: the kernel has handled a request when the send returns. 0, or the first refusal.
int drainAnswers(Filter& filter, const MessageReader& message) {
    int refused = 0;
    for (;;) {
        const ssize_t length =
            recv(mnl_socket_get_fd(filter.socket), filter.answer.data(), filter.answer.size(), MSG_DONTWAIT);
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return refused != 0 || errno == EAGAIN ? refused : errno;
        auto left = static_cast<int>(length);
        for (auto* header = reinterpret_cast<nlmsghdr*>(filter.answer.data()); mnl_nlmsg_ok(header, left);
             header = mnl_nlmsg_next(header, &left)) {
            if (header->nlmsg_type != NLMSG_ERROR) {
                message(header);
                continue;
            }
            const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
            if (error->error != 0 && refused == 0) refused = -error->error;
        }
    }
}

int sendBuffer(Filter& filter, size_t length) {
    return mnl_socket_sendto(filter.socket, filter.message.data(), length) < 0 ? errno : 0;
}

}  // namespace

int openFilter(Filter& filter) {
    filter.socket = mnl_socket_open2(NETLINK_NETFILTER, SOCK_CLOEXEC);
    if (filter.socket == nullptr) return errno;
    if (mnl_socket_bind(filter.socket, 0, MNL_SOCKET_AUTOPID) < 0) {
        const int problem = errno;
        closeFilter(filter);
        return problem;
    }
    filter.answer.resize(ANSWER_ROOM);
    // Beyond the system's limit where this process may.
    const int fd = mnl_socket_get_fd(filter.socket);
    const bool wide = setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &SEND_BUFFER, sizeof(SEND_BUFFER)) == 0;
    filter.capacity = wide ? SEND_BUFFER : SEND_BUFFER_LEAST;
    return 0;
}

void closeFilter(Filter& filter) {
    if (filter.socket != nullptr) mnl_socket_close(filter.socket);
    filter.socket = nullptr;
}

nlmsghdr* appendMessage(Batch& batch, int type, uint16_t flags) {
    return appendHeader(batch, static_cast<uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | type), NFPROTO_BRIDGE, flags,
                        0);
}

void closeMessage(Batch& batch, const nlmsghdr* header) {
    batch.length += NLMSG_ALIGN(header->nlmsg_len);
}

Batch beginBatch(Filter& filter) {
    Batch batch = {&filter, 0};
    closeMessage(batch, appendHeader(batch, NFNL_MSG_BATCH_BEGIN, AF_UNSPEC, 0, NFNL_SUBSYS_NFTABLES));
    return batch;
}

// A batch that has no end is taken back by the kernel.
int commitBatch(Batch& batch) {
    closeMessage(batch, appendHeader(batch, NFNL_MSG_BATCH_END, AF_UNSPEC, 0, NFNL_SUBSYS_NFTABLES));
    return abandonBatch(batch);
}

int abandonBatch(Batch& batch) {
    const int problem = sendBuffer(*batch.filter, batch.length);
    return problem != 0 ? problem : drainAnswers(*batch.filter, [](const nlmsghdr*) {});
}

int ask(Filter& filter, int type, uint16_t flags, const FilterRequest& request) {
    for (uint32_t i = 0; i < DUMP_TRIES; ++i) {
        if (request.reset) request.reset();
        Batch batch = {&filter, 0};
        nlmsghdr* header = appendMessage(batch, type, flags);
        if (request.build) request.build(header);
        closeMessage(batch, header);
        int problem = sendBuffer(filter, batch.length);
        bool done = (flags & NLM_F_DUMP) == 0;
        bool interrupted = false;
        if (problem == 0) {
            problem = drainAnswers(filter, [&](const nlmsghdr* answer) {
                interrupted |= (answer->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
                if (answer->nlmsg_type == NLMSG_DONE) {
                    done = true;
                } else {
                    request.read(answer);
                }
            });
        }
        if (problem == 0 && !done) problem = EINTR;
        if (problem != EINTR && !interrupted) return problem;
    }
    return EINTR;
}

uint32_t portOf(const Filter& filter) {
    return mnl_socket_get_portid(filter.socket);
}

int readGeneration(Filter& filter, uint32_t& generation) {
    return ask(filter, NFT_MSG_GETGEN, 0, {.read = [&](const nlmsghdr* header) {
                   nftnl_gen* gen = nftnl_gen_alloc();
                   if (nftnl_gen_nlmsg_parse(header, gen) >= 0) {
                       generation = nftnl_gen_get_u32(gen, NFTNL_GEN_ID);
                   }
                   nftnl_gen_free(gen);
               }});
}

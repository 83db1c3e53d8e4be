#include "host/services/privileges.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "host/services/logging.h"

namespace {

constexpr int KEPT[] = {CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_FOWNER, CAP_NET_ADMIN};

// As the kernel takes them, 32 in a word.
constexpr uint32_t keptIn(uint32_t word) {
    uint32_t mask = 0;
    for (const int capability : KEPT) {
        const auto number = static_cast<uint32_t>(capability);
        if (number / 32 == word) mask |= 1u << number % 32;
    }
    return mask;
}

bool isKept(int capability) {
    const auto number = static_cast<uint32_t>(capability);
    return (keptIn(number / 32) >> number % 32 & 1) != 0;
}

}  // namespace

bool dropPrivileges() {
    // What no program started from here could have either; without CAP_SETPCAP it stays as the starter left
    // it.
    for (int capability = 0; prctl(PR_CAPBSET_READ, capability) >= 0; ++capability) {
        if (!isKept(capability)) prctl(PR_CAPBSET_DROP, capability);
    }
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
    __user_cap_header_struct header = {.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct words[_LINUX_CAPABILITY_U32S_3] = {};
    bool done = syscall(SYS_capget, &header, words) == 0;
    for (uint32_t word = 0; word < _LINUX_CAPABILITY_U32S_3; ++word) {
        words[word].effective &= keptIn(word);
        words[word].permitted &= keptIn(word);
        words[word].inheritable = 0;
    }
    done = done && syscall(SYS_capset, &header, words) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
    if (!done) hostReport("the daemon does not start: privileges not dropped: {}", std::strerror(errno));
    return done;
}

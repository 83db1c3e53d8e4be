#include "lib/link/happening.h"

#include <memory>

#include "lib/interface/portisolate.h"
#include "lib/link/interfaces.h"

namespace {

struct Namer {
    Session& session;
    std::string name{};
};

const char* nameFor(void* context, uint32_t number) {
    auto* namer = static_cast<Namer*>(context);
    namer->name = interfaceName(namer->session, number);
    return namer->name.c_str();
}

}  // namespace

std::vector<EventMessage> eventMessages(Session& session, const Happening& happening) {
    return eventMessages(boardNamer(session), happening);
}

std::optional<Happening> readHappening(Session& session, std::string_view line) {
    Namer namer{.session = session};
    const std::unique_ptr<portisolate_notice, void (*)(portisolate_notice*)> notice(
        portisolate_notice_new(std::string(line).c_str(), nameFor, &namer), portisolate_notice_free);
    if (notice == nullptr) return std::nullopt;
    Happening happening = {.kind = portisolate_notice_kind(notice.get()),
                           .fields = {},
                           .sentence = portisolate_notice_sentence(notice.get())};
    for (size_t at = 0; portisolate_notice_name(notice.get(), at) != nullptr; ++at) {
        happening.fields.push_back(
            {portisolate_notice_name(notice.get(), at), portisolate_notice_value(notice.get(), at)});
    }
    return happening;
}

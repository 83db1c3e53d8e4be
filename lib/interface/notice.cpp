// The lines of the board's `monitor`, as handles.
#include <memory>

#include "common/happenings.h"
#include "lib/interface/connection.h"

struct portisolate_notice {
    Happening happening;
};

portisolate_notice* portisolate_notice_new(const char* line, portisolate_namer name, void* context) {
    return madeBy([&]() -> portisolate_notice* {
        if (line == nullptr) return nullptr;
        const InterfaceNamer nameOf = [name, context](uint32_t number) {
            const char* known = name == nullptr ? nullptr : name(context, number);
            return known != nullptr ? std::string(known) : std::to_string(number);
        };
        std::optional<Happening> happening = readHappening(nameOf, line);
        return happening ? new portisolate_notice{std::move(*happening)} : nullptr;
    });
}

void portisolate_notice_free(portisolate_notice* notice) {
    delete notice;
}

const char* portisolate_notice_kind(const portisolate_notice* notice) {
    return notice == nullptr ? nullptr : notice->happening.kind.c_str();
}

const char* portisolate_notice_sentence(const portisolate_notice* notice) {
    return notice == nullptr ? nullptr : notice->happening.sentence.c_str();
}

const char* portisolate_notice_name(const portisolate_notice* notice, size_t position) {
    if (notice == nullptr || position >= notice->happening.fields.size()) return nullptr;
    return notice->happening.fields[position].name.c_str();
}

const char* portisolate_notice_value(const portisolate_notice* notice, size_t position) {
    if (notice == nullptr || position >= notice->happening.fields.size()) return nullptr;
    return notice->happening.fields[position].value.c_str();
}

const char* portisolate_notice_field(const portisolate_notice* notice, const char* name) {
    if (notice == nullptr || name == nullptr) return nullptr;
    const std::string* value = fieldValue(notice->happening.fields, name);
    return value == nullptr ? nullptr : value->c_str();
}

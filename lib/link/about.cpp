#include "lib/link/about.h"

#include <cstdlib>

#include "common/fields.h"
#include "common/happenings.h"
#include "common/text.h"
#include "common/words.h"

About readAbout(Session& session) {
    About about;
    for (const std::string& line : askBoard(session, "about")) {
        for (const std::string& word : splitWords(line)) {
            const Field field = splitField(word);
            uint32_t number = 0;
            if (field.name == "version") about.version = field.value;
            if (field.name == "since" && isBoardNumber(field.value)) about.since = field.value;
            if (field.name == "clients" && parseGivenNumber(field.value, number)) about.clients = number;
            if (field.name == "refused") about.refused = std::strtoull(field.value.c_str(), nullptr, 10);
        }
    }
    return about;
}

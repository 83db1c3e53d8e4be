#include "ctl/commands/matrix.h"

#include <cerrno>
#include <cstring>

#include "client/answers/matrix_answer.h"
#include "client/link/interfaces.h"
#include "client/link/matrix.h"
#include "client/text/args.h"
#include "client/text/listing.h"
#include "common/files.h"
#include "ctl/commands/matrix_svg.h"
#include "ctl/commands/matrix_view.h"

namespace {

// A line for each row and for each cell that is blocked in VLANs, below the field that they belong to.
void printJson(const Json& answer) {
    std::vector<std::string> fields;
    for (const auto& [name, value] : answer.items()) {
        std::vector<std::string> parts;
        const bool listed = name == "rows" || name == "blockedInVlans";
        for (const Json& part : listed ? value : Json::array()) parts.push_back(jsonText(part));
        const char* opened = name == "rows" ? "[\n  " : "[";
        fields.push_back(
            jsonField(name, listed ? opened + joinWords(parts, ",\n  ") + "]" : jsonText(value)));
    }
    printLine(jsonLines("{", fields, "}"));
}

// The marks that occur, with their meaning.
void printLegend(const Matrix& matrix) {
    std::string seen;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            seen += matrixMark(matrix, row, column);
        }
    }
    printLine("");
    printLine("From the row to the column, " + matrixScope(matrix) + ":");
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        if (seen.find(meaning.mark) == std::string::npos) continue;
        std::string text = meaning.text;
        if (meaning.mark == MATRIX_IN_VLAN) {
            text += " (" + numberList(matrixVlans(matrix)) + "; --vlan shows one)";
        }
        printLine("  " + markText(meaning.mark) + "  " + text);
    }
}

void writeFile(const std::string& path, const std::string& text) {
    if (replaceTextFile(path, text, false)) return;
    throw misuse("cannot write " + path + ": " + std::strerror(errno));
}

}  // namespace

Exit runMatrix(Session& session, const Invocation& invocation) {
    const Matrix matrix = readMatrix(session, vlanOption(invocation.options));
    if (const std::string* path = fieldValue(invocation.options, "--svg")) {
        writeFile(*path, matrixSvg(matrix));
    } else if (session.json) {
        printJson(matrixAnswer(matrix, isSimulated(session)));
    } else {
        for (const std::string& line : renderMatrix(matrix)) printLine(line);
        printLegend(matrix);
        if (isSimulated(session)) printLine("The plane is simulated: it isolates no real port.");
    }
    return Exit::done;
}

constexpr Command MATRIX_COMMANDS[] = {
    {.object = "matrix",
     .signature = "[--vlan VLAN] [--svg FILE]",
     .help = "show who may talk to whom, as the hardware forwards",
     .example = "matrix --vlan 10",
     .run = runMatrix,
     .json = "{vlan, interfaces, rows, blockedInVlans, simulated}: rows are {from, to: {NAME: forwards, "
             "blocked or "
             "partly}}, blockedInVlans are {from, to, vlans}"},
};

Commands matrixCommands() {
    return MATRIX_COMMANDS;
}

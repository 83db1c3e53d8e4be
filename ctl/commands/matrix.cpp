#include "ctl/commands/matrix.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/files.h"
#include "ctl/commands/matrix_svg.h"
#include "ctl/commands/matrix_view.h"
#include "lib/answers/matrix_answer.h"
#include "lib/link/interfaces.h"
#include "lib/link/matrix.h"
#include "lib/text/args.h"
#include "lib/text/listing.h"

namespace {

// A line for each row, for each cell that is blocked in VLANs and for each class, below the field that they
// belong to.
void printJson(const Json& answer) {
    std::vector<std::string> fields;
    for (const auto& [name, value] : answer.items()) {
        std::vector<std::string> parts;
        const bool some = name == "blockedInVlans" || name == "spanning";
        const bool listed = some || name == "rows" || name == "classes";
        for (const Json& part : listed ? value : Json::array()) parts.push_back(jsonText(part));
        const char* opened = some ? "[" : "[\n  ";
        fields.push_back(
            jsonField(name, listed ? opened + joinWords(parts, ",\n  ") + "]" : jsonText(value)));
    }
    printLine(jsonLines("{", fields, "}"));
}

// The marks that occur, with their meaning.
void printLegend(const Matrix& matrix) {
    std::set<char> seen;
    for (size_t row = 0; row < matrix.names.size(); ++row) {
        for (size_t column = 0; column < matrix.names.size(); ++column) {
            seen.insert(matrixMark(matrix, row, column));
        }
    }
    printLine("");
    printLine("From the row to the column, " + matrixScope(matrix) + ":");
    for (const MatrixMeaning& meaning : matrixMeanings()) {
        if (!seen.contains(meaning.mark)) continue;
        std::string text = meaning.text;
        if (meaning.mark == MATRIX_IN_VLAN) {
            text += " (" + numberList(matrixVlans(matrix)) + "; --vlan shows one)";
        }
        if (meaning.mark == MATRIX_SPANS) text += " (" + spanningText(matrixGroups(matrix)) + ")";
        printLine("  " + markText(meaning.mark) + "  " + text);
    }
}

void writeFile(const std::string& path, const std::string& text) {
    if (replaceTextFile(path, text, false)) return;
    throw misuse("cannot write " + path + ": " + std::strerror(errno));
}

// The places of the interfaces that were asked for. A member port stands in its trunk's row.
std::vector<size_t> givenPlaces(Session& session, const Matrix& matrix,
                                const std::vector<std::string>& given) {
    std::vector<size_t> places;
    for (const uint32_t number : resolveInterfaces(session, given)) {
        const std::string name = interfaceName(session, number);
        const auto found = std::find(matrix.names.begin(), matrix.names.end(), name);
        if (found == matrix.names.end()) {
            const BoardInterface* interface = findInterface(session, number);
            const bool member = interface != nullptr && !interface->trunk.empty();
            throw misuse(name + " has no row in the matrix" +
                         (member ? ": it is a member port of " + interface->trunk : ""));
        }
        places.push_back(static_cast<size_t>(found - matrix.names.begin()));
    }
    return places;
}

Matrix wantedMatrix(Session& session, const Invocation& invocation) {
    Matrix matrix = readMatrix(session, vlanOption(invocation.options));
    if (!invocation.arguments.empty()) {
        matrix = pickMatrix(matrix, givenPlaces(session, matrix, invocation.arguments));
    }
    const bool blocked = fieldValue(invocation.options, "--blocked") != nullptr;
    if (blocked) matrix = pickMatrix(matrix, blockedPlaces(matrix));
    return fieldValue(invocation.options, "--alike") != nullptr ? foldMatrix(matrix) : matrix;
}

void printMatrix(const Matrix& matrix) {
    const size_t width = terminalWidth();
    const RenderedMatrix rendered = renderMatrix(matrix, width);
    for (const std::string& line : rendered.lines) printLine(line);
    if (rendered.leftOut != 0) {
        const size_t all = matrix.names.size();
        printLine(
            fmt::format("{} of {} columns are left out: the terminal has {}.", rendered.leftOut, all, width));
        printLine("INTERFACEs, --blocked and --alike show less, --svg and a pipe all.");
    }
    printLegend(matrix);
}

}  // namespace

Exit runMatrix(Session& session, const Invocation& invocation) {
    const Matrix matrix = wantedMatrix(session, invocation);
    if (const std::string* path = fieldValue(invocation.options, "--svg")) {
        writeFile(*path, matrixSvg(matrix));
    } else if (session.json) {
        printJson(matrixAnswer(matrix, isSimulated(session)));
    } else if (matrix.names.empty()) {
        printLine("Nothing is blocked " + matrixScope(matrix) + ".");
    } else {
        printMatrix(matrix);
        if (isSimulated(session)) printLine("The plane is simulated: it isolates no real port.");
    }
    return Exit::done;
}

constexpr Command MATRIX_COMMANDS[] = {
    {.object = "matrix",
     .signature = MATRIX_SIGNATURE,
     .help = "show who may talk to whom, as the hardware forwards",
     .example = "matrix --vlan 10",
     .run = runMatrix,
     .details = MATRIX_DETAILS,
     .json = "{vlan, interfaces, rows, blockedInVlans, spanning, simulated}: rows are {from, to: {NAME: "
             "forwards, blocked or partly}}, blockedInVlans are {from, to, vlans}, spanning are {from, to, "
             "groups}: members of these are kept apart from those on other machines; with --alike also "
             "classes: {first, interfaces, among}, "
             "where the first stands for all and among says how they stand to one another"},
};

Commands matrixCommands() {
    return MATRIX_COMMANDS;
}

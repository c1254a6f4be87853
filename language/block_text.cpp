// Indenting a line by a tab changes nothing a python3 function body would
// see unless the line continues a string literal (its text would gain the
// tab) or the indentation itself is special: those texts are refused here
// and compiled through the syntax tree instead. Brackets that span lines are
// fine, since blanks between tokens do not count.
#include "language/block_text.h"

namespace tesk::cpython {
namespace {

bool has_any_of(std::string_view text, std::string_view characters) {
    return text.find_first_of(characters) != std::string_view::npos;
}

bool contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

bool is_plain_identifier(std::string_view name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
    for (char c : name) {
        bool const word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        if (!word) return false;
    }
    return true;
}

// Walks the block's lines: no line break inside a quoted string, and the
// first statement starts at the first column.
bool lines_can_be_indented(std::string_view text) {
    char quote = 0;  // the open string's quote character, or 0
    bool comment = false;
    bool atLineStart = true;
    bool statementSeen = false;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char const c = text[i];
        if (c == '\n') {
            if (quote != 0) return false;
            comment = false;
            atLineStart = true;
            lineStart = i + 1;
            continue;
        }
        if (atLineStart && c != ' ' && c != '\t') {
            atLineStart = false;
            if (c != '#' && !statementSeen) {
                if (i != lineStart) return false;
                statementSeen = true;
            }
        }
        if (comment) continue;
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '#') {
            comment = true;
        }
    }
    return statementSeen;
}

} // namespace

std::optional<std::string> block_function_text(std::string_view block, std::vector<String> const& globalNames) {
    using namespace std::string_view_literals;
    if (has_any_of(block, "\\\r\f\v\0"sv) || contains(block, "'''") || contains(block, "\"\"\"") ||
        contains(block, "__future__") || contains(block, "class") || !lines_can_be_indented(block))
        return std::nullopt;
    std::string text = "def tesk_outer():\n";
    if (!globalNames.empty()) {
        text += "\tglobal ";
        for (std::size_t i = 0; i < globalNames.size(); ++i) {
            std::string_view const name = globalNames[i].asChars();
            if (!is_plain_identifier(name)) return std::nullopt;
            if (i != 0) text += ", ";
            text += name;
        }
        text += '\n';
    }
    text.reserve(text.size() + block.size() + 64);
    std::size_t start = 0;
    while (true) {
        std::size_t const end = block.find('\n', start);
        text += '\t';
        text += block.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        text += '\n';
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return text;
}

} // namespace tesk::cpython

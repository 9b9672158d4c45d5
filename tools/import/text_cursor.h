#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velpick::detail {

/// Walks a text file line by line and token by token, allocating nothing. Tokens are separated
/// by spaces or tabs; "\n", "\r\n" and "\r" end lines. Numbers are parsed with std::from_chars,
/// so they do not depend on the process locale.
class TextCursor {
  public:
    explicit TextCursor(std::string_view text) : m_text(text) {}

    /// 1-based number of the line the cursor is on.
    std::size_t LineNumber() const { return m_line; }
    bool AtEnd() const { return m_position >= m_text.size(); }

    /// Moves past spaces and tabs; true when a token follows on this line.
    bool HasToken() {
        while (m_position < m_text.size() && isBlank(m_text[m_position]))
            ++m_position;
        return m_position < m_text.size() && !isLineEnd(m_text[m_position]);
    }
    /// The next token of this line, empty at the end of the line.
    std::string_view ReadToken() {
        if (!HasToken())
            return {};
        const std::size_t begin = m_position;
        while (m_position < m_text.size() && !isBlank(m_text[m_position]) &&
               !isLineEnd(m_text[m_position]))
            ++m_position;
        return m_text.substr(begin, m_position - begin);
    }
    /// Moves to the start of the next line, skipping what is left of this one.
    void NextLine() {
        while (m_position < m_text.size() && !isLineEnd(m_text[m_position]))
            ++m_position;
        if (m_position == m_text.size())
            return;
        // "\r\n" is one line end, and so is a lone "\r" or "\n".
        const bool carriageReturn = m_text[m_position++] == '\r';
        if (carriageReturn && m_position < m_text.size() && m_text[m_position] == '\n')
            ++m_position;
        ++m_line;
    }
    /// Moves to the next line that holds a token and does not start with `comment`; false at
    /// the end of the text.
    bool NextContentLine(char comment) {
        while (!AtEnd()) {
            if (HasToken() && m_text[m_position] != comment)
                return true;
            NextLine();
        }
        return false;
    }
    /// Offset of the cursor in the text.
    std::size_t Position() const { return m_position; }

    bool ReadDouble(double& value) { return parse(value); }
    bool ReadInteger(std::int64_t& value) { return parse(value); }

  private:
    static bool isBlank(char c) { return c == ' ' || c == '\t'; }
    static bool isLineEnd(char c) { return c == '\n' || c == '\r'; }

    // A whole token must parse: "12abc" is not the number 12.
    template <class T>
    bool parse(T& value) {
        const std::string_view token = ReadToken();
        if (token.empty())
            return false;
        const char* end = token.data() + token.size();
        // from_chars takes no plus sign; a sign after it ("+-1") stays an error.
        const char* begin = token.data() + (token[0] == '+' && token.size() > 1 && token[1] != '-');
        const auto [stop, error] = std::from_chars(begin, end, value);
        return error == std::errc() && stop == end;
    }

    std::string_view m_text;
    std::size_t m_position = 0;
    std::size_t m_line = 1;
};

}  // namespace velpick::detail

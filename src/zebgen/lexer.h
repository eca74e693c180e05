// lexer.h - characters to tokens; comments are kept apart, with their places.
#ifndef ZEBGEN_LEXER_H
#define ZEBGEN_LEXER_H

#include "model.h"

namespace zebgen {

enum class TokenKind { identifier, number, string, punctuation, end };

struct Token {
    TokenKind kind = TokenKind::end;
    std::string text; // of a string: what stands between the quotes
    int line = 1;
    int column = 1;
    bool first_on_line = false;
    size_t comments_before = 0; // comments that precede this token in the file

    bool is(const char *expected) const {
        return kind != TokenKind::string && kind != TokenKind::end && text == expected;
    }
};

struct Comment {
    std::string text; // white space folded
    int line = 1;
    int column = 1;
    int end_line = 1;
    bool first_on_line = false;
};

struct Tokens {
    std::vector<Token> tokens; // always closed by one of kind end
    std::vector<Comment> comments;
};

// Text that is not a text file (NUL bytes, control characters, bad UTF-8) is refused at its first
// such byte and yields no tokens.
Tokens tokenize(const std::string &file, const std::string &text, Problems &problems);

} // namespace zebgen
#endif

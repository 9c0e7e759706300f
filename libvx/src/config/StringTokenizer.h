// Splitting text into tokens, and cutting file paths.
#ifndef STRINGTOKENIZER_H
#define STRINGTOKENIZER_H

#include "vxexport.h"

#include <string>
#include <vector>

// Splits a text at runs of delimiter characters, one token at a time. Tokens are never empty, there
// is no quoting. An empty text or delimiter set yields no tokens.
// Threads: one object is used by one thread.
class VX_EXPORT StringTokenizer
{
public:
    StringTokenizer(std::string text, std::string delimiters);

    // How many tokens are still to come.
    int countTokens() const;
    bool hasMoreTokens() const;

    // The next token, empty after the last one. `delimiters`, when neither null nor empty, replaces
    // the delimiter set for this call: the token ends at one of these, and only these are skipped.
    std::string nextToken(const char* delimiters = nullptr);

    // The next token as a decimal number; 0 when there is none or it does not start with digits.
    int nextIntToken();
    double nextFloatToken();

    // The text not yet returned, starting at the next token.
    std::string remainingString() const;

    // All tokens of a text.
    static std::vector<std::string> BuildTokenList(std::string text, std::string delimiters);

private:
    std::string msRemaining;
    std::string msDelimiters;
};

// The C library has functions of these names. These are the library's own, exported under the plain
// names; the declarations agree with those of <string.h> and <libgen.h>.
#ifdef basename
#undef basename
#endif

// The part of `path` after its last "/": all of it without one, empty when it ends in one.
extern "C++" VX_EXPORT char* basename(char* path) noexcept __asm__("basename");

// Cuts `path` in place before its last "/" and returns it: "a/b" becomes "a"; a name without a
// directory and a name directly below the root become empty.
extern "C" VX_EXPORT char* dirname(char* path) noexcept;

#endif

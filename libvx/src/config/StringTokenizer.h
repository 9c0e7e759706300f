// Splitting text into tokens, and cutting file paths.
#ifndef STRINGTOKENIZER_H
#define STRINGTOKENIZER_H

#include "vxexport.h"

#include <libgen.h>
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

// Path helpers. The C library has functions of these names, too; here they mean the library's own,
// whichever header comes first. Whoever does not include this header gets the C library's, also
// in a program that links this library. dlsym() on the library finds its own under the plain names.
#undef basename
#undef dirname
#define basename vx_basename
#define dirname vx_dirname

// The part of `path` after its last "/": all of it without one, empty when it ends in one. Null for
// null.
extern "C" VX_EXPORT char* basename(char* path) noexcept;
inline const char* basename(const char* path) noexcept
{
    return basename(const_cast<char*>(path));
}

// Cuts `path` in place before its last "/" and returns it: "a/b" becomes "a"; a name without a
// directory and a name directly below the root become empty. Null for null.
extern "C" VX_EXPORT char* dirname(char* path) noexcept;

#endif

// What is written down of a frame, once for all kinds of files and reports.
#ifndef VXCAMKIT_HEADER_H
#define VXCAMKIT_HEADER_H

#include <vxcamkit/export.h>
#include <vxcamkit/frame.h>

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace vxcam {

// One fact.
struct HeaderCard {
    using Value = std::variant<bool, int64_t, double, std::string>;
    static constexpr int kAsNeeded = -1;

    // As FITS has it, "EXPTIME"; of a property that has no such word, "HIERARCH VX TRIGGER-MODE".
    std::string keyword;
    Value value;
    std::string comment;      // "[s] exposure time"; may be empty
    int decimals = kAsNeeded; // of a double
};

struct HeaderOptions {
    std::string software;          // that writes the file: "vxcam 3.0.7"; empty: the kit
    std::string instrument;        // empty: what the camera is called, or its address
    bool settings = false;         // all properties in force, too
    std::vector<HeaderCard> cards; // behind the others; as parseCard() and cardsOf() make them
};

// The facts of a frame, in the order in which they are written. What is not known is left out. Not
// among them is how a file holds the pixels. Throws Error{Usage} when a card of the options has a
// word that is reserved (DATAMIN and DATAMAX are theirs) or is there twice.
VXCAMKIT_EXPORT std::vector<HeaderCard> makeHeader(const Frame& frame,
                                                   const HeaderOptions& options = {});

// A card of the user: KEY=VALUE, or KEY=VALUE/COMMENT. T and F are logical, what looks like a
// number is one, the rest is text; 'text' in single quotes is text whatever it looks like, and may
// hold a slash (and a quote, twice). Lower case letters of the word become capitals. Throws
// Error{Usage} for a word that FITS cannot have, or that is reserved, and for a number that is
// none.
VXCAMKIT_EXPORT HeaderCard parseCard(const std::string& text);

// Whether only files themselves and makeHeader() may use the word.
VXCAMKIT_EXPORT bool isReserved(const std::string& keyword);

// One object by the words: {"EXPTIME": 1.5, "IMAGETYP": "Light Frame"}; without HIERARCH. It holds
// ASCII alone.
VXCAMKIT_EXPORT std::string headerJson(const std::vector<HeaderCard>& cards);

// "0-3,7": rows or packets that are missing, ascending.
VXCAMKIT_EXPORT std::string rangesText(const std::vector<int>& numbers);

} // namespace vxcam

#endif

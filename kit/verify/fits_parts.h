// The parts of a FITS file, read.
#ifndef VXCAMKIT_FITS_PARTS_H
#define VXCAMKIT_FITS_PARTS_H

#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace vxcam {

// A header and its data.
struct FitsPart {
    std::map<std::string, std::string> cards; // values by their words; texts without quotes
    uint64_t start = 0;                       // of its header
    uint64_t data = 0;                        // of what is behind that
    uint64_t bytes = 0;                       // of the data, without what fills the last block

    bool has(const std::string& word) const { return cards.count(word) != 0; }
    std::string text(const std::string& word) const;
    int64_t number(const std::string& word, int64_t otherwise = 0) const;
    double real(const std::string& word) const; // no number where there is none
};

// Threads: one.
class FitsParts
{
public:
    // Throws Error{File} when it cannot be read.
    explicit FitsParts(const std::string& path);

    const std::vector<FitsPart>& parts() const { return parts_; }
    // The part with that EXTNAME; null when there is none.
    const FitsPart* find(const std::string& name) const;
    bool read(uint64_t at, char* to, size_t count);
    // Whether the sum of all of it is that of nothing.
    bool isSumRight(const FitsPart& part);
    // Bytes that belong to no part.
    uint64_t rest() const { return rest_; }

private:
    bool readPart(uint64_t at);

    std::ifstream file_;
    uint64_t size_ = 0, rest_ = 0;
    std::vector<FitsPart> parts_;
};

} // namespace vxcam

#endif

// Headers of FITS files.
#ifndef VXCAMKIT_FITS_HEADER_H
#define VXCAMKIT_FITS_HEADER_H

#include "fits/fits_cards.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vxcam {

size_t fitsBlocks(size_t bytes); // filled up to whole blocks

// The lines of a header, one behind the other.
class FitsHeader
{
public:
    void add(const HeaderCard& card, std::vector<std::string>* warnings = nullptr);
    void logical(const std::string& keyword, bool value, const std::string& comment)
    {
        add({keyword, value, comment});
    }
    void whole(const std::string& keyword, int64_t value, const std::string& comment)
    {
        add({keyword, value, comment});
    }
    void text(const std::string& keyword, const std::string& value, const std::string& comment)
    {
        add({keyword, value, comment});
    }

    // All of it, with CHECKSUM and DATASUM for data of that fitsSum(): whole blocks, as many
    // whatever the sum is.
    std::string finish(uint32_t dataSum) const;

private:
    std::string finish(const std::string& fileSum, uint32_t dataSum) const;

    std::string text_;
    bool hasLongTexts_ = false;
};

} // namespace vxcam

#endif

// What the tests of pictures share: what is in their files.
#ifndef GRAB_SUPPORT_H
#define GRAB_SUPPORT_H

#include "tool_support.h"

#include <fitsio.h>
#include <gmock/gmock.h>

// What is in a file that the program wrote.
struct tsContent {
    long columns = 0, rows = 0;
    int type = 0;
    uint64_t sum = 0;
    std::map<std::string, std::string> keys;
};

inline tsContent ReadFits(const std::string& path)
{
    tsContent content;
    fitsfile* file = nullptr;
    int status = 0, any = 0;
    long axes[2] = {0, 0};
    fits_open_diskfile(&file, path.c_str(), READONLY, &status);
    fits_get_img_size(file, 2, axes, &status);
    fits_get_img_equivtype(file, &content.type, &status);
    std::vector<unsigned> pixels(static_cast<size_t>(axes[0] * axes[1]));
    fits_read_img(file, TUINT, 1, axes[0] * axes[1], nullptr, pixels.data(), &any, &status);
    for (const char* key : {"EXPTIME", "CCD-TEMP", "INSTRUME", "XORGSUBF", "YORGSUBF", "FRAMENO",
                            "NFRAMES", "SET-TEMP", "DATE-OBS", "XBINNING", "COMPLETE", "NMISSING",
                            "MISSROWS", "IMAGETYP", "OBSERVER"}) {
        char value[FLEN_VALUE] = "";
        int missing = 0;
        fits_read_key(file, TSTRING, key, value, nullptr, &missing);
        content.keys[key] = missing == 0 ? value : "absent";
    }
    fits_close_file(file, &status);
    EXPECT_EQ(status, 0) << path;
    content.columns = axes[0];
    content.rows = axes[1];
    for (unsigned pixel : pixels) {
        content.sum += pixel;
    }
    return content;
}

inline void ExpectVerified(const std::string& path)
{
    tcRun::tsHow how;
    how.program = "fitsverify";
    tcRun verifier({path}, how);
    EXPECT_EQ(verifier.Exit(), 0);
    EXPECT_THAT(verifier.Output(), testing::HasSubstr("0 warning(s) and 0 error(s)")) << path;
}

#endif

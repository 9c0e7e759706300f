// FITS files.
#ifndef VXCAMKIT_FITS_H
#define VXCAMKIT_FITS_H

#include <vxcamkit/export.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

#include <string>
#include <vector>

namespace vxcam {

// A whole file with one image and the frame's header, with CHECKSUM and DATASUM. The first row of
// the sensor comes first. Pixels of 8 bits are bytes, of 16 bits unsigned 16-bit integers (BZERO);
// of 32 bits signed integers, or unsigned ones where a value needs it. Pixels of rows that did not
// come whole are BLANK, if there is a value that no other pixel has.
//
// A file holds ASCII alone: what had to be written otherwise is told in `warnings`, a line each.
// Throws Error{Usage} as makeHeader() does. Whoever makes many files gives the memory of one that
// was written back in `spare`.
VXCAMKIT_EXPORT FileBytes makeFits(const Frame& frame, const HeaderOptions& options = {},
                                   std::vector<std::string>* warnings = nullptr,
                                   FileBytes spare = {});

// The same warnings of one card, before there is a frame.
VXCAMKIT_EXPORT std::vector<std::string> fitsWarnings(const HeaderCard& card);

} // namespace vxcam

#endif

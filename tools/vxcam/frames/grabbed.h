// A frame that the program took, as it tells of it.
#ifndef GRABBED_H
#define GRABBED_H

#include <vxcamkit/figures.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/measures.h>

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

// What is kept of a frame; its pixels are gone.
struct tsGrabbed {
    vxcam::FrameFacts facts;
    vxcam::FrameFigures figures;
    std::optional<vxcam::Measures> measures; // where they are asked for
    std::string file, preview;               // preview may be empty
    std::vector<std::string> warnings;       // of its files
};

// What is known about it.
nlohmann::ordered_json FrameDocument(const tsGrabbed& grabbed);

// The same for people, in some lines without the last line's end.
std::string FrameText(const tsGrabbed& grabbed);

// What is wrong with a frame that is not complete: "2 of 90 packets are missing".
std::string MissingText(const vxcam::FrameFacts& facts);

#endif

// A frame as the Python layer wraps it.
#ifndef VXCAM_PY_FRAME_H
#define VXCAM_PY_FRAME_H

#include "py_process.h"

#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <string>
#include <vector>

namespace vxcam::py {

// Threads: a value.
class CoreFrame
{
public:
    explicit CoreFrame(Frame frame) : frame_(std::make_shared<Frame>(std::move(frame))) {}

    const FrameFacts& facts() const { return frame_.look().facts(); }
    const Frame& frame() const { return frame_.look(); }

    // The pixels where they are, read only; they live as long as the array.
    pybind11::array array() const;

private:
    Owned<Frame> frame_;
};

// Cards are texts as parseCard() takes them.
HeaderOptions headerOf(const std::string& software, const std::vector<std::string>& cards,
                       bool withSettings);

void addFrame(pybind11::module_& module);

// How frames become files.
void addFiles(pybind11::class_<CoreFrame>& frame);

// What is measured of one, and of pairs of them.
void addFigures(pybind11::module_& module, pybind11::class_<CoreFrame>& frame);

} // namespace vxcam::py

#endif

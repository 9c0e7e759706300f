// The driver's main loop. All properties of INDI are read and changed on its thread, and it never
// waits for a camera.
#ifndef VXINDI_MAIN_LOOP_H
#define VXINDI_MAIN_LOOP_H

#include <functional>

namespace vxcam {

// Has the main loop do it, soon and in order. On any thread; the work must not throw.
void onMainLoop(std::function<void()> work);

// Reads what indiserver sends on standard input and serves it, until that ends; `atEnd` is called
// then, and the process ends.
[[noreturn]] void runMainLoop(std::function<void()> atEnd);

} // namespace vxcam

#endif

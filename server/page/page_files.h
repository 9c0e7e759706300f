// The files of the page, which are in the program.
#ifndef VXCAMD_PAGE_FILES_H
#define VXCAMD_PAGE_FILES_H

#include "http/http_message.h"

#include <optional>
#include <string>

namespace vxcam {

// The file at that path, "/" among them; nothing where there is none.
std::optional<HttpResponse> pageFile(const std::string& path);

} // namespace vxcam

#endif

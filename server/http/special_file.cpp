#include "http/special_file.h"

#include <filesystem>
#include <system_error>

namespace vxcam {

bool isSpecialFile(const std::string& path)
{
    std::error_code ignored;
    const auto status = std::filesystem::status(path, ignored);
    return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
}

} // namespace vxcam

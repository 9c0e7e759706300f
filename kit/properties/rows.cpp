#include "properties/rows.h"

#include <iterator>

namespace vxcam {

std::vector<Property> grouped(Group group, std::vector<Property> rows)
{
    for (Property& row : rows) {
        row.group = group;
    }
    return rows;
}

std::vector<Property> joined(std::vector<std::vector<Property>> parts)
{
    std::vector<Property> all;
    for (std::vector<Property>& part : parts) {
        std::move(part.begin(), part.end(), std::back_inserter(all));
    }
    return all;
}

} // namespace vxcam

#include "verify/hdf5_walk.h"

#include <algorithm>
#include <vector>

namespace vxcam {

namespace {

constexpr int kDeepest = 16; // damaged groups may lie in themselves
constexpr int kPixelRank = 3;
constexpr size_t kMostName = 256;
constexpr hsize_t kMostBytes = hsize_t{1} << 30U; // of what is read; records have less

// What is of any length, as others may have added it, lies elsewhere in memory.
void giveBack(hid_t type, hid_t space, std::vector<char>* bytes)
{
    const bool isElsewhere = H5Tis_variable_str(type) > 0 || H5Tdetect_class(type, H5T_VLEN) > 0;
    if (isElsewhere) H5Dvlen_reclaim(type, space, H5P_DEFAULT, bytes->data());
}

class Hdf5Walk
{
public:
    explicit Hdf5Walk(ReadRecord* record) : record_(*record) {}

    void lookAt(const Hdf5Id& object, const std::string& name, int depth)
    {
        if (H5Aiterate2(object, H5_INDEX_NAME, H5_ITER_INC, nullptr, readAttribute, nullptr) < 0) {
            find("the attributes of " + name);
        }
        const H5I_type_t type = H5Iget_type(object);
        if (type == H5I_GROUP) lookInto(object, name, depth);
        if (type == H5I_DATASET && !isRead(object)) find(name);
    }

private:
    void find(const std::string& what) { record_.find("file", what + " cannot be read"); }
    void lookInto(const Hdf5Id& group, const std::string& name, int depth);
    static bool isRead(const Hdf5Id& dataset);
    static herr_t readAttribute(hid_t object, const char* name, const H5A_info_t* info,
                                void* nothing);

    ReadRecord& record_;
};

void Hdf5Walk::lookInto(const Hdf5Id& group, const std::string& name, int depth)
{
    H5G_info_t info{};
    if (depth > kDeepest || H5Gget_info(group, &info) < 0) return find(name);
    for (hsize_t i = 0; i < info.nlinks; ++i) {
        char text[kMostName] = "";
        if (H5Lget_name_by_idx(group, ".", H5_INDEX_NAME, H5_ITER_INC, i, text, sizeof text,
                               H5P_DEFAULT) < 0) {
            return find(name);
        }
        const std::string member = (name == "/" ? name : name + "/") + text;
        const Hdf5Id object(H5Oopen(group, text, H5P_DEFAULT), H5Oclose);
        if (object < 0) {
            find(member);
        } else {
            lookAt(object, member, depth + 1);
        }
    }
}

bool Hdf5Walk::isRead(const Hdf5Id& dataset)
{
    const Hdf5Id space(H5Dget_space(dataset), H5Sclose);
    const Hdf5Id type(H5Dget_type(dataset), H5Tclose);
    const hssize_t count = H5Sget_simple_extent_npoints(space);
    const size_t size = H5Tget_size(type);
    if (count < 0 || size == 0) return false;
    const bool isPixels = H5Sget_simple_extent_ndims(space) == kPixelRank; // read as frames
    if (isPixels || count == 0 || static_cast<hsize_t>(count) > kMostBytes / size) return true;
    std::vector<char> bytes(static_cast<size_t>(count) * size);
    if (H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()) < 0) return false;
    giveBack(type, space, &bytes);
    return true;
}

herr_t Hdf5Walk::readAttribute(hid_t object, const char* name, const H5A_info_t* /*info*/,
                               void* /*nothing*/)
{
    const Hdf5Id attribute(H5Aopen(object, name, H5P_DEFAULT), H5Aclose);
    const Hdf5Id space(H5Aget_space(attribute), H5Sclose);
    const Hdf5Id type(H5Aget_type(attribute), H5Tclose);
    const hssize_t count = H5Sget_simple_extent_npoints(space);
    const size_t size = H5Tget_size(type);
    if (count < 0 || size == 0 || static_cast<hsize_t>(count) > kMostBytes / size) return -1;
    std::vector<char> bytes(static_cast<size_t>(count) * size + 1);
    if (H5Aread(attribute, type, bytes.data()) < 0) return -1;
    giveBack(type, space, &bytes);
    return 0;
}

} // namespace

void walkHdf5(const Hdf5Id& file, ReadRecord* record)
{
    const Hdf5Id root(H5Gopen2(file, "/", H5P_DEFAULT), H5Gclose);
    Hdf5Walk(record).lookAt(root, "/", 0);
}

} // namespace vxcam

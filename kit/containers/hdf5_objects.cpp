#include "containers/hdf5_objects.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vxcam {

namespace {

// What the library's own errors say at their root.
herr_t takeReason(unsigned /*number*/, const H5E_error2_t* error, void* to)
{
    *static_cast<std::string*>(to) = error->desc != nullptr ? error->desc : "";
    return 0;
}

} // namespace

int64_t requireHdf5(int64_t result, const std::string& path)
{
    if (result >= 0) return result;
    std::string reason;
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, takeReason, &reason);
    const size_t end = std::min(reason.find(','), reason.size());
    throw Error(ErrorKind::File, path + ": the HDF5 library reports: " + reason.substr(0, end),
                EIO);
}

Hdf5Id hdf5Text(size_t room)
{
    Hdf5Id type(H5Tcopy(H5T_C_S1), H5Tclose);
    H5Tset_size(type, std::max<size_t>(room, 1));
    H5Tset_cset(type, H5T_CSET_UTF8);
    H5Tset_strpad(type, H5T_STR_NULLPAD);
    return type;
}

void Hdf5Maker::attribute(const std::string& object, const char* name, const std::string& value)
{
    const Hdf5Id type = hdf5Text(value.size());
    const Hdf5Id space(H5Screate(H5S_SCALAR), H5Sclose);
    const Hdf5Id attribute(H5Acreate_by_name(file_, object.c_str(), name, type, space, H5P_DEFAULT,
                                             H5P_DEFAULT, H5P_DEFAULT),
                           H5Aclose);
    require(attribute);
    require(H5Awrite(attribute, type, value.empty() ? "\0" : value.data()));
}

void Hdf5Maker::group(const std::string& name, const char* nxClass)
{
    const Hdf5Id group(H5Gcreate2(file_, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                       H5Gclose);
    require(group);
    attribute(name, "NX_class", nxClass);
}

void Hdf5Maker::scalar(const std::string& name, hid_t type, const void* value)
{
    const Hdf5Id space(H5Screate(H5S_SCALAR), H5Sclose);
    const Hdf5Id dataset(
        H5Dcreate2(file_, name.c_str(), type, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
        H5Dclose);
    require(dataset);
    require(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, value));
}

void Hdf5Maker::text(const std::string& name, const std::string& value, size_t room)
{
    std::string bytes = value;
    bytes.resize(std::max({room, value.size(), size_t{1}}), '\0');
    scalar(name, hdf5Text(bytes.size()), bytes.data());
}

void Hdf5Maker::whole(const std::string& name, int64_t value)
{
    scalar(name, H5T_NATIVE_INT64, &value);
}

void Hdf5Maker::real(const std::string& name, double value)
{
    scalar(name, H5T_NATIVE_DOUBLE, &value);
}

Hdf5Id Hdf5Maker::growing(const std::string& name, hid_t type, const std::vector<hsize_t>& rest,
                          hsize_t chunk, unsigned gzip, bool isPlaced)
{
    std::vector<hsize_t> now{0}, most{H5S_UNLIMITED}, chunks{chunk};
    for (std::vector<hsize_t>* list : {&now, &most, &chunks}) {
        list->insert(list->end(), rest.begin(), rest.end());
    }
    const auto rank = static_cast<int>(now.size());
    const Hdf5Id space(H5Screate_simple(rank, now.data(), most.data()), H5Sclose);
    const Hdf5Id how(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    require(H5Pset_chunk(how, rank, chunks.data()));
    if (gzip > 0) {
        require(H5Pset_shuffle(how));
        require(H5Pset_deflate(how, gzip));
    }
    if (isPlaced) {
        require(H5Pset_alloc_time(how, H5D_ALLOC_TIME_EARLY));
        require(H5Pset_fill_time(how, H5D_FILL_TIME_NEVER));
    }
    Hdf5Id dataset(H5Dcreate2(file_, name.c_str(), type, space, H5P_DEFAULT, how, H5P_DEFAULT),
                   H5Dclose);
    require(dataset);
    return dataset;
}

void Hdf5Maker::link(const std::string& from, const std::string& name)
{
    require(H5Lcreate_hard(file_, from.c_str(), file_, name.c_str(), H5P_DEFAULT, H5P_DEFAULT));
}

void Hdf5Column::write()
{
    if (waiting_.empty()) return;
    const hsize_t count = waiting_.size() / size_;
    const hsize_t end = written_ + count;
    requireHdf5(H5Dset_extent(dataset_, &end), path_);
    const Hdf5Id space(H5Dget_space(dataset_), H5Sclose);
    const Hdf5Id memory(H5Screate_simple(1, &count, nullptr), H5Sclose);
    requireHdf5(H5Sselect_hyperslab(space, H5S_SELECT_SET, &written_, nullptr, &count, nullptr),
                path_);
    requireHdf5(H5Dwrite(dataset_, type_, memory, space, H5P_DEFAULT, waiting_.data()), path_);
    requireHdf5(H5Dflush(dataset_), path_);
    written_ = end;
    waiting_.clear();
}

} // namespace vxcam

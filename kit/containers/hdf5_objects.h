// Objects of HDF5 files, for whoever writes some.
#ifndef VXCAMKIT_HDF5_OBJECTS_H
#define VXCAMKIT_HDF5_OBJECTS_H

#include <hdf5.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vxcam {

// Throws Error{File} when a call of the library failed; otherwise its result.
int64_t requireHdf5(int64_t result, const std::string& path);

// An identifier that is given back.
class Hdf5Id
{
public:
    using Close = herr_t (*)(hid_t);

    Hdf5Id() = default;
    Hdf5Id(hid_t id, Close close) : id_(id), close_(close) {}
    ~Hdf5Id() { reset(); }
    Hdf5Id(Hdf5Id&& other) noexcept : id_(std::exchange(other.id_, -1)), close_(other.close_) {}
    Hdf5Id& operator=(Hdf5Id&& other) noexcept
    {
        std::swap(id_, other.id_);
        std::swap(close_, other.close_);
        return *this;
    }
    operator hid_t() const { return id_; }
    herr_t reset() { return id_ < 0 ? 0 : close_(std::exchange(id_, -1)); }

private:
    hid_t id_ = -1;
    Close close_ = nullptr;
};

// Makes objects in one file. Errors: throws Error{File}.
class Hdf5Maker
{
public:
    Hdf5Maker(hid_t file, std::string path) : file_(file), path_(std::move(path)) {}

    void group(const std::string& name, const char* nxClass);
    void text(const std::string& name, const std::string& value, size_t room = 0);
    void whole(const std::string& name, int64_t value);
    void real(const std::string& name, double value);
    void attribute(const std::string& object, const char* name, const std::string& value);
    // One that grows in its first dimension; `rest` are the others. With `isPlaced`, its chunks
    // have their places in the file as soon as it has grown, before anything is written.
    Hdf5Id growing(const std::string& name, hid_t type, const std::vector<hsize_t>& rest,
                   hsize_t chunk, unsigned gzip = 0, bool isPlaced = false);
    void link(const std::string& from, const std::string& name);

private:
    int64_t require(int64_t result) const { return requireHdf5(result, path_); }
    void scalar(const std::string& name, hid_t type, const void* value);

    const hid_t file_;
    const std::string path_;
};

Hdf5Id hdf5Text(size_t room); // the type of texts of so many bytes, in UTF-8

// Numbers or texts of one type, one behind the other.
class Hdf5Column
{
public:
    Hdf5Column() = default;
    Hdf5Column(Hdf5Id dataset, hid_t type, size_t size, std::string path)
        : dataset_(std::move(dataset)), type_(type), size_(size), path_(std::move(path))
    {}

    // Bytes of one; kept until write().
    void add(const void* value)
    {
        const auto* const bytes = static_cast<const char*>(value);
        waiting_.insert(waiting_.end(), bytes, bytes + size_);
    }
    void write(); // those that wait, and flushes them
    bool isWaiting() const { return !waiting_.empty(); }

private:
    Hdf5Id dataset_;
    hid_t type_ = -1;
    size_t size_ = 0;
    std::string path_;
    hsize_t written_ = 0;
    std::vector<char> waiting_;
};

} // namespace vxcam

#endif

// HDF5 records.
#include "containers/hdf5_objects.h"
#include "containers/record_columns.h"
#include "verify/hdf5_walk.h"
#include "verify/record_reader.h"

#include <vxcamkit/error.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace vxcam {

namespace {

const std::string kDetector = "/entry/instrument/detector/";
const std::string kRecord = "/entry/record/";
constexpr const char* kEvents[] = {"time_ns", "event", "code", "sub_code", "text"};
// Of what a writer may just be changing. The library waits twice as long before each of them, from
// 1 ns on: 4 ms in all for what is damaged, where its own number would be without an end.
constexpr unsigned kAttempts = 22;

// A file whose writer was killed is marked as being written, as one is that still grows. All others
// are read without any wait.
Hdf5Id openRecord(const std::string& path)
{
    Hdf5Id file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose);
    if (file >= 0) return file;
    const Hdf5Id access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    requireHdf5(H5Pset_metadata_read_attempts(access, kAttempts), path);
    file = Hdf5Id(H5Fopen(path.c_str(), H5F_ACC_RDONLY | H5F_ACC_SWMR_READ, access), H5Fclose);
    requireHdf5(file, path);
    return file;
}

class Hdf5Pixels : public PixelReader
{
public:
    Hdf5Pixels(const std::string& path, const ReadRecord& record) : path_(path), record_(record)
    {
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        file_ = openRecord(path);
        pixels_ = open(kDetector + "data");
    }

    const Hdf5Id& file() const { return file_; }
    bool has(const std::string& name) const
    {
        return H5Lexists(file_, name.c_str(), H5P_DEFAULT) > 0;
    }
    // Rows of a dataset; nothing when it is none.
    std::optional<size_t> length(const std::string& name) const
    {
        const Hdf5Id dataset(H5Dopen2(file_, name.c_str(), H5P_DEFAULT), H5Dclose);
        if (dataset < 0) return std::nullopt;
        const std::vector<hsize_t> size = shape(dataset);
        return size.empty() ? std::nullopt : std::optional<size_t>(size[0]);
    }
    Hdf5Id open(const std::string& name) const
    {
        Hdf5Id dataset(H5Dopen2(file_, name.c_str(), H5P_DEFAULT), H5Dclose);
        requireHdf5(dataset, path_);
        return dataset;
    }
    std::vector<hsize_t> shape(const Hdf5Id& dataset) const
    {
        const Hdf5Id space(H5Dget_space(dataset), H5Sclose);
        std::vector<hsize_t> size(
            static_cast<size_t>(requireHdf5(H5Sget_simple_extent_ndims(space), path_)));
        H5Sget_simple_extent_dims(space, size.data(), nullptr);
        return size;
    }
    size_t pixelBytes() const
    {
        const Hdf5Id type(H5Dget_type(pixels_), H5Tclose);
        return H5Tget_size(type);
    }
    std::vector<int64_t> numbers(const std::string& name) const
    {
        const Hdf5Id dataset = open(name);
        const std::vector<hsize_t> size = shape(dataset);
        std::vector<int64_t> list(size.empty() ? 1 : size[0]);
        if (list.empty()) return list;
        requireHdf5(H5Dread(dataset, H5T_NATIVE_INT64, H5S_ALL, H5S_ALL, H5P_DEFAULT, list.data()),
                    path_);
        return list;
    }
    // None where they cannot be read.
    std::vector<int64_t> numbersIfAny(const std::string& name) const
    {
        try {
            return numbers(name);
        } catch (const Error&) {
            return {};
        }
    }
    std::string text(const std::string& name) const
    {
        const Hdf5Id dataset = open(name);
        const Hdf5Id type(H5Dget_type(dataset), H5Tclose);
        std::string value(H5Tget_size(type), '\0');
        requireHdf5(H5Dread(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, value.data()), path_);
        return value.substr(0, value.find('\0'));
    }
    // A whole number of the settings; nothing when it is not there.
    std::optional<int64_t> setting(const std::string& name) const
    {
        const std::string path = kDetector + "settings/" + name;
        const Hdf5Id dataset(H5Dopen2(file_, path.c_str(), H5P_DEFAULT), H5Dclose);
        if (dataset < 0) return std::nullopt;
        const Hdf5Id type(H5Dget_type(dataset), H5Tclose);
        if (H5Tget_class(type) != H5T_INTEGER) return std::nullopt;
        return numbers(path).at(0);
    }
    std::vector<hsize_t> pixelShape() const { return shape(pixels_); }

    bool read(size_t frame, std::vector<char>* pixels) override
    {
        pixels->resize(record_.frameBytes());
        const hsize_t start[] = {frame, 0, 0};
        const hsize_t count[] = {1, static_cast<hsize_t>(record_.rows),
                                 static_cast<hsize_t>(record_.columns)};
        const Hdf5Id space(H5Dget_space(pixels_), H5Sclose);
        const Hdf5Id memory(H5Screate_simple(3, count, nullptr), H5Sclose);
        const Hdf5Id type(H5Dget_type(pixels_), H5Tclose);
        return H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr) >= 0 &&
               H5Dread(pixels_, type, memory, space, H5P_DEFAULT, pixels->data()) >= 0;
    }

private:
    const std::string path_;
    const ReadRecord& record_;
    Hdf5Id file_, pixels_;
};

// Those that each record has, and what is measured, when any of it is there.
std::vector<RecordColumn> columnsOf(const Hdf5Pixels& file)
{
    std::vector<RecordColumn> columns = recordColumns();
    const std::vector<RecordColumn>& measured = measureColumns();
    if (std::any_of(measured.begin(), measured.end(), [&](const RecordColumn& column) {
            return file.has(kDetector + column.name);
        })) {
        columns.insert(columns.end(), measured.begin(), measured.end());
    }
    return columns;
}

void requireParts(const Hdf5Pixels& file, ReadRecord* record)
{
    std::vector<std::string> names = {"/entry/start_time", "/entry/program_name",
                                      "/entry/data/data", kDetector + "description",
                                      kDetector + "settings"};
    for (const RecordColumn& column : columnsOf(file)) {
        names.push_back(kDetector + column.name);
    }
    names.push_back(kRecord + "events");
    if (file.has(kRecord + "events")) {
        for (const char* name : kEvents) {
            names.push_back(kRecord + "events/" + name);
        }
    }
    for (const std::string& name : names) {
        if (!file.has(name)) record->find("file", name + " is not there");
    }
}

void checkEvents(const Hdf5Pixels& file, ReadRecord* record)
{
    if (record->ended == "running") return;
    const std::optional<size_t> due = file.length(kRecord + "events/time_ns");
    for (const char* name : kEvents) {
        const std::optional<size_t> length = file.length(kRecord + "events/" + name);
        if (length && due && *length != *due) {
            record->find("file", "its datasets tell of " + std::to_string(*due) + " and " +
                                     std::to_string(*length) + " events");
        }
    }
}

// What cannot be read has been found before.
void readColumns(const Hdf5Pixels& file, ReadRecord* record)
{
    size_t least = std::numeric_limits<size_t>::max(), most = 0;
    for (const RecordColumn& column : columnsOf(file)) {
        const std::optional<size_t> length = file.length(kDetector + column.name);
        if (!length) continue;
        const std::vector<int64_t> values =
            column.isWhole() ? file.numbersIfAny(kDetector + column.name) : std::vector<int64_t>();
        least = std::min(least, *length);
        most = std::max(most, *length);
        record->frames.resize(std::max(record->frames.size(), values.size()));
        for (size_t i = 0; i < values.size(); ++i) {
            record->frames[i].numbers[column.name] = values[i];
        }
    }
    const hsize_t pixels = file.pixelShape()[0];
    const bool isEven = least == most && pixels == most;
    if (!isEven && (record->ended != "running" || pixels < least)) {
        record->find("file", "its datasets tell of " + std::to_string(least) + " to " +
                                 std::to_string(std::max<size_t>(most, pixels)) + " frames");
    }
    record->frames.resize(std::min<size_t>(least, pixels));
}

void readMissing(const Hdf5Pixels& file, ReadRecord* record)
{
    const std::vector<int64_t> frames = file.numbers(kRecord + "missing_rows/index");
    const std::vector<int64_t> rows = file.numbers(kRecord + "missing_rows/row");
    if (record->frames.empty()) return;
    const int64_t first = record->frames[0]["index"];
    for (size_t i = 0; i < std::min(frames.size(), rows.size()); ++i) {
        const auto at = static_cast<size_t>(frames[i] - first);
        if (frames[i] >= first && at < record->frames.size()) {
            record->frames[at].missingRows.push_back(static_cast<int>(rows[i]));
        } else if (record->ended != "running") {
            record->find("rows", "rows are missing of a frame that is not there");
        }
    }
}

} // namespace

std::unique_ptr<PixelReader> readHdf5(const std::string& path, ReadRecord* record)
{
    if (H5Fis_hdf5(path.c_str()) == 0) {
        throw Error(ErrorKind::File, path + ": is no HDF5 file", EINVAL);
    }
    auto file = std::make_unique<Hdf5Pixels>(path, *record);
    const std::vector<hsize_t> shape = file->pixelShape();
    if (shape.size() != 3) throw Error(ErrorKind::File, path + ": holds no frames", EINVAL);
    record->rows = static_cast<int>(shape[1]);
    record->columns = static_cast<int>(shape[2]);
    record->bits = static_cast<int>(file->pixelBytes() * 8);
    record->ended = file->text(kRecord + "ended");
    record->dropped = file->numbers(kRecord + "dropped").at(0);
    record->header = nlohmann::json::parse(file->text(kRecord + "header"), nullptr, false);
    for (const char* name : {"exposure", "gain"}) {
        if (const std::optional<int64_t> value = file->setting(name)) {
            record->settings[name] = *value;
        }
    }
    walkHdf5(file->file(), record);
    requireParts(*file, record);
    checkEvents(*file, record);
    readColumns(*file, record);
    readMissing(*file, record);
    return file;
}

} // namespace vxcam

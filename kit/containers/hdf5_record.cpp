// All frames in one dataset of an HDF5 file, a chunk each, and what is known of them beside it. The
// layout is that of NeXus; others may read it while it grows.
#include "containers/hdf5_objects.h"
#include "containers/record_columns.h"
#include "files/direct_writer.h"
#include "files/writer_lock.h"

#include <vxcamkit/error.h>
#include <vxcamkit/new_file.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace vxcam {

namespace {

constexpr const char* kDetector = "/entry/instrument/detector";
constexpr unsigned kLevel = 1;     // of gzip
constexpr hsize_t kLarge = 65536;  // bytes of what lies at whole blocks of the disk
constexpr hsize_t kRowChunk = 512; // numbers of a column that lie together
constexpr size_t kHowText = 128;   // room for how the record ended
constexpr size_t kKindText = 24, kEventText = 240;
constexpr uint64_t kClosing = 1U << 20U;

std::string inDetector(const std::string& name)
{
    return std::string(kDetector) + "/" + name;
}

hid_t pixelType(int bits)
{
    if (bits == 8) return H5T_STD_U8LE;
    return bits == 16 ? H5T_STD_U16LE : H5T_STD_U32LE;
}

class Hdf5Record : public RecordFile
{
public:
    Hdf5Record(const std::string& path, const RecordOptions& options, const RecordedFrame& first);
    ~Hdf5Record() override = default;

    void add(const RecordedFrame& frame) override;
    void note(const Event& event) override;
    void flush() override;
    void close(const RecordEnd& end) override;
    uint64_t frames() const override { return flushed_; }
    uint64_t bytes() const override;
    uint64_t closingBytes() const override { return kClosing; }

private:
    int64_t require(int64_t result) const { return requireHdf5(result, path_); }
    void create();
    void mark();
    void addPixels(const RecordedFrame& frame);
    void writePixels(const RecordedFrame& frame, haddr_t end);
    haddr_t endOfFile() const;
    haddr_t placeOfLast(haddr_t end, size_t count) const;
    void makeGroups(Hdf5Maker& maker, const Frame& first, const RecordOptions& options);
    void makeSettings(Hdf5Maker& maker, const Snapshot& settings);
    void makeColumns(Hdf5Maker& maker);
    Hdf5Column column(Hdf5Maker& maker, const std::string& name, hid_t type);
    void setText(const std::string& name, const std::string& value);
    void setWhole(const std::string& name, int64_t value);

    const std::string path_;
    const hsize_t rows_, frameColumns_;
    const std::vector<RecordColumn> layout_;
    WriterLock lock_;
    std::unique_ptr<DirectWriter> writer_;
    Hdf5Id file_, pixels_;
    Hdf5Id kindType_ = hdf5Text(kKindText), textType_ = hdf5Text(kEventText);
    std::vector<Hdf5Column> columns_; // as layout_
    Hdf5Column missingFrame_, missingRow_;
    Hdf5Column eventTime_, eventKind_, eventCode_, eventSubCode_, eventText_;
    uint64_t added_ = 0, flushed_ = 0;
    uint64_t bytes_ = 0; // when it was closed
};

Hdf5Record::Hdf5Record(const std::string& path, const RecordOptions& options,
                       const RecordedFrame& recorded)
    : path_(path), rows_(static_cast<hsize_t>(recorded.frame.rows())),
      frameColumns_(static_cast<hsize_t>(recorded.frame.columns())), layout_(columnsOf(recorded))
{
    const Frame& first = recorded.frame;
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr); // errors are told by what is thrown
    checkNewFile(path, options.force);
    if (options.force) removeOldFile(path);
    create();
    Hdf5Maker maker(file_, path_);
    makeGroups(maker, first, options);
    makeSettings(maker, first.facts().settings);
    const bool isGzip = options.compression == Compression::Gzip;
    pixels_ = maker.growing(inDetector("data"), pixelType(first.bits()), {rows_, frameColumns_}, 1,
                            isGzip ? kLevel : 0, !isGzip);
    maker.attribute(inDetector("data"), "units", "adu");
    maker.attribute(inDetector("data"), "interpretation", "image");
    maker.link(inDetector("data"), "/entry/data/data");
    makeColumns(maker);
    require(H5Fstart_swmr_write(file_));
    mark();
    writer_ = std::make_unique<DirectWriter>(path_, lock_.descriptor());
}

void Hdf5Record::create()
{
    const Hdf5Id access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    require(H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST));
    require(H5Pset_fclose_degree(access, H5F_CLOSE_STRONG));
    require(H5Pset_alignment(access, kLarge, DirectWriter::kBlock));
    const Hdf5Id how(H5Pcreate(H5P_FILE_CREATE), H5Pclose);
    require(H5Pset_file_space_strategy(how, H5F_FSPACE_STRATEGY_NONE, false, 1));
    file_ = Hdf5Id(H5Fcreate(path_.c_str(), H5F_ACC_EXCL, how, access), H5Fclose);
    require(file_);
}

// Until others may read the file, HDF5 holds a lock of its own, with which this one would collide
// on network file systems. Somebody else may have put a file in its place meanwhile.
void Hdf5Record::mark()
{
    lock_ = WriterLock(path_);
    void* handle = nullptr;
    require(H5Fget_vfd_handle(file_, H5P_DEFAULT, &handle));
    struct stat own {};
    struct stat locked {};
    const bool isOwn = ::fstat(*static_cast<const int*>(handle), &own) == 0 &&
                       ::fstat(lock_.descriptor(), &locked) == 0 && own.st_dev == locked.st_dev &&
                       own.st_ino == locked.st_ino;
    if (isOwn) return;
    throw Error(ErrorKind::File, path_ + ": is being written by somebody else", EBUSY);
}

void Hdf5Record::makeGroups(Hdf5Maker& maker, const Frame& first, const RecordOptions& options)
{
    const FrameFacts& facts = first.facts();
    maker.attribute("/", "NX_class", "NXroot");
    maker.attribute("/", "default", "entry");
    maker.attribute("/", "creator", options.header.software);
    maker.group("/entry", "NXentry");
    maker.attribute("/entry", "default", "data");
    maker.text("/entry/start_time", utcText(facts.times.begin, 9) + "Z");
    maker.text("/entry/program_name", options.header.software);
    maker.group("/entry/instrument", "NXinstrument");
    maker.group(kDetector, "NXdetector");
    const std::string& name =
        options.header.instrument.empty() ? facts.cameraName : options.header.instrument;
    maker.text(inDetector("description"), name);
    maker.text(inDetector("serial_number"), facts.serial);
    maker.text(inDetector("local_name"), facts.target);
    maker.group("/entry/data", "NXdata");
    maker.attribute("/entry/data", "signal", "data");
    maker.group("/entry/record", "NXcollection");
    maker.whole("/entry/record/version", 1);
    maker.text("/entry/record/header", headerJson(recordHeader(first, options.header)));
    maker.text("/entry/record/ended", "running", kHowText);
    maker.whole("/entry/record/dropped", 0);
    maker.group("/entry/record/missing_rows", "NXcollection");
    maker.group("/entry/record/events", "NXcollection");
}

void Hdf5Record::makeSettings(Hdf5Maker& maker, const Snapshot& settings)
{
    maker.group(inDetector("settings"), "NXcollection");
    for (const Snapshot::Entry& entry : settings) {
        const std::string name = inDetector("settings/" + entry.name);
        const Value::Kind kind = entry.value.kind();
        if (entry.value.isNothing()) continue;
        if (kind == Value::Kind::Whole || kind == Value::Kind::Switch) {
            maker.whole(name, entry.value.toInt());
        } else if (kind == Value::Kind::Real) {
            maker.real(name, entry.value.toDouble());
        } else {
            maker.text(name, entry.text);
        }
    }
}

Hdf5Column Hdf5Record::column(Hdf5Maker& maker, const std::string& name, hid_t type)
{
    return {maker.growing(name, type, {}, kRowChunk), type, H5Tget_size(type), path_};
}

void Hdf5Record::makeColumns(Hdf5Maker& maker)
{
    for (const RecordColumn& row : layout_) {
        const std::string name = inDetector(row.name);
        columns_.push_back(
            column(maker, name, row.isWhole() ? H5T_NATIVE_INT64 : H5T_NATIVE_DOUBLE));
        if (*row.unit != '\0') maker.attribute(name, "units", row.unit);
        maker.attribute(name, "long_name", row.meaning);
    }
    const std::string missing = "/entry/record/missing_rows/", events = "/entry/record/events/";
    missingFrame_ = column(maker, missing + "index", H5T_NATIVE_INT64);
    missingRow_ = column(maker, missing + "row", H5T_NATIVE_INT64);
    eventTime_ = column(maker, events + "time_ns", H5T_NATIVE_INT64);
    eventKind_ = column(maker, events + "event", kindType_);
    eventCode_ = column(maker, events + "code", H5T_NATIVE_INT64);
    eventSubCode_ = column(maker, events + "sub_code", H5T_NATIVE_INT64);
    eventText_ = column(maker, events + "text", textType_);
}

haddr_t Hdf5Record::endOfFile() const
{
    haddr_t end = 0;
    require(H5Fget_eoa(file_, &end));
    return end;
}

uint64_t Hdf5Record::bytes() const
{
    haddr_t end = bytes_;
    if (file_ >= 0) H5Fget_eoa(file_, &end);
    return end;
}

// Of the frame that was added last, before which the file ended there; undefined when that cannot
// be told. All that the library places, it places at the end of the file, and so, when the file has
// grown by the frame alone, the frame. Whatever else came with it, the library is asked, which
// walks along all frames for that; as a check also when there are twice as many as the last time.
haddr_t Hdf5Record::placeOfLast(haddr_t end, size_t count) const
{
    constexpr haddr_t block = DirectWriter::kBlock;
    const haddr_t first = count >= kLarge ? (end + block - 1) / block * block : end;
    const bool isAsked = (added_ & (added_ - 1)) == 0;
    if (!isAsked && endOfFile() == first + count) return first;
    const hsize_t offset[] = {added_, 0, 0};
    unsigned filters = 0;
    haddr_t place = HADDR_UNDEF;
    hsize_t room = 0;
    require(H5Dget_chunk_info_by_coord(pixels_, offset, &filters, &place, &room));
    return room == count ? place : HADDR_UNDEF;
}

// What cannot be written is no frame of the dataset.
void Hdf5Record::addPixels(const RecordedFrame& frame)
{
    const hsize_t before[] = {added_, rows_, frameColumns_};
    const hsize_t size[] = {added_ + 1, rows_, frameColumns_};
    const haddr_t end = endOfFile();
    try {
        require(H5Dset_extent(pixels_, size));
        writePixels(frame, end);
    } catch (const Error&) {
        H5Dset_extent(pixels_, before);
        throw;
    }
}

// As they are, they go to their place past the library, which would take them through the system's
// memory.
void Hdf5Record::writePixels(const RecordedFrame& frame, haddr_t end)
{
    const hsize_t offset[] = {added_, 0, 0};
    if (frame.encoded.size() > 0) {
        require(H5Dwrite_chunk(pixels_, H5P_DEFAULT, 0, offset, frame.encoded.size(),
                               frame.encoded.data()));
        return;
    }
    const size_t count = frame.frame.bytes();
    const haddr_t place = placeOfLast(end, count);
    if (place != HADDR_UNDEF) {
        writer_->write(place, static_cast<const char*>(frame.frame.data()), count);
    } else {
        require(H5Dwrite_chunk(pixels_, H5P_DEFAULT, 0, offset, count, frame.frame.data()));
    }
}

void Hdf5Record::add(const RecordedFrame& frame)
{
    addPixels(frame);
    for (size_t i = 0; i < columns_.size(); ++i) {
        std::visit(
            [&](auto valueOf) {
                const auto value = valueOf(frame);
                columns_[i].add(&value);
            },
            layout_[i].value);
    }
    for (const int row : frame.frame.facts().missingRows) {
        const auto index = static_cast<int64_t>(frame.index);
        const int64_t number = row;
        missingFrame_.add(&index);
        missingRow_.add(&number);
    }
    ++added_;
}

void Hdf5Record::note(const Event& event)
{
    const int64_t time = nanosecondsOf(event.time.utc), code = event.code, subCode = event.subCode;
    std::string kind = nameOf(event.kind), text = event.text;
    kind.resize(kKindText, '\0');
    text.resize(kEventText, '\0');
    eventTime_.add(&time);
    eventKind_.add(kind.data());
    eventCode_.add(&code);
    eventSubCode_.add(&subCode);
    eventText_.add(text.data());
}

// Readers see the pixels first: what they find in a column has its pixels.
void Hdf5Record::flush()
{
    require(H5Dflush(pixels_));
    missingFrame_.write();
    missingRow_.write();
    for (Hdf5Column& one : columns_) {
        one.write();
    }
    for (Hdf5Column* one : {&eventTime_, &eventKind_, &eventCode_, &eventSubCode_, &eventText_}) {
        one->write();
    }
    flushed_ = added_;
}

void Hdf5Record::setText(const std::string& name, const std::string& value)
{
    std::string bytes = value;
    bytes.resize(kHowText, '\0');
    const Hdf5Id dataset(H5Dopen2(file_, name.c_str(), H5P_DEFAULT), H5Dclose);
    require(dataset);
    require(H5Dwrite(dataset, hdf5Text(kHowText), H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()));
}

void Hdf5Record::setWhole(const std::string& name, int64_t value)
{
    const Hdf5Id dataset(H5Dopen2(file_, name.c_str(), H5P_DEFAULT), H5Dclose);
    require(dataset);
    require(H5Dwrite(dataset, H5T_NATIVE_INT64, H5S_ALL, H5S_ALL, H5P_DEFAULT, &value));
}

void Hdf5Record::close(const RecordEnd& end)
{
    flush();
    setWhole("/entry/record/dropped", static_cast<int64_t>(end.dropped));
    setText("/entry/record/ended", end.how);
    columns_.clear();
    missingFrame_ = Hdf5Column();
    missingRow_ = Hdf5Column();
    for (Hdf5Column* one : {&eventTime_, &eventKind_, &eventCode_, &eventSubCode_, &eventText_}) {
        *one = Hdf5Column();
    }
    pixels_ = Hdf5Id();
    bytes_ = bytes();
    require(file_.reset());
    const int descriptor = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fdatasync(descriptor);
    struct stat closed {};
    if (::fstat(descriptor, &closed) == 0) bytes_ = static_cast<uint64_t>(closed.st_size);
    ::close(descriptor);
}

// The bytes of the pixels by their place in these, which compresses better.
void shuffle(const char* from, size_t count, size_t width, char* to)
{
    const size_t pixels = count / width;
    for (size_t byte = 0; byte < width; ++byte) {
        for (size_t i = 0; i < pixels; ++i) {
            *to++ = from[i * width + byte];
        }
    }
}

} // namespace

std::unique_ptr<RecordFile> makeHdf5Record(const std::string& path, const RecordOptions& options,
                                           const RecordedFrame& first)
{
    return std::make_unique<Hdf5Record>(path, options, first);
}

FileBytes encodeForHdf5(const RecordedFrame& recorded, const RecordOptions& options,
                        FileBytes spare)
{
    const Frame& frame = recorded.frame;
    if (options.compression != Compression::Gzip) return {};
    FileBytes shuffled(frame.bytes());
    shuffle(static_cast<const char*>(frame.data()), frame.bytes(),
            static_cast<size_t>(frame.bits() / 8), shuffled.data());
    uLongf size = compressBound(frame.bytes());
    FileBytes encoded(size, std::move(spare));
    compress2(reinterpret_cast<Bytef*>(encoded.data()), &size,
              reinterpret_cast<const Bytef*>(shuffled.data()), frame.bytes(), kLevel);
    encoded.shrink(size);
    return encoded;
}

} // namespace vxcam

#include "py_frame.h"
#include "py_values.h"
#include "py_waits.h"

#include <vxcamkit/error.h>
#include <vxcamkit/fits.h>
#include <vxcamkit/frame_file.h>
#include <vxcamkit/new_file.h>
#include <vxcamkit/preview.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>

namespace vxcam::py {

namespace python = pybind11;
using std::chrono::milliseconds;

namespace {

// Of a file that is being written: its name is given it, or never will be.
class Writing
{
public:
    void write(const std::string& path, const FileBytes& bytes, bool overwrite)
    {
        NewFile file(path, overwrite, &isCancelled_);
        file.write(bytes);
        file.sync();
        if (!goesOn(Name::Given)) return;
        file.keep();
        file.syncName();
    }

    // For how long the name is worth a wait.
    milliseconds giveUp()
    {
        isCancelled_ = true;
        return goesOn(Name::Never) ? milliseconds(0) : kRename;
    }

private:
    static constexpr milliseconds kRename{100};
    enum class Name { NotYet, Given, Never };

    bool goesOn(Name next)
    {
        Name before = Name::NotYet;
        return name_.compare_exchange_strong(before, next);
    }

    std::atomic<bool> isCancelled_{false};
    std::atomic<Name> name_{Name::NotYet};
};

python::bytes bytesOf(const FileBytes& file)
{
    return bytesToPython(file.data(), file.size());
}

FileFormat formatNamed(const std::string& name)
{
    for (const FileFormat format : {FileFormat::Fits, FileFormat::Tiff, FileFormat::Preview}) {
        if (name == nameOf(format)) return format;
    }
    throw Error(ErrorKind::Usage, "'" + name + "' is none of FITS, TIFF and PNG");
}

std::vector<std::string> writeFile(const CoreFrame& self, const std::string& format,
                                   const std::string& path, bool overwrite,
                                   const HeaderOptions& options)
{
    const FileFormat kind = formatNamed(format);
    const std::string other = otherKindOf(path, kind);
    if (!other.empty()) {
        throw Error(ErrorKind::Usage, "path: '" + path + "' is the name of a " + other +
                                          " file, this writes " + format);
    }
    const auto writing = std::make_shared<Writing>();
    const auto work = [frame = self, kind, path, overwrite, options, writing] {
        checkNewFile(path, overwrite);
        std::vector<std::string> warnings;
        writing->write(path, makeFile(kind, frame.frame(), options, &warnings), overwrite);
        return warnings;
    };
    return interruptible(work, {}, {{}, [writing] { return writing->giveUp(); }});
}

template <class Pixel>
void averageBlocks(const Frame& frame, int step, Frame* small)
{
    const Pixel* const from = frame.pixels<Pixel>().data();
    auto* to = static_cast<Pixel*>(small->mutableData());
    const double count = static_cast<double>(step) * step;
    for (int row = 0; row < small->rows(); ++row) {
        for (int column = 0; column < small->columns(); ++column) {
            double sum = 0;
            for (int y = row * step; y < (row + 1) * step; ++y) {
                const Pixel* const line = from + static_cast<size_t>(y) * frame.columns();
                for (int x = column * step; x < (column + 1) * step; ++x) {
                    sum += line[x];
                }
            }
            *to++ = static_cast<Pixel>(sum / count);
        }
    }
}

// The frame with blocks of pixels made one, their mean, so that no side is longer than `most`, if
// that can be.
Frame reduced(const Frame& frame, int most)
{
    const int longest = (std::max(frame.rows(), frame.columns()) + most - 1) / most;
    const int step = std::min({longest, frame.rows(), frame.columns()});
    if (step < 2) return frame;
    FrameFacts facts;
    facts.bits = frame.bits();
    facts.rows = frame.rows() / step;
    facts.columns = frame.columns() / step;
    Frame small(facts);
    if (frame.bits() == 8) averageBlocks<uint8_t>(frame, step, &small);
    if (frame.bits() == 16) averageBlocks<uint16_t>(frame, step, &small);
    if (frame.bits() == 32) averageBlocks<uint32_t>(frame, step, &small);
    return small;
}

} // namespace

HeaderOptions headerOf(const std::string& software, const std::vector<std::string>& cards,
                       bool withSettings)
{
    HeaderOptions options;
    options.software = software;
    options.settings = withSettings;
    for (const std::string& card : cards) {
        options.cards.push_back(parseCard(card));
    }
    return options;
}

void addFiles(python::class_<CoreFrame>& frame)
{
    using Texts = std::vector<std::string>;
    frame
        .def("fits",
             [](const CoreFrame& self, const std::string& software, const Texts& cards) {
                 const HeaderOptions options = headerOf(software, cards, true);
                 return bytesOf(interruptible(
                     [frame = self, options] { return makeFits(frame.frame(), options); }));
             })
        .def("header_json",
             [](const CoreFrame& self, const std::string& software, const Texts& cards) {
                 return headerJson(makeHeader(self.frame(), headerOf(software, cards, true)));
             })
        .def("write",
             [](const CoreFrame& self, const std::string& format, const python::object& path,
                bool overwrite, const std::string& software, const Texts& cards) {
                 return writeFile(self, format, textFromPython(path), overwrite,
                                  headerOf(software, cards, true));
             })
        .def("png", [](const CoreFrame& self, int most) {
            return bytesOf(interruptible([frame = self, most] {
                return makePreview(most > 0 ? reduced(frame.frame(), most) : frame.frame());
            }));
        });
}

} // namespace vxcam::py

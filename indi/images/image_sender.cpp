#include "image_sender.h"

#include "fits_compression.h"

#include <vxcamkit/error.h>
#include <vxcamkit/fits.h>
#include <vxcamkit/frame_times.h>
#include <vxcamkit/new_file.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace vxcam {

namespace {

constexpr int kMostNumber = 99999;

// What is sent: memory of the frame, or of the file that was made of it.
struct Content {
    FileBytes file;
    PackedFile packed;
    const void* bytes = nullptr;
    size_t size = 0;
};

const char* endingOf(const SendOptions& options)
{
    return !options.isFits ? ".raw" : options.isPacked ? ".fits.fz" : ".fits";
}

Content contentOf(const Frame& frame, const SendOptions& options, std::vector<HeaderCard> cards,
                  FileBytes spare)
{
    Content content;
    if (!options.isFits) {
        content.bytes = frame.data();
        content.size = frame.bytes();
        return content;
    }
    HeaderOptions header;
    header.software = std::string("indi_vxcam_ccd ") + VXCAM_VERSION;
    header.settings = true;
    header.cards = std::move(cards);
    content.file = makeFits(frame, header, nullptr, std::move(spare));
    content.bytes = content.file.data();
    content.size = content.file.size();
    if (options.isPacked) {
        content.packed = packFits(content.bytes, content.size);
        content.bytes = content.packed.bytes.get();
        content.size = content.packed.size;
    }
    return content;
}

std::string replaced(std::string text, const std::string& what, const std::string& by)
{
    const size_t at = text.find(what);
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

// Where the prefix names folders, too, they are made.
std::string folderOf(const std::string& path)
{
    return std::filesystem::path(path).parent_path();
}

// The name with the first number that no file has yet.
std::string newPath(const SendOptions& options)
{
    const char* const ending = endingOf(options);
    std::string time = utcText(std::chrono::system_clock::now());
    std::replace(time.begin(), time.end(), ':', '-');
    const std::string prefix = replaced(options.prefix, "ISO8601", time);
    for (int number = 1; number <= kMostNumber; ++number) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%03d", number);
        std::string path = options.folder + "/" + replaced(prefix, "XXX", digits) + ending;
        std::error_code ignored; // writing says it better
        if (!std::filesystem::exists(path, ignored) || prefix.find("XXX") == std::string::npos)
            return path;
    }
    throw Error(ErrorKind::File, options.folder + ": there are too many images already");
}

} // namespace

void ImageSender::setCards(std::vector<HeaderCard> cards)
{
    std::lock_guard<std::mutex> guard(lock_);
    cards_ = std::move(cards);
}

void requireSpace(std::filesystem::path folder, uintmax_t bytes)
{
    std::error_code trouble;
    while (!std::filesystem::exists(folder, trouble) && folder.has_relative_path()) {
        folder = folder.parent_path();
    }
    const auto space = std::filesystem::space(folder, trouble);
    if (trouble || space.available >= bytes) return; // writing says it better
    throw Error(ErrorKind::File, folder.string() + ": its disk has " +
                                     std::to_string(space.available >> 10) +
                                     " KB left, which is not enough");
}

void ImageSender::requireRoom(const SendOptions& options, size_t bytes)
{
    if (!options.toFile) return;
    const std::string path = newPath(options), folder = folderOf(path);
    std::error_code trouble;
    std::filesystem::create_directories(folder, trouble);
    if (!trouble && access(folder.c_str(), W_OK | X_OK) != 0) {
        trouble.assign(errno, std::generic_category());
    }
    if (trouble) throw Error(ErrorKind::File, folder + ": " + trouble.message());
    if (std::filesystem::exists(path, trouble))
        throw Error(ErrorKind::File, path + ": exists already");
    if (trouble) throw Error(ErrorKind::File, path + ": " + trouble.message());
    if (!options.isPacked) requireSpace(folder, bytes);
}

std::string ImageSender::send(const Frame& frame, const SendOptions& options,
                              INDI::PropertyBlob image)
{
    std::vector<HeaderCard> cards;
    {
        std::lock_guard<std::mutex> guard(lock_);
        cards = cards_;
    }
    Content content = contentOf(frame, options, std::move(cards), std::move(spare_));
    std::string path;
    std::optional<Error> trouble;
    try {
        if (options.toFile) {
            std::error_code ignored; // writing says it better
            path = newPath(options);
            std::filesystem::create_directories(folderOf(path), ignored);
            writeNewFile(path, content.bytes, content.size);
        }
    } catch (const Error& error) {
        trouble = error;
    }
    if (options.toClient) {
        // INDI counts the BLOBs of all devices, without a lock.
        static std::mutex& sending = *new std::mutex;
        std::lock_guard<std::mutex> guard(sending);
        image[0].setBlob(const_cast<void*>(content.bytes)); // it is only read
        image[0].setBlobLen(static_cast<int>(content.size));
        image[0].setSize(static_cast<int>(content.size));
        image[0].setFormat(endingOf(options));
        image.setState(IPS_OK);
        image.apply();
        image[0].setBlob(nullptr);
        image[0].setBlobLen(0);
    }
    spare_ = std::move(content.file);
    if (trouble) throw Error(*trouble);
    return path;
}

} // namespace vxcam

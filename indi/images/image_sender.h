// Frames on their way to clients and to files of this host.
#ifndef VXINDI_IMAGE_SENDER_H
#define VXINDI_IMAGE_SENDER_H

#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>
#include <vxcamkit/header.h>

#include <indipropertyblob.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace vxcam {

// As the properties say when an exposure starts.
struct SendOptions {
    bool toClient = true, toFile = false;
    bool isFits = true;         // else the pixels alone, as they are in memory
    bool isPacked = false;      // FITS only
    std::string folder, prefix; // XXX in it stands for a number, ISO8601 for the time
};

// Throws Error{File} where the disk of a folder has less than that left. The folder may not be
// there yet.
void requireSpace(std::filesystem::path folder, uintmax_t bytes);

// Threads: send() on the thread of the exposures, the others on any.
class ImageSender
{
public:
    // Of the observatory, for the frames that follow.
    void setCards(std::vector<HeaderCard> cards);

    // Throws Error{File} when a file of so many bytes could not be written now. Makes the folder.
    static void requireRoom(const SendOptions& options, size_t bytes);

    // Hands on a frame as the BLOB of `image`; the path of the file that was written, if one was.
    // Throws Error{File}, Error{Usage}; clients have the frame also when no file could be written.
    std::string send(const Frame& frame, const SendOptions& options, INDI::PropertyBlob image);

private:
    std::mutex lock_;
    std::vector<HeaderCard> cards_;
    FileBytes spare_; // of the file before, for send() alone
};

} // namespace vxcam

#endif

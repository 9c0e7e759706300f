// What the tests of files share: a folder, frames that are filled.
#ifndef FILES_SUPPORT_H
#define FILES_SUPPORT_H

#include "shell.h"

#include <vxcamkit/error.h>
#include <vxcamkit/file_bytes.h>
#include <vxcamkit/frame.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace vxcam {

// Owns: a folder of its own, with all that is put into it.
class Folder
{
public:
    Folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "vxcamXXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp");
        path_ = name;
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name = "") const
    {
        return name.empty() ? path_ : path_ + "/" + name;
    }
    // The names of all files, hidden ones too, in order.
    std::vector<std::string> names() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string path_;
};

inline void makeTextFile(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline void makeTextFile(const std::string& path, const FileBytes& bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline FrameFacts factsOf(int rows, int columns, int bits = 16)
{
    FrameFacts facts;
    facts.rows = rows;
    facts.columns = columns;
    facts.bits = bits;
    return facts;
}

template <class Pixel>
Frame frameOf(FrameFacts facts, const std::vector<Pixel>& pixels)
{
    facts.bits = 8 * sizeof(Pixel);
    Frame frame(std::move(facts));
    std::memcpy(frame.mutableData(), pixels.data(), frame.bytes());
    return frame;
}

template <class Pixel>
Frame frameOf(int rows, int columns, const std::vector<Pixel>& pixels)
{
    return frameOf(factsOf(rows, columns), pixels);
}

// The text of an error; "" when there is none.
template <class Call>
std::string refusalOf(Call call, ErrorKind kind)
{
    try {
        call();
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), kind) << error.what();
        return error.what();
    }
    return "";
}

} // namespace vxcam

#endif

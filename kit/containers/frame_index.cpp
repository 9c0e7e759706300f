#include "containers/frame_index.h"

#include "containers/record_columns.h"

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <filesystem>

namespace vxcam {

namespace {

constexpr int kVersion = 1;

std::string lineOf(const nlohmann::ordered_json& object)
{
    return object.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace

std::string frameIndexPath(const std::string& path)
{
    return path + ".jsonl";
}

FrameIndex::FrameIndex(const std::string& path, const RecordOptions& options, const Frame& first,
                       const char* format)
    : file_(frameIndexPath(path), options.force)
{
    nlohmann::ordered_json line;
    line["record"] = format;
    line["version"] = kVersion;
    line["file"] = std::filesystem::path(path).filename().string();
    line["rows"] = first.rows();
    line["columns"] = first.columns();
    line["bits"] = first.bits();
    line["header"] = nlohmann::ordered_json::parse(headerJson(recordHeader(first, options.header)));
    line["settings"] = nlohmann::ordered_json::parse(first.facts().settings.json());
    file_.append(lineOf(line));
    file_.flush();
}

void FrameIndex::add(const RecordedFrame& frame, uint64_t offset)
{
    std::string line = recordRowJson(frame);
    line.pop_back();
    file_.append(line + ",\"offset\":" + std::to_string(offset) + "}\n");
}

void FrameIndex::note(const Event& event)
{
    file_.append(recordNoteJson(event) + "\n");
}

void FrameIndex::flush()
{
    file_.flush();
}

void FrameIndex::close(const RecordEnd& end)
{
    nlohmann::ordered_json line;
    line["ended"] = end.how;
    line["dropped"] = end.dropped;
    file_.append(lineOf(line));
    file_.flush();
    file_.sync();
}

void FrameIndex::remove()
{
    ::unlink(file_.path().c_str());
}

} // namespace vxcam

// vxcam decode: tells the messages in a recording of the wire.
#include "arguments.h"
#include "failure.h"
#include "interrupt.h"
#include "program.h"
#include "report.h"

#include <vxcamkit/error.h>
#include <vxcamkit/value.h>
#include <vxcamkit/wire_messages.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>

const char* const gsDecodeExamples =
    R"(  vxcam decode run.vxw                             a line for each message
  vxcam decode run.vxw --without pixels --from 2s --to 3.5s
  vxcam decode run.vxw --direction sent --name SetExposureEx --name 0x36
  vxcam decode run.vxw --json | jq .name           an object a line)";

namespace {

using vxcam::WireEvent;

constexpr size_t gnShownBytes = 32;
constexpr size_t gnIdText = 10; // 0x and eight digits
constexpr const char* gsPixels = "pixels";
constexpr uint32_t gaPixelIds[] = {0x66, 0x67, 0x88};

// "set exposure-ex" and "SetExposureEx" are the same.
std::string Plain(const std::string& name)
{
    std::string plain;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) != 0) plain += static_cast<char>(std::tolower(byte));
    }
    return plain;
}

// Messages by their names or ids.
class tcChoice
{
public:
    explicit tcChoice(const std::vector<std::string>& words);
    bool IsEmpty() const { return maNames.empty() && maIds.empty(); }
    bool Holds(const vxcam::WirePiece& message) const;

private:
    std::vector<std::string> maNames;
    std::vector<uint32_t> maIds;
};

tcChoice::tcChoice(const std::vector<std::string>& words)
{
    const std::vector<std::string> known = vxcam::wireNames();
    for (const std::string& word : words) {
        unsigned id = 0;
        int length = 0;
        if (word.rfind("0x", 0) == 0 && word.size() <= gnIdText &&
            std::sscanf(word.c_str(), "%x%n", &id, &length) == 1 &&
            static_cast<size_t>(length) == word.size()) {
            maIds.push_back(id);
        } else if (word == gsPixels) {
            maIds.insert(maIds.end(), std::begin(gaPixelIds), std::end(gaPixelIds));
        } else if (std::any_of(known.begin(), known.end(),
                               [&](const auto& name) { return Plain(name) == Plain(word); })) {
            maNames.push_back(Plain(word));
        } else {
            throw tcFailure(eExitUsage,
                            "no message is called '" + word +
                                "'; a name is as decode prints it, an id like 0x66, or pixels");
        }
    }
}

bool tcChoice::Holds(const vxcam::WirePiece& message) const
{
    const std::string name = Plain(vxcam::wireName(message));
    return std::find(maNames.begin(), maNames.end(), name) != maNames.end() ||
           std::find(maIds.begin(), maIds.end(), message.id()) != maIds.end();
}

std::string HexText(std::string_view bytes, size_t most)
{
    std::string text;
    for (const char byte : bytes.substr(0, most)) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text + (bytes.size() > most ? "..." : "");
}

class tcDecode : public tcVerb
{
public:
    void Declare(tcCommandLine& line) override;
    void Run() override;

private:
    bool IsChosen(const WireEvent& event, const tcChoice& names, const tcChoice& without) const;
    void Print(const WireEvent& event);
    void PrintText(const WireEvent& event) const;
    void PrintObject(const WireEvent& event) const;
    double Seconds(const WireEvent& event) const;
    void End(const vxcam::WireCondition& condition) const;

    std::string msFile, msDirection = "both", msFrom, msTo;
    std::vector<std::string> maNames, maWithout;
    bool mbQuiet = false, mbJsonLines = false, mbPayload = false;
    std::optional<std::chrono::milliseconds> mFrom, mTo;
    std::optional<vxcam::SteadyTime> mBegin;
    uint64_t mnMessages = 0, mnStray = 0;
};

void tcDecode::Declare(tcCommandLine& line)
{
    line.Operand("FILE", &msFile, "recording that vxcam capture made").Required();
    line.Option("--direction", &msDirection, "WAY", "sent (to the camera), received, or both")
        .OneOf({"sent", "received", "both"});
    line.Option("--name", &maNames, "NAME",
                "only messages of this name or id (0x66), or pixels; may be repeated");
    line.Option("--without", &maWithout, "NAME", "without these; may be repeated");
    line.Option("--from", &msFrom, "TIME", "what came earlier is left out; since the beginning");
    line.Option("--to", &msTo, "TIME", "what came later is left out");
    line.Flag("--payload", &mbPayload, "all bytes of each message, too");
    DeclareQuiet(line, &mbQuiet);
    line.Flag("--json", &mbJsonLines, "one JSON object a line");
}

double tcDecode::Seconds(const WireEvent& event) const
{
    return std::chrono::duration<double>(event.time.steady - *mBegin).count();
}

bool tcDecode::IsChosen(const WireEvent& event, const tcChoice& names,
                        const tcChoice& without) const
{
    const auto since = event.time.steady - *mBegin;
    if ((mFrom && since < *mFrom) || (mTo && since > *mTo)) return false;
    const bool isMessage = event.kind == WireEvent::Kind::Message;
    if (!isMessage && event.kind != WireEvent::Kind::Stray) return names.IsEmpty();
    if (msDirection != "both" && (msDirection == "sent") != event.piece.isSent) return false;
    if (!isMessage) return names.IsEmpty();
    return (names.IsEmpty() || names.Holds(event.piece)) && !without.Holds(event.piece);
}

void tcDecode::PrintText(const WireEvent& event) const
{
    const vxcam::WirePiece& piece = event.piece;
    std::string text = vxcam::utcText(event.time.utc, 6) + "Z ";
    if (event.camera > 0) text += std::to_string(event.camera) + " ";
    const bool isPiece =
        event.kind == WireEvent::Kind::Message || event.kind == WireEvent::Kind::Stray;
    text += !isPiece ? "= " : piece.isSent ? "> " : "< ";
    if (event.kind == WireEvent::Kind::Message) {
        char head[48];
        std::snprintf(head, sizeof head, " 0x%02x #%u", piece.id(), unsigned{piece.number()});
        text += vxcam::wireName(piece) + head;
        if (!piece.isTaken()) {
            text += " (dropped: of version " + std::to_string(piece.version()) + ")";
        }
        const vxcam::WireFields fields = vxcam::wireFields(piece);
        for (const auto& [name, value] : fields) {
            text.append(" ").append(name).append("=").append(value);
        }
        const bool isOpaque = fields.empty() && !piece.payload().empty();
        if (isOpaque) text += " " + std::to_string(piece.payload().size()) + " bytes";
        if (isOpaque || mbPayload) {
            text += " " + HexText(piece.payload(), mbPayload ? std::string::npos : gnShownBytes);
        }
    } else if (event.kind == WireEvent::Kind::Stray) {
        text += std::to_string(piece.bytes.size()) + " bytes that belong to no message " +
                HexText(piece.bytes, mbPayload ? std::string::npos : gnShownBytes);
    } else if (event.kind == WireEvent::Kind::Opened) {
        text += "opened " + event.about;
    } else if (event.kind == WireEvent::Kind::Gap) {
        text += "blocks of the recording are missing here";
    } else {
        text += std::string("connection ") + vxcam::nameOf(event.kind);
    }
    PrintLine(text);
}

// A text as it is printed; a number, or several.
nlohmann::ordered_json ValueOf(const std::string& text)
{
    if (text[0] == '"') return text.substr(1, text.size() - 2);
    const bool isList = text.find(',') != std::string::npos;
    nlohmann::ordered_json value =
        nlohmann::ordered_json::parse(isList ? "[" + text + "]" : text, nullptr, false);
    if (value.is_discarded()) return text; // nan
    return value;
}

void tcDecode::PrintObject(const WireEvent& event) const
{
    const vxcam::WirePiece& piece = event.piece;
    nlohmann::ordered_json line{{"time", vxcam::utcText(event.time.utc, 9) + "Z"},
                                {"t", Seconds(event)},
                                {"event", vxcam::nameOf(event.kind)}};
    if (event.kind != WireEvent::Kind::Gap) line["camera"] = event.camera;
    if (event.kind == WireEvent::Kind::Message) {
        line["direction"] = piece.isSent ? "sent" : "received";
        line["name"] = vxcam::wireName(piece);
        line["id"] = piece.id();
        line["number"] = piece.number();
        if (!piece.isTaken()) line["version"] = piece.version();
        line["length"] = piece.payload().size();
        nlohmann::ordered_json fields = nlohmann::ordered_json::object();
        for (const auto& [name, value] : vxcam::wireFields(piece)) {
            fields[name] = ValueOf(value);
        }
        if (!fields.empty()) line["fields"] = fields;
        if (mbPayload || fields.empty())
            line["payload"] = HexText(piece.payload(), std::string::npos);
    } else if (event.kind == WireEvent::Kind::Stray) {
        line["direction"] = piece.isSent ? "sent" : "received";
        line["length"] = piece.bytes.size();
        line["payload"] = HexText(piece.bytes, std::string::npos);
    } else if (event.kind == WireEvent::Kind::Opened) {
        line["about"] = nlohmann::ordered_json::parse(event.about, nullptr, false);
        if (line["about"].is_discarded()) line["about"] = nullptr;
    }
    PrintLine(LineText(line));
}

void tcDecode::Print(const WireEvent& event)
{
    if (event.kind == WireEvent::Kind::Message) ++mnMessages;
    if (event.kind == WireEvent::Kind::Stray) ++mnStray;
    if (mbJsonLines) return PrintObject(event);
    if (!mbQuiet) PrintText(event);
}

void tcDecode::End(const vxcam::WireCondition& condition) const
{
    if (mbJsonLines) {
        PrintLine(LineText({{"event", "end"},
                            {"messages", mnMessages},
                            {"stray", mnStray},
                            {"blocks", condition.blocks},
                            {"damaged", condition.damaged},
                            {"damaged_bytes", condition.damagedBytes},
                            {"missing", condition.missing},
                            {"ended", condition.isEnded},
                            {"whole", condition.isWhole()}}));
    }
    if (condition.isWhole()) return;
    throw tcFailure(eExitCamera, msFile + ": " + condition.text());
}

void tcDecode::Run()
{
    const tcChoice names(maNames), without(maWithout);
    if (!msFrom.empty()) mFrom = ParseDuration(msFrom);
    if (!msTo.empty()) mTo = ParseDuration(msTo);
    vxcam::WireEvents events{vxcam::WireReader(msFile)};
    try {
        while (const std::optional<WireEvent> event = events.next()) {
            ThrowIfInterrupted();
            if (!mBegin) mBegin = event->time.steady;
            if (IsChosen(*event, names, without)) Print(*event);
        }
        End(events.reader().condition());
    } catch (const tcOutputClosed&) {
        // Whoever reads has seen enough.
    }
}

} // namespace

std::unique_ptr<tcVerb> MakeDecode()
{
    return std::make_unique<tcDecode>();
}

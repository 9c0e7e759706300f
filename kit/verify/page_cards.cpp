#include "verify/page_cards.h"

#include "verify/frame_cards.h"

namespace vxcam {

namespace {

using Json = nlohmann::json;

// Of each frame, whatever it is.
constexpr const char* kAlways[] = {"FRAMENO", "PIXSUM", "COMPLETE", "NPACKETS"};

// As the cards of a FITS file stand there.
FitsPart partOf(const Json& cards)
{
    FitsPart part;
    for (const auto& [word, value] : cards.items()) {
        if (value.is_boolean()) {
            part.cards[word] = value.get<bool>() ? "T" : "F";
        } else {
            part.cards[word] = value.is_string() ? value.get<std::string>() : value.dump();
        }
    }
    return part;
}

} // namespace

void comparePageCards(const std::string& description, int64_t frame, ReadRecord* record)
{
    const Json cards = Json::parse(description, nullptr, false);
    if (!cards.is_object()) {
        record->find("file", "the description of its page is no JSON object", frame);
        return;
    }
    const FitsPart part = partOf(cards);
    const ReadRow& row = record->frames[static_cast<size_t>(frame)];
    std::vector<std::string> due(std::begin(kAlways), std::end(kAlways));
    if (row["begin_ns"] != 0) due.emplace_back("DATE-OBS");
    if (row["exposure_us"] != 0) due.emplace_back("EXPTIME");
    for (const std::string& word : due) {
        if (!part.has(word)) record->find("file", "its page does not tell " + word, frame);
    }
    compareFrameCards(part, row, "the index", frame, record);
    checkTimeCards(part, frame, record);
}

} // namespace vxcam

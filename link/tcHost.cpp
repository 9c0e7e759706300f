#include "tcHost.h"

#include "HSocket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cctype>
#include <thread>
#include <utility>

namespace {

constexpr size_t gnLongestName = 253;
constexpr size_t gnLongestLabel = 63;

// Four decimal numbers as they are usually written, and not the address of nobody.
bool IsAddress(const std::string& text)
{
    in_addr address;
    char usual[INET_ADDRSTRLEN];
    return inet_pton(AF_INET, text.c_str(), &address) == 1 && address.s_addr != INADDR_ANY &&
           text == inet_ntop(AF_INET, &address, usual, sizeof usual);
}

bool IsOfName(unsigned char character)
{
    return std::isalnum(character) != 0 || character == '-' || character == '_' || character > 127;
}

// Labels with dots between them, and perhaps one at the end.
bool IsName(const std::string& text)
{
    const size_t dots = text.empty() || text.back() != '.' ? 0 : 1;
    if (text.empty() || text.size() > gnLongestName + dots) return false;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('.', start), text.size());
        if (end == start || end - start > gnLongestLabel) return false;
        if (!std::all_of(text.begin() + static_cast<long>(start),
                         text.begin() + static_cast<long>(end), IsOfName)) {
            return false;
        }
        start = end + 1;
    }
    return true;
}

// What the system takes for an address, however it is written.
bool IsNumeric(const std::string& text)
{
    in_addr ignored;
    return text.find_first_not_of("0123456789.") == std::string::npos ||
           inet_aton(text.c_str(), &ignored) != 0;
}

} // namespace

struct tcHost::tsLookUp {
    std::atomic<bool> isOver{false};
    in_addr_t address = INADDR_NONE; // the same when the name does not resolve
};

tcHost::tcHost(std::string text)
    : msText(std::move(text)), msAddress(msText), mbIsName(!IsNumeric(msText))
{}

tcHost::~tcHost() = default;

bool tcHost::IsAcceptable() const
{
    return mbIsName ? IsName(msText) : IsAddress(msText);
}

const std::string& tcHost::Address()
{
    if (mpLookUp != nullptr && mpLookUp->isOver) {
        HInetAddr found;
        found.Set(mpLookUp->address, 0);
        if (found.GetAddr() != INADDR_NONE) msAddress = found.GetIPAddr();
        mpLookUp.reset();
    }
    return msAddress;
}

void tcHost::LookUp()
try {
    if (!mbIsName || mpLookUp != nullptr) return;
    const auto lookUp = std::make_shared<tsLookUp>();
    std::thread([lookUp, name = msText] {
        lookUp->address = HInetAddr(name.c_str(), 0).GetAddr();
        lookUp->isOver = true;
    }).detach();
    mpLookUp = lookUp;
} catch (...) { // no thread or no memory for it: the address known is tried again
}
